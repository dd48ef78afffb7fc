#pragma once

#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/media/MediaTypes.h"
#include "tools/qxhost/pipeline/formats/PixelFormat.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Qx::Program {

// Options and checks that several commands share. The functions that add an option return it, for a group or
// the like; its target must live as long as the command. A value that an option refuses is a usage error.

/// All words of a command, such as "lut install"; empty for the program itself.
std::string commandName(const CLI::App& app);

/// Throws Failure (usage) with the text and where to find help.
[[noreturn]] void complain(const CLI::App& app, const std::string& text);

/// What to throw for a value that an option does not take. `expected` completes "expected ...".
CLI::ValidationError invalidValue(const std::string& option, const std::string& value,
                                  const std::string& expected);

/// Values that an option takes by name: one table for checking, help and meaning.
template <class T>
using Names = std::vector<std::pair<std::string, T>>;

template <class T>
std::vector<std::string> namesOf(const Names<T>& names)
{
    std::vector<std::string> words;
    for (const auto& [name, value] : names) {
        words.push_back(name);
    }
    return words;
}

/// Adds an option that takes one of the names, in any letter case. The table must live as long as the
/// command.
template <class T, class Target>
CLI::Option* addChoice(CLI::App& app, const std::string& option, Target& target, const Names<T>& names,
                       const std::string& description)
{
    const auto set = [&target, &names, option](const std::string& word) {
        for (const auto& [name, value] : names) {
            if (name == CLI::detail::to_lower(word)) {
                target = value;
                return;
            }
        }
        throw invalidValue(option, word, listed(namesOf(names), "or"));
    };
    return app.add_option_function<std::string>(option, set, description)
        ->option_text(CLI::detail::join(namesOf(names), "|"));
}

/// Adds an option that takes a whole number, `smallest` or more.
CLI::Option* addCount(CLI::App& app, const std::string& option, std::int64_t& target, std::int64_t smallest,
                      const std::string& description);

/// Reads a whole number, `smallest` or more. `orElse` completes what was expected. Throws
/// CLI::ValidationError in the name of the option.
std::int64_t parseCount(const std::string& option, const std::string& word, std::int64_t smallest,
                        const std::string& orElse = "");

/// Reads "00:01:02.5", "1:02.5", "12.5s" or "500ms". `orElse` begins what was expected. Throws
/// CLI::ValidationError in the name of the option.
FrameRangeOptions::Time parseTime(const std::string& option, const std::string& word,
                                  const std::string& orElse);

/// Adds an option that takes a time code, "10:00:05:00", or "10:00:05;00" for drop-frame.
CLI::Option* addTimeCode(CLI::App& app, const std::string& option, std::string& target,
                         const std::string& description);

/// Adds an option that takes a size in pixels, "1920x1080". Both are at least 1.
CLI::Option* addSize(CLI::App& app, const std::string& option, unsigned& width, unsigned& height,
                     const std::string& description);

/// Reads "25", "29.97" or "30000/1001". Throws CLI::ValidationError in the name of "--fps".
Media::Rational parseRate(const std::string& word);

/// Adds "--fps". The target is a Media::Rational or an optional one.
template <class Target>
CLI::Option* addRate(CLI::App& app, Target& rate, const std::string& description)
{
    return app
        .add_option_function<std::string>(
            "--fps", [&rate](const std::string& word) { rate = parseRate(word); }, description)
        ->option_text("R");
}

/// Adds "--date", which takes "2026-11-22", "2026-11-22T18:30" or "2026-11-22T18:30:15".
CLI::Option* addDate(CLI::App& app, std::optional<DateTime>& date);

CLI::Option* addPixelFormat(CLI::App& app, const std::string& option, std::optional<PixelFormat>& target,
                            const std::string& description);

/// Adds "--device".
CLI::Option* addDevice(CLI::App& app, std::string& device);

/// Adds an option that takes a number of this range.
CLI::Option* addNumber(CLI::App& app, const std::string& option, std::optional<double>& target, double least,
                       double most, const std::string& description);

/// Adds an option that takes bits a second: "20M", "800k", "1500000".
CLI::Option* addBitRate(CLI::App& app, const std::string& option, std::int64_t& target,
                        const std::string& description);

/// Adds an option that takes NAME=VALUE, for an encoder, and may be given several times.
CLI::Option* addEncoderOption(CLI::App& app, const std::string& option,
                              std::map<std::string, std::string>& target, const std::string& description);

/// Adds "--output-row-bytes".
CLI::Option* addOutputRowBytes(CLI::App& app, std::int64_t& rowBytes);

/// An option as it was given, with its value; a flag has none.
struct GivenOption
{
    const CLI::Option* option;
    std::string name;
    std::string value;

    bool isFlag() const { return option->get_items_expected_max() == 0; }
};

/// The options of a command in the order in which they were given, without positional arguments.
std::vector<GivenOption> givenOptions(const CLI::App& app);

/// Throws Failure (usage) if an argument is missing or empty.
void requireValue(const CLI::App& app, const std::filesystem::path& value, const std::string& name);

/// Throws Failure (usage) if "--size" is missing.
void requireSize(const CLI::App& app, unsigned width);

/// The format that was named, or else the one that the output file's name ends in. Throws Failure (usage) if
/// the two disagree.
std::optional<PixelFormat> formatFor(const CLI::App& app, const std::filesystem::path& file,
                                     const std::optional<PixelFormat>& named);

/// Throws Failure (usage) for "--output-row-bytes" without a pixel format.
void checkOutputRows(const CLI::App& app, const std::optional<PixelFormat>& format, std::int64_t rowBytes);

/// Reads a finite number, or nothing if the word is anything else.
std::optional<float> readNumber(const std::string& word);

/// Reads "NAME=FILE". Throws Failure (usage).
TextureFile parseTexture(const CLI::App& app, const std::string& text);

/// Reads "NAME=VALUE[,VALUE...]"; true and false count as 1 and 0. Throws Failure (usage).
ParameterSetting parseSetting(const CLI::App& app, const std::string& text);

} // namespace Qx::Program
