#pragma once

#include <filesystem>
#include <vector>

namespace Qx::Host {

/// Where an effect's `#include` is looked for after the including file's own directory, in this order: the
/// shaders directory, its Include, and the user's and the machine's templates.
std::vector<std::filesystem::path> effectIncludeDirectories();

} // namespace Qx::Host
