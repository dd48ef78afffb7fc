#include "host/effects/hlsl/HlslMessage.h"

#include "host/effects/framework/SourceText.h"

namespace Qx::Host::Effects {
namespace {

void replaceAll(std::string& text, std::string_view what, std::string_view by)
{
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size())) {
        text.replace(at, what.size(), by);
    }
}

std::string trimmed(std::string_view text)
{
    const std::size_t begin = text.find_first_not_of(' ');
    const std::size_t end = text.find_last_not_of(' ');
    return begin == std::string_view::npos ? std::string() : std::string(text.substr(begin, end - begin + 1));
}

/// The name that a line of the uniform block declares, or nothing.
std::string_view declaredParameter(std::string_view line)
{
    const std::size_t end = line.find_first_of("[ ", line.find(' ') + 1);
    if (line.find(" : packoffset(") == std::string_view::npos || end == std::string_view::npos) {
        return {};
    }
    const std::string_view type = line.substr(0, line.find(' '));
    return type == "row_major" ? declaredParameter(line.substr(type.size() + 1))
                               : line.substr(type.size() + 1, end - type.size() - 1);
}

} // namespace

std::string readableMessage(std::string_view message, std::string_view line)
{
    if (const std::string_view name = declaredParameter(line); !name.empty()) {
        return inQuotes(name) + " cannot be the name of a parameter: " + trimmed(message);
    }
    if (message.find("can't modify a uniform") != std::string_view::npos) {
        return "a parameter of the effect cannot be assigned to";
    }
    if (message.find("can't modify a const") != std::string_view::npos) {
        return "a constant cannot be assigned to";
    }
    if (message.find("Recursion detected") != std::string_view::npos) {
        return "a function calls itself, directly or through others; shaders cannot";
    }
    const auto says = [&](std::string_view part) { return message.find(part) != std::string_view::npos; };
    if (says("wrong number of structure members")) {
        return "a list of values for a struct has one value, or one list, for each of its members";
    }
    if (says("'constructor' : too many arguments")) {
        return "a list or a constructor has more numbers than its type takes";
    }
    if (says("'constructor' : not enough data")) {
        return "a list or a constructor has fewer numbers than its type takes";
    }
    std::string text = trimmed(message);
    // The compiler writes "'TOKEN' : TEXT"; the token may be empty.
    if (const std::size_t colon = text.find("' : "); text[0] == '\'' && colon != std::string::npos) {
        const std::string token = text.substr(0, colon + 1);
        const std::string rest = trimmed(text.substr(colon + 4));
        const bool single = line.find(' ') == std::string_view::npos;
        if (rest == "Expected") {
            text = token + " is expected" + (single ? " before " + inQuotes(line) : "");
        } else {
            text = token == "''" ? rest : token + ": " + rest;
        }
    }
    replaceAll(text, "qxfx_", "");
    return text;
}

} // namespace Qx::Host::Effects
