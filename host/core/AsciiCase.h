#pragma once

#include <string>
#include <string_view>

namespace Qx::Host {

/// `c` as a lower-case letter if it is one of A to Z, else as it is. Independent of the locale.
constexpr char asciiLower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// A copy of `text` with A to Z in lower case and every other byte as it is. Independent of the locale.
inline std::string asciiLower(std::string_view text)
{
    std::string lower(text);
    for (char& c : lower) {
        c = asciiLower(c);
    }
    return lower;
}

} // namespace Qx::Host
