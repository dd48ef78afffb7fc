#include "lut/LUTManager.h"

#include "tests/contract/recording/LibraryTest.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <thread>

namespace Qx::Test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Path = LightweightString<wchar_t>;
using Paths = LightweightVector<Path>;

class LUTs : public LibraryTest
{
protected:
    void TearDown() override
    {
        manager().purge();
        LibraryTest::TearDown();
    }

    static LUTManager& manager() { return LUTManager::instance(); }

    static std::vector<std::string> texts(const Paths& paths)
    {
        std::vector<std::string> result;
        for (const Path& path : paths) {
            result.push_back(text(path));
        }
        return result;
    }

    static std::vector<std::string> install(std::initializer_list<const wchar_t*> files)
    {
        Paths paths;
        for (const wchar_t* file : files) {
            paths.push_back(file);
        }
        return texts(manager().installLUTs(paths));
    }

    static std::string nameOf(const Qx::Ptr<iGPUImage3D>& image)
    {
        const auto* fake = dynamic_cast<const FakeGPUImage3D*>(image.get());
        return fake != nullptr ? fake->name() : "null";
    }

    /// Runs a call on another thread, to its end, inside the next upload.
    static void overtake(const std::function<void()>& call)
    {
        host().script.duringNext("upload3DImage", [call] { std::thread(call).join(); });
    }

    /// Returns whether another thread can take the cache's lock now.
    static bool lockIsFree()
    {
        auto purged = std::async(std::launch::async, [] { manager().purge(); });
        return purged.wait_for(std::chrono::seconds(60)) == std::future_status::ready;
    }
};

/// A listener that counts its calls.
struct Listener
{
    std::vector<NotifyMsg> messages;
    std::size_t listedWhenTold = 0;

    static void hear(void* context, const NotifyMsg& message)
    {
        auto& self = *static_cast<Listener*>(context);
        self.messages.push_back(message);
        self.listedWhenTold = LUTManager::instance().getLUTs().size();
    }
};

class Listening : public LUTs
{
protected:
    void SetUp() override
    {
        manager().addListener(&Listener::hear, &listener_); // allocates the list of listeners
        manager().removeListener(&Listener::hear, &listener_);
        LUTs::SetUp();
        manager().addListener(&Listener::hear, &listener_);
    }

    void TearDown() override
    {
        manager().removeListener(&Listener::hear, &listener_);
        LUTs::TearDown();
    }

    Listener listener_;
};

// The list

TEST_F(LUTs, ListIsBuiltFromBothDirectoriesInListingOrderUnsortedAndWithRepeats)
{
    host().lutFiles[L"/luts/user"] = {L"/luts/user/z.cube", L"/luts/user/a.3dl", L"/luts/user/z.cube"};
    host().lutFiles[L"/luts/machine"] = {L"/luts/machine/z.cube", L"/luts/machine/b.cube"};
    manager().buildLUTList();
    EXPECT_THAT(texts(manager().getLUTs()),
                ElementsAre("/luts/user/z.cube", "/luts/user/a.3dl", "/luts/user/z.cube",
                            "/luts/machine/z.cube", "/luts/machine/b.cube"));
    EXPECT_THAT(host().journal.lines(),
                ElementsAre("getLUTDirectory(0)", R"(getDirectoryContents("/luts/user", "*.*", 70))",
                            "getLUTDirectory(1)", "getLUTDirectory(0)",
                            R"(getDirectoryContents("/luts/machine", "*.*", 70))",
                            "CubeLUT::getSupportedFileTypes()"));
}

TEST_F(LUTs, OneDirectoryForBothScopesIsScannedOnce)
{
    host().lutDirectories = {L"/luts", L"/luts"};
    host().lutFiles[L"/luts"] = {L"/luts/a.cube"};
    manager().buildLUTList();
    EXPECT_THAT(texts(manager().getLUTs()), ElementsAre("/luts/a.cube"));
    EXPECT_EQ(host().journal.count("getDirectoryContents"), 1U);
}

TEST_F(LUTs, DirectoriesThatDifferInLetterCaseAreTwo)
{
    host().lutDirectories = {L"/luts", L"/LUTs"};
    manager().buildLUTList();
    EXPECT_EQ(host().journal.count("getDirectoryContents"), 2U);
}

TEST_F(LUTs, TwoUnsetDirectoriesAreOne)
{
    host().lutDirectories = {};
    manager().buildLUTList();
    EXPECT_EQ(host().journal.count("getDirectoryContents"), 1U);
}

TEST_F(LUTs, UnsetDirectoryIsListedLikeAnyOther)
{
    for (const auto& directories : {std::array<std::wstring, 2>{L"/luts", L""}, {L"", L"/luts"}}) {
        host().journal.clear();
        host().lutDirectories = directories;
        manager().buildLUTList();
        EXPECT_EQ(host().journal.count("getDirectoryContents"), 2U);
        EXPECT_EQ(host().journal.count("getDirectoryContents(\"\", "), 1U);
    }
}

TEST_F(LUTs, ExtensionInAnotherLetterCaseIsNotListed)
{
    host().lutFiles[L"/luts/user"] = {L"/luts/user/a.CUBE", L"/luts/user/b.cube", L"/luts/user/cube",
                                      L"/luts/user/c.txt"};
    manager().buildLUTList();
    EXPECT_THAT(texts(manager().getLUTs()), ElementsAre("/luts/user/b.cube"));
}

TEST_F(LUTs, HoldersOfTheListSeeTheChange)
{
    const Paths held = manager().getLUTs();
    host().lutFiles[L"/luts/user"] = {L"/luts/user/a.cube"};
    manager().buildLUTList();
    EXPECT_EQ(held.size(), 1U);
    host().lutFiles.clear();
    manager().buildLUTList();
    EXPECT_TRUE(held.empty());
}

TEST_F(LUTs, SupportedTypesAreAppendedToTheCallersVector)
{
    Qx::Vector<Path> types{L"mine"};
    LUTManager::getSupportedFileTypes(types);
    EXPECT_THAT(types, ElementsAre(Path(L"mine"), Path(L"cube"), Path(L"3dl")));
}

// Installing

TEST_F(Listening, TwoNewFilesAndAnInstalledOneAreTwoCopiesOneScanAndOneMessage)
{
    host().lutFiles[L"/luts/user"] = {L"/luts/user/a.cube"};
    EXPECT_THAT(install({L"/home/a.cube", L"/luts/user/b.cube", L"/home/sub/c.cube"}),
                ElementsAre("/luts/user/a.cube", "", "/luts/user/c.cube"));
    EXPECT_THAT(host().journal.linesOf({"copyFile", "getDirectoryContents(\"/luts/user"}),
                ElementsAre(R"(copyFile("/home/a.cube", "/luts/user/a.cube", 0))",
                            R"(copyFile("/home/sub/c.cube", "/luts/user/c.cube", 0))",
                            R"(getDirectoryContents("/luts/user", "*.*", 70))"));
    ASSERT_EQ(listener_.messages.size(), 1U);
    EXPECT_EQ(listener_.messages[0].type, NotifyMsgTypeDictionary::instance().lutListChanged());
    EXPECT_TRUE(listener_.messages[0].text.empty());
    EXPECT_EQ(listener_.listedWhenTold, 1U) << "the list is there before the message";
}

TEST_F(Listening, InstalledFilesInAnyLetterCaseOfTheDirectoryAreLeftAlone)
{
    EXPECT_THAT(install({L"/LUTS/User/a.cube", L"/luts/MACHINE/b.cube"}), ElementsAre("", ""));
    EXPECT_THAT(host().journal.lines(), ElementsAre("getLUTDirectory(0)", "getLUTDirectory(1)"));
    EXPECT_THAT(listener_.messages, IsEmpty());
}

TEST_F(Listening, SiblingDirectoryWhoseNameBeginsLikeTheDirectoryCountsAsInstalled)
{
    EXPECT_THAT(install({L"/luts/userland/a.cube"}), ElementsAre(""));
    EXPECT_EQ(host().journal.count("copyFile"), 0U);
}

TEST_F(Listening, PathThatIsTheTextOfADirectoryCountsAsInstalled)
{
    EXPECT_THAT(install({L"/luts/user", L"/luts/machine"}), ElementsAre("", ""));
    EXPECT_EQ(host().journal.count("copyFile"), 0U);
}

TEST_F(Listening, UnsetDirectoryBeginsEveryPath)
{
    host().lutDirectories = {L"/luts/user", L""};
    EXPECT_THAT(install({L"/home/a.cube"}), ElementsAre(""));
    EXPECT_EQ(host().journal.count("copyFile"), 0U);
}

TEST_F(Listening, UnsetFirstDirectoryBeginsEveryPathToo)
{
    host().lutDirectories = {L"", L"/luts/machine"};
    EXPECT_THAT(install({L"/home/a.cube"}), ElementsAre(""));
    EXPECT_EQ(host().journal.count("copyFile"), 0U);
}

TEST_F(Listening, LetterCaseBeyondAsciiIsIgnoredInTheDirectoryToo)
{
    host().lutDirectories = {L"/luts/\u00DC", L"/luts/\u0416"};
    EXPECT_THAT(install({L"/luts/\u00FC/a.cube", L"/luts/\u0436/b.cube"}), ElementsAre("", ""));
    EXPECT_EQ(host().journal.count("copyFile"), 0U);
}

TEST_F(Listening, EmptyPathIsCopiedLikeAnyOther)
{
    EXPECT_THAT(install({L""}), ElementsAre("/luts/user/"));
    EXPECT_EQ(host().journal.count("copyFile"), 1U);
    EXPECT_EQ(listener_.messages.size(), 1U);
}

TEST_F(Listening, FailedCopyIsReportedAndCountedLikeAnyOther)
{
    host().script.fail("copyFile");
    EXPECT_THAT(install({L"/home/a.cube"}), ElementsAre("/luts/user/a.cube"));
    EXPECT_EQ(listener_.messages.size(), 1U);
    EXPECT_EQ(host().journal.count("getDirectoryContents"), 2U);
}

TEST_F(Listening, NothingToInstallIsNothingToTell)
{
    EXPECT_THAT(install({}), IsEmpty());
    EXPECT_THAT(listener_.messages, IsEmpty());
    EXPECT_EQ(host().journal.count("getDirectoryContents"), 0U);
}

TEST_F(Listening, NoMessageWhenTheCountOfCopiesComesRoundToNothing)
{
    Paths many;
    for (int i = 0; i < 65536; ++i) {
        many.push_back(L"/home/a.cube");
    }
    EXPECT_EQ(manager().installLUTs(many).size(), 65536U);
    EXPECT_THAT(listener_.messages, IsEmpty());
}

// The cache

TEST_F(LUTs, SamePathTwiceIsReadOnceAndGivesTheSameImage)
{
    const Qx::Ptr<iGPUImage3D> first = manager().load(L"/a.cube");
    const Qx::Ptr<iGPUImage3D> second = manager().load(L"/a.cube");
    ASSERT_TRUE(first);
    EXPECT_EQ(first.get(), second.get());
    EXPECT_THAT(host().journal.lines(), ElementsAre(R"(CubeLUT::load("/a.cube"))", "upload3DImage(/a.cube)"));
}

TEST_F(LUTs, PreLoadReadsAndLoadUploadsOnce)
{
    manager().preLoad(L"/a.cube");
    EXPECT_THAT(host().journal.lines(), ElementsAre(R"(CubeLUT::load("/a.cube"))"));
    EXPECT_EQ(nameOf(manager().load(L"/a.cube")), "/a.cube");
    EXPECT_EQ(nameOf(manager().load(L"/a.cube")), "/a.cube");
    EXPECT_THAT(host().journal.lines(), ElementsAre(R"(CubeLUT::load("/a.cube"))", "upload3DImage(/a.cube)"));
}

TEST_F(LUTs, PreLoadOfWhatIsCachedDoesNothing)
{
    const Qx::Ptr<iGPUImage3D> image = manager().load(L"/a.cube");
    host().journal.clear();
    manager().preLoad(L"/a.cube");
    EXPECT_THAT(host().journal.lines(), IsEmpty());
    EXPECT_EQ(manager().load(L"/a.cube").get(), image.get());
}

TEST_F(LUTs, MissingFileIsRememberedAndNotReadAgain)
{
    host().script.fail("CubeLUT::load");
    EXPECT_FALSE(manager().load(L"/none.cube"));
    EXPECT_FALSE(manager().load(L"/none.cube"));
    manager().preLoad(L"/none.cube");
    EXPECT_THAT(host().journal.lines(), ElementsAre(R"(CubeLUT::load("/none.cube"))", "upload3DImage(null)"));
}

TEST_F(LUTs, MissingFileThatWasPreLoadedIsRememberedTooAndNotUploaded)
{
    host().script.fail("CubeLUT::load");
    manager().preLoad(L"/none.cube");
    EXPECT_FALSE(manager().load(L"/none.cube"));
    EXPECT_THAT(host().journal.lines(), ElementsAre(R"(CubeLUT::load("/none.cube"))"));
}

TEST_F(LUTs, FailedUploadIsTriedAgainFromTheHostImage)
{
    host().script.fail("upload3DImage", 1);
    EXPECT_FALSE(manager().load(L"/a.cube"));
    EXPECT_TRUE(manager().load(L"/a.cube"));
    EXPECT_EQ(host().journal.count("CubeLUT::load"), 1U);
}

TEST_F(LUTs, SixthPathEmptiesTheCacheAndIsThenAloneInIt)
{
    const wchar_t* const paths[] = {L"/1", L"/2", L"/3", L"/4", L"/5", L"/6"};
    std::vector<Qx::Ptr<iGPUImage3D>> images;
    for (const wchar_t* path : paths) {
        images.push_back(manager().load(path));
        EXPECT_TRUE(images.back());
    }
    manager().reportUsage();
    EXPECT_THAT(host().journal.linesOf({"Log"}), ElementsAre(R"(Log("LUTManager : 1 luts cached\n"))"));
    EXPECT_EQ(nameOf(images[0]), "/1") << "images in use live on";
    host().journal.clear();
    EXPECT_EQ(manager().load(L"/6").get(), images[5].get());
    EXPECT_THAT(host().journal.lines(), IsEmpty());
    EXPECT_TRUE(manager().load(L"/1"));
    EXPECT_EQ(host().journal.count("CubeLUT::load"), 1U);
}

TEST_F(LUTs, FullCacheStaysWhileItsPathsAreAskedFor)
{
    for (const wchar_t* path : {L"/1", L"/2", L"/3", L"/4", L"/5", L"/1", L"/5"}) {
        manager().load(path);
    }
    EXPECT_EQ(host().journal.count("CubeLUT::load"), 5U);
}

TEST_F(LUTs, PathsThatDifferInLetterCaseAreTwoKeys)
{
    EXPECT_NE(manager().load(L"/a.cube").get(), manager().load(L"/A.cube").get());
    EXPECT_EQ(host().journal.count("CubeLUT::load"), 2U);
}

TEST_F(LUTs, PurgeAndLimitEmptyTheCacheAndTheReportCounts)
{
    iReclaimable& reclaimable = manager();
    manager().load(L"/a.cube");
    manager().preLoad(L"/b.cube");
    reclaimable.reportUsage();
    reclaimable.limitUsage();
    reclaimable.reportUsage();
    manager().load(L"/a.cube");
    reclaimable.purge();
    reclaimable.reportUsage();
    EXPECT_THAT(host().journal.linesOf({"Log"}), ElementsAre(R"(Log("LUTManager : 2 luts cached\n"))",
                                                             R"(Log("LUTManager : 0 luts cached\n"))",
                                                             R"(Log("LUTManager : 0 luts cached\n"))"));
    EXPECT_EQ(host().journal.count("CubeLUT::load"), 3U);
}

TEST_F(LUTs, FilesAreReadAndNewOnesUploadedWithoutTheLock)
{
    bool free = true;
    host().script.during("CubeLUT::load", [&] { free = free && lockIsFree(); });
    host().script.during("upload3DImage", [&] { free = free && lockIsFree(); });
    manager().load(L"/a.cube");
    manager().preLoad(L"/b.cube");
    EXPECT_TRUE(free);
}

TEST_F(LUTs, CachedHostImageIsUploadedWithTheLock)
{
    manager().preLoad(L"/a.cube");
    std::thread other;
    bool blocked = false;
    host().script.during("upload3DImage", [&] {
        other = std::thread([] { manager().purge(); });
        blocked = waitForBlockedThreads(1);
    });
    EXPECT_TRUE(manager().load(L"/a.cube"));
    other.join();
    EXPECT_TRUE(blocked);
}

TEST_F(LUTs, TwoThreadsThatMissOnePathBothReadItAndGetAnImageEach)
{
    Qx::Ptr<iGPUImage3D> late;
    Gate gate = host().script.hold("upload3DImage");
    std::thread slow([&] { late = manager().load(L"/a.cube"); });
    ASSERT_TRUE(gate.waitUntilReached());
    Qx::Ptr<iGPUImage3D> early;
    std::thread quick([&] { early = manager().load(L"/a.cube"); });
    ASSERT_TRUE(gate.waitUntilReached(2));
    gate.release();
    slow.join();
    quick.join();
    EXPECT_NE(early.get(), late.get());
    EXPECT_EQ(host().journal.count("CubeLUT::load"), 2U);
}

TEST_F(LUTs, FirstOfTwoThreadsThatMissOnePathIsKept)
{
    Qx::Ptr<iGPUImage3D> early;
    overtake([&] { early = manager().load(L"/a.cube"); });
    const Qx::Ptr<iGPUImage3D> late = manager().load(L"/a.cube");
    EXPECT_NE(early.get(), late.get());
    EXPECT_EQ(manager().load(L"/a.cube").get(), early.get());
}

TEST_F(LUTs, FullCacheIsEmptiedForAPathThatAnotherThreadAddedMeanwhile)
{
    for (const wchar_t* path : {L"/1", L"/2", L"/3", L"/4"}) {
        manager().load(path);
    }
    overtake([] { manager().load(L"/5"); });
    const Qx::Ptr<iGPUImage3D> late = manager().load(L"/5");
    EXPECT_EQ(manager().load(L"/5").get(), late.get());
    manager().reportUsage();
    EXPECT_THAT(host().journal.linesOf({"Log"}), ElementsAre(R"(Log("LUTManager : 1 luts cached\n"))"));
}

TEST_F(LUTs, ReportTakesNoLock)
{
    manager().load(L"/a.cube");
    EXPECT_EQ(locksEnteredDuring([] { manager().reportUsage(); }), 0U);
}

TEST_F(LUTs, EightThreadsMayLoadPurgeAndReport)
{
    std::vector<std::thread> threads;
    std::atomic<int> wrong = 0;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([t, &wrong] {
            for (int i = 0; i < 200; ++i) {
                const std::wstring path = L"/" + std::to_wstring((i * 7 + t) % 9);
                switch ((i + t) % 8) {
                case 0:
                    manager().preLoad(path.c_str());
                    break;
                case 1:
                    manager().limitUsage();
                    break;
                case 2:
                    manager().reportUsage();
                    break;
                default:
                    wrong += nameOf(manager().load(path.c_str())) != text(path.c_str()) ? 1 : 0;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

// What the host's code was compiled for: the bases and the operations stand in their order.

TEST_F(LUTs, ReclaimableIsTheFirstBaseAndTheNotifierTheSecond)
{
    const auto* object = reinterpret_cast<const std::byte*>(&manager());
    EXPECT_EQ(reinterpret_cast<const std::byte*>(static_cast<iReclaimable*>(&manager())), object);
    EXPECT_EQ(reinterpret_cast<const std::byte*>(static_cast<Notifier*>(&manager())), object + sizeof(void*));
}

TEST_F(LUTs, OperationsOfAReclaimableFollowItsDestructorInTheirOrder)
{
    const auto slotOf = [](void (iReclaimable::*operation)()) {
        std::array<std::ptrdiff_t, 2> words{}; // one more than the offset in the table, and an adjustment
        static_assert(sizeof words == sizeof operation);
        std::memcpy(words.data(), &operation, sizeof words);
        return static_cast<std::size_t>(words[0] - 1) / sizeof(void*);
    };
    EXPECT_EQ(slotOf(&iReclaimable::purge), 2U) << "the destructor has the first two";
    EXPECT_EQ(slotOf(&iReclaimable::limitUsage), 3U);
    EXPECT_EQ(slotOf(&iReclaimable::reportUsage), 4U);
}

// The lifetime. Each test has its own process, so the manager does not exist yet.

class FirstUse : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(testing::UnitTest::GetInstance()->test_to_run_count(), 1)
            << "each of these tests needs a process of its own: run them by ctest";
        host().reset();
        host().lutFiles[L"/luts/user"] = {L"/luts/user/a.cube"};
    }
};

TEST_F(FirstUse, ScansTheDirectories)
{
    EXPECT_EQ(LUTManager::instance().getLUTs().size(), 1U);
    EXPECT_EQ(&LUTManager::instance(), &LUTManager::instance());
    EXPECT_EQ(host().journal.count("getDirectoryContents"), 2U);
}

TEST_F(FirstUse, NothingIsCached)
{
    LUTManager::instance().reportUsage();
    EXPECT_THAT(host().journal.linesOf({"Log"}), ElementsAre(R"(Log("LUTManager : 0 luts cached\n"))"));
}

TEST_F(FirstUse, ShutdownMakesTheManagerAndEmptiesItsList)
{
    LUTManager::shutdown();
    EXPECT_EQ(host().journal.count("getDirectoryContents"), 2U);
    EXPECT_TRUE(LUTManager::instance().getLUTs().empty());
}

TEST_F(FirstUse, ThreadsThatComeFirstWaitForOneManager)
{
    Gate gate = host().script.hold("CubeLUT::getSupportedFileTypes");
    std::vector<std::thread> threads;
    std::atomic<int> listed = 0;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] { listed += static_cast<int>(LUTManager::instance().getLUTs().size()); });
    }
    ASSERT_TRUE(gate.waitUntilReached());
    EXPECT_EQ(listed, 0);
    gate.release();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(listed, 4);
    EXPECT_EQ(host().journal.count("CubeLUT::getSupportedFileTypes"), 1U);
}

TEST_F(FirstUse, LeavesWithItsCacheWhenTheProcessExits)
{
    const auto loadAndExit = [] {
        LUTManager::instance().load(L"/a.cube");
        exitShowingReleases();
    };
    EXPECT_EXIT(loadAndExit(), testing::ExitedWithCode(0), "released\\(/a.cube\\)");
}

TEST_F(LUTs, ShutdownKeepsTheCache)
{
    const Qx::Ptr<iGPUImage3D> image = manager().load(L"/a.cube");
    LUTManager::shutdown();
    EXPECT_EQ(manager().load(L"/a.cube").get(), image.get());
}

} // namespace

} // namespace Qx::Test
