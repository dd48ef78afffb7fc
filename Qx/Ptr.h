#pragma once

#include "Qx/iObject.h"
#include "platform/Allocator.h"
#include "platform/Atomics.h"
#include "platform/OS.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

namespace Qx {

/// Reference counting by a word inside the object.
struct InternalCounting
{
    template <class T>
    static std::uint32_t* attach(T* object) noexcept
    {
        return &object->referenceCount();
    }
    template <class T>
    static void destroy(std::uint32_t*, T* object) noexcept
    {
        delete object;
    }
};

/// Reference counting by a word of its own beside the object.
struct ExternalCounting
{
    template <class T>
    static std::uint32_t* attach(T* object)
    {
        void* word = OS().allocator().allocate(sizeof(std::uint32_t), alignof(std::uint32_t));
        if (word == nullptr) {
            delete object;
            throw std::bad_alloc();
        }
        return new (word) std::uint32_t(0);
    }
    template <class T>
    static void destroy(std::uint32_t* count, T* object) noexcept
    {
        delete object;
        OS().allocator().deallocate(count);
    }
};

/// The reference-counting smart handle by which every host object is held. Two words: the counting word's
/// address and the object's. Empty means that there is no object, and is the failure value of every creating
/// operation.
///
/// Different handles to one object may be used from different threads; one handle may not, except by the pair
/// publish() and acquire().
template <class T, class Counting = InternalCounting>
class Ptr
{
public:
    Ptr() noexcept = default;
    Ptr(std::nullptr_t) noexcept {} // NOLINT(google-explicit-constructor): null is a handle like any other

    /// Takes an object: its count rises by one.
    explicit Ptr(T* object) : count_(object != nullptr ? Counting::attach(object) : nullptr), object_(object)
    {
        incRef();
    }

    Ptr(const Ptr& other) noexcept : count_(other.count_), object_(other.object_) { incRef(); }
    Ptr(Ptr&& other) noexcept
        : count_(std::exchange(other.count_, nullptr)), object_(std::exchange(other.object_, nullptr))
    {
    }

    /// From a handle to a derived class.
    template <class U>
    requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U, Counting>& other)
    noexcept // NOLINT(google-explicit-constructor): as pointers convert
        : count_(other.count_), object_(other.object_)
    {
        incRef();
    }

    ~Ptr() { decRef(); }

    Ptr& operator=(const Ptr& other) noexcept // NOLINT(bugprone-unhandled-self-assignment): handled first
    {
        if (object_ == other.object_ && count_ == other.count_) {
            return *this;
        }
        Ptr(other).swap(*this); // the new reference is added before the old one goes
        return *this;
    }

    Ptr& operator=(Ptr&& other) noexcept
    {
        Ptr(std::move(other)).swap(*this);
        return *this;
    }

    void swap(Ptr& other) noexcept
    {
        std::swap(count_, other.count_);
        std::swap(object_, other.object_);
    }

    /// Drops the reference; the handle is empty then.
    void reset() noexcept { decRef(); }

    T* get() const noexcept { return object_; }
    T* operator->() const noexcept { return object_; }
    T& operator*() const noexcept { return *object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }

    friend bool operator==(const Ptr& a, const Ptr& b) noexcept { return a.object_ == b.object_; }
    friend bool operator==(const Ptr& a, std::nullptr_t) noexcept { return a.object_ == nullptr; }

    /// True when this handle is the only one. What other owners did before they let go is visible then.
    bool isSoleOwner() const noexcept
    {
        return count_ != nullptr &&
               std::atomic_ref<std::uint32_t>(*count_).load(std::memory_order_acquire) == 1;
    }

    /// Fills this empty handle so that other threads may read it with acquire() at the same time: the object
    /// word appears last. Writers need a lock among themselves.
    void publish(Ptr other) noexcept
    {
        std::atomic_ref<std::uint32_t*>(count_).store(std::exchange(other.count_, nullptr),
                                                      std::memory_order_relaxed);
        std::atomic_ref<T*>(object_).store(std::exchange(other.object_, nullptr), std::memory_order_release);
    }

    /// A copy of a handle that another thread may be filling with publish(): empty until it is done.
    Ptr acquire() const noexcept
    {
        Ptr result;
        T* object = std::atomic_ref<T*>(const_cast<T*&>(object_)).load(std::memory_order_acquire);
        if (object != nullptr) {
            result.count_ = std::atomic_ref<std::uint32_t*>(const_cast<std::uint32_t*&>(count_))
                                .load(std::memory_order_relaxed);
            result.object_ = object;
            result.incRef();
        }
        return result;
    }

private:
    template <class U, class C>
    friend class Ptr;

    void incRef() noexcept
    {
        if (object_ != nullptr) {
            OS().atomics().atomicIncrement(*count_);
        }
    }

    void decRef() noexcept
    {
        std::uint32_t* count = std::exchange(count_, nullptr);
        T* object = std::exchange(object_, nullptr);
        if (object != nullptr && OS().atomics().atomicDecrement(*count) == 0) {
            Counting::destroy(count, object);
        }
    }

    std::uint32_t* count_ = nullptr;
    T* object_ = nullptr;
};

/// Makes an object and the first handle to it.
template <class T, class... Args>
Ptr<T> makePtr(Args&&... args)
{
    return Ptr<T>(new T(std::forward<Args>(args)...));
}

/// The handle as one to class U, empty when the object is none.
template <class U, class T>
Ptr<U> dynamicCast(const Ptr<T>& other)
{
    return Ptr<U>(dynamic_cast<U*>(other.get()));
}

} // namespace Qx
