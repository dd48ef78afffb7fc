#pragma once

#include <filesystem>

namespace Qx::Host::Worker {

/// The path of the worker's program, relative to the file that this code was loaded from: beside it, in the
/// `bin` of a build, or in the `libexec/qx` of an installation. If none of these exists, the path in an
/// installation.
std::filesystem::path installedWorker();

} // namespace Qx::Host::Worker
