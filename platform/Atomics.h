#pragma once

#include "platform/Api.h"

#include <cstdint>

/// The host's atomic counters. Reference counts change through this service only. Thread-safe.
class QX_PLATFORM_API iAtomics
{
public:
    /// Adds one and returns the new value. Wraps at 2^32.
    virtual std::uint32_t atomicIncrement(std::uint32_t& counter) = 0;

    /// Subtracts one and returns the new value. A thread that sees 0 also sees everything that other threads
    /// wrote before they decremented the counter.
    virtual std::uint32_t atomicDecrement(std::uint32_t& counter) = 0;

protected:
    ~iAtomics() = default;
};
