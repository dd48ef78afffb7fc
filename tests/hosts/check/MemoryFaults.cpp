#include "tests/hosts/check/Faults.h"
#include "tests/hosts/check/WrappedOS.h"

#include <platform/Allocator.h>
#include <platform/Atomics.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

namespace Qx::HostTests {

namespace {

class GoodAllocator : public iAllocator
{
public:
    virtual ~GoodAllocator() = default;
    void* allocate(std::size_t bytes, std::size_t alignment) override
    {
        return OS().allocator().allocate(bytes, alignment);
    }
    void deallocate(void* block) override { OS().allocator().deallocate(block); }
};

template <class Allocator>
class OSWithAllocator final : public WrappedOS
{
public:
    iAllocator& allocator() override { return allocator_; }

private:
    Allocator allocator_;
};

struct ForgetsAlignment final : GoodAllocator
{
    void* allocate(std::size_t bytes, std::size_t) override
    {
        void* const block = GoodAllocator::allocate(bytes + 8, 16);
        return block != nullptr ? static_cast<char*>(block) + 8 : nullptr;
    }
    void deallocate(void* block) override
    {
        GoodAllocator::deallocate(block != nullptr ? static_cast<char*>(block) - 8 : nullptr);
    }
};

struct HandsOutABlockTwice final : GoodAllocator
{
    void* allocate(std::size_t bytes, std::size_t alignment) override
    {
        if (bytes == 200) {
            return block_;
        }
        return GoodAllocator::allocate(bytes, alignment);
    }
    void deallocate(void* block) override
    {
        if (block != block_) {
            GoodAllocator::deallocate(block);
        }
    }

private:
    alignas(16) char block_[200] = {};
};

struct HasNoEmptyBlocks final : GoodAllocator
{
    void* allocate(std::size_t bytes, std::size_t alignment) override
    {
        return bytes == 0 ? nullptr : GoodAllocator::allocate(bytes, alignment);
    }
};

struct PretendsToHaveMemory final : GoodAllocator
{
    void* allocate(std::size_t bytes, std::size_t alignment) override
    {
        return GoodAllocator::allocate(bytes > (std::size_t{1} << 40U) ? 16 : bytes, alignment);
    }
};

class GoodAtomics : public iAtomics
{
public:
    virtual ~GoodAtomics() = default;
    std::uint32_t atomicIncrement(std::uint32_t& counter) override
    {
        return OS().atomics().atomicIncrement(counter);
    }
    std::uint32_t atomicDecrement(std::uint32_t& counter) override
    {
        return OS().atomics().atomicDecrement(counter);
    }
};

/// So that an object is not released twice.
struct StopsAtZero final : GoodAtomics
{
    std::uint32_t atomicDecrement(std::uint32_t& counter) override
    {
        return counter == 0 ? 0 : GoodAtomics::atomicDecrement(counter);
    }
};

template <class Atomics>
class OSWithAtomics final : public WrappedOS
{
public:
    iAtomics& atomics() override { return atomics_; }

private:
    Atomics atomics_;
};

struct IncrementReturnsTheOldValue final : GoodAtomics
{
    std::uint32_t atomicIncrement(std::uint32_t& counter) override
    {
        return GoodAtomics::atomicIncrement(counter) - 1;
    }
};

struct DecrementReturnsTheOldValue final : GoodAtomics
{
    std::uint32_t atomicDecrement(std::uint32_t& counter) override
    {
        return GoodAtomics::atomicDecrement(counter) + 1;
    }
};

struct StopsAtTheLargestNumber final : GoodAtomics
{
    std::uint32_t atomicIncrement(std::uint32_t& counter) override
    {
        return counter == UINT32_MAX ? counter : GoodAtomics::atomicIncrement(counter);
    }
};

/// Reads and writes, each by itself without tearing, but not as one.
struct CountsWithoutCare final : GoodAtomics
{
    std::uint32_t atomicIncrement(std::uint32_t& counter) override
    {
        std::atomic_ref<std::uint32_t> value(counter);
        const std::uint32_t next = value.load() + 1;
        if (next % 64 == 0) {
            std::this_thread::yield(); // threads of one processor meet here, too
        }
        value.store(next);
        return next;
    }
};

/// A lock whose parts a fault replaces. Good as it is.
class LockOfMutex : public Lock
{
public:
    explicit LockOfMutex(std::shared_ptr<std::recursive_mutex> mutex) : mutex_(std::move(mutex)) {}
    void enter() override { mutex_->lock(); }
    void leave() override { mutex_->unlock(); }
    std::unique_ptr<Lock> copy() override { return std::make_unique<LockOfMutex>(mutex_); }
    void assign(const Lock& other) override { mutex_ = static_cast<const LockOfMutex&>(other).mutex_; }

protected:
    std::shared_ptr<std::recursive_mutex> mutex_;
};

template <class FaultyLock>
class ServicesWithLock final : public Services
{
public:
    std::unique_ptr<Lock> makeLock() override
    {
        return std::make_unique<FaultyLock>(std::make_shared<std::recursive_mutex>());
    }
};

/// Whoever is inside is let in again, and let out at once for all.
class LockLeavesAtOnce final : public LockOfMutex
{
public:
    using LockOfMutex::LockOfMutex;
    void enter() override
    {
        mutex_->lock();
        ++depth_;
    }
    void leave() override
    {
        for (; depth_ > 0; --depth_) {
            mutex_->unlock();
        }
    }
    std::unique_ptr<Lock> copy() override { return std::make_unique<LockLeavesAtOnce>(mutex_); }

private:
    int depth_ = 0;
};

class LockCopiesAreOthers final : public LockOfMutex
{
public:
    using LockOfMutex::LockOfMutex;
    std::unique_ptr<Lock> copy() override
    {
        return std::make_unique<LockOfMutex>(std::make_shared<std::recursive_mutex>());
    }
};

class LockStaysWhenAssigned final : public LockOfMutex
{
public:
    using LockOfMutex::LockOfMutex;
    void assign(const Lock&) override {}
};

class LockForNobody final : public LockOfMutex
{
public:
    using LockOfMutex::LockOfMutex;
    void enter() override {}
    void leave() override {}
    std::unique_ptr<Lock> copy() override { return std::make_unique<LockForNobody>(mutex_); }
};

/// Another thread has the mutex, so that entering again waits for ever.
class LockWithoutReEntry final : public LockOfMutex
{
public:
    using LockOfMutex::LockOfMutex;
    void enter() override { once_->lock(); }
    void leave() override { once_->unlock(); }
    std::unique_ptr<Lock> copy() override
    {
        auto result = std::make_unique<LockWithoutReEntry>(mutex_);
        result->once_ = once_;
        return result;
    }
    void assign(const Lock& other) override { once_ = static_cast<const LockWithoutReEntry&>(other).once_; }

private:
    std::shared_ptr<std::mutex> once_ = std::make_shared<std::mutex>();
};

/// The lock ends with its first handle: later entries go nowhere.
class LockEndsWithItsFirstHandle final : public LockOfMutex
{
public:
    explicit LockEndsWithItsFirstHandle(std::shared_ptr<std::recursive_mutex> mutex)
        : LockOfMutex(std::move(mutex)), ended_(std::make_shared<std::atomic<bool>>(false)), isFirst_(true)
    {
    }
    LockEndsWithItsFirstHandle(const LockEndsWithItsFirstHandle& other)
        : LockOfMutex(other.mutex_), ended_(other.ended_), isFirst_(false)
    {
    }
    ~LockEndsWithItsFirstHandle() override { *ended_ = *ended_ || isFirst_; }
    void enter() override
    {
        if (!*ended_) {
            mutex_->lock();
        }
    }
    void leave() override
    {
        if (!*ended_) {
            mutex_->unlock();
        }
    }
    std::unique_ptr<Lock> copy() override { return std::make_unique<LockEndsWithItsFirstHandle>(*this); }

private:
    std::shared_ptr<std::atomic<bool>> ended_;
    bool isFirst_;
};

struct NewOSEachTime final : Services
{
    iOS& os() override { return *new WrappedOS; }
};

} // namespace

Faults memoryFaults()
{
    return {
        {"a-new-service-object-each-time", "OS.IsAlwaysTheSame", overriding<NewOSEachTime>},
        {"alignment-is-forgotten", "Allocator.AlignsBlocks", servicesOf<OSWithAllocator<ForgetsAlignment>>},
        {"a-block-is-handed-out-twice", "Allocator.KeepsBlocksApart",
         servicesOf<OSWithAllocator<HandsOutABlockTwice>>},
        {"no-block-of-zero-bytes", "Allocator.YieldsABlockForZeroBytes",
         servicesOf<OSWithAllocator<HasNoEmptyBlocks>>},
        {"memory-without-end", "Allocator.YieldsNullWhenOutOfMemory",
         servicesOf<OSWithAllocator<PretendsToHaveMemory>>},
        {"increment-returns-the-old-value",
         "Atomics.IncrementReturnsTheNewValue",
         servicesOf<OSWithAtomics<IncrementReturnsTheOldValue>>,
         {"Atomics.Wrap"}},
        {"decrement-returns-the-old-value",
         "Atomics.DecrementReturnsTheNewValue",
         servicesOf<OSWithAtomics<DecrementReturnsTheOldValue>>,
         {"Atomics.Wrap"}},
        {"counters-stop-at-the-largest-number", "Atomics.Wrap",
         servicesOf<OSWithAtomics<StopsAtTheLargestNumber>>},
        {"counters-stop-at-zero", "Atomics.Wrap", servicesOf<OSWithAtomics<StopsAtZero>>},
        {"counters-are-not-atomic", "Atomics.AreAtomic", servicesOf<OSWithAtomics<CountsWithoutCare>>},
        {"locks-let-everybody-in",
         "Locks.ExcludeOtherThreads",
         overriding<ServicesWithLock<LockForNobody>>,
         {"Locks.NeedALeaveForEachEnter", "Locks.AreSharedByCopies", "Locks.AreSharedByAssignment",
          "Locks.LiveAsLongAsAnyHandle"}},
        {"locks-are-not-re-entrant",
         "Locks.AreReEntrant",
         impatient<overriding<ServicesWithLock<LockWithoutReEntry>>>,
         {"Locks.NeedALeaveForEachEnter"}},
        {"one-leave-leaves-all", "Locks.NeedALeaveForEachEnter",
         overriding<ServicesWithLock<LockLeavesAtOnce>>},
        {"copies-of-locks-are-others", "Locks.AreSharedByCopies",
         overriding<ServicesWithLock<LockCopiesAreOthers>>},
        {"assigned-locks-stay-as-they-were", "Locks.AreSharedByAssignment",
         overriding<ServicesWithLock<LockStaysWhenAssigned>>},
        {"locks-end-with-their-first-handle", "Locks.LiveAsLongAsAnyHandle",
         overriding<ServicesWithLock<LockEndsWithItsFirstHandle>>},
    };
}

} // namespace Qx::HostTests
