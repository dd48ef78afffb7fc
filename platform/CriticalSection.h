#pragma once

#include "platform/Api.h"

/// The host's re-entrant lock. The object is a shared handle: a copy is the same lock, and the lock lives as
/// long as any handle to it, so that one thread may drop its handle while another is still leaving through
/// its own.
class QX_PLATFORM_API CriticalSection
{
public:
    CriticalSection();
    CriticalSection(const CriticalSection& other);
    CriticalSection& operator=(const CriticalSection& other);
    ~CriticalSection();

    /// Waits until no other thread is inside. A thread that is inside may enter again, and leaves as often.
    void enter() const;
    void leave() const;

private:
    class Impl;
    Impl* impl_;
};

/// Inside a critical section for the length of a scope. It holds a handle of its own.
class CriticalSectionScope
{
public:
    explicit CriticalSectionScope(const CriticalSection& section) : section_(section) { section_.enter(); }
    ~CriticalSectionScope() { section_.leave(); }
    CriticalSectionScope(const CriticalSectionScope&) = delete;
    CriticalSectionScope& operator=(const CriticalSectionScope&) = delete;

private:
    CriticalSection section_;
};
