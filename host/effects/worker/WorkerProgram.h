#pragma once

#include <filesystem>

namespace Qx::Host::Worker {

/// The worker's program that belongs to the file this code was loaded from: beside it, in the `bin` of a
/// build, or in the `libexec/qx` of an installation. Where none of these exists, the place where an
/// installation has it.
std::filesystem::path installedWorker();

} // namespace Qx::Host::Worker
