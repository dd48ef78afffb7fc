#include "tools/qxhost/studio/session/Message.h"

#include "tools/qxhost/console/Failure.h"

#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <utility>

namespace Qx::Program::Studio {

namespace {

constexpr int deepest = 8;

[[noreturn]] void refuseField(const char* name, const std::string& expected)
{
    throw Failure(ExitCode::usage, fmt::format("\"{}\": expected {}", name, expected));
}

bool isBetween(double value, double least, double most)
{
    return std::isfinite(value) && value >= least && value <= most;
}

} // namespace

Message Message::parse(std::string_view text)
{
    bool isDeep = false;
    const auto limit = [&](int depth, Json::parse_event_t, Json&) {
        isDeep = isDeep || depth > deepest;
        return !isDeep;
    };
    Json fields = Json::parse(text, limit, false);
    if (isDeep || !fields.is_object()) {
        throw Failure(ExitCode::usage, isDeep
                                           ? "the message is nested too deeply"
                                           : "the message is not a JSON object such as {\"do\": \"play\"}");
    }
    return Message(std::move(fields));
}

std::optional<std::int64_t> Message::id() const
{
    const auto found = fields_.find("id");
    return found != fields_.end() && found->is_number_integer() ? std::optional(found->get<std::int64_t>())
                                                                : std::nullopt;
}

bool Message::has(const char* name) const
{
    const auto found = fields_.find(name);
    return found != fields_.end() && !found->is_null();
}

bool Message::isText(const char* name) const
{
    const auto found = fields_.find(name);
    return found != fields_.end() && found->is_string();
}

const Json& Message::field(const char* name) const
{
    const auto found = fields_.find(name);
    if (found == fields_.end()) {
        throw Failure(ExitCode::usage, fmt::format("\"{}\" is missing", name));
    }
    return *found;
}

std::int64_t Message::integer(const char* name, std::int64_t least, std::int64_t most) const
{
    const Json& value = field(name);
    const bool isWhole = value.is_number() && std::floor(value.get<double>()) == value.get<double>();
    if (!isWhole || !isBetween(value.get<double>(), static_cast<double>(least), static_cast<double>(most))) {
        refuseField(name, fmt::format("a whole number from {} to {}", least, most));
    }
    return value.is_number_integer() ? value.get<std::int64_t>()
                                     : static_cast<std::int64_t>(value.get<double>());
}

double Message::number(const char* name, double least, double most) const
{
    const Json& value = field(name);
    if (!value.is_number() || !isBetween(value.get<double>(), least, most)) {
        refuseField(name, fmt::format("a number from {} to {}", least, most));
    }
    return value.get<double>();
}

bool Message::flag(const char* name) const
{
    const Json& value = field(name);
    if (!value.is_boolean()) {
        refuseField(name, "true or false");
    }
    return value.get<bool>();
}

std::string Message::text(const char* name, std::size_t longest) const
{
    const Json& value = field(name);
    if (!value.is_string() || value.get_ref<const std::string&>().size() > longest) {
        refuseField(name, fmt::format("a text of at most {} bytes", longest));
    }
    return value.get<std::string>();
}

std::vector<float> Message::numbers(const char* name, std::size_t most) const
{
    const Json& list = field(name);
    std::vector<float> values;
    for (const Json& each : list.is_array() && list.size() <= most ? list : Json::array()) {
        const double value = each.is_boolean()  ? (each.get<bool>() ? 1.0 : 0.0)
                             : each.is_number() ? each.get<double>()
                                                : std::nan("");
        if (!(std::abs(value) <= std::numeric_limits<float>::max())) {
            values.clear();
            break;
        }
        values.push_back(static_cast<float>(value));
    }
    if (values.empty()) {
        refuseField(name, fmt::format("a list of 1 to {} finite numbers", most));
    }
    return values;
}

std::vector<std::int64_t> Message::integers(const char* name, std::size_t count) const
{
    constexpr double largest = 1e9;
    const Json& list = field(name);
    std::vector<std::int64_t> values;
    for (const Json& each : list.is_array() && list.size() == count ? list : Json::array()) {
        if (each.is_number() && isBetween(each.get<double>(), -largest, largest)) {
            values.push_back(static_cast<std::int64_t>(std::llround(each.get<double>())));
        }
    }
    if (values.size() != count) {
        refuseField(name, fmt::format("a list of {} whole numbers", count));
    }
    return values;
}

std::vector<std::string> Message::texts(const char* name, std::size_t most) const
{
    const Json& list = field(name);
    std::vector<std::string> values;
    if (!list.is_array() || list.size() > most) {
        refuseField(name, fmt::format("a list of at most {} texts", most));
    }
    for (const Json& each : list) {
        if (!each.is_string()) {
            refuseField(name, fmt::format("a list of at most {} texts", most));
        }
        values.push_back(each.get<std::string>());
    }
    return values;
}

std::vector<Message> Message::parts(const char* name, const char* key, const char* value) const
{
    if (!has(name)) {
        return {*this};
    }
    const Json& object = field(name);
    constexpr std::size_t most = 256;
    if (!object.is_object() || object.empty() || object.size() > most) {
        refuseField(name, fmt::format("an object with 1 to {} members", most));
    }
    Json common = fields_;
    common.erase(name);
    std::vector<Message> parts;
    for (const auto& [member, content] : object.items()) {
        Json fields = common;
        fields[key] = member;
        fields[value] = content;
        parts.push_back(Message(std::move(fields)));
    }
    return parts;
}

} // namespace Qx::Program::Studio
