#pragma once

namespace Qx::Bench {

/// Allocations on this thread, by whose code asked for them. The program that links this has its own malloc,
/// which notes who calls.
struct Allocations
{
    int ours = 0;    ///< this project's objects, and the C++ libraries that they call
    int drivers = 0; ///< anyone else's: the Vulkan loader and the device's driver
};

/// Counts from startCounting() to stopCounting() on the calling thread.
void startCounting();
Allocations stopCounting();

} // namespace Qx::Bench
