#pragma once

#include <string>
#include <string_view>

namespace Qx::Host {

/// The text with its control characters (those of ASCII, DEL, and those of C1 in UTF-8) written as \n, \t or
/// \xNN, so that text from a file or a name can neither control a terminal nor break a line. All other bytes
/// are kept, even if they are not UTF-8.
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
