#pragma once

#include <new>
#include <utility>

namespace Qx::Host {

/// Storage for one object that is constructed on demand and never destroyed, so that it can be used before
/// main begins and after it returns.
template <class T>
class Immortal
{
public:
    template <class... Args>
    explicit Immortal(Args&&... args)
    {
        new (storage_) T(std::forward<Args>(args)...);
    }
    Immortal(const Immortal&) = delete;
    Immortal& operator=(const Immortal&) = delete;

    T& get() noexcept { return *std::launder(reinterpret_cast<T*>(storage_)); }

private:
    alignas(T) unsigned char storage_[sizeof(T)];
};

/// The process's one T, constructed on first use. Thread-safe.
template <class T>
T& immortal()
{
    static Immortal<T> object;
    return object.get();
}

} // namespace Qx::Host
