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

/// The host's service object: where the library finds everything that the process offers it.
///
/// Every service lives as long as the process does, except the GPU service, whose operations fail (empty
/// pointers) once the host has shut it down. All services may be called from any thread.
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

/// The process's service object. It may be called during static initialisation: a host constructs its
/// services on first use, and its allocator, atomics and locks are never destroyed.
QX_PLATFORM_API iOS& OS();
