#pragma once

#include <filesystem>
#include <vector>

namespace Qx::Host {

/// The directories in which an effect's `#include` is searched for after the including file's own, in this
/// order: the shaders directory, its Include, and the templates of the user and of the machine.
std::vector<std::filesystem::path> effectIncludeDirectories();

} // namespace Qx::Host
