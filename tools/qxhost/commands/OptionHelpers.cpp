#include "tools/qxhost/commands/OptionHelpers.h"

#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/media/read/ClipReader.h"
#include "tools/qxhost/pipeline/burnin/TimeCode.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fmt/format.h>
#include <map>

namespace Qx::Program {

namespace {

/// Reads "WxH".
void parseSize(const std::string& option, const std::string& word, unsigned& width, unsigned& height)
{
    const char* end = word.data() + word.size();
    const auto isNumber = [](std::errc error) {
        return error == std::errc() || error == std::errc::result_out_of_range;
    };
    const auto [cross, first] = std::from_chars(word.data(), end, width);
    bool good = isNumber(first) && cross != end && (*cross == 'x' || *cross == 'X');
    bool fits = first == std::errc();
    if (good) {
        const auto [stopped, second] = std::from_chars(cross + 1, end, height);
        good = isNumber(second) && stopped == end;
        fits = fits && second == std::errc();
    }
    if (good && !fits) {
        throw CLI::ValidationError(option, fmt::format("\"{0}\" is too large; the largest picture is {1} x "
                                                       "{1} pixels",
                                                       word, Media::ClipReader::largestSide));
    }
    if (!good || width == 0 || height == 0) {
        throw invalidValue(option, word, "WIDTHxHEIGHT, such as 1920x1080");
    }
}

/// Without the blanks around it.
std::string withoutBlanks(const std::string& text)
{
    constexpr const char* blanks = " \t";
    const std::size_t begin = std::min(text.find_first_not_of(blanks), text.size());
    return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

float parseComponent(const CLI::App& app, const std::string& word, const std::string& setting)
{
    if (word == "true" || word == "false") {
        return word == "true" ? 1.0F : 0.0F;
    }
    const std::optional<float> value = readNumber(word);
    if (!value) {
        complain(app, "--set " + setting + ": invalid value \"" + word +
                          "\": expected a number, as in 0.5, or several, as in 1,0.5,0");
    }
    return *value;
}

} // namespace

std::string commandName(const CLI::App& app)
{
    std::string name;
    for (const CLI::App* at = &app; at->get_parent() != nullptr; at = at->get_parent()) {
        name.insert(0, at->get_name() + (name.empty() ? "" : " "));
    }
    return name;
}

void complain(const CLI::App& app, const std::string& text)
{
    const std::string name = commandName(app);
    throw Failure(ExitCode::usage, text + "; see 'qxhost " + name + (name.empty() ? "" : " ") + "--help'");
}

CLI::ValidationError invalidValue(const std::string& option, const std::string& value,
                                  const std::string& expected)
{
    return CLI::ValidationError(option, "invalid value \"" + value + "\": expected " + expected);
}

CLI::Option* addCount(CLI::App& app, const std::string& option, std::int64_t& target, std::int64_t smallest,
                      const std::string& description)
{
    const auto set = [&target, option, smallest](const std::string& word) {
        target = parseCount(option, word, smallest);
    };
    return app.add_option_function<std::string>(option, set, description)->option_text("N");
}

std::int64_t parseCount(const std::string& option, const std::string& word, std::int64_t smallest,
                        const std::string& orElse)
{
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error == std::errc::result_out_of_range && word.front() != '-') {
        throw CLI::ValidationError(option, "\"" + word + "\" is too large");
    }
    if (error != std::errc() || end != word.data() + word.size() || value < smallest) {
        throw invalidValue(option, word, fmt::format("a whole number, {} or more{}", smallest, orElse));
    }
    return value;
}

FrameRangeOptions::Time parseTime(const std::string& option, const std::string& word,
                                  const std::string& orElse)
{
    constexpr std::int64_t microseconds = 1'000'000;
    constexpr std::int64_t mostSeconds = 100 * 24 * 3600;
    const auto refuse = [&] {
        const bool isTimeCode = TimeCode::isLabel(word);
        throw invalidValue(option, word,
                           orElse + "a time, such as 00:01:02.5 or 12.5s" +
                               (isTimeCode ? "; time codes are for --in and --out" : ""));
    };
    std::string_view rest = word;
    const bool isMillis = rest.ends_with("ms");
    const bool hasUnit = rest.ends_with('s');
    rest.remove_suffix(isMillis ? 2 : hasUnit ? 1 : 0);
    // Whole numbers between colons, the last of which may have a fraction.
    std::int64_t whole = 0;
    std::int64_t fraction = 0; // in millionths
    int parts = 0;
    for (bool isLast = false; !isLast; ++parts) {
        const std::size_t colon = rest.find(':');
        isLast = colon == std::string_view::npos;
        const std::string_view part = rest.substr(0, colon);
        const std::size_t point = std::min(part.find('.'), part.size());
        std::int64_t number = 0;
        const auto [end, error] = std::from_chars(part.data(), part.data() + point, number);
        constexpr std::int64_t sixty = 60;
        const bool good = point > 0 && error == std::errc() && end == part.data() + point && part[0] != '-' &&
                          number <= mostSeconds * (isMillis ? 1000 : 1) && (parts == 0 || number < sixty) &&
                          (isLast || point == part.size()) && parts < 3;
        if (!good) {
            refuse();
        }
        whole = whole * sixty + number;
        if (point < part.size()) {
            std::string digits(part.substr(point + 1));
            if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos) {
                refuse();
            }
            digits.resize(6, '0');
            fraction = std::stoll(digits);
        }
        rest.remove_prefix(isLast ? rest.size() : colon + 1);
    }
    if ((parts > 1) == hasUnit) {
        refuse();
    }
    const std::int64_t total = whole * microseconds + fraction;
    return FrameRangeOptions::Time(isMillis ? total / 1000 : total);
}

CLI::Option* addTimeCode(CLI::App& app, const std::string& option, std::string& target,
                         const std::string& description)
{
    const auto set = [&target, option](const std::string& word) {
        if (!TimeCode::isLabel(word)) {
            throw invalidValue(option, word,
                               "a time code, such as 10:00:05:00, or 10:00:05;00 if it is drop-frame");
        }
        target = word;
    };
    return app.add_option_function<std::string>(option, set, description)->option_text("TIMECODE");
}

CLI::Option* addSize(CLI::App& app, const std::string& option, unsigned& width, unsigned& height,
                     const std::string& description)
{
    const auto set = [option, &width, &height](const std::string& word) {
        parseSize(option, word, width, height);
    };
    return app.add_option_function<std::string>(option, set, description)->option_text("WxH");
}

namespace {

DateTime parseDate(const std::string& word)
{
    int year = 0;
    unsigned month = 0;
    unsigned day = 0;
    unsigned hour = 0;
    unsigned minute = 0;
    unsigned second = 0;
    int end = 0;
    const auto ends = [&] { return end > 0 && static_cast<std::size_t>(end) == word.size(); };
    constexpr const char* whole = "%4d-%2u-%2u%n";
    constexpr const char* withMinutes = "%4d-%2u-%2u%*1[T ]%2u:%2u%n";
    constexpr const char* withSeconds = "%4d-%2u-%2u%*1[T ]%2u:%2u:%2u%n";
    const bool known =
        (std::sscanf(word.c_str(), whole, &year, &month, &day, &end) == 3 && ends()) ||
        (std::sscanf(word.c_str(), withMinutes, &year, &month, &day, &hour, &minute, &end) == 5 && ends()) ||
        (std::sscanf(word.c_str(), withSeconds, &year, &month, &day, &hour, &minute, &second, &end) == 6 &&
         ends());
    const std::chrono::year_month_day date{std::chrono::year{year}, std::chrono::month{month},
                                           std::chrono::day{day}};
    if (!known || !date.ok() || year < 1 || hour > 23 || minute > 59 || second > 59) {
        throw invalidValue("--date", word, "a date, 2026-11-22, or one with a time, 2026-11-22T18:30:15");
    }
    return {std::chrono::sys_days{date}.time_since_epoch().count(), hour * 3600.0 + minute * 60.0 + second};
}

} // namespace

CLI::Option* addDate(CLI::App& app, std::optional<DateTime>& date)
{
    return app
        .add_option_function<std::string>(
            "--date", [&date](const std::string& word) { date = parseDate(word); },
            "The date that the clip begins at, for effects that\nshow one: YYYY-MM-DD[THH:MM[:SS]]. Default: "
            "now")
        ->option_text("DATE");
}

Media::Rational parseRate(const std::string& word)
{
    constexpr int largest = 1000000;
    const char* end = word.data() + word.size();
    Media::Rational rate;
    auto [stopped, error] = std::from_chars(word.data(), end, rate.num);
    if (error == std::errc() && stopped != end && *stopped == '/') {
        const auto result = std::from_chars(stopped + 1, end, rate.den);
        stopped = result.ptr;
        error = result.ec;
    } else if (error == std::errc() && stopped != end) {
        double value = 0;
        const auto result = std::from_chars(word.data(), end, value);
        stopped = result.ptr;
        error = value > 0 && value < largest ? result.ec : std::errc::invalid_argument;
        // 23.976, 29.97 and their kind mean N x 1000 / 1001.
        const double nearest = error == std::errc() ? std::round(value * 1.001) : 0;
        const bool isNtsc =
            std::abs(value - nearest / 1.001) < 0.005 && std::abs(value - std::round(value)) > 0.005;
        rate = isNtsc ? Media::Rational{static_cast<int>(nearest) * 1000, 1001}
                      : Media::Rational{static_cast<int>(std::lround(value * 1000)), 1000};
    }
    if (error != std::errc() || stopped != end || rate.num <= 0 || rate.den <= 0 || rate.num > largest ||
        rate.den > largest) {
        throw invalidValue("--fps", word, "a frame rate, such as 25, 29.97 or 30000/1001");
    }
    return rate;
}

CLI::Option* addPixelFormat(CLI::App& app, const std::string& option, std::optional<PixelFormat>& target,
                            const std::string& description)
{
    const auto set = [&target, option](const std::string& word) { target = parsePixelFormat(option, word); };
    return app.add_option_function<std::string>(option, set, description)->option_text("NAME[:BITS]");
}

CLI::Option* addDevice(CLI::App& app, std::string& device)
{
    return app
        .add_option("--device", device, "GPU to use: part of its name, or its number in 'qxhost devices'")
        ->option_text("NAME|N");
}

CLI::Option* addNumber(CLI::App& app, const std::string& option, std::optional<double>& target, double least,
                       double most, const std::string& description)
{
    const auto set = [&target, option, least, most](const std::string& word) {
        const std::optional<float> number = readNumber(word);
        if (!number || *number < least || *number > most) {
            throw invalidValue(option, word, fmt::format("a number from {} to {}", least, most));
        }
        target = *number;
    };
    return app.add_option_function<std::string>(option, set, description)->option_text("N");
}

CLI::Option* addBitRate(CLI::App& app, const std::string& option, std::int64_t& target,
                        const std::string& description)
{
    const auto set = [&target, option](const std::string& word) {
        const char unit = word.empty() ? '0' : word.back();
        const double scale = unit == 'k' || unit == 'K' ? 1e3 : (unit == 'M' || unit == 'm' ? 1e6 : 1);
        const std::optional<float> number = readNumber(scale > 1 ? word.substr(0, word.size() - 1) : word);
        constexpr double most = 1e11;
        const double bits = number ? std::round(static_cast<double>(*number) * scale) : 0;
        if (bits < 1 || bits > most) {
            throw invalidValue(option, word, "bits a second, such as 20M or 800k");
        }
        target = static_cast<std::int64_t>(bits);
    };
    return app.add_option_function<std::string>(option, set, description)->option_text("BITS");
}

CLI::Option* addEncoderOption(CLI::App& app, const std::string& option,
                              std::map<std::string, std::string>& target, const std::string& description)
{
    const auto set = [&target, option](const std::vector<std::string>& words) {
        for (const std::string& word : words) {
            const std::size_t equals = word.find('=');
            if (equals == 0 || equals == std::string::npos) {
                throw invalidValue(option, word, "NAME=VALUE, such as b=20M");
            }
            target[word.substr(0, equals)] = word.substr(equals + 1);
        }
    };
    return app.add_option_function<std::vector<std::string>>(option, set, description)
        ->option_text("NAME=VALUE")
        ->allow_extra_args(false)
        ->take_all();
}

CLI::Option* addOutputRowBytes(CLI::App& app, std::int64_t& rowBytes)
{
    return addCount(app, "--output-row-bytes", rowBytes, 1,
                    "Bytes from one row to the next in a raw file.\nDefault: the format's own");
}

std::vector<GivenOption> givenOptions(const CLI::App& app)
{
    std::vector<GivenOption> given;
    std::map<const CLI::Option*, std::size_t> taken;
    for (const CLI::Option* option : app.parse_order()) {
        if (option->get_positional()) {
            continue;
        }
        GivenOption& each = given.emplace_back(GivenOption{option, option->get_name(), ""});
        if (!each.isFlag()) {
            const std::vector<std::string>& values = option->results();
            each.value = values.at(std::min(taken[option]++, values.size() - 1));
        }
    }
    return given;
}

void requireValue(const CLI::App& app, const std::filesystem::path& value, const std::string& name)
{
    if (value.empty()) {
        complain(app, name + " is missing");
    }
}

void requireSize(const CLI::App& app, unsigned width)
{
    if (width == 0) {
        complain(app, "--size is missing; write --size WIDTHxHEIGHT, such as --size 320x180");
    }
}

std::optional<PixelFormat> formatFor(const CLI::App& app, const std::filesystem::path& file,
                                     const std::optional<PixelFormat>& named)
{
    const std::optional<PixelFormat> byName = pixelFormatOf(file);
    if (!named || !byName) {
        return named ? named : byName;
    }
    if (named->info != byName->info) {
        complain(app, "--format " + named->name() + " contradicts the name " + file.filename().string() +
                          "; end it in ." + named->info->word + " or .raw");
    }
    return named;
}

void checkOutputRows(const CLI::App& app, const std::optional<PixelFormat>& format, std::int64_t rowBytes)
{
    if (rowBytes != 0 && !format) {
        complain(app, "--output-row-bytes applies to raw frames only; add --format NAME ('qxhost formats' "
                      "lists them)");
    }
}

std::optional<float> readNumber(const std::string& word)
{
    float value = 0;
    const char* end = word.data() + word.size();
    const auto [stopped, error] = std::from_chars(word.data(), end, value);
    const bool good = !word.empty() && error == std::errc() && stopped == end && std::isfinite(value);
    return good ? std::optional(value) : std::nullopt;
}

TextureFile parseTexture(const CLI::App& app, const std::string& text)
{
    const std::size_t equals = text.find('=');
    if (equals == 0 || equals == std::string::npos || equals + 1 == text.size()) {
        complain(app, "--texture " + text + ": expected NAME=FILE, as in --texture Noise=noise.png");
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

ParameterSetting parseSetting(const CLI::App& app, const std::string& text)
{
    const std::size_t equals = std::min(text.find('='), text.size());
    ParameterSetting setting{withoutBlanks(text.substr(0, equals)), {}};
    if (setting.name.empty() || equals == text.size()) {
        complain(app, "--set " + text + ": expected NAME=VALUE, as in --set gain=1.2");
    }
    for (std::size_t begin = equals + 1; begin <= text.size();) {
        const std::size_t comma = std::min(text.find(',', begin), text.size());
        setting.values.push_back(parseComponent(app, withoutBlanks(text.substr(begin, comma - begin)), text));
        begin = comma + 1;
    }
    return setting;
}

} // namespace Qx::Program
