#include "tools/qxhost/commands/convert/FilterArguments.h"

#include "tools/qxhost/commands/OptionHelpers.h"

#include <charconv>
#include <fmt/format.h>
#include <optional>
#include <string_view>
#include <vector>

namespace Qx::Program {

namespace {

/// Reads a whole number from the front of the text, and removes it.
std::optional<int> takeNumber(std::string_view& text)
{
    constexpr int most = 32768;
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || number < 0 || number > most) {
        return {};
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

bool takeCharacter(std::string_view& text, char wanted)
{
    const bool isThere = !text.empty() && text.front() == wanted;
    text.remove_prefix(isThere ? 1 : 0);
    return isThere;
}

/// "WxH" or, if a place may follow, "WxH+X+Y": two or four numbers.
std::vector<int> takeRectangle(const std::string& option, const std::string& word, bool mayHavePlace)
{
    std::string_view text = word;
    std::vector<int> numbers;
    for (const char separator : {'x', '+', '+', '\0'}) {
        const std::optional<int> number = takeNumber(text);
        if (number) {
            numbers.push_back(*number);
        }
        const bool mayEnd = numbers.size() == 2 || (mayHavePlace && numbers.size() == 4);
        if (number && text.empty() && mayEnd && numbers[0] > 0 && numbers[1] > 0) {
            return numbers;
        }
        if (!number || !takeCharacter(text, separator)) {
            break;
        }
    }
    throw invalidValue(option, word,
                       mayHavePlace ? "WxH or WxH+X+Y, such as 1280x720+0+140" : "WxH, such as 1920x1080");
}

std::string cropGraph(const std::string& word)
{
    const std::vector<int> numbers = takeRectangle("--crop", word, true);
    const std::string place = numbers.size() == 4 ? fmt::format(":{}:{}", numbers[2], numbers[3]) : "";
    return fmt::format("crop={}:{}{}:exact=1", numbers[0], numbers[1],
                       place.empty() ? ":(iw-ow)/2:(ih-oh)/2" : place);
}

std::string padGraph(const std::string& word)
{
    const std::vector<int> numbers = takeRectangle("--pad", word, false);
    return fmt::format("pad={}:{}:(ow-iw)/2:(oh-ih)/2", numbers[0], numbers[1]);
}

/// A size that is left out follows from the displayed shape, to whole pairs.
std::string resizeGraph(const std::string& word)
{
    std::string_view text = word;
    const std::optional<int> width = takeNumber(text);
    const bool hasCross = takeCharacter(text, 'x');
    const std::optional<int> height = takeNumber(text);
    const bool isPositive = width.value_or(1) > 0 && height.value_or(1) > 0;
    if (!hasCross || !text.empty() || !isPositive || (!width && !height)) {
        throw invalidValue("--resize", word, "WxH, Wx or xH, such as 1280x720 or 1280x");
    }
    const std::string w = width ? std::to_string(*width) : fmt::format("2*trunc({}*dar/2+0.5)", *height);
    const std::string h = height ? std::to_string(*height) : fmt::format("2*trunc({}/dar/2+0.5)", *width);
    return fmt::format("zscale=w={}:h={}:f=spline36,setsar=1", w, h);
}

} // namespace

void addFilters(CLI::App& app, FilterOptions& filters, ShortFilters& shortFilters)
{
    const std::string group = "FFmpeg's filters";
    const auto addShort = [&](const char* name, const char* value, std::string& target,
                              std::string (*graph)(const std::string&), const char* about) {
        app.add_option_function<std::string>(
               name, [&target, graph](const std::string& word) { target = graph(word); }, about)
            ->option_text(value)
            ->group(group);
    };
    app.add_flag_callback(
           "--deinterlace",
           [&shortFilters] { shortFilters.deinterlace = "bwdif=mode=send_frame:parity=auto:deint=all"; },
           "Make whole frames of fields")
        ->group(group);
    addShort("--crop", "WxH[+X+Y]", shortFilters.crop, cropGraph,
             "Cut out a part: the middle, or from X pixels across, Y down");
    addShort("--resize", "WxH|Wx|xH", shortFilters.resize, resizeGraph,
             "Scale, with square pixels; a side may be left out");
    addShort("--pad", "WxH", shortFilters.pad, padGraph, "Put black around the picture");
    app.add_option("--before", filters.before, "Filter decoded frames first: a graph in FFmpeg's syntax")
        ->option_text("GRAPH")
        ->group(group);
    app.add_option("--after", filters.after, "Filter converted frames, before they are encoded")
        ->option_text("GRAPH")
        ->group(group);
}

std::string graphOf(const ShortFilters& shortFilters)
{
    std::string graph;
    for (const std::string& each : {shortFilters.crop, shortFilters.resize, shortFilters.pad}) {
        graph += (graph.empty() || each.empty() ? "" : ",") + each;
    }
    return graph;
}

} // namespace Qx::Program
