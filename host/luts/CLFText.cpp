#include "host/luts/CLFText.h"

#include <algorithm>

namespace Qx::Host::Luts {

namespace {

bool isNameCharacter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-' || c == '.';
}

/// Where "<ProcessList" or "<PREFIX:ProcessList" begins; npos if nowhere.
std::size_t rootOf(std::string_view text)
{
    constexpr std::string_view name = "ProcessList";
    for (std::size_t at = text.find(name); at != std::string_view::npos; at = text.find(name, at + 1)) {
        std::size_t begin = at;
        while (begin > 0 && (isNameCharacter(text[begin - 1]) || text[begin - 1] == ':')) {
            --begin;
        }
        if (begin > 0 && text[begin - 1] == '<') {
            return begin - 1;
        }
    }
    return std::string_view::npos;
}

std::string replaced(std::string text, std::string_view what, std::string_view with)
{
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size())) {
        text.replace(at, what.size(), with);
    }
    return text;
}

/// Where the attribute begins; npos if there is none.
std::size_t attributeIn(const std::string& tag, std::string_view name)
{
    const std::string mark = std::string(name) + "=";
    std::size_t at = tag.find(mark);
    while (at != std::string::npos && (at == 0 || isNameCharacter(tag[at - 1]) || tag[at - 1] == ':')) {
        at = tag.find(mark, at + 1);
    }
    return at;
}

/// Puts an attribute behind the name of the element that `tag` begins with, unless it has it.
void ensureAttribute(std::string& tag, std::string_view name, std::string_view value)
{
    if (attributeIn(tag, name) == std::string::npos) {
        const std::string_view element = "<ProcessList";
        tag.insert(element.size(), " " + std::string(name) + "=\"" + std::string(value) + "\"");
    }
}

/// Replaces an attribute's value.
void setAttribute(std::string& tag, std::string_view name, std::string_view value)
{
    const std::size_t at = attributeIn(tag, name);
    const std::size_t open = at == std::string::npos ? at : tag.find_first_of("\"'", at);
    const std::size_t close = open == std::string::npos ? open : tag.find(tag[open], open + 1);
    if (close != std::string::npos) {
        tag.replace(open + 1, close - open - 1, value);
    }
}

} // namespace

std::string asKnownCLF(std::string_view text)
{
    constexpr std::string_view smpte = "http://www.smpte-ra.org/ns/2136-1/";
    const std::size_t root = rootOf(text);
    const std::size_t end = root == std::string_view::npos ? root : text.find('>', root);
    if (end == std::string_view::npos) {
        return {};
    }
    const std::string_view whole = text.substr(root, end - root);
    const std::size_t nameEnd = std::min(whole.find_first_of(" \t\r\n"), whole.size());
    const std::size_t colon = whole.substr(0, nameEnd).find(':');
    const bool isPrefixed = colon != std::string_view::npos;
    const bool isSmpte = whole.find(smpte) != std::string_view::npos;
    if (!isPrefixed && !isSmpte) {
        return {};
    }
    std::string tag(whole);
    std::string rest(text.substr(end));
    if (isPrefixed) {
        const std::string prefix(whole.substr(1, colon));
        tag = replaced("<" + tag.substr(colon + 1), "xmlns:" + prefix.substr(0, prefix.size() - 1) + "=",
                       "xmlns=");
        rest = replaced(replaced(std::move(rest), "<" + prefix, "<"), "</" + prefix, "</");
    }
    if (isSmpte) {
        setAttribute(tag, "xmlns", "urn:AMPAS:CLF:v3.0");
        ensureAttribute(tag, "compCLFversion", "3.0");
        ensureAttribute(tag, "id", "none");
    }
    return std::string(text.substr(0, root)) + tag + rest;
}

} // namespace Qx::Host::Luts
