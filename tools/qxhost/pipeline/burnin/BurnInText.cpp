#include "tools/qxhost/pipeline/burnin/BurnInText.h"

#include "host/core/Suggestion.h"
#include "platform/Text.h"
#include "tools/qxhost/console/Failure.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace Qx::Program {

namespace {

constexpr std::array<std::string_view, 5> fieldNames{"timecode", "frame", "clip", "source", "date"};

[[noreturn]] void complain(const std::string& what)
{
    throw Failure(ExitCode::usage, "--burn-in: " + what +
                                       "; the fields are {timecode}, {frame}, {clip}, {source} and {date}, "
                                       "and {{ stands for a brace");
}

} // namespace

bool isUTF8(const std::string& text)
{
    const LightweightString<wchar_t> wide = fromUTF8(LightweightString<char>(std::string_view(text)));
    return std::none_of(wide.view().begin(), wide.view().end(),
                        [](wchar_t c) { return c >= 0xDC80 && c <= 0xDCFF; });
}

BurnInText::Field BurnInText::fieldNamed(const std::string& name)
{
    const auto found = std::find(fieldNames.begin(), fieldNames.end(), name);
    if (found == fieldNames.end()) {
        complain("there is no field {" + name + "}" + Host::didYouMean(name, fieldNames));
    }
    constexpr std::array fields{Field::timeCode, Field::frame, Field::clip, Field::source, Field::date};
    return fields.at(static_cast<std::size_t>(found - fieldNames.begin()));
}

BurnInText::BurnInText(const std::string& text)
{
    if (!isUTF8(text)) {
        throw Failure(ExitCode::usage, "--burn-in " + text +
                                           ": is not UTF-8; use a terminal, or save the "
                                           "script, in UTF-8");
    }
    pieces_.emplace_back();
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool doubled = i + 1 < text.size() && text[i + 1] == text[i];
        if (doubled && (text[i] == '{' || text[i] == '}')) {
            pieces_.back().text += text[i++];
        } else if (text[i] == '{') {
            const std::size_t end = text.find('}', i);
            if (end == std::string::npos) {
                complain("\"" + text.substr(i) + "\" has no closing brace");
            }
            pieces_.back().field = fieldNamed(text.substr(i + 1, end - i - 1));
            pieces_.emplace_back();
            i = end;
        } else {
            pieces_.back().text += text[i];
        }
    }
}

std::string BurnInText::filledFor(std::int64_t frame, const Clip& clip) const
{
    std::string result;
    for (const Piece& piece : pieces_) {
        result += piece.text;
        switch (piece.field) {
        case Field::timeCode:
            result += clip.timeCode.label(frame);
            break;
        case Field::frame:
            result += std::to_string(frame);
            break;
        case Field::clip:
            result += clip.name;
            break;
        case Field::source:
            result += clip.source;
            break;
        case Field::date:
            result += clip.date;
            break;
        case Field::none:
            break;
        }
    }
    return result;
}

} // namespace Qx::Program
