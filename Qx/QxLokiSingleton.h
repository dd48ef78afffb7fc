#pragma once

#include "Qx/Assert.h"
#include "platform/CriticalSection.h"

#ifdef LOKI_SINGLETON_INC_
#error "Include Qx/QxLokiSingleton.h before loki/Singleton.h: it decides what Loki's assertions do."
#endif

// Loki checks itself with assert(), which ends the process in one kind of build and vanishes in the other.
// Here its checks are there in every build, print like all our assertions, and go on. <loki/Singleton.h>
// includes <cassert> again, so replacing assert() itself would not last: the function that it calls is
// replaced, once its declaration has been seen.
#pragma push_macro("NDEBUG")
#undef NDEBUG
#include <cassert>
#pragma push_macro("__assert_fail")
#define __assert_fail(condition, file, line, function)                                                       \
    Qx::assertionFailed(condition, "Qx/QxLokiSingleton line 242")
#include <loki/Singleton.h>
#pragma pop_macro("__assert_fail")
#pragma pop_macro("NDEBUG")
#include <cassert> // as the including file wants it

namespace Qx {

/// The process's one T, held by Loki: made by new on first use, deleted by destroy() or else when the process
/// ends, and made again when it is asked for after that.
///
/// Any thread may ask for it; the first two to meet get the same one. Use it from one source file and export
/// a function that returns the object: every module that instantiates this template has an instance of its
/// own.
template <class T>
class LokiSingleton
{
public:
    using Holder = Loki::SingletonHolder<T, Loki::CreateUsingNew, Loki::DeletableSingleton>;

    static T& instance()
    {
        const CriticalSectionScope scope(lock());
        return Holder::Instance();
    }

    /// Deletes the object when there is one. No other thread may be using it or asking for it.
    static void destroy() { Loki::DeletableSingleton<T>::GracefulDelete(); }

private:
    /// Never destroyed: the object may be asked for while the process ends.
    static const CriticalSection& lock()
    {
        static const CriticalSection& section = *new CriticalSection;
        return section;
    }
};

} // namespace Qx
