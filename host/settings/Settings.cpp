#include "host/settings/Settings.h"

#include "host/core/Immortal.h"
#include "host/files/ReadFile.h"
#include "host/log/HostLog.h"
#include "host/settings/Directories.h"
#include "host/settings/Toml.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <set>

namespace Qx::Host {

namespace {

bool isUpper(char c)
{
    return c >= 'A' && c <= 'Z';
}

bool isLowerOrDigit(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

std::optional<std::int64_t> parseInteger(std::string_view text)
{
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

std::optional<bool> parseFlag(std::string_view text)
{
    if (text == "1" || text == "true" || text == "yes" || text == "on") {
        return true;
    }
    if (text == "0" || text == "false" || text == "no" || text == "off") {
        return false;
    }
    return std::nullopt;
}

struct Limits
{
    std::int64_t least;
    std::int64_t most;
};

/// The limits of a number; null if it has none.
const Limits* limitsOf(std::string_view key)
{
    static const std::map<std::string, Limits, std::less<>> limits{{"cache_mib", {0, 1 << 20}},
                                                                   {"effects.workers", {1, 1024}},
                                                                   {"effects.seconds", {1, 3600}},
                                                                   {"effects.memory", {1, 1 << 20}}};
    const auto found = limits.find(key);
    return found == limits.end() ? nullptr : &found->second;
}

const char* environmentValue(const std::string& variable)
{
    const char* value = std::getenv(variable.c_str());
    return value != nullptr && *value != '\0' ? value : nullptr;
}

/// Returns true the first time for each key, since settings are read many times.
bool isNews(const std::string& thing)
{
    struct Reported
    {
        std::mutex mutex;
        std::set<std::string> things;
    };
    auto& reported = immortal<Reported>();
    const std::lock_guard lock(reported.mutex);
    return reported.things.insert(thing).second;
}

void reportEnvironment(const std::string& variable, const char* value, const std::string& wanted)
{
    if (isNews(variable)) {
        HostLog::instance().complain(variable + "=" + value + " is ignored: it must be " + wanted);
    }
}

} // namespace

void Settings::reportMistakes() const
{
    enum class Kind
    {
        Flag,
        Integer,
        Text
    };
    static const std::map<std::string, Kind, std::less<>> known{
        {"device", Kind::Text},
        {"vulkan_validation", Kind::Flag},
        {"cache", Kind::Flag},
        {"cache_mib", Kind::Integer},
        {"shaders_dir", Kind::Text},
        {"templates_dir", Kind::Text},
        {"machine_templates_dir", Kind::Text},
        {"luts_dir", Kind::Text},
        {"machine_luts_dir", Kind::Text},
        {"effects.worker", Kind::Text},
        {"effects.workers", Kind::Integer},
        {"effects.seconds", Kind::Integer},
        {"effects.memory", Kind::Integer},
        {"effects.ahead", Kind::Flag},
        {"effects.native", Kind::Flag},
        {"log.file", Kind::Flag},
        {"log.stderr", Kind::Flag},
        {"timing_lines", Kind::Flag},
        {"ForceUnscaledYCrCbColourConversion", Kind::Integer}};
    for (const auto& [key, kind] : known) {
        kind == Kind::Flag      ? static_cast<void>(flag(key))
        : kind == Kind::Integer ? static_cast<void>(integer(key))
                                : static_cast<void>(text(key));
    }
    for (const auto& [key, entry] : values_) {
        if (known.find(key) == known.end() && isNews(path_ + ' ' + key)) {
            HostLog::instance().complain(path_ + ":" + std::to_string(entry.line) + ": there is no setting " +
                                         key + "; it is ignored");
        }
    }
}

std::string environmentVariable(std::string_view key)
{
    std::string name = "QX_";
    for (std::size_t i = 0; i < key.size(); ++i) {
        const char c = key[i];
        const bool startsWord = isUpper(c) && i > 0 &&
                                (isLowerOrDigit(key[i - 1]) ||
                                 (isUpper(key[i - 1]) && i + 1 < key.size() && isLowerOrDigit(key[i + 1])));
        if (startsWord) {
            name += '_';
        }
        const bool isWordCharacter = isUpper(c) || isLowerOrDigit(c);
        name += isWordCharacter ? (c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c) : '_';
    }
    return name;
}

const Settings& Settings::unreported()
{
    return immortal<Settings>();
}

const Settings& Settings::instance()
{
    const Settings& settings = unreported();
    if (!settings.fileProblem_.empty() && isNews(settings.path_)) {
        HostLog::instance().complain(settings.fileProblem_);
    }
    return settings;
}

Settings::Settings()
{
    const std::filesystem::path directory = userConfigurationDirectory();
    if (!directory.empty()) {
        path_ = (directory / "settings.toml").string();
        read();
    }
}

Settings::Settings(const std::string& path) : path_(path)
{
    read();
}

Settings::Settings(const std::string& path, std::string_view contents) : path_(path)
{
    parse(contents);
}

void Settings::read()
{
    std::error_code error;
    if (!std::filesystem::exists(path_, error) && !error) {
        return;
    }
    constexpr std::size_t largest = 1 << 20;
    const std::optional<std::string> contents = readFile(path_, largest);
    if (!contents) {
        fileProblem_ = path_ + ": the settings cannot be read; every setting has its default";
        return;
    }
    parse(*contents);
}

void Settings::parse(std::string_view contents)
{
    // The parser nests a table for every dot in a key and frees them recursively, which can overflow the
    // stack.
    constexpr std::ptrdiff_t mostDots = 4096;
    if (std::count(contents.begin(), contents.end(), '.') > mostDots) {
        fileProblem_ = path_ + ":1:1: the file has more than " + std::to_string(mostDots) +
                       " dots, which may nest its tables too deep; every setting has its default";
        return;
    }

    toml::table root;
    try {
        root = toml::parse(contents, path_);
    } catch (const toml::parse_error& problem) {
        const auto where = problem.source().begin;
        fileProblem_ = path_ + ":" + std::to_string(where.line) + ":" + std::to_string(where.column) + ": " +
                       std::string(problem.description()) +
                       "; every setting has its default until this is mended";
        return;
    }

    const auto collect = [this](const auto& self, const toml::table& table,
                                const std::string& prefix) -> void {
        for (const auto& [name, node] : table) {
            const std::string key = prefix + std::string(name.str());
            if (const toml::table* nested = node.as_table()) {
                self(self, *nested, key + '.');
                continue;
            }
            Value& entry = values_[key];
            entry.line = node.source().begin.line;
            if (const auto* number = node.as_integer()) {
                entry.value = number->get();
            } else if (const auto* truth = node.as_boolean()) {
                entry.value = truth->get();
            } else if (const auto* text = node.as_string()) {
                entry.value = text->get();
            }
        }
    };
    collect(collect, root, "");
}

const Settings::Value* Settings::findInFile(std::string_view key) const
{
    const auto found = values_.find(key);
    return found != values_.end() ? &found->second : nullptr;
}

void Settings::reportWrongType(std::string_view key, const Value& value, const std::string& wanted) const
{
    if (isNews(path_ + ' ' + std::string(key))) {
        HostLog::instance().complain(path_ + ":" + std::to_string(value.line) + ": " + std::string(key) +
                                     " is ignored: it must be " + wanted);
    }
}

std::optional<std::int64_t> Settings::integer(std::string_view key) const
{
    const Limits* limits = limitsOf(key);
    const auto fits = [limits](std::int64_t value) {
        return limits == nullptr || (value >= limits->least && value <= limits->most);
    };
    std::string wanted = "a whole number";
    if (limits != nullptr) {
        wanted += " from " + std::to_string(limits->least) + " to " + std::to_string(limits->most);
    }
    const std::string variable = environmentVariable(key);
    if (const char* text = environmentValue(variable)) {
        if (const auto value = parseInteger(text); value && fits(*value)) {
            return value;
        }
        reportEnvironment(variable, text, wanted);
    }
    const Value* entry = findInFile(key);
    if (entry == nullptr) {
        return std::nullopt;
    }
    if (const auto* number = std::get_if<std::int64_t>(&entry->value); number && fits(*number)) {
        return *number;
    }
    if (const auto* truth = std::get_if<bool>(&entry->value); truth && fits(*truth ? 1 : 0)) {
        return *truth ? 1 : 0;
    }
    reportWrongType(key, *entry, wanted);
    return std::nullopt;
}

std::optional<bool> Settings::flag(std::string_view key) const
{
    constexpr const char* wanted = "true or false";
    const std::string variable = environmentVariable(key);
    if (const char* text = environmentValue(variable)) {
        if (const auto value = parseFlag(text)) {
            return value;
        }
        reportEnvironment(variable, text, wanted);
    }
    const Value* entry = findInFile(key);
    if (entry == nullptr) {
        return std::nullopt;
    }
    if (const auto* truth = std::get_if<bool>(&entry->value)) {
        return *truth;
    }
    if (const auto* number = std::get_if<std::int64_t>(&entry->value);
        number && (*number == 0 || *number == 1)) {
        return *number == 1;
    }
    reportWrongType(key, *entry, wanted);
    return std::nullopt;
}

std::optional<std::string> Settings::text(std::string_view key) const
{
    if (const char* value = environmentValue(environmentVariable(key))) {
        return value;
    }
    const Value* entry = findInFile(key);
    if (entry == nullptr) {
        return std::nullopt;
    }
    if (const auto* text = std::get_if<std::string>(&entry->value)) {
        return text->empty() ? std::nullopt : std::optional(*text);
    }
    if (const auto* number = std::get_if<std::int64_t>(&entry->value)) {
        return std::to_string(*number);
    }
    reportWrongType(key, *entry, "a string in quotes");
    return std::nullopt;
}

} // namespace Qx::Host
