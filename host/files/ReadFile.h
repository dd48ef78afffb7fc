#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace Qx::Host {

/// The bytes of a plain file; empty when it is none, cannot be read or has more than that many.
std::optional<std::string> readFile(const std::filesystem::path& path, std::size_t most);

} // namespace Qx::Host
