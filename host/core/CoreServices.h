#pragma once

#include "platform/Allocator.h"
#include "platform/Atomics.h"

namespace Qx::Host {

/// The allocator and the counters that a host's OS() hands out. Usable before main and after it.
iAllocator& coreAllocator();
iAtomics& coreAtomics();

} // namespace Qx::Host
