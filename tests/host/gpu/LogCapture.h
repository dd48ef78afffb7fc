#pragma once

#include <string>

/// The log of a test process whose platform is otherwise the core's (host/core/CorePlatform.cpp).
namespace Qx::GpuTests {

/// The lines logged since the last call. Thread-safe.
std::string takeLog();

} // namespace Qx::GpuTests
