#pragma once

#include "hosttests/HostTests.h"

#include <filesystem>

namespace Qx::HostTests {

/// Starts the reference host in this process, with its files below `directory`, and describes it. Standard
/// error becomes a file there, which the debug output is read from.
HostUnderTest startReferenceHost(int argc, char** argv, const std::filesystem::path& directory);

} // namespace Qx::HostTests
