#pragma once

#include "platform/Api.h"

#include <cstdint>

/// The host's atomic counters: the only way in which reference counts change.
class QX_PLATFORM_API iAtomics
{
public:
    /// Adds one; returns the new value. Wraps at 2^32.
    virtual std::uint32_t atomicIncrement(std::uint32_t& counter) = 0;

    /// Subtracts one; returns the new value. Everything done before by any thread that subtracted is visible
    /// to the one that sees 0.
    virtual std::uint32_t atomicDecrement(std::uint32_t& counter) = 0;

protected:
    ~iAtomics() = default;
};
