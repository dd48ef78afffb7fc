#include "QxFxResources/Manager.h"
#include "platform/Log.h"
#include "tests/contract/recording/LibraryTest.h"
#include "tests/contract/recording/Surfaces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace Qx::Test;
using Qx::FxResources::Manager;
using Qx::FxResources::ShaderEffectInfo;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class EffectManager : public LibraryTest
{
};

} // namespace

TEST_F(EffectManager, StartUpScansThenQueuesTheCompilationThenRegistersItsShutdown)
{
    host().addFile(L"/shaders/", L"a.fx");
    Manager::instance();
    EXPECT_THAT(host().journal.lines(),
                ElementsAre("getShadersDir()", "getFXTemplatesDirectory(0)",
                            "listDirectory(\"/shaders/*.fx\", 1, 0)",
                            "listDirectory(\"/templates/*.fx\", 1, 0)", "queue(ShaderCompilationTask, false)",
                            "Shutdown::addCallback(450)"));
}

TEST_F(EffectManager, StartUpCompilesNothingAndDoesNotWait)
{
    host().addFile(L"/shaders/", L"a.fx");
    Manager::instance();
    EXPECT_EQ(host().journal.count("loadEffectFile"), 0U);
    EXPECT_FALSE(Manager::instance().findEffect(L"a.fx").effect);
}

TEST_F(EffectManager, SecondInstanceCallFindsTheSameManagerAndRegistersNothing)
{
    host().addFile(L"/shaders/", L"a.fx");
    const Manager* manager = &Manager::instance();
    const std::size_t calls = host().journal.lines().size();
    EXPECT_EQ(&Manager::instance(), manager);
    EXPECT_EQ(host().journal.lines().size(), calls);
    EXPECT_THAT(host().shutdownCallbacks, SizeIs(1));
}

TEST_F(EffectManager, IsFoundWithoutALockOnceItIsThere)
{
    const Manager* manager = &Manager::instance();
    EXPECT_EQ(locksEnteredDuring([&] { EXPECT_EQ(&Manager::instance(), manager); }), 0U);
}

TEST_F(EffectManager, StartUpAfterTheFirstInstanceChangesNothing)
{
    const Manager* manager = &Manager::instance();
    const std::size_t calls = host().journal.lines().size();
    Manager::startup(true);
    Manager::startup(false);
    EXPECT_EQ(&Manager::instance(), manager);
    EXPECT_EQ(host().journal.lines().size(), calls);
}

TEST_F(EffectManager, ExplicitStartUpMakesTheManagerThatInstanceFinds)
{
    host().addFile(L"/shaders/", L"a.fx");
    Manager::startup(true);
    const std::size_t calls = host().journal.lines().size();
    EXPECT_THAT(Manager::instance().effects(), SizeIs(1));
    EXPECT_EQ(host().journal.lines().size(), calls);
}

TEST_F(EffectManager, IsThereAlreadyForWhoAsksDuringItsInitialisation)
{
    host().addFile(L"/shaders/", L"a.fx");
    const Manager* inside = nullptr;
    host().script.during("listDirectory", [&] { inside = &Manager::instance(); });
    const Manager* manager = &Manager::instance();
    EXPECT_EQ(inside, manager);
    EXPECT_EQ(host().journal.count("getShadersDir"), 1U);
    EXPECT_THAT(host().shutdownCallbacks, SizeIs(1));
}

TEST_F(EffectManager, EightThreadsThatComeFirstMakeOneManager)
{
    host().addFile(L"/shaders/", L"a.fx");
    Gate scanning = host().script.hold("getShadersDir");
    std::vector<const Manager*> managers(8);
    {
        std::vector<std::jthread> threads;
        for (const Manager*& manager : managers) {
            threads.emplace_back([&manager] { manager = &Manager::instance(); });
        }
        EXPECT_TRUE(scanning.waitUntilReached());
        EXPECT_TRUE(waitForBlockedThreads(7));
        scanning.release();
    }
    for (const Manager* manager : managers) {
        EXPECT_EQ(manager, &Manager::instance());
    }
    EXPECT_EQ(host().journal.count("listDirectory"), 2U);
    EXPECT_EQ(host().journal.count("queue"), 1U);
    EXPECT_THAT(host().shutdownCallbacks, SizeIs(1));
}

TEST_F(EffectManager, LivesInTheHostsMemoryAndLeavesTheProcessesOwnAlone)
{
    host().addFile(L"/shaders/", L"a.fx");
    EXPECT_TRUE(host().allocator.owns(&Manager::instance()));
    EXPECT_TRUE(host().allocator.owns(Manager::instance().effects().data()));
    const std::size_t before = host().allocator.allocations();
    const auto own = std::make_unique<std::vector<int>>(1000);
    EXPECT_EQ(host().allocator.allocations(), before);
    EXPECT_FALSE(host().allocator.owns(own.get()));
}

TEST_F(EffectManager, ShowsAMessageOnceWhenThereAreNoEffectsAndQueuesNothing)
{
    Manager::instance();
    Manager::instance();
    EXPECT_THAT(
        host().journal.lines(),
        ElementsAre("getShadersDir()", "getFXTemplatesDirectory(0)", "listDirectory(\"/shaders/*.fx\", 1, 0)",
                    "listDirectory(\"/templates/*.fx\", 1, 0)", "getShadersDir()",
                    "showMessage(\"Effects of the host\", \"No .fx files found in /shaders/Shaders\", 1, 2)",
                    "Shutdown::addCallback(450)"));
}

TEST_F(EffectManager, OnlyUnderscoredFilesCountAsNoEffects)
{
    host().addFile(L"/shaders/", L"_include.fx");
    Manager::instance();
    EXPECT_EQ(host().journal.count("showMessage"), 1U);
    EXPECT_EQ(host().journal.count("queue"), 0U);
}

TEST_F(EffectManager, WithoutEffectsEveryLookupGivesNoShader)
{
    EXPECT_FALSE(Manager::instance().findEffect(L"ColourConvert.fx").getShader());
    EXPECT_THAT(Manager::instance().effects(), IsEmpty());
}

TEST_F(EffectManager, FindsARecordWhateverTheLetterCase)
{
    host().addFile(L"/shaders/", L"ColourConvert.fx");
    host().addFile(L"/shaders/", L"\u00C4ther \u0416.fx");
    const Manager& manager = Manager::instance();
    EXPECT_EQ(&manager.findEffect(L"ColourConvert.fx"), &manager.effects()[0]);
    EXPECT_EQ(&manager.findEffect(L"COLOURCONVERT.FX"), &manager.effects()[0]);
    EXPECT_EQ(&manager.findEffect(L"colourconvert.fx"), &manager.effects()[0]);
    EXPECT_EQ(&manager.findEffect(L"\u00E4THER \u0436.FX"), &manager.effects()[1]);
}

TEST_F(EffectManager, ComparesTheWholeNameWithItsExtension)
{
    host().addFile(L"/shaders/", L"ColourConvert.fx");
    const Manager& manager = Manager::instance();
    for (const wchar_t* name :
         {L"ColourConvert", L"ColourConvert.f", L"ColourConvert.fx ", L"/shaders/ColourConvert.fx"}) {
        EXPECT_TRUE(manager.findEffect(name).name.empty());
    }
}

TEST_F(EffectManager, FindsTheShadersDirectoryCopyOfANameInBothDirectories)
{
    host().addFile(L"/templates/", L"same.fx");
    host().addFile(L"/shaders/", L"Same.fx");
    EXPECT_EQ(text(Manager::instance().findEffect(L"same.fx").directory), "/shaders/");
}

TEST_F(EffectManager, UnknownNamesShareOneEmptyRecord)
{
    host().addFile(L"/shaders/", L"a.fx");
    const Manager& manager = Manager::instance();
    const ShaderEffectInfo& none = manager.findEffect(L"unknown.fx");
    EXPECT_EQ(&none, &manager.findEffect(L"another.fx"));
    EXPECT_TRUE(none.name.empty());
    EXPECT_TRUE(none.directory.empty());
    EXPECT_FALSE(none.effect);
}

TEST_F(EffectManager, ShaderOfTheEmptyRecordIsNull)
{
    host().addFile(L"/shaders/", L"a.fx");
    const Manager& manager = Manager::instance();
    EXPECT_FALSE(manager.findEffect(L"unknown.fx").getShader());
}

TEST_F(EffectManager, EmptyKeyMatchesARecordWithAnEmptyNameAndElseNothing)
{
    host().addFile(L"/shaders/", L"a.fx");
    {
        const Manager& manager = Manager::instance();
        EXPECT_EQ(&manager.findEffect(nullptr), &manager.findEffect(L"unknown.fx"));
    }
    Manager::shutdown(Shutdown::NormalExit);
    host().addFile(L"/shaders/", L"");
    const Manager& manager = Manager::instance();
    EXPECT_EQ(&manager.findEffect(nullptr), &manager.effects()[1]);
    EXPECT_EQ(&manager.findEffect(L""), &manager.effects()[1]);
}

TEST_F(EffectManager, LoadPrintsOneTimingLineWhenLoggingIsOn)
{
    host().addFile(L"/shaders/", L"a.fx");
    const Manager& manager = Manager::instance();
    Qx::ErrorLogLogger::loggingEnabled_ = true;
    host().clockStep = 12.344;
    EXPECT_EQ(printedDuring([&] { manager.findEffect(L"a.fx").getShader(); }), "Manager::load() : 12.34ms\n");
    EXPECT_EQ(printedDuring([&] { manager.findEffect(L"a.fx").getShader(); }), "") << "it is there: no load";
    EXPECT_EQ(printedDuring([&] { manager.load(manager.findEffect(L"a.fx")); }),
              "Manager::load() : 12.34ms\n");
    host().clockStep = 0.0;
    EXPECT_EQ(printedDuring([&] { manager.findEffect(L"unknown.fx").getShader(); }),
              "Manager::load() : 0.00ms\n");
}

TEST_F(EffectManager, LoadPrintsNothingWhenLoggingIsOff)
{
    host().addFile(L"/shaders/", L"a.fx");
    const Manager& manager = Manager::instance();
    EXPECT_EQ(printedDuring([&] { manager.load(manager.findEffect(L"a.fx")); }), "");
}

TEST_F(EffectManager, LoadCountsItselfByTheAtomicServiceBetweenTheReadingsOfTheClock)
{
    host().addFile(L"/shaders/", L"a.fx");
    const Manager& manager = Manager::instance();
    host().journal.clear();
    host().recordClock = true;
    host().watchCountersIn(&manager, sizeof(Manager));
    manager.load(manager.findEffect(L"a.fx"));
    EXPECT_THAT(host().journal.lines(), ElementsAre("millisecondsPrecise()", "atomicIncrement() = 1",
                                                    testing::StartsWith("loadEffectFile("),
                                                    "atomicDecrement() = 0", "millisecondsPrecise()"));
}

TEST_F(EffectManager, LoadOfWhatIsThereCountsItselfToo)
{
    host().addFile(L"/shaders/", L"a.fx");
    const Manager& manager = Manager::instance();
    manager.findEffect(L"a.fx").getShader();
    host().journal.clear();
    host().recordClock = true;
    host().watchCountersIn(&manager, sizeof(Manager));
    manager.load(manager.findEffect(L"a.fx"));
    EXPECT_THAT(host().journal.lines(), ElementsAre("millisecondsPrecise()", "atomicIncrement() = 1",
                                                    "atomicDecrement() = 0", "millisecondsPrecise()"));
}

TEST_F(EffectManager, CompilesAnyFileWithItsDefinitionsAndLeavesTheCatalogueAlone)
{
    host().addFile(L"/shaders/", L"a.fx");
    host().compileErrors[L"/elsewhere/broken.fx"] = "broken.fx(3,1): error";
    const Manager& manager = Manager::instance();
    host().journal.clear();
    const EffectCompileResult good = manager.compileFXFile(L"/shaders/a.fx");
    const EffectCompileResult bad = manager.compileFXFile(L"/elsewhere/broken.fx");
    EXPECT_TRUE(good.effect);
    EXPECT_TRUE(good.errors.empty());
    EXPECT_FALSE(bad.effect);
    EXPECT_EQ(text(bad.errors), "broken.fx(3,1): error");
    EXPECT_THAT(manager.effects(), SizeIs(1));
    EXPECT_FALSE(manager.effects()[0].effect);
    EXPECT_THAT(
        host().journal.lines(),
        ElementsAre("compileEffectFile(\"/shaders/a.fx\", {_OUTPUTWIDTH=1, _OUTPUTHEIGHT=1, "
                    "_OUTPUTASPECTRATIO=1, _PROGRESS=1, _OUTPUTFPS=1, _LENGTH=1, _LENGTHFRAMES=1})",
                    testing::StartsWith("compileEffectFile(\"/elsewhere/broken.fx\", {_OUTPUTWIDTH=1, ")));
}

TEST_F(EffectManager, WaitReturnsAtOnceBeforeTheBackgroundPassAndAfterIt)
{
    host().addFile(L"/shaders/", L"a.fx");
    Manager::instance().waitForEffectsToLoad();
    EXPECT_EQ(host().journal.count("loadEffectFile"), 0U);
    EXPECT_EQ(runTasks(), 1U);
    Manager::instance().waitForEffectsToLoad();
}

TEST_F(EffectManager, ComputeContextIsCreatedOnceUnderTheGpuLockAndShared)
{
    Manager& manager = Manager::instance();
    host().journal.clear();
    int depth = 0;
    host().script.during("createComputeContext", [&] { depth = depthOf(manager.gpuLock()); });
    const Qx::Ptr<iGPUComputeContext> first = manager.getGPUComputeContext();
    const Qx::Ptr<iGPUComputeContext> second = manager.getGPUComputeContext();
    ASSERT_TRUE(first);
    EXPECT_EQ(first, second);
    EXPECT_EQ(depth, 1);
    EXPECT_THAT(host().journal.lines(), ElementsAre("createComputeContext(0)"));
}

TEST_F(EffectManager, FailedComputeContextIsNotRemembered)
{
    Manager& manager = Manager::instance();
    host().script.fail("createComputeContext", 2);
    EXPECT_FALSE(manager.getGPUComputeContext());
    EXPECT_FALSE(manager.getGPUComputeContext());
    EXPECT_TRUE(manager.getGPUComputeContext());
    EXPECT_TRUE(manager.getGPUComputeContext());
    EXPECT_EQ(host().journal.count("createComputeContext"), 3U);
}

TEST_F(EffectManager, ThreadThatWaitedForTheComputeContextFindsItMade)
{
    Manager& manager = Manager::instance();
    Gate creating = host().script.hold("createComputeContext");
    Qx::Ptr<iGPUComputeContext> first;
    Qx::Ptr<iGPUComputeContext> second;
    {
        const std::jthread one([&] { first = manager.getGPUComputeContext(); });
        ASSERT_TRUE(creating.waitUntilReached());
        const std::jthread other([&] { second = manager.getGPUComputeContext(); });
        EXPECT_TRUE(waitForBlockedThreads(1));
        creating.release();
    }
    ASSERT_TRUE(first);
    EXPECT_EQ(first, second);
    EXPECT_EQ(host().journal.count("createComputeContext"), 1U);
}

TEST_F(EffectManager, ComputeContextIsTakenWithoutTheLockOnceItIsThere)
{
    Manager& manager = Manager::instance();
    const Qx::Ptr<iGPUComputeContext> made = manager.getGPUComputeContext();
    EXPECT_EQ(locksEnteredDuring([&] { EXPECT_EQ(manager.getGPUComputeContext(), made); }), 0U);
}

TEST_F(EffectManager, FiniEmptiesTheCatalogueReleasesTheContextAndKeepsTheDefinitions)
{
    host().addFile(L"/shaders/", L"a.fx");
    Manager& manager = Manager::instance();
    ASSERT_TRUE(manager.findEffect(L"a.fx").getShader());
    const void* context = manager.getGPUComputeContext().get();
    ASSERT_TRUE(host().allocator.owns(context));
    manager.fini();
    EXPECT_THAT(manager.effects(), IsEmpty());
    EXPECT_FALSE(host().allocator.owns(context));
    EXPECT_EQ(&manager.findEffect(L"a.fx"), &manager.findEffect(L"unknown.fx"));
    host().journal.clear();
    manager.compileFXFile(L"/x.fx");
    EXPECT_THAT(
        host().journal.lines(),
        ElementsAre("compileEffectFile(\"/x.fx\", {_OUTPUTWIDTH=1, _OUTPUTHEIGHT=1, _OUTPUTASPECTRATIO=1, "
                    "_PROGRESS=1, _OUTPUTFPS=1, _LENGTH=1, _LENGTHFRAMES=1})"));
}

TEST_F(EffectManager, FiniReleasesTheEffectsThenTheContextWhichFindNeither)
{
    host().addFile(L"/shaders/", L"a.fx");
    host().addFile(L"/shaders/", L"b.fx");
    Manager& manager = Manager::instance();
    manager.findEffect(L"a.fx").getShader();
    manager.findEffect(L"b.fx").getShader();
    manager.getGPUComputeContext();
    host().recordReleases = true;
    std::vector<std::size_t> left;
    host().script.during("released", [&] { left.push_back(manager.effects().size()); });
    manager.fini();
    EXPECT_THAT(host().journal.linesOf({"released"}),
                ElementsAre("released(a.fx)", "released(b.fx)", "released(compute context)"));
    EXPECT_THAT(left, ElementsAre(0, 0, 0));
}

TEST_F(EffectManager, FiniMayComeTwice)
{
    host().addFile(L"/shaders/", L"a.fx");
    Manager::instance().fini();
    Manager::instance().fini();
    EXPECT_THAT(Manager::instance().effects(), IsEmpty());
}

TEST_F(EffectManager, RegisteredCallbackIsTheShutdownWhateverTheExitType)
{
    for (const Shutdown::eExitType exit : {Shutdown::NormalExit, Shutdown::FatalExit}) {
        host().addFile(L"/shaders/", L"a.fx");
        const Manager* manager = &Manager::instance();
        ASSERT_THAT(host().shutdownCallbacks, SizeIs(1));
        EXPECT_EQ(host().shutdownCallbacks[0].order, 450);
        EXPECT_EQ(host().shutdownCallbacks[0].callback, &Manager::shutdown);
        ASSERT_TRUE(host().allocator.owns(manager));
        host().shutdownCallbacks[0].callback(exit);
        EXPECT_FALSE(host().allocator.owns(manager)) << "exit type " << exit;
        host().reset();
    }
}

TEST_F(EffectManager, InstanceAfterShutdownMakesANewManager)
{
    host().addFile(L"/shaders/", L"a.fx");
    Manager::instance();
    Manager::shutdown(Shutdown::NormalExit);
    host().addFile(L"/shaders/", L"b.fx");
    EXPECT_THAT(Manager::instance().effects(), SizeIs(2));
    EXPECT_EQ(host().journal.count("Shutdown::addCallback(450)"), 2U);
    EXPECT_EQ(host().journal.count("queue(ShaderCompilationTask, false)"), 2U);
}

TEST_F(EffectManager, ThreadThatAsksWhileTheManagerIsDeletedGetsANewOne)
{
    host().addFile(L"/shaders/", L"a.fx");
    const Manager* manager = &Manager::instance();
    const Manager* found = nullptr;
    std::thread asking;
    host().allocator.beforeFreeing(manager, [&] {
        asking = std::thread([&] { found = &Manager::instance(); });
        EXPECT_TRUE(waitForBlockedThreads(1)) << "it has found the one that is being deleted";
    });
    Manager::shutdown(Shutdown::NormalExit);
    asking.join();
    EXPECT_EQ(found, &Manager::instance());
    EXPECT_EQ(host().journal.count("Shutdown::addCallback(450)"), 2U);
}

TEST_F(EffectManager, ShutdownWithoutAManagerMakesNone)
{
    Manager::shutdown(Shutdown::NormalExit);
    Manager::shutdown(Shutdown::FatalExit);
    EXPECT_THAT(host().journal.lines(), IsEmpty());
}

TEST_F(EffectManager, ShaderOutlivesTheManager)
{
    host().addFile(L"/shaders/", L"a.fx");
    const Qx::Ptr<iShaderEffect> shader = Manager::instance().findEffect(L"a.fx").getShader();
    Manager::shutdown(Shutdown::NormalExit);
    EXPECT_TRUE(host().allocator.owns(shader.get()));
    EXPECT_TRUE(shader->setTechnique("Any"));
}

TEST_F(EffectManager, StartUpReturnsAtOnceDuringAShutdownThatWaits)
{
    host().addFile(L"/shaders/", L"a.fx");
    Manager::instance();
    const auto tasks = host().takeTasks();
    ASSERT_THAT(tasks, SizeIs(1));
    Gate compiling = host().script.hold("loadEffectFile");
    std::jthread background([&] { tasks[0]->run(); });
    ASSERT_TRUE(compiling.waitUntilReached());
    std::jthread stopping([] { Manager::shutdown(Shutdown::NormalExit); });
    EXPECT_TRUE(waitForBlockedThreads(1)); // it waits for the pass
    std::jthread starting([] {
        Manager::startup(true);
        host().journal.record("started");
    });
    EXPECT_TRUE(host().journal.waitFor("started"));
    compiling.release();
}

TEST_F(EffectManager, HostMayUseItOnTheSameThreadInEveryCallOfItsInitialisation)
{
    for (const bool hasEffects : {true, false}) {
        if (hasEffects) {
            host().addFile(L"/shaders/", L"a.fx");
        }
        std::vector<const Manager*> found;
        for (const char* operation : {"getShadersDir", "getFXTemplatesDirectory", "listDirectory",
                                      "showMessage", "queue", "Shutdown::addCallback"}) {
            host().script.during(operation, [&] { found.push_back(&Manager::instance()); });
        }
        const Manager* manager = &Manager::instance();
        EXPECT_THAT(found, SizeIs(hasEffects ? 6 : 7));
        EXPECT_THAT(found, testing::Each(manager));
        EXPECT_THAT(host().shutdownCallbacks, SizeIs(1));
        Manager::shutdown(Shutdown::NormalExit);
        host().reset();
    }
}
