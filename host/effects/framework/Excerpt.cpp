#include "host/effects/framework/Excerpt.h"

#include <algorithm>
#include <array>
#include <utility>

namespace Qx::Host::Effects {
namespace {

constexpr std::size_t tabStop = 4;
constexpr std::size_t shownBefore = 60; // characters, if the line is too long to be shown whole
constexpr std::size_t shownAtAll = 100;

std::string_view lineOf(std::string_view text, std::uint32_t line)
{
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    std::size_t begin = text.substr(0, byteOrderMark.size()) == byteOrderMark ? byteOrderMark.size() : 0;
    for (std::uint32_t i = 1; i < line; ++i) {
        const std::size_t end = text.find('\n', begin);
        if (end == std::string_view::npos) {
            return {};
        }
        begin = end + 1;
    }
    std::string_view found = text.substr(begin, text.find('\n', begin) - begin);
    while (!found.empty() && (found.back() == '\r' || found.back() == ' ' || found.back() == '\t')) {
        found.remove_suffix(1);
    }
    return found;
}

bool continues(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

/// Removes the first character: a byte and its continuation bytes, as columns are counted.
std::string_view takeCharacter(std::string_view& text)
{
    std::size_t length = 1;
    while (length < text.size() && continues(text[length])) {
        ++length;
    }
    const std::string_view character = text.substr(0, length);
    text.remove_prefix(length);
    return character;
}

/// 0 if the bytes are not UTF-8.
char32_t codeOf(std::string_view character)
{
    const auto first = static_cast<unsigned char>(character[0]);
    const std::size_t length = first < 0x80U ? 1 : first >= 0xF0U ? 4 : first >= 0xE0U ? 3 : 2;
    if (character.size() != length || (first >= 0x80U && first < 0xC2U) || first > 0xF4U) {
        return 0;
    }
    char32_t code = length == 1 ? first : first & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        code = code << 6U | (static_cast<unsigned char>(character[i]) & 0x3FU);
    }
    return code;
}

/// Bytes that are not UTF-8 as those of Latin-1, which most old files have; '?' for its control characters.
std::string latin1(std::string_view bytes)
{
    std::string text;
    for (const char byte : bytes) {
        const auto code = static_cast<unsigned char>(byte);
        if (code < 0x80U) {
            text += code < 0x20U || code == 0x7FU ? '?' : byte;
        } else if (code < 0xA0U) {
            text += '?';
        } else {
            text += static_cast<char>(0xC0U | code >> 6U);
            text += static_cast<char>(0x80U | (code & 0x3FU));
        }
    }
    return text;
}

using Ranges = std::initializer_list<std::pair<char32_t, char32_t>>;

bool isIn(char32_t code, const Ranges& ranges)
{
    return std::any_of(ranges.begin(), ranges.end(),
                       [&](const auto& range) { return code >= range.first && code <= range.second; });
}

/// Control characters, marks that change the direction of the text, and invalid UTF-8.
bool isShowable(char32_t code)
{
    return code >= 0x20 && !isIn(code, {{0x7F, 0x9F},
                                        {0x200B, 0x200F},
                                        {0x2028, 0x202E},
                                        {0x2060, 0x206F},
                                        {0xD800, 0xDFFF},
                                        {0xFEFF, 0xFEFF},
                                        {0xFFF0, 0xFFFB}});
}

/// Terminal cells of a character: the wide blocks of Unicode's East Asian Width (UAX #11) take two.
std::size_t widthOf(char32_t code)
{
    if (isIn(code, {{0x0300, 0x036F}, {0x20D0, 0x20FF}, {0xFE00, 0xFE0F}})) {
        return 0;
    }
    return isIn(code, {{0x1100, 0x115F},
                       {0x2E80, 0x303E},
                       {0x3041, 0xA4CF},
                       {0xAC00, 0xD7A3},
                       {0xF900, 0xFAFF},
                       {0xFE30, 0xFE6F},
                       {0xFF00, 0xFF60},
                       {0xFFE0, 0xFFE6},
                       {0x1F300, 0x1FAFF},
                       {0x20000, 0x3FFFD}})
               ? 2
               : 1;
}

} // namespace

Excerpt excerptOf(std::string_view text, std::uint32_t line, std::uint32_t column)
{
    std::string_view rest = lineOf(text, line);
    const auto total = static_cast<std::size_t>(
        std::count_if(rest.begin(), rest.end(), [](char c) { return !continues(c); }));
    const std::size_t place = std::max(column, 1U) - 1;
    const std::size_t begin = total <= shownAtAll || place <= shownBefore ? 0 : place - shownBefore;
    const std::size_t end = std::min(total, begin + shownAtAll);
    Excerpt excerpt;
    excerpt.text = begin > 0 ? "..." : "";
    std::size_t cells = excerpt.text.size();
    for (std::size_t i = 0; i < end && !rest.empty(); ++i) {
        const std::string_view character = takeCharacter(rest);
        if (i < begin) {
            continue;
        }
        if (i == place) {
            excerpt.caret = static_cast<std::uint32_t>(cells);
        }
        const char32_t code = codeOf(character);
        const bool tab = character == "\t";
        const bool utf8 = code != 0 || character == std::string_view("\0", 1);
        const std::size_t width = tab                ? tabStop - cells % tabStop
                                  : !utf8            ? character.size()
                                  : isShowable(code) ? widthOf(code)
                                                     : 1;
        excerpt.text += tab                ? std::string(width, ' ')
                        : !utf8            ? latin1(character)
                        : isShowable(code) ? std::string(character)
                                           : "?";
        cells += width;
    }
    if (place >= end) {
        excerpt.caret = static_cast<std::uint32_t>(cells);
    }
    excerpt.text += end < total ? "..." : "";
    return excerpt.text.find_first_not_of(' ') == std::string::npos ? Excerpt{} : excerpt;
}

} // namespace Qx::Host::Effects
