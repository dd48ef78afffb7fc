#pragma once

#include "host/core/Printable.h"

#include <filesystem>
#include <string>

namespace Qx::Media {

/// The name in quotes for messages, on one line: control characters as "\n" or "\x1b", other bytes as they
/// are.
inline std::string quoted(const std::filesystem::path& file)
{
    return '"' + Host::printable(file.native()) + '"';
}

} // namespace Qx::Media
