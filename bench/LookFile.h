#pragma once

#include <filesystem>

namespace Qx::Bench {

/// Returns the path of a LUT of 33 points per axis, a .cube file, or an empty path if it cannot be written.
/// Created on first use and removed at process exit.
const std::filesystem::path& lookFile();

} // namespace Qx::Bench
