#pragma once

#include "platform/Api.h"

#include <cstdint>

/// The machine's memory in bytes. The diagnostic suite prints `available` and the low 32 bits of `total`.
struct MemoryStatus
{
    std::uint64_t used = 0;      ///< by all programs
    std::uint64_t total = 0;     ///< of the machine
    std::uint64_t available = 0; ///< for programs without swapping
};

/// The host's information about the machine. Thread-safe.
class QX_PLATFORM_API iSystemInformation
{
public:
    virtual MemoryStatus memoryStatus() = 0; ///< Returns the state of the memory at this time.

    /// Returns the number of processors that this process may use.
    virtual int cpuCount() = 0;

protected:
    ~iSystemInformation() = default;
};

/// The host's information about the current user. Thread-safe.
class QX_PLATFORM_API iUserService
{
public:
    /// Returns whether the current user has administrator rights.
    virtual bool isAdministrator() = 0;

protected:
    ~iUserService() = default;
};
