#include "host/Host.h"
#include "host/lifecycle/Services.h"
#include "host/lifecycle/ShutdownSequence.h"
#include "host/lifecycle/StartArguments.h"
#include "host/lifecycle/Watchdog.h"
#include "platform/Clock.h"
#include "platform/Commands.h"
#include "platform/OS.h"
#include "platform/StartEnv.h"
#include "platform/SystemInformation.h"
#include "platform/SystemWatchdog.h"
#include "platform/Text.h"
#include "platform/Threads.h"

#include <gtest/gtest.h>
#include <limits>
#include <sched.h>
#include <string>
#include <thread>
#include <unistd.h>

using Qx::Host::ShutdownSequence;
using Qx::Host::WatchList;

namespace {

std::string calls;
ShutdownSequence* current = nullptr;

template <char name>
void note(Shutdown::eExitType exitType)
{
    calls += name;
    calls += exitType == Shutdown::FatalExit ? "!" : "";
}

void runSequence(ShutdownSequence& sequence, Shutdown::eExitType exitType = Shutdown::NormalExit)
{
    current = &sequence;
    calls.clear();
    sequence.run(exitType, [] { calls += '|'; });
}

} // namespace

TEST(Shutdown, HigherOrdersGoFirstAndEqualOnesInReverse)
{
    ShutdownSequence sequence;
    sequence.add(note<'a'>, 450);
    sequence.add(note<'b'>, 450);
    sequence.add(note<'c'>, 2000);
    sequence.add(note<'d'>, -5);
    sequence.add(note<'a'>, 450);
    runSequence(sequence);
    EXPECT_EQ(calls, "c|abad");
}

TEST(Shutdown, TheTaskQueueIsClosedBetweenTheOrders)
{
    ShutdownSequence sequence;
    sequence.add(note<'a'>, 999);
    sequence.add(note<'b'>, 1000);
    runSequence(sequence, Shutdown::FatalExit);
    EXPECT_EQ(calls, "b!|a!");
    ShutdownSequence empty;
    runSequence(empty);
    EXPECT_EQ(calls, "|");
}

TEST(Shutdown, CallbacksMayRegisterCallbacksOfAnyOrder)
{
    ShutdownSequence sequence;
    sequence.add(
        [](Shutdown::eExitType) {
            calls += 'x';
            current->add(note<'h'>, 5000);
            current->add(note<'e'>, 450);
            current->add(note<'l'>, 1);
        },
        450);
    sequence.add(note<'z'>, 100);
    runSequence(sequence);
    EXPECT_EQ(calls, "|xhezl");
}

TEST(Shutdown, WhatTheLastTaskRegistersIsStillCalled)
{
    ShutdownSequence sequence;
    calls.clear();
    sequence.run(Shutdown::NormalExit, [&] { sequence.add(note<'t'>, 3000); });
    EXPECT_EQ(calls, "t");
}

TEST(Shutdown, RunsOnceAlsoFromWithin)
{
    ShutdownSequence sequence;
    sequence.add([](Shutdown::eExitType) { current->run(Shutdown::NormalExit, [] { calls += '?'; }); }, 2);
    sequence.add(note<'a'>, 1);
    runSequence(sequence);
    EXPECT_EQ(calls, "|a");
    EXPECT_FALSE(sequence.add(note<'b'>, 1)) << "nobody will call it";
    runSequence(sequence);
    EXPECT_EQ(calls, "");
    EXPECT_FALSE(ShutdownSequence().add(nullptr, 1));
}

TEST(Shutdown, AnExceptionDoesNotStopTheOthers)
{
    ShutdownSequence sequence;
    sequence.add([](Shutdown::eExitType) { throw std::runtime_error("broken"); }, 2);
    sequence.add(note<'a'>, 1);
    testing::internal::CaptureStderr();
    runSequence(sequence);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("broken"), std::string::npos);
    EXPECT_EQ(calls, "|a");
}

namespace {

using std::chrono::seconds;

struct WatchdogTest : testing::Test
{
    WatchList list;
    std::thread::id self = std::this_thread::get_id();
    WatchList::Clock::time_point start{};
};

} // namespace

TEST_F(WatchdogTest, ASilentThreadIsReportedOnceUntilItReports)
{
    const auto ticket = list.add(self, "decoder", seconds(5), start);
    EXPECT_TRUE(list.check(start + seconds(5)).empty());
    const auto stalls = list.check(start + seconds(6));
    ASSERT_EQ(stalls.size(), 1U);
    EXPECT_EQ(stalls[0].name, "decoder");
    EXPECT_EQ(stalls[0].silence, seconds(6));
    EXPECT_TRUE(list.check(start + seconds(60)).empty());
    list.report(ticket, start + seconds(61));
    EXPECT_TRUE(list.check(start + seconds(66)).empty());
    EXPECT_EQ(list.check(start + seconds(67)).size(), 1U);
    list.remove(ticket);
    EXPECT_TRUE(list.check(start + seconds(600)).empty());
}

TEST_F(WatchdogTest, LifeSupportKeepsItQuietAndNests)
{
    list.add(self, "compiler", seconds(5), start);
    list.suspend(self);
    list.suspend(self);
    list.resume(self, start + seconds(50));
    EXPECT_TRUE(list.check(start + seconds(100)).empty());
    list.resume(self, start + seconds(100));
    EXPECT_TRUE(list.check(start + seconds(105)).empty()) << "the end of it counts as a report";
    EXPECT_EQ(list.check(start + seconds(106)).size(), 1U);
    list.resume(self, start + seconds(107)); // one too many
    EXPECT_TRUE(list.check(start + seconds(108)).empty());
}

TEST_F(WatchdogTest, LifeSupportIsOfOneThread)
{
    list.add(std::thread::id(), "other", seconds(5), start);
    list.suspend(self);
    EXPECT_EQ(list.check(start + seconds(6)).size(), 1U);
}

TEST(Watchdog, WatchesAndLetsGoOfThreads)
{
    {
        Qx::Host::WatchedThread watched("main", 3600);
        EXPECT_FALSE(Qx::Host::watchList().empty());
        SystemWatchdog::beginLifeSupport();
        SystemWatchdog::endLifeSupport();
        watched.report();
    }
    EXPECT_TRUE(Qx::Host::watchList().empty());
    Qx::Host::stopMonitor();
}

namespace {

int given = 0;

void give()
{
    ++given;
}

void giveTen()
{
    given += 10;
}

} // namespace

TEST(Commands, AreGivenByNameForAsLongAsTheirRegistrarLives)
{
    given = 0;
    {
        const CommandRegistrar command("_Do it", give, {L"Do it", UIString::noResource}, {L"", 13226},
                                       GlobalCommand, {});
        EXPECT_TRUE(Qx::Host::runCommand("_Do it"));
        EXPECT_EQ(given, 1);
        const auto commands = Qx::Host::listCommands();
        ASSERT_EQ(commands.size(), 1U);
        EXPECT_EQ(commands[0].name, "_Do it");
        EXPECT_EQ(commands[0].displayText, L"Do it");
        EXPECT_EQ(commands[0].description, L"Compiling effects");
        {
            const CommandRegistrar later("_Do it", giveTen, {}, {}, PanelCommand, {});
            EXPECT_TRUE(Qx::Host::runCommand("_Do it"));
            EXPECT_EQ(given, 11);
        }
        EXPECT_TRUE(Qx::Host::runCommand("_Do it"));
        EXPECT_EQ(given, 12);
    }
    EXPECT_FALSE(Qx::Host::runCommand("_Do it"));
    EXPECT_FALSE(Qx::Host::runCommand(nullptr));
    EXPECT_EQ(given, 12);
}

TEST(Commands, AHandlerMayRegisterCommands)
{
    const CommandRegistrar outer(
        "outer", [] { const CommandRegistrar inner("inner", give, {}, {}, GlobalCommand, {}); }, {}, {},
        GlobalCommand, {});
    EXPECT_TRUE(Qx::Host::runCommand("outer"));
    EXPECT_FALSE(Qx::Host::runCommand("inner"));
}

TEST(StartEnv, KnowsTheProgramsArguments)
{
    const char* arguments[] = {"-program", "-transcode", "\xC3\xBC", nullptr};
    Qx::Host::setStartArguments(3, arguments);
    EXPECT_NE(StartEnv::programEnv().arg(L"-transcode"), 0);
    EXPECT_NE(StartEnv::programEnv().arg(L"\u00fc"), 0);
    EXPECT_EQ(StartEnv::programEnv().arg(L"-program"), 0);
    EXPECT_EQ(StartEnv::programEnv().arg(L"-trans"), 0);
    EXPECT_EQ(StartEnv::programEnv().arg(nullptr), 0);
    Qx::Host::setStartArguments(0, nullptr);
    EXPECT_EQ(StartEnv::programEnv().arg(L"-transcode"), 0);
}

TEST(Clock, NeverGoesBack)
{
    double last = service_get_msecs_precise();
    for (int i = 0; i < 1000; ++i) {
        const double now = service_get_msecs_precise();
        ASSERT_GE(now, last);
        last = now;
    }
}

TEST(SystemInformation, AgreesWithTheSystem)
{
    const MemoryStatus memory = OS().systemInformation().memoryStatus();
    // What the kernel gives processes, against the machine's pages as the C library counts them.
    EXPECT_EQ(memory.total, static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                                static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)));
    EXPECT_GT(memory.available, 0U);
    EXPECT_EQ(memory.used + memory.available, memory.total);
    EXPECT_EQ(OS().users().isAdministrator(), geteuid() == 0);
}

TEST(SystemInformation, CountsTheProcessorsThatTheProcessMayUse)
{
    cpu_set_t before;
    ASSERT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
    EXPECT_EQ(OS().systemInformation().cpuCount(), CPU_COUNT(&before));
    std::size_t first = 0;
    while (!CPU_ISSET(first, &before)) {
        ++first;
    }
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(first, &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    EXPECT_EQ(OS().systemInformation().cpuCount(), 1);
    sched_setaffinity(0, sizeof before, &before);
}

// Last, because the process's sleepers stay awake from then on.
TEST(Threads, ASleeperLeavesWhenTheHostShutsDown)
{
    std::thread sleeper([] { OS().threads().sleepMilliseconds(std::numeric_limits<unsigned>::max()); });
    Qx::Host::wakeSleepers();
    sleeper.join();
    OS().threads().sleepMilliseconds(std::numeric_limits<unsigned>::max());
}
