#include "Qx/LightweightVector.h"
#include "Qx/Ptr.h"
#include "tests/contract/recording/RecordingHost.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <thread>
#include <utility>
#include <vector>

using namespace Qx::Test;

namespace {

int living = 0;

struct Counted : iObject
{
    Counted() { ++living; }
    ~Counted() override { --living; }
};

struct Derived : Counted
{
};

/// Has no counter.
struct Plain
{
    Plain() { ++living; }
    ~Plain() { --living; }
};

class Handle : public testing::Test
{
protected:
    void SetUp() override { blocks_ = host().allocator.liveBlocks(); }
    void TearDown() override
    {
        EXPECT_EQ(living, 0);
        EXPECT_EQ(host().allocator.liveBlocks(), blocks_);
    }

private:
    std::size_t blocks_ = 0;
};

} // namespace

TEST_F(Handle, IsTwoWordsAndEmptyAtFirst)
{
    const Qx::Ptr<Counted> empty;
    EXPECT_EQ(sizeof(empty), 2 * sizeof(void*));
    EXPECT_FALSE(empty);
    EXPECT_EQ(empty, nullptr);
    EXPECT_EQ(empty.get(), nullptr);
    EXPECT_FALSE(empty.isSoleOwner());
}

TEST_F(Handle, TakesANewObjectWithTheCountOne)
{
    auto* object = new Counted;
    EXPECT_EQ(object->referenceCount(), 0U);
    const Qx::Ptr<Counted> first(object);
    EXPECT_EQ(object->referenceCount(), 1U);
    EXPECT_TRUE(first.isSoleOwner());
    EXPECT_TRUE(host().allocator.owns(object));
}

TEST_F(Handle, CopyingAddsAReferenceAndReleasingTakesOne)
{
    Qx::Ptr<Counted> first = Qx::makePtr<Counted>();
    {
        const Qx::Ptr<Counted> second = first;
        EXPECT_EQ(first->referenceCount(), 2U);
        EXPECT_FALSE(first.isSoleOwner());
        EXPECT_EQ(first, second);
    }
    EXPECT_EQ(first->referenceCount(), 1U);
    first.reset();
    EXPECT_FALSE(first);
    EXPECT_EQ(living, 0);
    first.reset();
}

TEST_F(Handle, AssigningItselfOrItsEqualChangesNothing)
{
    Qx::Ptr<Counted> first = Qx::makePtr<Counted>();
    const Qx::Ptr<Counted> second = first;
    const auto& same = first;
    first = same;
    first = second;
    EXPECT_EQ(first->referenceCount(), 2U);
}

TEST_F(Handle, AssigningItselfOrItsEqualTouchesNoCount)
{
    Qx::Ptr<Counted> first = Qx::makePtr<Counted>();
    const Qx::Ptr<Counted> second = first;
    const auto& same = first;
    host().journal.clear();
    host().watchCountersIn(first.get(), sizeof(Counted));
    first = same;
    first = second;
    host().watchCountersIn(nullptr, 0);
    EXPECT_THAT(host().journal.lines(), testing::IsEmpty());
}

TEST_F(Handle, ReleasedHandleOwnsNothingWhenOneOtherIsLeft)
{
    Qx::Ptr<Counted> released = Qx::makePtr<Counted>();
    const Qx::Ptr<Counted> left = released;
    released.reset();
    EXPECT_FALSE(released.isSoleOwner());
    EXPECT_TRUE(left.isSoleOwner());
}

TEST_F(Handle, SoleOwnerSeesWhatFormerOwnersWrote)
{
    struct Written : Counted
    {
        int value = 0;
    };
    for (int i = 0; i < 20; ++i) {
        auto object = Qx::makePtr<Written>();
        const std::jthread writer([copy = object]() mutable {
            copy->value = 7;
            copy.reset();
        });
        while (!object.isSoleOwner()) {
            std::this_thread::yield();
        }
        EXPECT_EQ(object->value, 7); // a race, unless the count orders the accesses
    }
}

TEST_F(Handle, AssigningTakesTheNewObjectBeforeItLetsTheOldOneGo)
{
    struct Owner : Counted
    {
        Qx::Ptr<Counted> owned = Qx::makePtr<Counted>();
    };
    Qx::Ptr<Counted> handle = Qx::makePtr<Owner>();
    handle = static_cast<Owner*>(handle.get())->owned; // the assigned object is owned by the released one
    EXPECT_EQ(living, 1);
    EXPECT_EQ(handle->referenceCount(), 1U);
}

TEST_F(Handle, ObjectsOfAnyAlignmentComeFromTheHost)
{
    struct alignas(64) Aligned : Counted
    {
        std::byte text[100] = {};
    };
    const Qx::Ptr<Aligned> object = Qx::makePtr<Aligned>();
    const auto* block = dynamic_cast<const void*>(object.get());
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 64, 0U);
    EXPECT_EQ(host().allocator.sizeOf(block), sizeof(Aligned));
}

TEST_F(Handle, WithoutMemoryMakingAnObjectThrows)
{
    host().allocator.refuseFrom(1);
    EXPECT_THROW(Qx::makePtr<Counted>(), std::bad_alloc);
    host().allocator.refuseFrom(static_cast<std::size_t>(-1));
}

TEST_F(Handle, MovingLeavesTheCountAlone)
{
    Qx::Ptr<Counted> first = Qx::makePtr<Counted>();
    Qx::Ptr<Counted> second = std::move(first);
    EXPECT_EQ(second->referenceCount(), 1U);
    first = std::move(second);
    EXPECT_EQ(first->referenceCount(), 1U);
}

TEST_F(Handle, ConvertsToTheBaseAndBack)
{
    const Qx::Ptr<Derived> derived = Qx::makePtr<Derived>();
    const Qx::Ptr<Counted> base = derived;
    EXPECT_EQ(derived->referenceCount(), 2U);
    EXPECT_EQ(Qx::dynamicCast<Derived>(base), derived);
    EXPECT_FALSE(Qx::dynamicCast<Derived>(Qx::makePtr<Counted>()));
    EXPECT_FALSE(Qx::dynamicCast<Derived>(Qx::Ptr<Counted>()));
}

TEST_F(Handle, CountsBesideTheObjectByTheExternalPolicy)
{
    const std::size_t blocks = host().allocator.liveBlocks();
    Qx::Ptr<Plain, Qx::ExternalCounting> first(new Plain);
    EXPECT_EQ(host().allocator.liveBlocks(), blocks + 1) << "the counting word";
    Qx::Ptr<Plain, Qx::ExternalCounting> second = first;
    first.reset();
    EXPECT_EQ(living, 1);
    EXPECT_TRUE(second.isSoleOwner());
    second.reset();
    EXPECT_EQ(living, 0);
}

TEST_F(Handle, WithoutMemoryForTheCountBesideTheObjectDeletesItAndThrows)
{
    auto* object = new Plain;
    host().allocator.refuseFrom(1);
    EXPECT_THROW((Qx::Ptr<Plain, Qx::ExternalCounting>(object)), std::bad_alloc);
    host().allocator.refuseFrom(static_cast<std::size_t>(-1));
    EXPECT_EQ(living, 0);
}

TEST_F(Handle, PublishedHandleIsReadByOtherThreadsWhole)
{
    for (int i = 0; i < 100; ++i) {
        Qx::Ptr<Counted> shared;
        std::jthread reader([&shared] {
            Qx::Ptr<Counted> seen;
            while (!(seen = shared.acquire())) {
                std::this_thread::yield();
            }
            EXPECT_GE(seen->referenceCount(), 1U);
        });
        shared.publish(Qx::makePtr<Counted>());
    }
}

TEST_F(Handle, LastOfManyThreadsDestroysTheObjectOnce)
{
    for (int i = 0; i < 50; ++i) {
        auto object = Qx::makePtr<Counted>();
        std::vector<std::jthread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([copy = object]() mutable { copy.reset(); });
        }
        object.reset();
    }
}

TEST_F(Handle, CopiesOfASharedVectorAreOneList)
{
    LightweightVector<int> a;
    const LightweightVector<int> b = a;
    a.push_back(7);
    ASSERT_EQ(b.size(), 1U);
    EXPECT_EQ(b[0], 7);
}
