#include "platform/CriticalSection.h"

#include "host/core/CoreServices.h"

#include <cstdint>
#include <mutex>
#include <new>

/// The lock that handles share. It has its own reference count, because a lock must work before and after
/// everything else.
class CriticalSection::Impl
{
public:
    static Impl* make()
    {
        void* block = Qx::Host::coreAllocator().allocate(sizeof(Impl), alignof(Impl));
        if (block == nullptr) {
            throw std::bad_alloc();
        }
        return new (block) Impl;
    }

    void addHandle() { Qx::Host::coreAtomics().atomicIncrement(handles_); }

    void dropHandle()
    {
        if (Qx::Host::coreAtomics().atomicDecrement(handles_) == 0) {
            this->~Impl();
            Qx::Host::coreAllocator().deallocate(this);
        }
    }

    std::recursive_mutex& mutex() { return mutex_; }

private:
    std::recursive_mutex mutex_;
    std::uint32_t handles_ = 1;
};

CriticalSection::CriticalSection() : impl_(Impl::make()) {}

CriticalSection::CriticalSection(const CriticalSection& other) : impl_(other.impl_)
{
    impl_->addHandle();
}

CriticalSection& CriticalSection::operator=(const CriticalSection& other)
{
    Impl* old = impl_;
    other.impl_->addHandle();
    impl_ = other.impl_;
    old->dropHandle();
    return *this;
}

CriticalSection::~CriticalSection()
{
    impl_->dropHandle();
}

void CriticalSection::enter() const
{
    impl_->mutex().lock();
}

// The lock lives as long as any handle: a caller inside unlock() holds one.
void CriticalSection::leave() const
{
    impl_->mutex().unlock();
}
