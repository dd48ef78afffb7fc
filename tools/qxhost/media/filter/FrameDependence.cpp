#include "tools/qxhost/media/filter/FrameDependence.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavutil/mem.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <array>
#include <cctype>
#include <memory>
#include <string_view>

namespace Qx::Media {

namespace {

constexpr std::array<std::string_view, 25> known{
    "avgblur",     "boxblur",   "colorbalance", "colorchannelmixer",
    "colorlevels", "copy",      "crop",         "exposure",
    "format",      "gblur",     "hflip",        "median",
    "negate",      "null",      "pad",          "scale",
    "setdar",      "setparams", "setsar",       "shuffleplanes",
    "sobel",       "transpose", "unsharp",      "vflip",
    "zscale"};

/// Whether an expression names the frame's number, time or place.
bool namesFrame(const std::string& expression)
{
    std::string word;
    for (const char each : expression + " ") {
        if (std::isalnum(static_cast<unsigned char>(each)) != 0 || each == '_') {
            word += each;
            continue;
        }
        if (word == "n" || word == "t" || word == "pos") {
            return true;
        }
        word.clear();
    }
    return false;
}

/// Of a filter, or of what all filters have.
std::string optionOf(const AVFilterContext& filter, const char* name)
{
    std::uint8_t* text = nullptr;
    const bool isOfAll = std::string_view(name) == "enable";
    void* const options = isOfAll ? const_cast<AVFilterContext*>(&filter) : filter.priv;
    if (options == nullptr || av_opt_get(options, name, 0, &text) < 0) {
        return {};
    }
    std::string value = text != nullptr ? reinterpret_cast<const char*>(text) : "";
    av_free(text);
    return value;
}

bool isKnown(std::string_view name)
{
    return std::find(known.begin(), known.end(), name) != known.end();
}

/// The place of the first character of `ends` from `at` on that is neither quoted nor escaped.
std::size_t findPlain(std::string_view text, std::size_t at, std::string_view ends)
{
    for (; at < text.size() && ends.find(text[at]) == std::string_view::npos; ++at) {
        if (text[at] == '\\') {
            ++at;
        } else if (text[at] == '\'') {
            at = std::min(text.find('\'', at + 1), text.size());
        }
    }
    return std::min(at, text.size());
}

/// The name of the first filter in the text that is not known; empty if there is none. A filter may open
/// files as soon as it is made, so its name is looked at before.
std::string unknownName(std::string_view graph)
{
    for (std::size_t at = 0; at < graph.size();) {
        at = std::min(graph.find_first_not_of(" \t\r\n,;", at), graph.size());
        if (at < graph.size() && graph[at] == '[') {
            at = std::min(graph.find(']', at), graph.size() - 1) + 1;
            continue;
        }
        const std::size_t end = findPlain(graph, at, "=@,;[ \t\r\n");
        const std::string_view name = graph.substr(at, end - at);
        if (!name.empty() && !isKnown(name)) {
            return std::string(name);
        }
        at = findPlain(graph, end, ",;[");
    }
    return {};
}

bool looksAtOneFrame(const AVFilterContext& filter)
{
    const std::string_view name = filter.filter->name;
    if (!isKnown(name)) {
        return false;
    }
    if (name == "crop") {
        return !namesFrame(optionOf(filter, "x")) && !namesFrame(optionOf(filter, "y"));
    }
    if (name == "pad" || name == "scale") {
        const std::string when = optionOf(filter, "eval");
        return when == "init" || when == "0" || when.empty();
    }
    return true;
}

} // namespace

std::string dependentFilter(const std::string& graph)
{
    if (std::string name = unknownName(graph); !name.empty()) {
        return name;
    }
    if (graph.empty()) {
        return {};
    }
    const auto release = [](AVFilterGraph* made) { avfilter_graph_free(&made); };
    const std::unique_ptr<AVFilterGraph, decltype(release)> parsed(avfilter_graph_alloc(), release);
    AVFilterInOut* inputs = nullptr;
    AVFilterInOut* outputs = nullptr;
    const int error = avfilter_graph_parse2(parsed.get(), graph.c_str(), &inputs, &outputs);
    avfilter_inout_free(&inputs);
    avfilter_inout_free(&outputs);
    if (error < 0) {
        return graph;
    }
    for (unsigned i = 0; i < parsed->nb_filters; ++i) {
        const AVFilterContext& filter = *parsed->filters[i];
        // Any filter may be switched by an expression of the time.
        if (!looksAtOneFrame(filter) || !optionOf(filter, "enable").empty()) {
            return filter.filter->name;
        }
    }
    return {};
}

} // namespace Qx::Media
