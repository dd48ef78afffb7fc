#include "host/Host.h"
#include "host/lifecycle/AbsentDrivers.h"
#include "host/lifecycle/DriverCache.h"
#include "host/lifecycle/ProcessorQuota.h"
#include "host/lifecycle/Services.h"
#include "host/lifecycle/ShutdownSequence.h"
#include "host/lifecycle/StartArguments.h"
#include "host/lifecycle/Watchdog.h"
#include "host/log/HostLog.h"
#include "platform/Clock.h"
#include "platform/Commands.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/OS.h"
#include "platform/StartEnv.h"
#include "platform/SystemInformation.h"
#include "platform/SystemWatchdog.h"
#include "platform/Text.h"
#include "platform/Threads.h"
#include "tests/host/services/Support.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <latch>
#include <limits>
#include <optional>
#include <sched.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
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

namespace {

/// The driver's variables, unset within a test and restored after it.
class DriverCache : public testing::Test
{
protected:
    void SetUp() override
    {
        for (std::size_t i = 0; i < names_.size(); ++i) {
            const char* value = std::getenv(names_[i]);
            values_[i] = value != nullptr ? std::optional<std::string>(value) : std::nullopt;
            ::unsetenv(names_[i]);
        }
        place_.directory = directory_ / "qxhost";
        place_.mostBytes = std::uint64_t{3} << 20U;
        place_.enabled = true;
    }

    void TearDown() override
    {
        for (std::size_t i = 0; i < names_.size(); ++i) {
            values_[i] ? ::setenv(names_[i], values_[i]->c_str(), 1) : ::unsetenv(names_[i]);
        }
    }

    static std::string variable(const char* name)
    {
        const char* value = std::getenv(name);
        return value != nullptr ? value : "";
    }

    static bool isOff()
    {
        return variable("MESA_SHADER_CACHE_DISABLE") == "true" && variable("__GL_SHADER_DISK_CACHE") == "0";
    }

    const Qx::Host::Test::TemporaryDirectory directory_;
    Qx::Host::CachePlace place_;

private:
    static constexpr std::array names_{"MESA_SHADER_CACHE_DIR",
                                       "MESA_SHADER_CACHE_DISABLE",
                                       "MESA_SHADER_CACHE_MAX_SIZE",
                                       "__GL_SHADER_DISK_CACHE",
                                       "__GL_SHADER_DISK_CACHE_PATH",
                                       "__GL_SHADER_DISK_CACHE_SIZE",
                                       "VK_DRIVER_FILES",
                                       "VK_ICD_FILENAMES",
                                       "VK_LOADER_DRIVERS_DISABLE"};
    std::array<std::optional<std::string>, names_.size()> values_;
};

} // namespace

using AbsentDrivers = DriverCache;

TEST_F(AbsentDrivers, AreLeftOutWhereNoDeviceHasANode)
{
    Qx::Host::leaveOutAbsentDrivers(directory_ / "dri");
    EXPECT_EQ(variable("VK_LOADER_DRIVERS_DISABLE"), "intel_icd*,intel_hasvk_icd*,radeon_icd*,nouveau_icd*");
}

TEST_F(AbsentDrivers, AreAskedWhereThereAreNodesAndWhereTheUserSaysSo)
{
    std::filesystem::create_directory(directory_ / "dri");
    Qx::Host::leaveOutAbsentDrivers(directory_ / "dri");
    EXPECT_EQ(std::getenv("VK_LOADER_DRIVERS_DISABLE"), nullptr);
    ::setenv("VK_LOADER_DRIVERS_DISABLE", "", 1);
    Qx::Host::leaveOutAbsentDrivers(directory_ / "none");
    EXPECT_EQ(variable("VK_LOADER_DRIVERS_DISABLE"), "");
}

TEST_F(DriverCache, IsBesideOurOwnWithOurLimit)
{
    Qx::Host::placeDriverCache(place_, 1);
    EXPECT_FALSE(isOff());
    for (const char* name : {"MESA_SHADER_CACHE_DIR", "__GL_SHADER_DISK_CACHE_PATH"}) {
        EXPECT_EQ(variable(name), (place_.directory / "driver").string());
    }
    EXPECT_EQ(variable("MESA_SHADER_CACHE_MAX_SIZE"), "3M");
    EXPECT_EQ(variable("__GL_SHADER_DISK_CACHE_SIZE"), std::to_string(3 << 20));
    struct stat status = {};
    ASSERT_EQ(::stat((place_.directory / "driver").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700U);
}

TEST_F(DriverCache, ItsIndexHasNoHoles)
{
    const auto index = place_.directory / "driver/mesa_shader_cache/index";
    struct stat status = {};
    constexpr long block = 512; // the unit of st_blocks
    Qx::Host::placeDriverCache(place_, 1);
    ASSERT_EQ(::stat(index.c_str(), &status), 0);
    EXPECT_GE(status.st_blocks * block, 2 << 20);
    std::filesystem::remove(index);
    std::ofstream(index).flush();
    std::filesystem::resize_file(index, 1310728); // as an earlier run of a driver leaves it
    ASSERT_EQ(::stat(index.c_str(), &status), 0);
    EXPECT_LT(status.st_blocks * block, 1310728);
    Qx::Host::placeDriverCache(place_, 1);
    ASSERT_EQ(::stat(index.c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 1310728);
    EXPECT_GE(status.st_blocks * block, 1310728);
}

TEST_F(DriverCache, HasNoIndexForMesaWhereOnlyNvidiasDriverIsInstalled)
{
    const auto index = place_.directory / "driver/mesa_shader_cache/index";
    const auto nvidia =
        directory_.write("nvidia_icd.json", R"({"ICD": {"library_path": "libGLX_nvidia.so.0"}})");
    const auto mesa = directory_.write("lvp_icd.json", R"({"ICD": {"library_path": "libvulkan_lvp.so"}})");
    ::setenv("VK_DRIVER_FILES", nvidia.c_str(), 1);
    Qx::Host::placeDriverCache(place_, 1);
    EXPECT_FALSE(isOff());
    EXPECT_EQ(variable("__GL_SHADER_DISK_CACHE_PATH"), (place_.directory / "driver").string());
    EXPECT_FALSE(std::filesystem::exists(index));
    ::setenv("VK_DRIVER_FILES", (nvidia.string() + ":" + mesa.string()).c_str(), 1);
    Qx::Host::placeDriverCache(place_, 1);
    EXPECT_TRUE(std::filesystem::exists(index));
}

TEST_F(DriverCache, ThereIsNoneWithoutRoomOrPlaceOrWithTheSettingOff)
{
    Qx::Host::placeDriverCache(place_, std::numeric_limits<std::uint64_t>::max());
    EXPECT_TRUE(isOff());
    ::unsetenv("MESA_SHADER_CACHE_DISABLE");
    std::ofstream(place_.directory.parent_path() / "file") << "x";
    place_.directory = place_.directory.parent_path() / "file";
    Qx::Host::placeDriverCache(place_, 1);
    EXPECT_TRUE(isOff());
    ::unsetenv("MESA_SHADER_CACHE_DISABLE");
    place_.directory = directory_ / "off";
    place_.enabled = false;
    Qx::Host::placeDriverCache(place_, 1);
    EXPECT_TRUE(isOff());
    EXPECT_FALSE(std::filesystem::exists(place_.directory));
    EXPECT_EQ(variable("MESA_SHADER_CACHE_DIR"), "");
}

TEST_F(DriverCache, TheUsersPlaceHoldsUnlessItHasNoRoom)
{
    const std::string theirs = (directory_ / "theirs").string();
    ::setenv("MESA_SHADER_CACHE_DIR", theirs.c_str(), 1);
    Qx::Host::placeDriverCache(place_, 1);
    EXPECT_FALSE(isOff());
    EXPECT_EQ(variable("MESA_SHADER_CACHE_DIR"), theirs);
    EXPECT_FALSE(std::filesystem::exists(place_.directory / "driver"));
    Qx::Host::placeDriverCache(place_, std::numeric_limits<std::uint64_t>::max());
    EXPECT_TRUE(isOff());
}

TEST_F(DriverCache, ADirectoryThatOthersMayWriteToIsNotUsed)
{
    std::filesystem::create_directories(place_.directory);
    std::filesystem::permissions(place_.directory, std::filesystem::perms::all);
    Qx::Host::placeDriverCache(place_, 1);
    EXPECT_TRUE(isOff());
}

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

namespace {

/// A watched thread that hangs until it is released.
class HangingThread
{
public:
    HangingThread(const char* name, bool onLifeSupport)
        : thread_([this, name, onLifeSupport] {
              Qx::Host::WatchedThread watched(name, 3600);
              if (onLifeSupport) {
                  SystemWatchdog::beginLifeSupport();
              }
              hangs_.count_down();
              supported_.wait();
              if (onLifeSupport) {
                  SystemWatchdog::endLifeSupport();
              }
              hangsAgain_.count_down();
              over_.wait();
          })
    {
        hangs_.wait();
    }

    ~HangingThread() { over_.count_down(); }
    HangingThread(const HangingThread&) = delete;
    HangingThread& operator=(const HangingThread&) = delete;

    /// Continues to hang, without life support.
    void endLifeSupport()
    {
        supported_.count_down();
        hangsAgain_.wait();
    }

private:
    std::latch hangs_{1};
    std::latch supported_{1};
    std::latch hangsAgain_{1};
    std::latch over_{1};
    std::jthread thread_;
};

std::string reportedAfter(std::chrono::hours time)
{
    const std::size_t before = Qx::Host::Test::contentsOf(Qx::Host::Test::logFile()).size();
    Qx::Host::reportStalls(WatchList::Clock::now() + time);
    return Qx::Host::Test::contentsOf(Qx::Host::Test::logFile()).substr(before);
}

std::size_t linesOf(const std::string& text)
{
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

} // namespace

TEST(Watchdog, ReportsTheThreadThatHangsAndNotTheOneOnLifeSupport)
{
    HangingThread hanging("decoder", false);
    HangingThread supported("suite", true);
    EXPECT_EQ(reportedAfter(std::chrono::hours(0)), "");

    const std::string text = reportedAfter(std::chrono::hours(2));
    EXPECT_NE(text.find("Watchdog: the thread decoder has not reported for 7200 s\n"), std::string::npos)
        << text;
    EXPECT_EQ(linesOf(text), 1U) << text;
    EXPECT_EQ(reportedAfter(std::chrono::hours(3)), "") << "once is enough";

    supported.endLifeSupport();
    hanging.endLifeSupport();
    const std::string later = reportedAfter(std::chrono::hours(4));
    EXPECT_NE(later.find("Watchdog: the thread suite has not reported for "), std::string::npos) << later;
    EXPECT_EQ(linesOf(later), 1U) << later;
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

TEST(Clock, CountsMilliseconds)
{
    using Steady = std::chrono::steady_clock;
    using Milliseconds = std::chrono::duration<double, std::milli>;
    const Steady::time_point outerBegin = Steady::now();
    const double begin = service_get_msecs_precise();
    const Steady::time_point innerBegin = Steady::now();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    const Steady::time_point innerEnd = Steady::now();
    const double end = service_get_msecs_precise();
    const Steady::time_point outerEnd = Steady::now();
    constexpr double rounding = 1e-6;
    EXPECT_GE(end - begin, Milliseconds(innerEnd - innerBegin).count() - rounding);
    EXPECT_LE(end - begin, Milliseconds(outerEnd - outerBegin).count() + rounding);
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

namespace {

/// A tree of control groups in a directory.
struct ProcessorQuotaTest : testing::Test
{
    int quota(const char* membership) const { return Qx::Host::processorQuota(groups.path(), membership); }

    void write(const std::string& group, const char* file, const char* text) const
    {
        std::filesystem::create_directories(groups / group);
        groups.write(group + "/" + file, text);
    }

    Qx::Host::Test::TemporaryDirectory groups;
};

} // namespace

TEST_F(ProcessorQuotaTest, WithoutALimitIsNone)
{
    EXPECT_EQ(quota(""), 0);
    EXPECT_EQ(quota("0::/"), 0);
    EXPECT_EQ(quota("0::/not/there\n"), 0);
    write("box", "cpu.max", "max 100000\n");
    EXPECT_EQ(quota("0::/box\n"), 0);
    write("cpu/old", "cpu.cfs_quota_us", "-1\n");
    write("cpu/old", "cpu.cfs_period_us", "100000\n");
    EXPECT_EQ(quota("3:cpu,cpuacct:/old\n0::/\n"), 0);
}

TEST_F(ProcessorQuotaTest, IsWholeProcessorsRoundedUp)
{
    write("box", "cpu.max", "200000 100000\n");
    EXPECT_EQ(quota("0::/box\n"), 2);
    write("box", "cpu.max", "150000 100000\n");
    EXPECT_EQ(quota("0::/box\n"), 2);
    write("box", "cpu.max", "10000 100000\n");
    EXPECT_EQ(quota("0::/box\n"), 1) << "a tenth of one is one";
}

TEST_F(ProcessorQuotaTest, TheLeastLimitOfAGroupAndThoseAboveCounts)
{
    write("a", "cpu.max", "300000 100000\n");
    write("a/b", "cpu.max", "max 100000\n");
    write("a/b/c", "cpu.max", "800000 100000\n");
    EXPECT_EQ(quota("0::/a/b/c\n"), 3);
    write(".", "cpu.max", "100000 50000\n");
    EXPECT_EQ(quota("0::/a/b/c\n"), 2);
    EXPECT_EQ(quota("0::/path/of/the/outside\n"), 2) << "as a container sees it";
}

TEST_F(ProcessorQuotaTest, TheFirstVersionHasAHierarchyOfItsOwn)
{
    write("cpu/box", "cpu.cfs_quota_us", "400000\n");
    write("cpu/box", "cpu.cfs_period_us", "100000\n");
    EXPECT_EQ(quota("5:memory:/other\n4:cpuset:/box\n3:cpuacct,cpu:/box\n0::/\n"), 4);
    EXPECT_EQ(quota("4:cpuset:/box\n"), 0) << "which is another controller";
}

TEST_F(ProcessorQuotaTest, NonsenseIsNoLimit)
{
    for (const char* text : {"", "max", "100000", "0 0", "-5 100000", "100000 0", "x y", "1e300 1"}) {
        write("box", "cpu.max", text);
        EXPECT_EQ(quota("0::/box\n"), 0) << text;
    }
    EXPECT_EQ(quota("no colons\n:\n::"), 0);
}

TEST(SystemInformation, CountsTheProcessorsThatTheProcessMayUse)
{
    cpu_set_t before;
    ASSERT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
    // A quota may leave less than the processors that the process may run on.
    EXPECT_LE(OS().systemInformation().cpuCount(), CPU_COUNT(&before));
    EXPECT_GE(OS().systemInformation().cpuCount(), 1);
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

// Last, because sleeps stay short from then on.
TEST(Threads, ASleeperLeavesWhenTheHostShutsDown)
{
    std::thread sleeper([] { OS().threads().sleepMilliseconds(std::numeric_limits<unsigned>::max()); });
    Qx::Host::wakeSleepers();
    sleeper.join();
    OS().threads().sleepMilliseconds(std::numeric_limits<unsigned>::max());
}

// What a program puts in the place of the host's services.

namespace {

class OneFileManager final : public iFileManager
{
public:
    void listDirectory(const LightweightString<wchar_t>&, Qx::Vector<DirectoryItem>& items, eKind,
                       int) override
    {
        items.assign(1, DirectoryItem{L"the only one", 0, false, 0});
    }
    bool copyFile(const LightweightString<wchar_t>&, const LightweightString<wchar_t>&, int) override
    {
        return false;
    }
};

class StoppedClock final : public iClock
{
public:
    double millisecondsPrecise() override { return 42.0; }
};

/// A program that starts the host, once in its process, with services of its own.
class OwnServices : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        device_ = &OS().gpu();
        Qx::Host::start({.quiet = true, .services = {.files = &files(), .clock = &clock_, .log = receive}});
    }

    static void TearDownTestSuite()
    {
        Qx::Host::replaceServices({});
        Qx::Host::HostLog::instance().setReceiver(nullptr);
        Qx::Host::HostLog::instance().setDebugOutput(true);
    }

    static OneFileManager& files()
    {
        static OneFileManager own;
        return own;
    }

    static iGPUService* hostsDevice() { return device_; }
    static const std::string& received() { return received_; }

private:
    static void receive(std::string_view text) { received_ += text; }

    static inline StoppedClock clock_;
    static inline iGPUService* device_ = nullptr;
    static inline std::string received_;
};

} // namespace

TEST_F(OwnServices, TakeThePlaceOfTheHosts)
{
    EXPECT_EQ(&OS().files(), &files());
    EXPECT_EQ(service_get_msecs_precise(), 42.0);
    Qx::Vector<iFileManager::DirectoryItem> items;
    OS().files().listDirectory(L"/anywhere/*.fx", items, iFileManager::FilesOnly, 0);
    ASSERT_EQ(items.size(), 1U);
    EXPECT_TRUE(items[0].name == L"the only one");
    EXPECT_EQ(&OS().gpu(), hostsDevice()) << "what the program has not replaced is the host's";
}

TEST_F(OwnServices, ReceiveTheLogInsteadOfTheFile)
{
    const std::string before = Qx::Host::Test::contentsOf(Qx::Host::Test::logFile());
    Log("piece %d, ", 1);
    LogBoth("piece %d\n", 2);
    vexo_printf("debug output\n");
    EXPECT_NE(received().find("piece 1, piece 2\n"), std::string::npos) << received();
    EXPECT_EQ(received().find("debug output"), std::string::npos) << received();
    EXPECT_EQ(Qx::Host::Test::contentsOf(Qx::Host::Test::logFile()), before);
}
