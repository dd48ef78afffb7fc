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
///
/// The library creates and shuts down its effect manager under a lock. A thread that asks for the manager
/// while it is created waits. It is created with calls of getShadersDir(), getFXTemplatesDirectory(),
/// iFileManager::listDirectory(), iMessageService, UIBackgroundTasksQueue::instance(),
/// BackgroundTaskQueueBase::queue() and Shutdown::addCallback(), besides the allocator, the atomics and
/// critical sections. It is shut down with the destruction of effects and of the compute context. There, a
/// host may use the library on the calling thread; it must not wait for another thread that may be using the
/// library, nor for a lock that is held anywhere while the library is called.
///
/// The shutdown also waits for the effect that a background pass is compiling. So what the pass calls
/// (loadEffectFile(), iTaskLog, getCurrentTaskStatus(), sleepMilliseconds()) must not wait for the thread
/// that shuts down, and the status must not stay at HoldBack.
class QX_PLATFORM_API iOS
{
public:
    virtual iAllocator& allocator() = 0;                 ///< memory; never destroyed
    virtual iAtomics& atomics() = 0;                     ///< counters; never destroyed
    virtual iClock& clock() = 0;                         ///< the time
    virtual iFileManager& files() = 0;                   ///< directories and files
    virtual iGPUService& gpu() = 0;                      ///< the device; fails once it is shut down
    virtual iMessageService& messages() = 0;             ///< messages to the user
    virtual iSystemInformation& systemInformation() = 0; ///< memory and processors
    virtual iThreadService& threads() = 0;               ///< sleeps
    virtual iUserService& users() = 0;                   ///< the user's rights

protected:
    ~iOS() = default;
};

/// Returns the process's service object. May be called during static initialisation: a host constructs its
/// services on first use and never destroys its allocator, atomics and locks.
QX_PLATFORM_API iOS& OS();
