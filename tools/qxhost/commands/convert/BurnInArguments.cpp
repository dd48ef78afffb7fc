#include "tools/qxhost/commands/convert/BurnInArguments.h"

#include "host/core/Suggestion.h"
#include "host/fonts/TextPainter.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/pipeline/burnin/BurnInPosition.h"
#include "tools/qxhost/pipeline/burnin/BurnInText.h"

#include <charconv>
#include <utility>

namespace Qx::Program {

namespace {

using Position = std::variant<BurnInAnchor, BurnInPlace>;

Position readPosition(const CLI::App& command, const std::string& word)
{
    const std::optional<Position> position = positionNamed(word);
    if (!position) {
        complain(command, "--position: invalid value \"" + word + "\"" +
                              Host::didYouMean(word, positionWords()) + ": expected " +
                              CLI::detail::join(positionWords(), ", ") + ", or X,Y in pixels");
    }
    return *position;
}

int readSize(const CLI::App& command, const std::string& word)
{
    int size = 0;
    const char* end = word.data() + word.size();
    const auto [stopped, error] = std::from_chars(word.data(), end, size);
    if (error != std::errc() || stopped != end || size < Host::Text::smallestFont ||
        size > Host::Text::largestFont) {
        complain(command, "--font-size: invalid value \"" + word +
                              "\": expected a whole number of pixels from " +
                              std::to_string(Host::Text::smallestFont) + " to " +
                              std::to_string(Host::Text::largestFont));
    }
    return size;
}

std::string readFont(const CLI::App& command, const std::string& word)
{
    if (word.empty()) {
        complain(command, "--font is empty; give a typeface or a font file");
    }
    if (!isUTF8(word)) {
        complain(command, "--font " + word + ": the name is not valid UTF-8");
    }
    return word;
}

std::string readText(const CLI::App& command, const std::string& word)
{
    if (word.empty()) {
        complain(command, "--burn-in is empty; give a text, such as \"{timecode}\"");
    }
    static_cast<void>(BurnInText(word)); // reports mistakes before a device is needed
    return word;
}

/// Applies a further option.
void readOption(const CLI::App& command, const GivenOption& given, BurnInOptions& text)
{
    if (given.name == "--font") {
        text.font = readFont(command, given.value);
    } else if (given.name == "--font-size") {
        text.size = readSize(command, given.value);
    } else {
        text.position = readPosition(command, given.value);
    }
}

void refuseSamePlace(const CLI::App& command, const std::vector<BurnInOptions>& texts)
{
    for (std::size_t i = 0; i < texts.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            if (texts[i].position == texts[j].position) {
                complain(command,
                         "--burn-in \"" + texts[j].text + "\" and \"" + texts[i].text +
                             "\" would be drawn over each other; give one of them another --position");
            }
        }
    }
}

} // namespace

void addBurnIn(CLI::App& command, std::vector<std::string>& words)
{
    const auto add = [&](const std::string& name, const std::string& value, const std::string& about) {
        command.add_option(name, words, about)
            ->option_text(value)
            ->allow_extra_args(false)
            ->take_all()
            ->group("Text");
    };
    add("--burn-in", "TEXT",
        "Draw a text into every frame, with the fields\n{timecode}, {frame}, {clip}, {source} and {date}");
    add("--font", "NAME|FILE",
        "Its typeface, or a font file (with a / in it).\nDefault: the system's monospaced one");
    add("--font-size", "N", "In pixels. Default: a twentieth of the picture's\nheight, or what fits");
    add("--position", "PLACE",
        "top-left, top, top-right, left, centre, right,\nbottom-left, bottom, bottom-right, or X,Y in "
        "pixels.\nDefault: bottom");
}

std::vector<BurnInOptions> groupBurnIns(const CLI::App& command)
{
    std::vector<BurnInOptions> texts;
    BurnInOptions first; // what was given before the first text
    for (const GivenOption& given : givenOptions(command)) {
        if (given.name == "--burn-in") {
            texts.push_back(texts.empty() ? std::exchange(first, {}) : BurnInOptions{});
            texts.back().text = readText(command, given.value);
        } else if (given.name == "--font" || given.name == "--font-size" || given.name == "--position") {
            readOption(command, given, texts.empty() ? first : texts.back());
        }
    }
    for (const char* option : {"--font", "--font-size", "--position"}) {
        if (texts.empty() && command.count(option) > 0) {
            complain(command, std::string(option) + ": there is no text; add --burn-in \"{timecode}\"");
        }
    }
    refuseSamePlace(command, texts);
    return texts;
}

} // namespace Qx::Program
