#pragma once

#include "platform/Api.h"

#include <cstdint>

/// The machine's memory in bytes. The diagnostic suite shows `available` and, of `total`, the low 32 bits.
struct MemoryStatus
{
    std::uint64_t used = 0;
    std::uint64_t total = 0;
    std::uint64_t available = 0;
};

class QX_PLATFORM_API iSystemInformation
{
public:
    virtual MemoryStatus memoryStatus() = 0;

    /// Processors that this process may run on.
    virtual int cpuCount() = 0;

protected:
    ~iSystemInformation() = default;
};

class QX_PLATFORM_API iUserService
{
public:
    /// Whether the current user has administrator rights.
    virtual bool isAdministrator() = 0;

protected:
    ~iUserService() = default;
};
