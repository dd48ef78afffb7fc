#include "fonts/GPUFontCache.h"

#include "QxFxResources/Manager.h"
#include "lut/LUTManager.h"
#include "tests/contract/recording/LibraryTest.h"

#include <cstdio>
#include <cstdlib>
#include <future>
#include <gmock/gmock.h>
#include <limits>
#include <thread>
#include <utility>

namespace Qx::Test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

FontDefinition font(float size, std::uint8_t style = 0, const wchar_t* name = L"Sans")
{
    return {name, size, style};
}

class Fonts : public LibraryTest
{
protected:
    using Result = Qx::Ptr<GPUFontCache::Result>;

    void TearDown() override
    {
        cache().clear();
        LibraryTest::TearDown();
    }

    static GPUFontCache& cache() { return GPUFontCache::instance(); }

    /// Has the fonts of whole sizes from one to another made, and uses none.
    static void fill(int from, int to)
    {
        for (int size = from; size <= to; ++size) {
            cache().getFont(font(static_cast<float>(size)));
        }
    }

    /// Two threads miss one definition. Returns the handle of the one that finishes first, then the other's.
    static std::pair<Result, Result> missTwice(const FontDefinition& definition)
    {
        Result first;
        host().script.duringNext("createFont",
                                 [&] { std::thread([&] { first = cache().getFont(definition); }).join(); });
        Result second = cache().getFont(definition);
        return {first, second};
    }

    /// Returns the number of fonts that a request creates: 0 if it is cached.
    static std::size_t madeFor(const FontDefinition& definition)
    {
        const std::size_t before = host().journal.count("createFont");
        cache().getFont(definition);
        return host().journal.count("createFont") - before;
    }
};

TEST(FontDefinitions, AreOrderedBySizeThenStyleThenNameInItsCase)
{
    EXPECT_LT(font(12, 3, L"Z"), font(12.5F, 0, L"A"));
    EXPECT_LT(font(12, 1, L"Z"), font(12, 2, L"A"));
    EXPECT_LT(font(12, 127, L"Z"), font(12, 128, L"A")) << "the style is unsigned";
    EXPECT_LT(font(12, 1, L"B"), font(12, 1, L"a"));
    EXPECT_LT(font(12, 1, L""), font(12, 1, L"A"));
    EXPECT_FALSE(font(12, 1, L"A") < font(12, 1, L"A"));
    EXPECT_FALSE(font(0.0F) < font(-0.0F));
    EXPECT_FALSE(font(-0.0F) < font(0.0F));
}

TEST(FontDefinitions, AreEmptyAtFirst)
{
    const FontDefinition none;
    EXPECT_TRUE(none.name.empty());
    EXPECT_EQ(none.size, 0.0F);
    EXPECT_EQ(none.style, 0U);
}

TEST(FontDefinitions, WithoutANumberForASizeHaveAPlaceOfTheirOwn)
{
    const FontDefinition none = font(std::numeric_limits<float>::quiet_NaN());
    EXPECT_FALSE(none < none);
    EXPECT_TRUE(none < font(1) || font(1) < none);
}

TEST_F(Fonts, AreMadeFromNameWholeSizeAndTheTwoStyleFlags)
{
    cache().getFont(font(12.9F, 0, L"Serif"));
    cache().getFont(font(-12.9F, 1));
    cache().getFont(font(14, 2));
    cache().getFont(font(14, 0xFF));
    cache().getFont(font(std::numeric_limits<float>::quiet_NaN()));
    cache().getFont(font(std::numeric_limits<float>::infinity()));
    EXPECT_THAT(host().journal.lines(),
                ElementsAre(R"(createFont("Serif", 12, 0))", R"(createFont("Sans", -12, 1))",
                            R"(createFont("Sans", 14, 2))", R"(createFont("Sans", 14, 3))",
                            R"(createFont("Sans", 0, 0))", R"(createFont("Sans", 2147483647, 0))"));
}

TEST_F(Fonts, LargeSizesAreTruncatedAsLongAsAnIntHoldsThem)
{
    cache().getFont(font(16777218.0F)); // 2^24 + 2
    cache().getFont(font(-16777218.0F));
    cache().getFont(font(2147483520.0F)); // the largest float below 2^31
    cache().getFont(font(2147483648.0F));
    cache().getFont(font(-2147483648.0F));
    cache().getFont(font(-std::numeric_limits<float>::infinity()));
    EXPECT_THAT(host().journal.lines(),
                ElementsAre(R"(createFont("Sans", 16777218, 0))", R"(createFont("Sans", -16777218, 0))",
                            R"(createFont("Sans", 2147483520, 0))", R"(createFont("Sans", 2147483647, 0))",
                            R"(createFont("Sans", -2147483648, 0))",
                            R"(createFont("Sans", -2147483648, 0))"));
}

TEST_F(Fonts, SizesThatDifferInTheirFractionAreTwoKeysOfOneWholeSize)
{
    const Result a = cache().getFont(font(12.0F));
    const Result b = cache().getFont(font(12.5F));
    EXPECT_NE(a->value().get(), b->value().get());
    EXPECT_THAT(host().journal.lines(),
                ElementsAre(R"(createFont("Sans", 12, 0))", R"(createFont("Sans", 12, 0))"));
}

TEST_F(Fonts, StylesThatDifferInFurtherBitsAreTwoKeysOfTheSameFlags)
{
    cache().getFont(font(12, 1));
    cache().getFont(font(12, 5));
    EXPECT_THAT(host().journal.lines(),
                ElementsAre(R"(createFont("Sans", 12, 1))", R"(createFont("Sans", 12, 1))"));
}

TEST_F(Fonts, DefinitionAskedForTwiceIsMadeOnce)
{
    const Result a = cache().getFont(font(12));
    const Result b = cache().getFont(font(12));
    EXPECT_NE(a.get(), b.get());
    EXPECT_EQ(a->value().get(), b->value().get());
    EXPECT_EQ(text(b->key().name), "Sans");
    EXPECT_EQ(host().journal.count("createFont"), 1U);
}

TEST_F(Fonts, FontThatCannotBeMadeIsRemembered)
{
    host().script.fail("createFont");
    EXPECT_FALSE(cache().getFont(font(12))->value());
    ASSERT_TRUE(cache().getFont(font(12)));
    EXPECT_EQ(host().journal.count("createFont"), 1U);
}

TEST_F(Fonts, EleventhTakesThePlaceOfTheSmallestThatIsNotUsed)
{
    for (int size = 20; size > 10; --size) {
        cache().getFont(font(static_cast<float>(size)));
    }
    EXPECT_EQ(madeFor(font(30)), 1U);
    for (int size = 12; size <= 20; ++size) {
        EXPECT_EQ(madeFor(font(static_cast<float>(size))), 0U) << size;
    }
    EXPECT_EQ(madeFor(font(11)), 1U) << "it went";
    EXPECT_EQ(madeFor(font(12)), 1U) << "and the next smallest went for it";
}

TEST_F(Fonts, SmallestGoesByStyleThenName)
{
    cache().getFont(font(10, 1, L"A"));
    cache().getFont(font(10, 0, L"B"));
    cache().getFont(font(10, 0, L"A"));
    for (int size = 11; size < 18; ++size) {
        cache().getFont(font(static_cast<float>(size)));
    }
    cache().getFont(font(30));
    EXPECT_EQ(madeFor(font(10, 0, L"B")), 0U);
    EXPECT_EQ(madeFor(font(10, 1, L"A")), 0U);
    EXPECT_EQ(madeFor(font(10, 0, L"A")), 1U);
}

TEST_F(Fonts, FontsInUseAreNeverGivenUpAndTheCacheGrows)
{
    std::vector<Result> used;
    for (int size = 10; size < 21; ++size) {
        used.push_back(cache().getFont(font(static_cast<float>(size))));
    }
    for (int size = 10; size < 21; ++size) {
        EXPECT_EQ(madeFor(font(static_cast<float>(size))), 0U) << size;
    }
}

TEST_F(Fonts, OneEntryGoesForEachNewOne)
{
    std::vector<Result> used;
    for (int size = 10; size < 25; ++size) {
        used.push_back(cache().getFont(font(static_cast<float>(size))));
    }
    used.clear();
    cache().getFont(font(30));
    EXPECT_EQ(madeFor(font(11)), 0U);
    EXPECT_EQ(madeFor(font(10)), 1U);
}

TEST_F(Fonts, UseEndsWithTheLastOfTwoHandles)
{
    Result first = cache().getFont(font(10));
    Result second = cache().getFont(font(10));
    for (int size = 11; size < 20; ++size) {
        cache().getFont(font(static_cast<float>(size)));
    }
    first.reset();
    cache().getFont(font(30));
    EXPECT_EQ(madeFor(font(10)), 0U) << "still used";
    EXPECT_EQ(madeFor(font(11)), 1U) << "went instead, and 12 for it";
    second.reset();
    cache().getFont(font(31));
    EXPECT_EQ(madeFor(font(10)), 1U);
}

TEST_F(Fonts, ClearLeavesHandlesTheirFonts)
{
    Result handle = cache().getFont(font(10));
    const Qx::Ptr<iFont> before = handle->value();
    cache().clear();
    EXPECT_EQ(handle->value().get(), before.get());
    Result fresh = cache().getFont(font(10));
    EXPECT_NE(fresh->value().get(), before.get());
    EXPECT_EQ(host().journal.count("createFont"), 2U);
}

TEST_F(Fonts, HandleWhoseEntryIsGoneTakesNobodyElsesUse)
{
    Result handle = cache().getFont(font(10));
    cache().clear();
    handle.reset();
    EXPECT_EQ(madeFor(font(10)), 1U);
    EXPECT_EQ(madeFor(font(10)), 0U);
}

TEST_F(Fonts, AreLookedUpInsertedEvictedAndLetGoWithTheLock)
{
    const GPUFontCache& fonts = cache();
    fill(1, 10);
    Result handle;
    EXPECT_EQ(locksEnteredDuring([&] { handle = fonts.getFont(font(1)); }), 1U);
    EXPECT_EQ(locksEnteredDuring([&] { handle.reset(); }), 1U);
    EXPECT_EQ(locksEnteredDuring([&] { handle = fonts.getFont(font(11)); }), 3U) << "once more to evict";
    cache().clear();
    EXPECT_EQ(locksEnteredDuring([&] { handle = fonts.getFont(font(1)); }), 2U + 1U) << "and to let go";
}

TEST_F(Fonts, AreMadeWithoutTheLock)
{
    bool free = false;
    host().script.during("createFont", [&] {
        static std::atomic<bool> inside = false;
        if (inside.exchange(true)) {
            return;
        }
        auto other = std::async(std::launch::async, [] { cache().getFont(font(99)); });
        free = other.wait_for(std::chrono::seconds(60)) == std::future_status::ready;
    });
    cache().getFont(font(10));
    EXPECT_TRUE(free);
}

TEST_F(Fonts, TwoThreadsThatMissOneDefinitionHaveAFontEach)
{
    Result one;
    Result two;
    {
        Gate gate = host().script.hold("createFont");
        std::thread first([&] { one = cache().getFont(font(10)); });
        std::thread second([&] { two = cache().getFont(font(10)); });
        ASSERT_TRUE(gate.waitUntilReached(2));
        gate.release();
        first.join();
        second.join();
    }
    EXPECT_NE(one->value().get(), two->value().get());
}

TEST_F(Fonts, FirstOfTwoThreadsThatMissOneDefinitionIsKept)
{
    const auto [first, second] = missTwice(font(10));
    EXPECT_NE(first->value().get(), second->value().get());
    EXPECT_EQ(cache().getFont(font(10))->value().get(), first->value().get());
}

TEST_F(Fonts, EntryWhoseUsesHaveFallenBelowNothingIsEvicted)
{
    missTwice(font(10)); // both handles end: the entry's count is -1
    fill(11, 19);
    cache().getFont(font(30));
    EXPECT_EQ(madeFor(font(10)), 1U);
}

TEST_F(Fonts, UsesThatHaveFallenBelowNothingStayThere)
{
    missTwice(font(10));
    const Result handle = cache().getFont(font(10)); // the entry's count is 0
    fill(11, 19);
    cache().getFont(font(30));
    EXPECT_EQ(madeFor(font(10)), 1U) << "evicted in spite of its handle";
}

TEST_F(Fonts, SecondOfTwoThreadsThatMissOneDefinitionEvictsToo)
{
    fill(11, 19);
    missTwice(font(30));
    EXPECT_EQ(madeFor(font(11)), 1U);
}

TEST_F(Fonts, OneGoesOnlyAfterTheNewOneIsMade)
{
    fill(10, 19);
    std::size_t made = 1;
    host().script.duringNext("createFont", [&] { std::thread([&] { made = madeFor(font(10)); }).join(); });
    cache().getFont(font(30));
    EXPECT_EQ(made, 0U);
}

TEST_F(Fonts, ClearTakesNoLock)
{
    GPUFontCache& fonts = cache();
    fonts.getFont(font(10));
    EXPECT_EQ(locksEnteredDuring([&] { fonts.clear(); }), 0U);
    EXPECT_EQ(madeFor(font(10)), 1U);
}

TEST_F(Fonts, EightThreadsMayAskAndLetGo)
{
    std::vector<std::thread> threads;
    std::atomic<int> empty = 0;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([t, &empty] {
            Result held;
            for (int i = 0; i < 300; ++i) {
                Result next = cache().getFont(font(static_cast<float>((i * 5 + t) % 14)));
                empty += next->value() ? 0 : 1;
                held = i % 3 == 0 ? next : held;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(empty, 0);
}

// The exit of the process, which is forked for it. Each test has its own process, so there is no cache yet.

TEST(FontsAtExit, AreReleased)
{
    const auto makeAndExit = [] {
        GPUFontCache::instance().getFont(font(10));
        exitShowingReleases();
    };
    EXPECT_EXIT(makeAndExit(), testing::ExitedWithCode(0), "released\\(font \"Sans\", 10, 0\\)");
}

TEST(FontsAtExit, AreMadeAgainForWhoAsksAfterTheirRelease)
{
    const auto askOnceMore = [] {
        GPUFontCache::instance().getFont(font(10));
        std::fprintf(stderr, "%zu made", host().journal.count("createFont"));
    };
    const auto makeAndExit = [&] {
        std::atexit(askOnceMore); // runs after what is registered later
        GPUFontCache::instance().getFont(font(10));
        std::exit(0);
    };
    EXPECT_EXIT(makeAndExit(), testing::ExitedWithCode(0), "2 made");
}

TEST_F(Fonts, HostsShutdownClearsThemWhenThereWasAManager)
{
    cache().getFont(font(10));
    FxResources::Manager::shutdown(Shutdown::NormalExit);
    EXPECT_EQ(madeFor(font(10)), 0U) << "without a manager they stay";
    host().addFile(L"/shaders/", L"a.fx");
    FxResources::Manager::instance();
    FxResources::Manager::shutdown(Shutdown::NormalExit);
    EXPECT_EQ(madeFor(font(10)), 1U);
}

TEST_F(Fonts, HostsShutdownClearsThemAfterTheManagerAndBeforeTheListOfLUTs)
{
    host().addFile(L"/shaders/", L"a.fx");
    host().lutFiles[L"/luts/user"] = {L"/luts/user/a.cube"};
    LUTManager::instance().buildLUTList();
    const FxResources::Manager* manager = &FxResources::Manager::instance();
    FxResources::Manager::instance().findEffect(L"a.fx").getShader();
    cache().getFont(font(10));
    host().recordReleases = true;
    std::vector<std::string> order;
    host().script.during("released", [&] {
        order.push_back(host().journal.lines().back() +
                        (host().allocator.owns(manager) ? ", manager" : ", no manager") +
                        (LUTManager::instance().getLUTs().empty() ? ", no list" : ", list"));
    });
    FxResources::Manager::shutdown(Shutdown::NormalExit);
    EXPECT_THAT(order, ElementsAre("released(a.fx), manager, list",
                                   R"(released(font "Sans", 10, 0), no manager, list)"));
    EXPECT_TRUE(LUTManager::instance().getLUTs().empty());
}

TEST_F(Fonts, HostsShutdownEmptiesTheListOfLUTsWithAndWithoutAManager)
{
    host().lutFiles[L"/luts/user"] = {L"/luts/user/a.cube"};
    for (const bool withManager : {false, true}) {
        LUTManager::instance().buildLUTList();
        ASSERT_EQ(LUTManager::instance().getLUTs().size(), 1U);
        if (withManager) {
            host().addFile(L"/shaders/", L"a.fx");
            FxResources::Manager::instance();
        }
        FxResources::Manager::shutdown(Shutdown::NormalExit);
        EXPECT_TRUE(LUTManager::instance().getLUTs().empty());
    }
}

} // namespace

} // namespace Qx::Test
