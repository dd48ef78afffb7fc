#pragma once

#include <filesystem>
#include <string>

namespace Qx::Media {

/// The name in quotes for messages, on one line: control characters as "\n" or "\x1b", other bytes as they
/// are.
inline std::string quoted(const std::filesystem::path& file)
{
    std::string text(1, '"');
    for (const char c : file.native()) {
        const auto code = static_cast<unsigned char>(c);
        if (c == '\n') {
            text += "\\n";
        } else if (code < 0x20 || code == 0x7f) {
            constexpr const char* digits = "0123456789abcdef";
            text += "\\x";
            text += digits[code >> 4U];
            text += digits[code & 0xfU];
        } else {
            text += c;
        }
    }
    text += '"';
    return text;
}

} // namespace Qx::Media
