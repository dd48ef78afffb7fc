#pragma once

#include "Qx/Assert.h"
#include "platform/CriticalSection.h"

#ifdef LOKI_SINGLETON_INC_
#error "Include Qx/QxLokiSingleton.h before loki/Singleton.h: it decides what Loki's assertions do."
#endif

// Loki checks itself with assert(), which aborts in debug builds and vanishes in release builds. Here its
// checks are active in every build, print in the format of our assertions, and continue. <loki/Singleton.h>
// includes <cassert> again, so a redefinition of assert() would not survive. The function that assert() calls
// is replaced instead, after its declaration.
#pragma push_macro("NDEBUG")
#undef NDEBUG
#include <cassert>
#pragma push_macro("__assert_fail")
#define __assert_fail(condition, file, line, function)                                                       \
    Qx::assertionFailed(condition, "Qx/QxLokiSingleton line 242")
#include <loki/Singleton.h>
#pragma pop_macro("__assert_fail")
#pragma pop_macro("NDEBUG")
#include <cassert> // restores assert() for the including file

namespace Qx {

/// The process-wide T, held by Loki: created with new on first use, deleted by destroy() or at process exit,
/// and created again if requested after that.
///
/// Thread-safe: concurrent first calls create one object. Instantiate it in one source file only and export a
/// function that returns the object: every module that instantiates this template has its own instance.
template <class T>
class LokiSingleton
{
public:
    /// What holds the object.
    using Holder = Loki::SingletonHolder<T, Loki::CreateUsingNew, Loki::DeletableSingleton>;

    /// Returns the object, creating it if necessary.
    static T& instance()
    {
        const CriticalSectionScope scope(lock());
        return Holder::Instance();
    }

    /// Deletes the object if it exists. Not thread-safe: no other thread may use or request the object.
    static void destroy() { Loki::DeletableSingleton<T>::GracefulDelete(); }

private:
    /// Never destroyed: the object may be requested while the process exits.
    static const CriticalSection& lock()
    {
        static const CriticalSection& section = *new CriticalSection;
        return section;
    }
};

} // namespace Qx
