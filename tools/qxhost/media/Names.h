#pragma once

#include <filesystem>
#include <string>

namespace Qx::Media {

/// The name in quotes for messages, its bytes as they are.
inline std::string quoted(const std::filesystem::path& file)
{
    std::string text(1, '"');
    text += file.native();
    text += '"';
    return text;
}

} // namespace Qx::Media
