#include "QxFxResources/Manager.h"
#include "tests/contract/recording/LibraryTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>
#include <vector>

using namespace Qx::Test;
using Qx::FxResources::Manager;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class BackgroundCompilation : public LibraryTest
{
protected:
    /// Starts the library with several effects, a.fx, b.fx, ..., and takes its task.
    static Qx::Ptr<iBackgroundTask> startWith(int effects)
    {
        for (int i = 0; i < effects; ++i) {
            const std::wstring name = std::wstring(1, static_cast<wchar_t>(L'a' + i)) + L".fx";
            host().addFile(L"/shaders/", name.c_str());
        }
        Manager::instance();
        auto tasks = host().takeTasks();
        host().journal.clear();
        return tasks.empty() ? Qx::Ptr<iBackgroundTask>() : tasks.front();
    }

    static std::string compiling(const char* name)
    {
        return std::string("loadEffectFile(\"/shaders/") + name +
               "\", {_OUTPUTWIDTH=1, _OUTPUTHEIGHT=1, _OUTPUTASPECTRATIO=1, _PROGRESS=1, _OUTPUTFPS=1, "
               "_LENGTH=1, "
               "_LENGTHFRAMES=1})";
    }

    static std::size_t countLines() { return host().journal.count("vexo_printf"); }
};

} // namespace

TEST_F(BackgroundCompilation, TaskAnswersWhatTheQueueAsks)
{
    host().resources[13226] = L"Compiling shaders";
    const Qx::Ptr<iBackgroundTask> task = startWith(1);
    ASSERT_TRUE(task);
    EXPECT_EQ(text(task->getID()), "ShaderCompilationTask");
    EXPECT_EQ(text(task->getDescription()), "Compiling shaders");
    EXPECT_EQ(task->getLifetime(), 1);
    EXPECT_FALSE(task->isAbortable());
    EXPECT_THAT(host().journal.lines(), ElementsAre("resourceStrW(13226)"));
}

TEST_F(BackgroundCompilation, QueueAloneKeepsTheTaskAlive)
{
    host().addFile(L"/shaders/", L"a.fx");
    Manager::instance();
    auto tasks = host().takeTasks();
    ASSERT_THAT(tasks, SizeIs(1));
    EXPECT_TRUE(tasks[0].isSoleOwner());
}

TEST_F(BackgroundCompilation, CompilesTheCatalogueInItsOrderAndReportsEachStep)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(3);
    EXPECT_TRUE(task->run());
    EXPECT_THAT(host().journal.lines(),
                ElementsAre("StartEnv::arg(\"-transcode\")", "getCurrentTaskStatus()", "setStep(\"a.fx\", 0)",
                            compiling("a.fx"), "setProgress(\"\", 0.3333333432674408)",
                            "getCurrentTaskStatus()", "setStep(\"b.fx\", 0)", compiling("b.fx"),
                            "setProgress(\"\", 0.6666666865348816)", "getCurrentTaskStatus()",
                            "setStep(\"c.fx\", 0)", compiling("c.fx"), "setProgress(\"\", 1)",
                            "vexo_printf(\"QxFxResources::Manager : 3 pixel shaders loaded\\n\")"));
}

TEST_F(BackgroundCompilation, ProgressIsTheQuotientInSinglePrecision)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(7);
    task->run();
    std::vector<std::string> expected;
    for (int i = 1; i <= 7; ++i) {
        const float fraction = static_cast<float>(i) / 7.0F;
        expected.push_back("setProgress(\"\", " + number(static_cast<double>(fraction)) + ")");
    }
    EXPECT_EQ(host().journal.linesOf({"setProgress"}), expected);
}

TEST_F(BackgroundCompilation, ReportsToTheLogItIsGiven)
{
    startWith(1);
    Manager::instance().compileAll(Qx::makePtr<RecordingTaskLog>());
    EXPECT_EQ(host().journal.count("setStep"), 1U);
    EXPECT_EQ(host().journal.count("setProgress"), 1U);
}

TEST_F(BackgroundCompilation, SkipsTheCompileOfWhatIsThereButStillReportsIt)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(2);
    ASSERT_TRUE(Manager::instance().findEffect(L"a.fx").getShader());
    host().journal.clear();
    task->run();
    EXPECT_THAT(host().journal.linesOf({"loadEffectFile", "setStep"}),
                ElementsAre("setStep(\"a.fx\", 0)", "setStep(\"b.fx\", 0)", compiling("b.fx")));
}

TEST_F(BackgroundCompilation, IsNoForegroundLoad)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(2);
    host().recordClock = true;
    host().watchCountersIn(&Manager::instance(), sizeof(Manager));
    task->run();
    EXPECT_THAT(host().journal.linesOf({"atomic", "millisecondsPrecise"}), IsEmpty());
    EXPECT_EQ(host().journal.count("loadEffectFile"), 2U);
}

TEST_F(BackgroundCompilation, ReadsTheCataloguesSizeAnewForEachEffect)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(2);
    host().script.duringNext("setProgress", [] {
        host().addFile(L"/shaders/", L"new.fx");
        Manager::instance().recompileAll();
    });
    task->run();
    EXPECT_THAT(host().journal.linesOf({"setStep", "setProgress", "vexo_printf"}),
                ElementsAre("setStep(\"a.fx\", 0)", "setProgress(\"\", 0.5)", "setStep(\"b.fx\", 0)",
                            "setProgress(\"\", 0.6666666865348816)", "setStep(\"new.fx\", 0)",
                            "setProgress(\"\", 1)",
                            "vexo_printf(\"QxFxResources::Manager : 3 pixel shaders loaded\\n\")"));
}

TEST_F(BackgroundCompilation, FailedEffectsAreCountedAndNotReported)
{
    host().compileErrors[L"/shaders/a.fx"] = "error";
    const Qx::Ptr<iBackgroundTask> task = startWith(2);
    EXPECT_TRUE(task->run());
    EXPECT_FALSE(Manager::instance().findEffect(L"a.fx").effect);
    EXPECT_TRUE(Manager::instance().findEffect(L"b.fx").effect);
    EXPECT_THAT(host().journal.linesOf({"vexo_printf", "Log"}),
                ElementsAre("vexo_printf(\"QxFxResources::Manager : 2 pixel shaders loaded\\n\")"));
    host().compileErrors.clear();
    EXPECT_TRUE(Manager::instance().findEffect(L"a.fx").getShader()) << "it is tried again on demand";
}

TEST_F(BackgroundCompilation, UnderTranscodeCompilesNothingAndPrintsTheCount)
{
    host().programArguments = {L"-transcode"};
    const Qx::Ptr<iBackgroundTask> task = startWith(2);
    EXPECT_TRUE(task->run());
    EXPECT_THAT(host().journal.lines(),
                ElementsAre("StartEnv::arg(\"-transcode\")",
                            "vexo_printf(\"QxFxResources::Manager : 2 pixel shaders loaded\\n\")"));
    EXPECT_TRUE(Manager::instance().findEffect(L"b.fx").getShader()) << "compiled on demand";
}

TEST_F(BackgroundCompilation, OfAnEmptyCataloguePrintsZero)
{
    Manager::instance();
    host().journal.clear();
    Manager::instance().compileAll(Qx::makePtr<RecordingTaskLog>());
    EXPECT_THAT(host().journal.lines(),
                ElementsAre("StartEnv::arg(\"-transcode\")",
                            "vexo_printf(\"QxFxResources::Manager : 0 pixel shaders loaded\\n\")"));
}

TEST_F(BackgroundCompilation, AfterFiniDoesNothingSilently)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(2);
    Manager::instance().fini();
    EXPECT_TRUE(task->run());
    EXPECT_THAT(host().journal.lines(), ElementsAre("StartEnv::arg(\"-transcode\")"));
}

TEST_F(BackgroundCompilation, AfterFiniUnderTranscodePrintsNothing)
{
    host().programArguments = {L"-transcode"};
    const Qx::Ptr<iBackgroundTask> task = startWith(2);
    Manager::instance().fini();
    EXPECT_TRUE(task->run());
    EXPECT_EQ(countLines(), 0U);
}

TEST_F(BackgroundCompilation, PausesTwoSecondsAtATimeWhileTheHostHoldsItBack)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(2);
    std::vector<int> statuses{2, 2, 2, 1, 2, 0};
    host().taskStatus = [&, next = std::size_t{0}]() mutable {
        return static_cast<BackgroundTaskQueueBase::eTaskStatus>(statuses.at(next++));
    };
    task->run();
    EXPECT_THAT(host().journal.linesOf({"sleepMilliseconds", "setStep"}),
                ElementsAre("sleepMilliseconds(2000)", "sleepMilliseconds(2000)", "sleepMilliseconds(2000)",
                            "setStep(\"a.fx\", 0)", "sleepMilliseconds(2000)", "setStep(\"b.fx\", 0)"));
    EXPECT_EQ(countLines(), 1U);
}

TEST_F(BackgroundCompilation, PausesTwoSecondsAtATimeWhileAForegroundLoadGoesOn)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(3);
    std::promise<void> begun;
    std::promise<void> release;
    host().makeEffect = [&](const std::wstring& path) -> Qx::Ptr<iShaderEffect> {
        if (path == L"/shaders/b.fx") {
            begun.set_value();
            release.get_future().wait();
        }
        return Qx::makePtr<FakeEffect>("effect");
    };
    std::jthread foreground([] { Manager::instance().findEffect(L"b.fx").getShader(); });
    begun.get_future().wait();
    int sleeps = 0;
    host().script.during("sleepMilliseconds", [&] {
        if (++sleeps == 3) {
            release.set_value();
            foreground.join();
        }
    });
    task->run();
    EXPECT_THAT(host().journal.linesOf({"sleepMilliseconds", "setStep", "loadEffectFile"}),
                ElementsAre(compiling("b.fx"), "sleepMilliseconds(2000)", "sleepMilliseconds(2000)",
                            "sleepMilliseconds(2000)", "setStep(\"a.fx\", 0)", compiling("a.fx"),
                            "setStep(\"b.fx\", 0)", "setStep(\"c.fx\", 0)", compiling("c.fx")));
}

TEST_F(BackgroundCompilation, FinishesTheEffectItIsAtBeforeItPausesForAForegroundLoad)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(2);
    std::promise<void> begun;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::thread foreground;
    host().makeEffect = [&](const std::wstring& path) -> Qx::Ptr<iShaderEffect> {
        if (path == L"/shaders/a.fx") { // the pass compiles a.fx when b.fx is requested
            foreground = std::thread([] { Manager::instance().findEffect(L"b.fx").getShader(); });
            begun.get_future().wait();
        } else {
            begun.set_value();
            released.wait();
        }
        return Qx::makePtr<FakeEffect>("effect");
    };
    host().script.during("sleepMilliseconds", [&] {
        release.set_value();
        foreground.join();
    });
    task->run();
    EXPECT_THAT(host().journal.linesOf({"sleepMilliseconds", "setProgress", "setStep"}),
                ElementsAre("setStep(\"a.fx\", 0)", "setProgress(\"\", 0.5)", "sleepMilliseconds(2000)",
                            "setStep(\"b.fx\", 0)", "setProgress(\"\", 1)"));
    EXPECT_EQ(host().journal.count("loadEffectFile"), 2U);
}

TEST_F(BackgroundCompilation, DemandForTheEffectItIsAtWaitsAndCompilesNothing)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(1);
    Gate compilingOne = host().script.hold("loadEffectFile");
    std::jthread background([&] { task->run(); });
    ASSERT_TRUE(compilingOne.waitUntilReached());
    Qx::Ptr<iShaderEffect> shader;
    std::jthread foreground([&] { shader = Manager::instance().findEffect(L"a.fx").getShader(); });
    EXPECT_TRUE(waitForBlockedThreads(1));
    compilingOne.release();
    background.join();
    foreground.join();
    EXPECT_TRUE(shader);
    EXPECT_EQ(host().journal.count("loadEffectFile"), 1U);
}

TEST_F(BackgroundCompilation, WhoWaitsForEffectsWaitsForTheWholePass)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(3);
    Gate compilingOne = host().script.hold("loadEffectFile");
    std::jthread background([&] { task->run(); });
    ASSERT_TRUE(compilingOne.waitUntilReached());
    std::jthread waiting([] {
        Manager::instance().waitForEffectsToLoad();
        host().journal.record("waited");
    });
    EXPECT_TRUE(waitForBlockedThreads(1));
    compilingOne.release();
    background.join();
    waiting.join();
    EXPECT_EQ(host().journal.lines().back(), "waited");
    EXPECT_EQ(host().journal.count("loadEffectFile"), 3U);
}

TEST_F(BackgroundCompilation, PassThatIsCalledDirectlyHoldsTheSameLock)
{
    startWith(2);
    Gate compilingOne = host().script.hold("loadEffectFile");
    std::jthread background([] { Manager::instance().compileAll(Qx::makePtr<RecordingTaskLog>()); });
    ASSERT_TRUE(compilingOne.waitUntilReached());
    std::jthread waiting([] {
        Manager::instance().waitForEffectsToLoad();
        host().journal.record("waited");
    });
    EXPECT_TRUE(waitForBlockedThreads(1));
    compilingOne.release();
    background.join();
    waiting.join();
    EXPECT_EQ(host().journal.lines().back(), "waited");
}

TEST_F(BackgroundCompilation, ShutdownDuringThePassStopsItAfterTheCurrentEffectWithoutACount)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(3);
    Gate compilingOne = host().script.hold("loadEffectFile");
    std::jthread background([&] { task->run(); });
    ASSERT_TRUE(compilingOne.waitUntilReached());
    std::jthread stopping([] {
        Manager::shutdown(Shutdown::NormalExit);
        host().journal.record("stopped");
    });
    EXPECT_TRUE(waitForBlockedThreads(1)); // it has stopped the pass and waits for it
    compilingOne.release();
    background.join();
    stopping.join();
    EXPECT_THAT(host().journal.linesOf({"setStep", "setProgress", "vexo_printf", "stopped"}),
                ElementsAre("setStep(\"a.fx\", 0)", "setProgress(\"\", 0.3333333432674408)", "stopped"));
    EXPECT_EQ(host().journal.count("loadEffectFile"), 1U);
}

TEST_F(BackgroundCompilation, DoesNotLookForItsEndWhileItPauses)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(2);
    std::thread stopping;
    int sleeps = 0;
    host().script.during("sleepMilliseconds", [&] {
        if (++sleeps == 1) {
            stopping = std::thread([] { Manager::instance().fini(); });
            EXPECT_TRUE(waitForBlockedThreads(1));
        }
    });
    host().taskStatus = [&] {
        return sleeps < 3 ? BackgroundTaskQueueBase::HoldBack : BackgroundTaskQueueBase::Running;
    };
    task->run();
    stopping.join();
    EXPECT_THAT(host().journal.linesOf({"sleepMilliseconds", "setStep", "setProgress", "vexo_printf"}),
                ElementsAre("sleepMilliseconds(2000)", "sleepMilliseconds(2000)", "sleepMilliseconds(2000)",
                            "setStep(\"a.fx\", 0)", "setProgress(\"\", 0.5)"));
}

TEST_F(BackgroundCompilation, StopAfterTheLastEffectPrintsNoCount)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(1);
    std::thread stopping;
    host().script.during("setProgress", [&] {
        stopping = std::thread([] { Manager::instance().fini(); });
        EXPECT_TRUE(waitForBlockedThreads(1));
    });
    task->run();
    stopping.join();
    EXPECT_EQ(countLines(), 0U);
}

TEST_F(BackgroundCompilation, TaskThatIsStillQueuedAtShutdownDoesNotBringTheManagerBack)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(2);
    Manager::shutdown(Shutdown::NormalExit);
    host().journal.clear();
    EXPECT_TRUE(task->run());
    EXPECT_EQ(host().journal.count("loadEffectFile"), 0U);
    EXPECT_EQ(host().journal.count("getShadersDir"), 0U);
    EXPECT_EQ(host().journal.count("Shutdown::addCallback"), 0U);
    EXPECT_EQ(countLines(), 0U);
}

TEST_F(BackgroundCompilation, ThreadThatComesDuringInitialisationWaitsForItsEnd)
{
    host().addFile(L"/shaders/", L"a.fx");
    std::thread background;
    host().script.during("queue", [&] {
        background = std::thread([] {
            Manager::instance().waitForEffectsToLoad(); // blocks until the initialisation has finished
            host().journal.record("manager ready");
        });
        EXPECT_TRUE(waitForBlockedThreads(1));
    });
    Manager::instance();
    background.join();
    EXPECT_EQ(host().journal.lines().back(), "manager ready");
    EXPECT_EQ(runTasks(), 1U);
    EXPECT_EQ(host().journal.count("loadEffectFile"), 1U);
}

TEST_F(BackgroundCompilation, RunsBesideForegroundDemandsOfEveryEffect)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(20);
    {
        std::vector<std::jthread> threads;
        threads.emplace_back([&] { task->run(); });
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([] {
                for (wchar_t c = L't'; c >= L'a'; --c) {
                    const std::wstring name = std::wstring(1, c) + L".fx";
                    EXPECT_TRUE(Manager::instance().findEffect(name.c_str()).getShader());
                }
            });
        }
    }
    EXPECT_EQ(host().journal.count("loadEffectFile"), 20U);
    EXPECT_EQ(countLines(), 1U);
}

TEST_F(BackgroundCompilation, ShutdownStopsAPassAlthoughATaskWaitsForItsTurn)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(3);
    Gate compilingOne = host().script.hold("loadEffectFile");
    std::jthread direct([] { Manager::instance().compileAll(Qx::makePtr<RecordingTaskLog>()); });
    ASSERT_TRUE(compilingOne.waitUntilReached());
    std::jthread background([&] { task->run(); });
    EXPECT_TRUE(waitForBlockedThreads(1));
    std::jthread stopping([] { Manager::shutdown(Shutdown::NormalExit); });
    EXPECT_TRUE(waitForBlockedThreads(2)); // it has stopped both passes and waits for them
    compilingOne.release();
    direct.join();
    background.join();
    stopping.join();
    EXPECT_EQ(host().journal.count("loadEffectFile"), 1U);
    EXPECT_EQ(countLines(), 0U);
}

TEST_F(BackgroundCompilation, ManagerIsNotDeletedBetweenTheTasksLookUpAndItsLock)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(2);
    const Manager* manager = &Manager::instance();
    bool isAlive = false;
    host().script.during("StartEnv::arg", [&] {
        isAlive = host().allocator.owns(manager);
        if (!isAlive) {
            ADD_FAILURE() << "the manager was deleted";
            std::abort(); // the pass would run in freed memory
        }
    });
    std::atomic<bool> stopped = false; // relaxed: only the library orders the two threads
    std::thread stopping;
    // The task enters the lock of the look-up first, then the one of the pass.
    beforeEntering(2, [&] {
        stopping = std::thread([&] {
            Manager::shutdown(Shutdown::NormalExit);
            stopped.store(true, std::memory_order_relaxed);
        });
        while (!stopped.load(std::memory_order_relaxed) && !isAnyThreadBlocked()) {
            std::this_thread::yield();
        }
    });
    EXPECT_TRUE(task->run());
    stopping.join();
    EXPECT_TRUE(isAlive);
    EXPECT_FALSE(host().allocator.owns(manager));
    EXPECT_THAT(host().journal.linesOf({"loadEffectFile", "setStep", "vexo_printf"}), IsEmpty());
}

TEST_F(BackgroundCompilation, TaskWhoseManagerIsGoneCompilesTheCatalogueOfTheNewOne)
{
    const Qx::Ptr<iBackgroundTask> task = startWith(1);
    Manager::shutdown(Shutdown::NormalExit);
    host().addFile(L"/shaders/", L"new.fx");
    Manager::instance();
    host().journal.clear();
    EXPECT_TRUE(task->run());
    EXPECT_THAT(host().journal.linesOf({"loadEffectFile", "vexo_printf"}),
                ElementsAre(compiling("a.fx"), compiling("new.fx"),
                            "vexo_printf(\"QxFxResources::Manager : 2 pixel shaders loaded\\n\")"));
    EXPECT_EQ(runTasks(), 1U);
    EXPECT_EQ(host().journal.count("loadEffectFile"), 2U) << "its own task finds everything compiled";
}
