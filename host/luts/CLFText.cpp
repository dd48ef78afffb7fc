#include "host/luts/CLFText.h"

#include "host/core/AsciiCase.h"

#include <algorithm>
#include <utility>

namespace Qx::Host::Luts {

namespace {

constexpr std::string_view blanks = " \t\r\n";
constexpr std::size_t mostMarkup = 65536;
constexpr std::size_t mostParsed = std::size_t{1} << 28U; ///< bytes of markup, as often as they are parsed

bool isNameCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-' || c == '.';
}

/// The name of the element whose tag begins at `at`, with its prefix.
std::string_view nameAt(std::string_view text, std::size_t at)
{
    std::size_t end = at + 1;
    while (end < text.size() && (isNameCharacter(text[end]) || text[end] == ':')) {
        ++end;
    }
    return text.substr(at + 1, end - at - 1);
}

std::string_view withoutPrefix(std::string_view name)
{
    return name.substr(name.rfind(':') + 1);
}

/// Where "<ProcessList" or "<PREFIX:ProcessList" begins; npos if nowhere.
std::size_t rootOf(std::string_view text)
{
    std::size_t at = text.find('<');
    while (at != std::string_view::npos && withoutPrefix(nameAt(text, at)) != "ProcessList") {
        at = text.find('<', at + 1);
    }
    return at;
}

bool refersToAFile(std::string_view text)
{
    for (std::size_t at = text.find('<'); at != std::string_view::npos; at = text.find('<', at + 1)) {
        if (asciiLower(withoutPrefix(nameAt(text, at))) == "reference") { // OpenColorIO ignores the case
            return true;
        }
    }
    return false;
}

/// The XML declaration names ASCII or what contains it, or nothing.
bool isEncodedInBytes(std::string_view text)
{
    const std::size_t begin = text.find("<?xml");
    const std::string declaration = asciiLower(text.substr(std::min(begin, text.size()), 1024));
    const std::string_view whole = std::string_view(declaration).substr(0, declaration.find("?>"));
    const std::size_t at = whole.find("encoding");
    const std::size_t open = std::min(whole.find_first_of("\"'", std::min(at, whole.size())), whole.size());
    const std::string_view value = whole.substr(open, whole.find_first_of("\"'", open + 1) - open);
    return value.empty() || value.substr(1) == "utf-8" || value.substr(1) == "us-ascii" ||
           value.substr(1) == "ascii" || value.substr(1) == "iso-8859-1";
}

/// Behind the tag, comment or instruction that begins at `at`; npos if it does not end. A value in quotes
/// may hold '>'.
std::size_t endOfMarkup(std::string_view text, std::size_t at)
{
    for (const auto& [begin, end] :
         {std::pair<std::string_view, std::string_view>{"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<?", "?>"}}) {
        if (text.substr(at, begin.size()) == begin) {
            const std::size_t found = text.find(end, at + begin.size());
            return found == std::string_view::npos ? found : found + end.size();
        }
    }
    for (char quote = '\0'; at < text.size(); ++at) {
        if (quote == '\0' && text[at] == '>') {
            return at + 1;
        }
        if (quote == '\0' && (text[at] == '"' || text[at] == '\'')) {
            quote = text[at];
        } else if (text[at] == quote) {
            quote = '\0';
        }
    }
    return std::string_view::npos;
}

/// What is wrong with the length of tags, comments and instructions: with every line of one, OpenColorIO's
/// XML parser begins anew where it began. Empty if nothing is.
std::string obstacleInMarkup(std::string_view text)
{
    std::size_t parsed = 0;
    for (std::size_t at = text.find('<'); at != std::string_view::npos;) {
        const std::size_t end = endOfMarkup(text.substr(0, std::min(text.size(), at + mostMarkup + 1)), at);
        if (end == std::string_view::npos) {
            return text.size() - at > mostMarkup
                       ? "it has a tag or comment of more than " + std::to_string(mostMarkup) + " bytes"
                       : std::string();
        }
        const std::string_view markup = text.substr(at, end - at);
        parsed += markup.size() * static_cast<std::size_t>(std::count(markup.begin(), markup.end(), '\n'));
        if (parsed > mostParsed) {
            return "its tags and comments have too many lines";
        }
        at = text.find('<', end);
    }
    return {};
}

bool isXML(std::string_view text)
{
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    const std::string_view rest = text.substr(text.substr(0, mark.size()) == mark ? mark.size() : 0);
    const std::size_t first = rest.find_first_not_of(blanks);
    return (first != std::string_view::npos && rest[first] == '<') ||
           text.find("ProcessList") != std::string_view::npos;
}

/// Where an attribute of the tag begins; npos if there is none.
std::size_t attributeIn(std::string_view tag, std::string_view name)
{
    char quote = '\0';
    for (std::size_t at = 1; at < tag.size(); ++at) {
        if (quote != '\0') {
            quote = tag[at] == quote ? '\0' : quote;
        } else if (tag[at] == '"' || tag[at] == '\'') {
            quote = tag[at];
        } else if (blanks.find(tag[at - 1]) != std::string_view::npos &&
                   tag.substr(at, name.size()) == name) {
            const std::size_t sign = tag.find_first_not_of(blanks, at + name.size());
            if (sign != std::string_view::npos && tag[sign] == '=') {
                return at;
            }
        }
    }
    return std::string_view::npos;
}

/// Puts an attribute behind the name of the element that `tag` begins with, unless it has it.
void ensureAttribute(std::string& tag, std::string_view name, std::string_view value)
{
    if (attributeIn(tag, name) == std::string_view::npos) {
        const std::string_view element = "<ProcessList";
        tag.insert(element.size(), " " + std::string(name) + "=\"" + std::string(value) + "\"");
    }
}

/// Replaces an attribute's value. Line ends in it stay, behind the attribute.
void setAttribute(std::string& tag, std::string_view name, std::string_view value)
{
    const std::size_t at = attributeIn(tag, name);
    const std::size_t open = at == std::string::npos ? at : tag.find_first_of("\"'", at);
    const std::size_t close = open == std::string::npos ? open : tag.find(tag[open], open + 1);
    if (close != std::string::npos) {
        const auto old = tag.begin() + static_cast<std::ptrdiff_t>(open);
        const auto lines = std::count(old, tag.begin() + static_cast<std::ptrdiff_t>(close), '\n');
        tag.insert(close + 1, static_cast<std::size_t>(lines), '\n');
        tag.replace(open + 1, close - open - 1, value);
    }
}

} // namespace

std::string replaced(std::string_view text, std::string_view what, std::string_view with)
{
    std::string result;
    std::size_t begin = 0;
    for (std::size_t at = text.find(what); !what.empty() && at != std::string_view::npos;
         at = text.find(what, begin)) {
        result.append(text.substr(begin, at - begin)).append(with);
        begin = at + what.size();
    }
    return result.append(text.substr(begin));
}

std::string obstacleInXML(std::string_view text)
{
    const std::string_view mark = text.substr(0, 2);
    if (mark == "\xFF\xFE" || mark == "\xFE\xFF" ||
        (isXML(text) && (text.find('\0') != std::string_view::npos || !isEncodedInBytes(text)))) {
        return "it is XML in another encoding than UTF-8: save it as UTF-8";
    }
    if (refersToAFile(text)) {
        return "it refers to another file, which is not supported";
    }
    if (text.find("<!DOCTYPE") != std::string_view::npos || text.find("<!ENTITY") != std::string_view::npos) {
        return "it has a <!DOCTYPE> or <!ENTITY> declaration, which is not supported";
    }
    return isXML(text) ? obstacleInMarkup(text) : std::string();
}

std::string asKnownCLF(std::string_view text)
{
    constexpr std::string_view smpte = "http://www.smpte-ra.org/ns/2136-1/";
    const std::size_t root = rootOf(text);
    const std::size_t end = root == std::string_view::npos ? root : endOfMarkup(text, root);
    if (end == std::string_view::npos) {
        return {};
    }
    const std::string_view whole = text.substr(root, end - root);
    const std::string_view name = nameAt(text, root);
    const std::string_view prefix = name.substr(0, name.size() - withoutPrefix(name).size());
    const bool isSmpte = whole.find(smpte) != std::string_view::npos;
    if (prefix.empty() && !isSmpte) {
        return {};
    }
    std::string tag = "<" + std::string(whole.substr(1 + prefix.size()));
    std::string rest(text.substr(end));
    if (!prefix.empty()) {
        const std::string named = "xmlns:" + std::string(prefix.substr(0, prefix.size() - 1));
        if (const std::size_t at = attributeIn(tag, named); at != std::string::npos) {
            tag.replace(at, named.size(), "xmlns");
        }
        rest = replaced(replaced(rest, "<" + std::string(prefix), "<"), "</" + std::string(prefix), "</");
    }
    if (isSmpte) {
        setAttribute(tag, "xmlns", "urn:AMPAS:CLF:v3.0");
        ensureAttribute(tag, "compCLFversion", "3.0");
        ensureAttribute(tag, "id", "none");
    }
    return std::string(text.substr(0, root)) + tag + rest;
}

} // namespace Qx::Host::Luts
