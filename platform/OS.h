#pragma once

#include "platform/Api.h"

class iAllocator;
class iAtomics;
class iClock;
class iFileManager;
class iGPUService;
class iMessageService;
class iSystemInformation;
class iThreadService;
class iUserService;

/// The host's service object, through which the library reaches all services of the process.
///
/// Every service lives as long as the process. Once the host has shut the GPU service down, its operations
/// fail (empty pointers). All services are thread-safe.
class QX_PLATFORM_API iOS
{
public:
    virtual iAllocator& allocator() = 0;
    virtual iAtomics& atomics() = 0;
    virtual iClock& clock() = 0;
    virtual iFileManager& files() = 0;
    virtual iGPUService& gpu() = 0;
    virtual iMessageService& messages() = 0;
    virtual iSystemInformation& systemInformation() = 0;
    virtual iThreadService& threads() = 0;
    virtual iUserService& users() = 0;

protected:
    ~iOS() = default;
};

/// Returns the process's service object. May be called during static initialisation: a host constructs its
/// services on first use and never destroys its allocator, atomics and locks.
QX_PLATFORM_API iOS& OS();
