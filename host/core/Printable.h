#pragma once

#include <string>
#include <string_view>

namespace Qx::Host {

/// The text with its control characters (ASCII's, DEL, and C1's as UTF-8 has them) written out as \n, \t or
/// \xNN, so that what comes from a file or a name cannot steer a terminal or break a line. Whatever else it
/// holds, also bytes that are no UTF-8, stays.
inline std::string printable(std::string_view text)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string result;
    const auto escape = [&](unsigned char byte) {
        result += "\\x";
        result += digits[byte >> 4U];
        result += digits[byte & 0xFU];
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : '\0');
        if (byte == '\n' || byte == '\t') {
            result += byte == '\n' ? "\\n" : "\\t";
        } else if (byte < 0x20 || byte == 0x7F) {
            escape(byte);
        } else if (byte == 0xC2 && next >= 0x80 && next < 0xA0) {
            escape(next);
            ++i;
        } else {
            result += text[i];
        }
    }
    return result;
}

} // namespace Qx::Host
