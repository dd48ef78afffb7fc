#include "tools/qxhost/diagnose/ReportJson.h"

#include "host/core/Printable.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/diagnose/Verdict.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <utility>

namespace Qx::Diagnosis {

using Program::ExitCode;
using Program::Failure;
using Program::Json;

namespace {

constexpr int formatVersion = 1;
constexpr const char* formatName = "qxhost diagnose";

template <class T, std::size_t N>
using Names = std::array<std::pair<T, std::string_view>, N>;

constexpr Names<Basis, 5> bases{{{Basis::device, "device"},
                                 {Basis::waited, "waited"},
                                 {Basis::submitted, "submitted"},
                                 {Basis::processor, "processor"},
                                 {Basis::counted, "counted"}}};
constexpr Names<Better, 3> betters{
    {{Better::higher, "higher"}, {Better::lower, "lower"}, {Better::neither, "neither"}}};
constexpr Names<Ending::Kind, 5> endings{{{Ending::Kind::complete, "complete"},
                                          {Ending::Kind::interrupted, "interrupted"},
                                          {Ending::Kind::hung, "hung"},
                                          {Ending::Kind::died, "died"},
                                          {Ending::Kind::noDevice, "noDevice"}}};

template <class T, std::size_t N>
std::string_view nameOf(const Names<T, N>& names, T value)
{
    return std::find_if(names.begin(), names.end(), [&](const auto& name) { return name.first == value; })
        ->second;
}

Json orNull(const std::optional<double>& value)
{
    return value ? Json(*value) : Json(nullptr);
}

/// A value somewhere in a file, which knows where it is.
class Place
{
public:
    Place(const Json& json, std::string where) : json_(json), where_(std::move(where)) {}

    [[noreturn]] void complain(const std::string& what) const
    {
        throw Failure(ExitCode::input, where_ + ": " + what + "; is this a run of 'qxhost diagnose --json'?");
    }

    Place at(const char* key) const
    {
        if (!json_.is_object()) {
            complain("is no object");
        }
        const auto found = json_.find(key);
        if (found == json_.end()) {
            complain(fmt::format("\"{}\" is missing", key));
        }
        return {*found, where_ + "." + key};
    }

    /// The same of a value that a file of an earlier version may lack; empty if it is missing or null.
    std::optional<Place> maybeAt(const char* key) const
    {
        return json_.is_object() && json_.contains(key) && !json_[key].is_null() ? std::optional(at(key))
                                                                                 : std::nullopt;
    }

    std::vector<Place> items() const
    {
        if (!json_.is_array()) {
            complain("is no list");
        }
        std::vector<Place> all;
        for (const Json& item : json_) {
            all.emplace_back(item, fmt::format("{}[{}]", where_, all.size()));
        }
        return all;
    }

    /// A line, as it may be shown: a file of unknown origin must not steer the terminal.
    std::string text() const { return Host::printable(string()); }

    /// The same of several lines.
    std::string lines() const
    {
        const std::string text = string();
        std::string all;
        for (std::size_t begin = 0;;) {
            const std::size_t end = text.find('\n', begin);
            all += Host::printable(std::string_view(text).substr(begin, end - begin));
            if (end == std::string::npos) {
                return all;
            }
            all += '\n';
            begin = end + 1;
        }
    }

    double number() const
    {
        if (!json_.is_number() || !std::isfinite(json_.get<double>())) {
            complain("is no number");
        }
        return json_.get<double>();
    }

    /// Something measured: a rate, a time, a size. No machine comes near the bound.
    double quantity() const
    {
        constexpr double largest = 1e15;
        const double value = number();
        if (value < 0 || value > largest) {
            complain(fmt::format("{:g} is nothing that can be measured", value));
        }
        return value;
    }

    std::optional<double> optionalQuantity() const
    {
        return json_.is_null() ? std::nullopt : std::optional(quantity());
    }

    /// A whole number that the type holds, and as large as a double counts exactly.
    template <class T>
    T count() const
    {
        constexpr double exact = 9007199254740992.0; // 2^53
        constexpr double largest = std::min(exact, static_cast<double>(std::numeric_limits<T>::max()));
        const double value = number();
        if (value < 0 || value > largest || value != std::floor(value)) {
            complain("is no count");
        }
        return static_cast<T>(value);
    }

    bool flag() const
    {
        if (!json_.is_boolean()) {
            complain("is neither true nor false");
        }
        return json_.get<bool>();
    }

    template <class T, std::size_t N>
    T oneOf(const Names<T, N>& names) const
    {
        const std::string word = text();
        for (const auto& [value, name] : names) {
            if (name == word) {
                return value;
            }
        }
        complain("\"" + word + "\" is not known");
    }

private:
    std::string string() const
    {
        if (!json_.is_string()) {
            complain("is no text");
        }
        return json_.get<std::string>();
    }

    const Json& json_;
    std::string where_;
};

Figure readFigure(const Place& place)
{
    Figure figure;
    figure.id = place.at("id").text();
    figure.group = place.at("group").text();
    figure.title = place.at("title").text();
    figure.value = place.at("value").optionalQuantity();
    figure.unit = place.at("unit").text();
    figure.better = place.at("better").oneOf(betters);
    figure.basis = place.at("basis").oneOf(bases);
    figure.yardstick = place.at("yardstick").optionalQuantity();
    figure.yardstickName = place.at("yardstickName").text();
    figure.note = place.at("note").text();
    figure.failed = place.at("failed").flag();
    for (const Place& sample : place.at("samples").items()) {
        figure.samples.push_back(sample.quantity());
    }
    return figure;
}

Json deviceJson(const Device& device)
{
    return {{"name", device.name},
            {"type", device.type},
            {"driver", device.driver},
            {"software", device.software}};
}

Json machineJson(const Machine& machine)
{
    return {{"system", machine.system},
            {"processors", machine.processors},
            {"memory", machine.memory},
            {"memoryAvailable", machine.memoryAvailable},
            {"load", machine.load
                         ? Json{{"average", machine.load->average}, {"processors", machine.load->processors}}
                         : Json(nullptr)}};
}

Json verdictJson(const Verdict& verdict)
{
    Json rates = Json::array();
    for (const RealTime& rate : verdict.realTime) {
        rates.push_back({{"name", rate.name},
                         {"needed", rate.needed},
                         {"reached", orNull(rate.reached)},
                         {"realTime", rate.reached ? Json(*rate.reached >= rate.needed) : Json(nullptr)}});
    }
    return {{"health", std::string(nameOf(verdict.health))},
            {"device", verdict.device},
            {"headline", verdict.headline},
            {"faults", verdict.faults},
            {"remarks", verdict.remarks},
            {"rates", rates},
            {"limit", verdict.limit},
            {"load", verdict.load}};
}

/// Where in the text a parser stopped.
std::string lineAndColumn(std::string_view text, std::size_t byte)
{
    const std::string_view before = text.substr(0, std::min(byte > 0 ? byte - 1 : 0, text.size()));
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const std::size_t lineStart = before.rfind('\n') == std::string_view::npos ? 0 : before.rfind('\n') + 1;
    return fmt::format("line {}, column {}", line, before.size() - lineStart + 1);
}

/// The number that a parser found too large and quotes in its message, and where it is in the text.
std::string numberWithPlace(std::string_view message, std::string_view text)
{
    const std::size_t begin = message.find('\'');
    const std::size_t end = message.rfind('\'');
    if (begin == std::string_view::npos || end <= begin) {
        return "a number in it ";
    }
    const std::string_view number = message.substr(begin + 1, end - begin - 1);
    const std::size_t at = text.find(number);
    return at == std::string_view::npos
               ? fmt::format("{} ", number)
               : fmt::format("{}: {} ", lineAndColumn(text, at + 1), Host::printable(number));
}

Json parse(std::string_view text, const std::string& name)
{
    try {
        return Json::parse(text);
    } catch (const Json::parse_error& error) {
        throw Failure(ExitCode::input, fmt::format("{}: {}: is no JSON; is this a run of 'qxhost diagnose "
                                                   "--json'?",
                                                   name, lineAndColumn(text, error.byte)));
    } catch (const Json::out_of_range& error) {
        throw Failure(ExitCode::input, fmt::format("{}: {}is too large for a number", name,
                                                   numberWithPlace(error.what(), text)));
    }
}

} // namespace

Json toJson(const Figure& figure)
{
    return {{"id", figure.id},
            {"group", figure.group},
            {"title", figure.title},
            {"value", orNull(figure.value)},
            {"unit", figure.unit},
            {"better", std::string(nameOf(betters, figure.better))},
            {"basis", std::string(nameOf(bases, figure.basis))},
            {"yardstick", orNull(figure.yardstick)},
            {"yardstickName", figure.yardstickName},
            {"note", figure.note},
            {"failed", figure.failed},
            {"samples", figure.samples}};
}

Figure figureFrom(const Json& json, const std::string& where)
{
    return readFigure(Place(json, where));
}

Json toJson(const Comparison& comparison)
{
    Json changes = Json::array();
    for (const Change& change : comparison.changes) {
        changes.push_back({{"title", change.title},
                           {"unit", change.unit},
                           {"before", orNull(change.before)},
                           {"now", orNull(change.now)},
                           {"percent", orNull(change.percent)},
                           {"meaning", std::string(nameOf(change.meaning))}});
    }
    return {{"run", comparison.name},
            {"date", comparison.date},
            {"device", comparison.device},
            {"remarks", comparison.remarks},
            {"changes", std::move(changes)}};
}

Json toJson(const Report& report)
{
    Json lines = Json::array();
    for (const SuiteLine& line : report.suite) {
        lines.push_back({{"category", line.category}, {"text", line.text}});
    }
    Json figures = Json::array();
    for (const Figure& figure : report.figures) {
        figures.push_back(toJson(figure));
    }
    Json json;
    json["format"] = formatName;
    json["version"] = formatVersion;
    json["date"] = report.date;
    json["program"] = report.program;
    json["quick"] = report.quick;
    json["only"] = report.only;
    json["ending"] = {{"kind", std::string(nameOf(endings, report.ending.kind))},
                      {"reason", report.ending.reason},
                      {"doing", report.ending.doing},
                      {"said", report.ending.said}};
    json["verdict"] = verdictJson(judge(report));
    json["device"] = deviceJson(report.device);
    json["machine"] = machineJson(report.machine);
    json["suite"] = std::move(lines);
    json["figures"] = std::move(figures);
    return json;
}

Report reportFrom(std::string_view text, const std::string& name)
{
    const Json json = parse(text, name);
    const Place root(json, name);
    if (root.at("format").text() != formatName) {
        root.at("format").complain("is not \"" + std::string(formatName) + "\"");
    }
    if (root.at("version").number() != formatVersion) {
        throw Failure(ExitCode::input, name + ": was written by another version of qxhost, in a form that "
                                              "this one does not read");
    }
    Report report;
    report.date = root.at("date").text();
    report.program = root.at("program").text();
    report.quick = root.at("quick").flag();
    for (const Place& step : root.at("only").items()) {
        report.only.push_back(step.text());
    }
    const Place ending = root.at("ending");
    report.ending = {ending.at("kind").oneOf(endings), ending.at("reason").text(), ending.at("doing").text(),
                     ending.at("said").lines()};
    const Place device = root.at("device");
    report.device = {device.at("name").text(), device.at("type").text(), device.at("driver").text(),
                     device.at("software").flag()};
    const Place machine = root.at("machine");
    report.machine = {machine.at("system").text(), machine.at("processors").count<int>(),
                      machine.at("memory").count<std::uint64_t>(),
                      machine.at("memoryAvailable").count<std::uint64_t>(), std::nullopt};
    if (const auto load = machine.maybeAt("load")) {
        report.machine.load = {load->at("average").quantity(), load->at("processors").count<int>()};
    }
    for (const Place& line : root.at("suite").items()) {
        report.suite.push_back({line.at("category").count<int>(), line.at("text").text()});
    }
    for (const Place& figure : root.at("figures").items()) {
        report.figures.push_back(readFigure(figure));
    }
    return report;
}

} // namespace Qx::Diagnosis
