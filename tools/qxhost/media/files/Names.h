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

/// The name of an input or output that stands for standard input or standard output.
inline constexpr const char* standardName = "-";

/// As quoted(), of what is read.
inline std::string quotedInput(const std::filesystem::path& file)
{
    return file == standardName ? "standard input" : quoted(file);
}

/// As quoted(), of what is written.
inline std::string quotedOutput(const std::filesystem::path& file)
{
    return file == standardName ? "standard output" : quoted(file);
}

} // namespace Qx::Media
