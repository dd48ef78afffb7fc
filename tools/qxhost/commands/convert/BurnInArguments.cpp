#include "tools/qxhost/commands/convert/BurnInArguments.h"

#include "host/core/Suggestion.h"
#include "host/fonts/TextPainter.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/burnin/BurnInPosition.h"
#include "tools/qxhost/pipeline/burnin/BurnInText.h"

#include <charconv>

namespace Qx::Program {

namespace {

void readPosition(const std::string& word, BurnInOptions& options)
{
    const auto position = positionNamed(word);
    if (!position) {
        throw CLI::ValidationError("--position", "invalid value \"" + word + "\"" +
                                                     Host::didYouMean(word, positionWords()) + ": expected " +
                                                     CLI::detail::join(positionWords(), ", ") +
                                                     ", or X,Y in pixels");
    }
    options.position = *position;
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
