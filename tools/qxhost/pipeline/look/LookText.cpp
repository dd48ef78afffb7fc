#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/TomlFile.h"
#include "tools/qxhost/pipeline/look/LookFile.h"
#include "tools/qxhost/pipeline/look/LookKeys.h"
#include "tools/qxhost/pipeline/output/SmallFile.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <locale>
#include <sstream>
#include <string_view>

namespace Qx::Program {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void refuseLook(const std::string& what)
{
    throw Failure(ExitCode::output, "the look cannot be saved: " + what);
}

/// In quotes, on one line.
std::string tomlText(const std::string& text)
{
    std::ostringstream stream;
    stream.imbue(std::locale::classic());
    const toml::value<std::string> value(text);
    stream << toml::toml_formatter(value, toml::format_flags::none);
    return stream.str();
}

std::string tomlKey(const std::string& name)
{
    constexpr std::string_view bare = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";
    const bool isBare = !name.empty() && name.find_first_not_of(bare) == std::string::npos;
    return isBare ? name : tomlText(name);
}

/// The shortest number that reads back as the same. Readers make a double of it first.
std::string tomlNumber(float number)
{
    std::string text = fmt::format("{}", number);
    double read = 0;
    std::from_chars(text.data(), text.data() + text.size(), read);
    if (static_cast<float>(read) != number) {
        text = fmt::format("{}", static_cast<double>(number));
    }
    return text == "-0" ? "-0.0" : text;
}

std::string tomlNumbers(const std::vector<float>& numbers)
{
    if (numbers.size() == 1) {
        return tomlNumber(numbers.front());
    }
    std::string text;
    for (const float number : numbers) {
        text += (text.empty() ? "" : ", ") + tomlNumber(number);
    }
    return "[" + text + "]";
}

/// The path as the file has it; a name without a folder would be one of the catalogue.
std::string tomlPath(const fs::path& file, const fs::path& folder)
{
    const fs::path relative = file.lexically_normal().lexically_relative(folder);
    const bool isBelow = !relative.empty() && *relative.begin() != ".." && relative != ".";
    if (!isBelow) {
        return tomlText(file.string());
    }
    return tomlText(relative.has_parent_path() ? relative.string() : "./" + relative.string());
}

std::string fileText(const std::string& file, const fs::path& folder)
{
    if (file.find('/') != std::string::npos) {
        return tomlPath(file, folder);
    }
    std::error_code error;
    if (fs::is_regular_file(folder / file, error)) {
        refuseLook(fmt::format("{} is a name of the catalogue, but a file of this name lies in {}, and would "
                               "be taken for it; choose another folder, or rename that file",
                               file, folder.string()));
    }
    return tomlText(file);
}

std::string keyText(const KeyFrame& key)
{
    return fmt::format(
        "{{ at = {}, value = {}{} }}",
        key.timeCode.empty() ? fmt::format("{}", key.frame) : tomlText(key.timeCode), tomlNumbers(key.values),
        key.curve == KeyCurve::linear ? "" : fmt::format(", curve = \"{}\"", wordOf(key.curve)));
}

std::string keysText(const LookParameter& parameter)
{
    std::vector<KeyFrame> keys = parameter.keys;
    std::stable_sort(keys.begin(), keys.end(), isEarlierKey);
    std::string text = fmt::format("keys.{} = [\n", tomlKey(parameter.name));
    for (const KeyFrame& key : keys) {
        text += "    " + keyText(key) + ",\n";
    }
    return text + "]\n";
}

/// "NAME = { A = 1, B = 2 }" with a line feed; nothing without any.
std::string inlineTable(const char* name, const std::vector<std::string>& pairs)
{
    std::string all;
    for (const std::string& pair : pairs) {
        all += (all.empty() ? "" : ", ") + pair;
    }
    return all.empty() ? "" : fmt::format("{} = {{ {} }}\n", name, all);
}

std::string linkText(const LookLink& link, const fs::path& folder)
{
    const bool isLut = link.kind == LookLink::Kind::lut;
    std::string text =
        fmt::format("\n[[step]]\n{} = {}\n", isLut ? "lut" : "effect", fileText(link.file, folder));
    text += link.on ? "" : "on = false\n";
    text += link.technique.empty() ? "" : fmt::format("technique = {}\n", tomlText(link.technique));
    std::vector<std::string> settings;
    std::string keys;
    for (const LookParameter& parameter : link.parameters) {
        if (!parameter.keys.empty()) {
            keys += keysText(parameter);
        } else if (!parameter.values.empty()) {
            settings.push_back(tomlKey(parameter.name) + " = " + tomlNumbers(parameter.values));
        }
    }
    std::vector<std::string> textures;
    for (const LookTexture& texture : link.textures) {
        textures.push_back(tomlKey(texture.name) + " = " + tomlPath(texture.file, folder));
    }
    text += isLut ? (settings.empty() ? "" : settings.front() + "\n") : inlineTable("set", settings);
    return text + inlineTable("texture", textures) + keys;
}

/// A look as its file gives it back: numbered, with parameters in the order of the file.
Look asRead(Look look)
{
    std::uint64_t id = 0;
    for (LookLink& link : look.links) {
        link.id = ++id;
        std::erase_if(link.parameters,
                      [](const LookParameter& each) { return each.keys.empty() && each.values.empty(); });
        std::stable_partition(link.parameters.begin(), link.parameters.end(),
                              [](const LookParameter& each) { return each.keys.empty(); });
        link.file = link.file.find('/') == std::string::npos
                        ? link.file
                        : fs::path(link.file).lexically_normal().string();
        for (LookParameter& parameter : link.parameters) {
            std::stable_sort(parameter.keys.begin(), parameter.keys.end(), isEarlierKey);
            parameter.values = parameter.keys.empty() ? parameter.values : std::vector<float>();
            for (KeyFrame& key : parameter.keys) {
                key.frame = key.timeCode.empty() ? key.frame : 0;
            }
        }
        for (LookTexture& texture : link.textures) {
            texture.file = texture.file.lexically_normal();
        }
    }
    return look;
}

} // namespace

std::string lookText(const Look& look, const fs::path& folder)
{
    const fs::path place = fs::absolute(folder).lexically_normal();
    const fs::path normal = place.has_filename() ? place : place.parent_path();
    std::string text = fmt::format("{} = {}\n", versionKey, lookVersion);
    text += look.about.empty() ? "" : fmt::format("about = {}\n", tomlText(look.about));
    for (const LookLink& link : look.links) {
        text += linkText(link, normal);
    }
    try {
        if (readLookText(text, normal / "look") != asRead(look)) {
            refuseLook("it would read back as another; is a value not finite, or a name empty?");
        }
    } catch (const Failure& failure) {
        if (failure.code() == ExitCode::output) {
            throw;
        }
        refuseLook(std::string("it would not read back: ") + failure.what());
    }
    return text;
}

void writeLook(const Look& look, const fs::path& file, bool replace)
{
    const std::string text = lookText(look, fs::absolute(file).parent_path());
    writeText(file, text, replace, nullptr);
}

} // namespace Qx::Program
