#pragma once

#include <string>

/// The few platform services that the GPU service itself uses, as a process of its own would supply them.
namespace Qx::GpuTests {

/// What was logged since the last call.
std::string takeLog();

} // namespace Qx::GpuTests
