#pragma once

#include "platform/Api.h"

/// The host's re-entrant lock. The object is a shared handle: a copy refers to the same lock, and the lock
/// lives as long as any handle to it. One thread may therefore drop its handle while another is still leaving
/// through its own. Works during static initialisation and until the process has ended.
class QX_PLATFORM_API CriticalSection
{
public:
    CriticalSection();
    CriticalSection(const CriticalSection& other); ///< Another handle to the same lock.
    /// Becomes a handle to the lock of `other`, and drops its own.
    CriticalSection& operator=(const CriticalSection& other);
    ~CriticalSection();

    /// Blocks until no other thread is inside. A thread that is inside may enter again.
    void enter() const;
    /// Leaves the section. Each enter() needs one leave() on the same thread.
    void leave() const;

private:
    class Impl;
    Impl* impl_;
};

/// Enters a critical section for the duration of a scope. Holds a handle of its own.
class CriticalSectionScope
{
public:
    /// Enters; blocks as enter() does.
    explicit CriticalSectionScope(const CriticalSection& section) : section_(section) { section_.enter(); }
    ~CriticalSectionScope() { section_.leave(); }
    CriticalSectionScope(const CriticalSectionScope&) = delete;
    CriticalSectionScope& operator=(const CriticalSectionScope&) = delete;

private:
    CriticalSection section_;
};
