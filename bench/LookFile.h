#pragma once

#include <filesystem>

namespace Qx::Bench {

/// A look of 33 points an edge, as a .cube file. Made on first use and gone with the process; empty when it
/// cannot be written.
const std::filesystem::path& lookFile();

} // namespace Qx::Bench
