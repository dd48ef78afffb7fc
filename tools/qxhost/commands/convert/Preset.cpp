#include "tools/qxhost/commands/convert/Preset.h"

#include "host/core/Suggestion.h"
#include "host/settings/Directories.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/TomlFile.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

namespace Qx::Program {

namespace fs = std::filesystem;

namespace {

constexpr const char* presetEnding = ".toml";
constexpr const char* lookMark = ".look"; // before the ending: a look, which may lie beside presets

/// Keys of a step, those that begin one first.
constexpr std::array<std::string_view, 13> stepKeys{"effect",    "lut",     "tone-map", "ocio",   "look",
                                                    "technique", "set",     "texture",  "amount", "from",
                                                    "to",        "display", "view"};
constexpr std::size_t stepBeginnings = 5;
constexpr std::array<std::string_view, 4> textKeys{"text", "position", "font", "font-size"};
/// Options whose values may name a file beside the preset.
constexpr std::array<std::string_view, 6> fileKeys{"effect", "lut", "texture", "ocio", "look", "font"};

template <std::size_t Size>
bool isOneOf(const std::array<std::string_view, Size>& words, std::string_view word)
{
    return std::find(words.begin(), words.end(), word) != words.end();
}

/// Turns the tables of a file into options.
class PresetReader
{
public:
    explicit PresetReader(const fs::path& file) { preset_.file = file; }

    Preset read(const toml::table& root)
    {
        // By their lines: the library sorts the keys.
        for (const auto& [key, node] : entriesInOrder(root)) {
            if (key == "about") {
                if (!node->is_string()) {
                    fail(*node, "about: expected text in quotes");
                }
                preset_.about = textOf(key, *node);
            } else if (key != "step" && key != "burn-in") {
                addOption(key, *node);
            }
        }
        forEachTable(root, "step", [this](const toml::table& table) { addStep(table); });
        forEachTable(root, "burn-in", [this](const toml::table& table) { addText(table); });
        return std::move(preset_);
    }

private:
    [[noreturn]] void fail(const toml::node& node, const std::string& what) const
    {
        complainOfPreset(preset_.file, node.source().begin.line, what);
    }

    void forEachTable(const toml::table& root, const char* key, const auto& add) const
    {
        const toml::node* node = root.get(key);
        if (node == nullptr) {
            return;
        }
        const toml::array* tables = node->as_array();
        const std::string expected = fmt::format("expected tables that begin with [[{}]]", key);
        if (tables == nullptr) {
            fail(*node, fmt::format("{}: {}", key, expected));
        }
        for (const toml::node& each : *tables) {
            if (!each.is_table()) {
                fail(each, fmt::format("{}: {}", key, expected));
            }
            add(*each.as_table());
        }
    }

    /// A string, a number, or numbers with commas between them.
    std::string textOf(const std::string& key, const toml::node& node) const
    {
        if (const auto* text = node.as_string()) {
            if (text->get().find('\0') != std::string::npos) {
                fail(node, key + ": the value has a character with the code 0");
            }
            return text->get();
        }
        if (const auto* whole = node.as_integer()) {
            return std::to_string(whole->get());
        }
        if (const auto* number = node.as_floating_point()) {
            if (!std::isfinite(number->get())) {
                fail(node, key + ": expected a number that is finite");
            }
            return fmt::format("{}", number->get());
        }
        if (const auto* truth = node.as_boolean()) {
            return truth->get() ? "true" : "false";
        }
        fail(node, key + ": expected text in quotes, a number, true or false");
    }

    std::string listOf(const std::string& key, const toml::node& node) const
    {
        const toml::array* parts = node.as_array();
        if (parts == nullptr) {
            return textOf(key, node);
        }
        std::string all;
        for (const toml::node& part : *parts) {
            all += (all.empty() ? "" : ",") + textOf(key, part);
        }
        return all;
    }

    std::string pathOf(const std::string& key, const std::string& word) const
    {
        const fs::path beside = preset_.file.parent_path() / word;
        std::error_code error;
        const bool isThere = isOneOf(fileKeys, key) && !word.empty() && fs::is_regular_file(beside, error);
        return isThere ? fs::absolute(beside, error).lexically_normal().string() : word;
    }

    void add(const std::string& key, std::optional<std::string> value, const toml::node& node)
    {
        const std::string name = "--" + key;
        preset_.options.push_back(
            {name, value ? name + "=" + *value : name, static_cast<unsigned>(node.source().begin.line)});
    }

    void addOption(const std::string& key, const toml::node& node)
    {
        if (key == "preset" || key == "help" || key == "help-all") {
            fail(node, key + ": cannot stand in a preset");
        }
        if (isOneOf(stepKeys, key) && key != "to") { // which is the name for many inputs too
            fail(node, key + ": belongs below a line [[step]]");
        }
        if (const toml::table* pairs = node.as_table()) {
            addPairs(key, *pairs);
        } else if (const auto* truth = node.as_boolean()) {
            if (truth->get()) {
                add(key, {}, node);
            }
        } else {
            add(key, textOf(key, node), node);
        }
    }

    /// set = { gain = 1.2, lift = [0.1, 0, 0] }
    void addPairs(const std::string& key, const toml::table& pairs)
    {
        for (const auto& [name, value] : entriesInOrder(pairs)) {
            const std::string text = listOf(name, *value);
            add(key, name + "=" + (key == "texture" ? pathOf(key, text) : text), *value);
        }
    }

    void addStep(const toml::table& step)
    {
        const std::vector<TomlEntry> entries = entriesInOrder(step);
        const auto begins = [](const TomlEntry& entry) {
            return std::find(stepKeys.begin(), stepKeys.begin() + stepBeginnings, entry.first) !=
                   stepKeys.begin() + stepBeginnings;
        };
        if (std::count_if(entries.begin(), entries.end(), begins) != 1) {
            fail(step, "[[step]]: expected one of effect, lut, look, tone-map and ocio");
        }
        for (const bool beginning : {true, false}) { // the options belong to what stands before them
            for (const TomlEntry& entry : entries) {
                if (begins(entry) == beginning) {
                    addToStep(entry.first, *entry.second);
                }
            }
        }
    }

    void addToStep(const std::string& key, const toml::node& node)
    {
        if (!isOneOf(stepKeys, key)) {
            fail(node, "[[step]]: there is no key " + key + Host::didYouMean(key, stepKeys));
        }
        if (const toml::table* pairs = node.as_table()) {
            addPairs(key, *pairs);
        } else {
            add(key, pathOf(key, textOf(key, node)), node);
        }
    }

    void addText(const toml::table& table)
    {
        const toml::node* text = table.get("text");
        if (text == nullptr) {
            fail(table, "[[burn-in]]: text is missing");
        }
        add("burn-in", textOf("text", *text), *text);
        for (const auto& [key, node] : entriesInOrder(table)) {
            if (!isOneOf(textKeys, key)) {
                fail(*node, "[[burn-in]]: there is no key " + key + Host::didYouMean(key, textKeys));
            }
            if (key != "text") {
                add(key, pathOf(key, textOf(key, *node)), *node);
            }
        }
    }

    Preset preset_;
};

} // namespace

void complainOfPreset(const fs::path& file, unsigned line, const std::string& what)
{
    throw Failure(ExitCode::usage, complaintAt(file, line, what));
}

std::vector<fs::path> presetDirectories()
{
    std::vector<fs::path> directories;
    if (const fs::path own = Host::userConfigurationDirectory(); !own.empty()) {
        directories.push_back(own / "presets");
    }
    directories.push_back(Host::installedDataDirectory() / "presets");
    return directories;
}

std::vector<fs::path> listedPresets()
{
    std::vector<fs::path> files;
    std::set<std::string> names;
    for (const fs::path& directory : presetDirectories()) {
        std::set<fs::path> here;
        std::error_code error;
        for (fs::directory_iterator at(directory, error); !error && at != fs::directory_iterator();
             at.increment(error)) {
            if (at->path().extension() == presetEnding && at->path().stem().extension() != lookMark) {
                here.insert(at->path());
            }
        }
        for (const fs::path& file : here) {
            if (names.insert(file.filename().string()).second) {
                files.push_back(file);
            }
        }
    }
    return files;
}

fs::path presetFile(const std::string& word)
{
    if (word.empty()) {
        throw Failure(ExitCode::usage, "--preset is empty; give a name of 'qxhost presets' or a file");
    }
    if (word.find('/') != std::string::npos || fs::path(word).extension() == presetEnding) {
        return word;
    }
    std::vector<std::string> names;
    for (const fs::path& file : listedPresets()) {
        if (file.stem() == word) {
            return file;
        }
        names.push_back(file.stem().string());
    }
    throw Failure(ExitCode::usage,
                  "--preset: there is no preset \"" + word + "\"" + Host::didYouMean(word, names) +
                      "; 'qxhost presets' lists them, and a file is named with its ending .toml");
}

Preset readPreset(const fs::path& file)
{
    return PresetReader(file).read(readToml(file, "--preset " + file.string(), "a preset", ExitCode::usage));
}

std::vector<Preset::Option> givingWayTo(const std::vector<std::string>& given,
                                        std::vector<Preset::Option> options)
{
    // An option that is given, and those of a preset that it takes the place of or has no use for.
    static const std::map<std::string, std::vector<std::string>> replaced{
        {"--quality", {"--bitrate", "--format"}},
        {"--bitrate", {"--quality", "--format"}},
        {"--profile", {"--format"}},
        {"--format", {"--codec", "--pixel-format", "--profile", "--quality", "--bitrate", "--video-option"}},
        {"--codec", {"--format", "--pixel-format", "--profile", "--quality", "--bitrate", "--video-option"}},
        {"--audio-codec", {"--no-audio", "--audio-option"}},
        {"--no-audio", {"--audio-codec", "--audio-option"}},
        {"--start", {"--in"}},
        {"--in", {"--start"}},
        {"--frames", {"--duration", "--out"}},
        {"--duration", {"--frames", "--out"}},
        {"--out", {"--frames", "--duration"}}};
    for (const std::string& each : given) {
        const auto row = replaced.find(each);
        if (row != replaced.end()) {
            std::erase_if(options, [&](const Preset::Option& option) {
                return std::find(row->second.begin(), row->second.end(), option.name) != row->second.end();
            });
        }
    }
    return options;
}

} // namespace Qx::Program
