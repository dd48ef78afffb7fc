#pragma once

namespace Qx::Bench {

/// Allocations on this thread, by the code that requested them. The program that links this has its own
/// malloc, which records the caller.
struct Allocations
{
    int ours = 0;    ///< this project, and the C++ libraries that it calls
    int drivers = 0; ///< others: the Vulkan loader and the device's driver
};

/// Counts from startCounting() to stopCounting() on the calling thread.
void startCounting();
Allocations stopCounting();

} // namespace Qx::Bench
