#include "tools/qxhost/commands/convert/BurnInArguments.h"

#include "host/core/Suggestion.h"
#include "host/fonts/TextPainter.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/burnin/BurnInText.h"

#include <array>
#include <charconv>

namespace Qx::Program {

namespace {

struct NamedAnchor
{
    const char* name;
    BurnInAnchor anchor;
};

constexpr std::array<NamedAnchor, 10> anchors{{{"top-left", {-1, -1}},
                                               {"top", {0, -1}},
                                               {"top-right", {1, -1}},
                                               {"left", {-1, 0}},
                                               {"centre", {0, 0}},
                                               {"center", {0, 0}},
                                               {"right", {1, 0}},
                                               {"bottom-left", {-1, 1}},
                                               {"bottom", {0, 1}},
                                               {"bottom-right", {1, 1}}}};

std::vector<std::string> anchorNames()
{
    std::vector<std::string> names;
    for (const NamedAnchor& anchor : anchors) {
        if (anchor.name != std::string_view("center")) {
            names.emplace_back(anchor.name);
        }
    }
    return names;
}

bool readPlace(const std::string& word, BurnInPlace& place)
{
    const char* end = word.data() + word.size();
    const auto [comma, first] = std::from_chars(word.data(), end, place.x);
    if (first != std::errc() || comma == end || *comma != ',') {
        return false;
    }
    const auto [stopped, second] = std::from_chars(comma + 1, end, place.y);
    // No picture is larger, and sums cannot overflow.
    constexpr int farthest = 1000000;
    return second == std::errc() && stopped == end && std::abs(place.x) <= farthest &&
           std::abs(place.y) <= farthest;
}

void readPosition(const std::string& word, BurnInOptions& options)
{
    for (const NamedAnchor& anchor : anchors) {
        if (anchor.name == CLI::detail::to_lower(word)) {
            options.position = anchor.anchor;
            return;
        }
    }
    BurnInPlace place;
    if (!readPlace(word, place)) {
        throw CLI::ValidationError(
            "--position", "invalid value \"" + word + "\"" + Host::didYouMean(word, anchorNames()) +
                              ": expected " + CLI::detail::join(anchorNames(), ", ") + ", or X,Y in pixels");
    }
    options.position = place;
}

void readSize(const std::string& word, BurnInOptions& options)
{
    const char* end = word.data() + word.size();
    const auto [stopped, error] = std::from_chars(word.data(), end, options.size);
    if (error != std::errc() || stopped != end || options.size < Host::Text::smallestFont ||
        options.size > Host::Text::largestFont) {
        throw invalidValue("--font-size", word,
                           "a whole number of pixels from " + std::to_string(Host::Text::smallestFont) +
                               " to " + std::to_string(Host::Text::largestFont));
    }
}

} // namespace

void addBurnIn(CLI::App& command, BurnInOptions& options)
{
    const std::string group = "Text";
    command
        .add_option("--burn-in", options.text,
                    "Draw a text into every frame, with the fields\n{timecode}, {frame} and {clip}")
        ->option_text("TEXT")
        ->group(group);
    command
        .add_option("--font", options.font,
                    "Its typeface, or a font file (with a / in it).\nDefault: the system's monospaced one")
        ->option_text("NAME|FILE")
        ->group(group);
    command
        .add_option_function<std::string>(
            "--font-size", [&options](const std::string& word) { readSize(word, options); },
            "In pixels. Default: a twentieth of the picture's\nheight, or what fits")
        ->option_text("N")
        ->group(group);
    command
        .add_option_function<std::string>(
            "--position", [&options](const std::string& word) { readPosition(word, options); },
            "top-left, top, top-right, left, centre, right,\nbottom-left, bottom, bottom-right, or X,Y in "
            "pixels.\nDefault: bottom")
        ->option_text("PLACE")
        ->group(group);
}

void checkBurnIn(const CLI::App& command, const BurnInOptions& options)
{
    const bool wanted = command.count("--burn-in") > 0;
    for (const char* option : {"--font", "--font-size", "--position"}) {
        if (!wanted && command.count(option) > 0) {
            throw Failure(ExitCode::usage,
                          std::string(option) + ": there is no text; add --burn-in \"{timecode}\"");
        }
    }
    if (command.count("--burn-in") > 1) {
        throw Failure(ExitCode::usage, "--burn-in is given twice; put everything into one text");
    }
    if (wanted && options.text.empty()) {
        throw Failure(ExitCode::usage, "--burn-in is empty; give a text, such as \"{timecode}\"");
    }
    if (command.count("--font") > 0 && (options.font.empty() || !isUTF8(options.font))) {
        throw Failure(ExitCode::usage, options.font.empty()
                                           ? "--font is empty; give a typeface or a font file"
                                           : "--font " + options.font + ": the name is not valid UTF-8");
    }
    if (wanted) {
        static_cast<void>(BurnInText(options.text)); // reports mistakes before a device is needed
    }
}

} // namespace Qx::Program
