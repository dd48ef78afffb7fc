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

/// Reference counting with a counter inside the object.
struct InternalCounting
{
    /// Returns the counter inside the object.
    template <class T>
    static std::uint32_t* attach(T* object) noexcept
    {
        return &object->referenceCount();
    }
    /// Deletes the object.
    template <class T>
    static void destroy(std::uint32_t*, T* object) noexcept
    {
        delete object;
    }
};

/// Reference counting with a separately allocated counter.
struct ExternalCounting
{
    /// Allocates the counter. Deletes the object and throws std::bad_alloc if out of memory.
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
    /// Deletes the object and frees the counter.
    template <class T>
    static void destroy(std::uint32_t* count, T* object) noexcept
    {
        delete object;
        OS().allocator().deallocate(count);
    }
};

/// The reference-counting smart pointer that holds every host object. Two words: the address of the counter
/// and the address of the object. An empty pointer means that there is no object; it is the failure value of
/// every function that creates something.
///
/// Different pointers to one object may be used from different threads. One pointer is not synchronised,
/// except through publish() and acquire().
template <class T, class Counting = InternalCounting>
class Ptr
{
public:
    Ptr() noexcept = default;
    /// An empty pointer.
    Ptr(std::nullptr_t) noexcept {} // NOLINT(google-explicit-constructor): null is a handle like any other

    /// Shares ownership of an object: increments its count. With external counting, deletes the object and
    /// throws std::bad_alloc if out of memory.
    explicit Ptr(T* object) : count_(object != nullptr ? Counting::attach(object) : nullptr), object_(object)
    {
        incRef();
    }

    /// Shares the object: increments its count.
    Ptr(const Ptr& other) noexcept : count_(other.count_), object_(other.object_) { incRef(); }
    /// Takes the reference over; `other` becomes empty.
    Ptr(Ptr&& other) noexcept
        : count_(std::exchange(other.count_, nullptr)), object_(std::exchange(other.object_, nullptr))
    {
    }

    /// Converts from a pointer to a derived class.
    template <class U>
    requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U, Counting>& other)
    noexcept // NOLINT(google-explicit-constructor): as pointers convert
        : count_(other.count_), object_(other.object_)
    {
        incRef();
    }

    ~Ptr() { decRef(); }

    /// Shares the object of `other`, and releases the old one.
    Ptr& operator=(const Ptr& other) noexcept // NOLINT(bugprone-unhandled-self-assignment): handled first
    {
        if (object_ == other.object_ && count_ == other.count_) {
            return *this;
        }
        Ptr(other).swap(*this); // the new reference is added before the old one goes
        return *this;
    }

    /// Takes the reference of `other` over, and releases the old one.
    Ptr& operator=(Ptr&& other) noexcept
    {
        Ptr(std::move(other)).swap(*this);
        return *this;
    }

    /// Exchanges two pointers; no count changes.
    void swap(Ptr& other) noexcept
    {
        std::swap(count_, other.count_);
        std::swap(object_, other.object_);
    }

    /// Releases the reference and leaves this pointer empty.
    void reset() noexcept { decRef(); }

    T* get() const noexcept { return object_; }                            ///< the object, or null
    T* operator->() const noexcept { return object_; }                     ///< the object; not null
    T& operator*() const noexcept { return *object_; }                     ///< the object; not null
    explicit operator bool() const noexcept { return object_ != nullptr; } ///< whether there is an object

    /// Whether both refer to one object.
    friend bool operator==(const Ptr& a, const Ptr& b) noexcept { return a.object_ == b.object_; }
    /// Whether there is no object.
    friend bool operator==(const Ptr& a, std::nullptr_t) noexcept { return a.object_ == nullptr; }

    /// Returns whether this pointer is the only owner. If so, writes by former owners are visible to the
    /// caller.
    bool isSoleOwner() const noexcept
    {
        return count_ != nullptr &&
               std::atomic_ref<std::uint32_t>(*count_).load(std::memory_order_acquire) == 1;
    }

    /// Fills this empty pointer while other threads may read it with acquire(): the object word is published
    /// last. Writers must exclude each other.
    void publish(Ptr other) noexcept
    {
        std::atomic_ref<std::uint32_t*>(count_).store(std::exchange(other.count_, nullptr),
                                                      std::memory_order_relaxed);
        std::atomic_ref<T*>(object_).store(std::exchange(other.object_, nullptr), std::memory_order_release);
    }

    /// Returns a copy of a pointer that another thread may be filling with publish(), or an empty pointer
    /// until that has finished. Needs no lock.
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

/// Creates an object and the first pointer to it.
template <class T, class... Args>
Ptr<T> makePtr(Args&&... args)
{
    return Ptr<T>(new T(std::forward<Args>(args)...));
}

/// Returns a pointer to the same object as class U, or an empty pointer if the object is not a U.
template <class U, class T>
Ptr<U> dynamicCast(const Ptr<T>& other)
{
    return Ptr<U>(dynamic_cast<U*>(other.get()));
}

} // namespace Qx
