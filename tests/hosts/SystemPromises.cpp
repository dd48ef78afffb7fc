#include "Promise.h"

#include <platform/Clock.h>
#include <platform/Messages.h>
#include <platform/SystemInformation.h>
#include <platform/Threads.h>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

namespace Qx::HostTests {

namespace {

using Steady = std::chrono::steady_clock;

double millisecondsBetween(Steady::time_point from, Steady::time_point to)
{
    return std::chrono::duration<double, std::milli>(to - from).count();
}

void theClockCountsMilliseconds(const Kit& kit)
{
    iClock& clock = kit.services.os().clock();
    const Steady::time_point outerBegin = Steady::now();
    const double begin = clock.millisecondsPrecise();
    const Steady::time_point innerBegin = Steady::now();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const Steady::time_point innerEnd = Steady::now();
    const double end = clock.millisecondsPrecise();
    const Steady::time_point outerEnd = Steady::now();
    // Two clocks of one machine run differently by far less than a hundredth.
    EXPECT_GE(end - begin, 0.99 * millisecondsBetween(innerBegin, innerEnd));
    EXPECT_LE(end - begin, 1.01 * millisecondsBetween(outerBegin, outerEnd));
}

void theClockNeverRunsBack(const Kit& kit)
{
    iClock& clock = kit.services.os().clock();
    double last = clock.millisecondsPrecise();
    for (int i = 0; i < 10'000; ++i) {
        const double now = clock.millisecondsPrecise();
        ASSERT_GE(now, last) << "reading " << i;
        last = now;
    }
}

void theClockShowsMicroseconds(const Kit& kit)
{
    iClock& clock = kit.services.os().clock();
    for (int i = 0; i < 200; ++i) {
        const double begin = clock.millisecondsPrecise();
        const Steady::time_point since = Steady::now();
        while (millisecondsBetween(since, Steady::now()) < 0.003) {
        }
        ASSERT_GT(clock.millisecondsPrecise(), begin) << "three microseconds later";
    }
}

void sleepsLast(const Kit& kit)
{
    for (const unsigned milliseconds : {1U, 20U, 60U}) {
        const Steady::time_point begin = Steady::now();
        kit.services.os().threads().sleepMilliseconds(milliseconds);
        EXPECT_GE(millisecondsBetween(begin, Steady::now()), static_cast<double>(milliseconds));
    }
}

void sleepsEnd(const Kit& kit)
{
    EXPECT_TRUE(
        endsInTime(kit, [&services = kit.services] { services.os().threads().sleepMilliseconds(1); }));
}

void messagesDoNotWait(const Kit& kit)
{
    EXPECT_TRUE(endsInTime(kit, [&services = kit.services] {
        iMessageService& messages = services.os().messages();
        messages.showMessage(messages.effectsCaption(), wide("A message of the host's tests."),
                             iMessageService::OkButton, iMessageService::Information);
    })) << "showMessage() waits for the user";
}

void processorsAreCounted(const Kit& kit)
{
    EXPECT_GE(kit.services.os().systemInformation().cpuCount(), 1);
}

void memoryIsKnown(const Kit& kit)
{
    const MemoryStatus memory = kit.services.os().systemInformation().memoryStatus();
    EXPECT_GT(memory.total, 0U);
    EXPECT_GT(memory.available, 0U);
    EXPECT_LE(memory.available, memory.total);
    EXPECT_LE(memory.used, memory.total);
}

void directoriesEndInASeparator(const Kit& kit)
{
    Services& s = kit.services;
    for (const LightweightString<wchar_t>& directory :
         {s.getShadersDir(), s.getFXTemplatesDirectory(iSettings::User),
          s.getFXTemplatesDirectory(iSettings::Machine)}) {
        if (!directory.empty()) {
            EXPECT_EQ(directory.view().back(), L'/') << narrow(directory);
        }
    }
}

void unsetSettingsHaveTheDefault(const Kit& kit)
{
    for (const int value : {0, 1, -7, 123456}) {
        EXPECT_EQ(kit.services.configInt("NoSettingOfThisNameInAnyHost", value), value);
    }
}

void setSettingsAreFound(const Kit& kit)
{
    ASSERT_TRUE(kit.host.setting) << "set HostUnderTest::setting, or name Feature::Settings in `without`";
    const HostUnderTest::IntegerSetting& setting = *kit.host.setting;
    EXPECT_EQ(kit.services.configInt(setting.name.c_str(), setting.value - 1), setting.value);
}

void otherArgumentsAreNotThere(const Kit& kit)
{
    EXPECT_EQ(kit.services.startArgument(L"-no-program-has-this-argument"), 0);
    EXPECT_EQ(kit.services.startArgument(L""), 0);
}

void argumentsAreThere(const Kit& kit)
{
    ASSERT_FALSE(kit.host.startArgument.empty())
        << "set HostUnderTest::startArgument, or name Feature::StartArguments in `without`";
    EXPECT_NE(kit.services.startArgument(kit.host.startArgument.c_str()), 0);
    EXPECT_EQ(kit.services.startArgument((kit.host.startArgument + L"x").c_str()), 0);
}

/// A text that no test before has written.
std::string freshWord(const char* function)
{
    static std::atomic<int> count = 0;
    return std::string("hosttests-") + function + "-" + std::to_string(++count);
}

/// Writes in two pieces and expects them as one text, followed by a line end.
void expectWritten(const Kit& kit, LogFunction function, const std::function<std::string()>& read,
                   const std::string& word)
{
    kit.services.log(function, "[%d %.2f %s", 42, 1.5, word.c_str());
    kit.services.log(function, "|%d %g %s 100%%]\n", -7, 0.25, word.c_str());
    const std::string expected = "[42 1.50 " + word + "|-7 0.25 " + word + " 100%]\n";
    EXPECT_NE(read().find(expected), std::string::npos) << "expected exactly: " << expected;
}

void expectNotWritten(const Kit& kit, LogFunction function, const std::function<std::string()>& read,
                      const std::string& word)
{
    kit.services.log(function, "%d %g %s\n", 1, 0.5, word.c_str());
    EXPECT_EQ(read().find(word), std::string::npos);
}

void theLogHasTheText(const Kit& kit)
{
    ASSERT_TRUE(kit.host.readLog) << "set HostUnderTest::readLog, or name Feature::Log in `without`";
    expectWritten(kit, LogFunction::Log, kit.host.readLog, freshWord("log"));
    expectWritten(kit, LogFunction::Both, kit.host.readLog, freshWord("both"));
}

void theLogHasLongTexts(const Kit& kit)
{
    ASSERT_TRUE(kit.host.readLog) << "set HostUnderTest::readLog, or name Feature::Log in `without`";
    expectWritten(kit, LogFunction::Log, kit.host.readLog, freshWord("long") + std::string(6000, 'x'));
}

void debugOutputIsNotTheLog(const Kit& kit)
{
    ASSERT_TRUE(kit.host.readLog) << "set HostUnderTest::readLog, or name Feature::Log in `without`";
    expectNotWritten(kit, LogFunction::DebugOutput, kit.host.readLog, freshWord("debug"));
}

void debugOutputHasTheText(const Kit& kit)
{
    ASSERT_TRUE(kit.host.readDebugOutput)
        << "set HostUnderTest::readDebugOutput, or name Feature::DebugOutput in `without`";
    expectWritten(kit, LogFunction::DebugOutput, kit.host.readDebugOutput, freshWord("debug"));
    expectWritten(kit, LogFunction::Both, kit.host.readDebugOutput, freshWord("both"));
}

std::atomic<int> commandCalls = 0;
std::atomic<std::thread::id> commandThread;

void countCommand()
{
    ++commandCalls;
    commandThread = std::this_thread::get_id();
}

void commandsRun(const Kit& kit)
{
    ASSERT_TRUE(kit.host.runCommand)
        << "set HostUnderTest::runCommand, or name Feature::Commands in `without`";
    constexpr const char* name = "_A command of the host's tests";
    commandCalls = 0;
    const std::unique_ptr<RegisteredCommand> command = kit.services.registerCommand(name, countCommand);
    EXPECT_TRUE(kit.host.runCommand(name));
    EXPECT_EQ(commandCalls, 1);
    EXPECT_EQ(commandThread.load(), std::this_thread::get_id()) << "on the thread that invokes the command";
}

void removedCommandsDoNotRun(const Kit& kit)
{
    ASSERT_TRUE(kit.host.runCommand)
        << "set HostUnderTest::runCommand, or name Feature::Commands in `without`";
    constexpr const char* name = "_A removed command of the host's tests";
    commandCalls = 0;
    kit.services.registerCommand(name, countCommand).reset();
    EXPECT_FALSE(kit.host.runCommand(name));
    EXPECT_EQ(commandCalls, 0);
}

} // namespace

Promises systemPromises()
{
    return {
        {"Clock", "CountsMilliseconds", theClockCountsMilliseconds, "platform/Clock.h: milliseconds",
         Feature::Clock},
        {"Clock", "NeverRunsBack", theClockNeverRunsBack, "platform/Clock.h: a monotonic clock", {}},
        {"Clock", "ShowsMicroseconds", theClockShowsMicroseconds,
         "platform/Clock.h: a resolution of one microsecond or better", Feature::Clock},
        {"Threads", "SleepsLast", sleepsLast,
         "platform/Threads.h: blocks the calling thread for at least `milliseconds`", Feature::Sleep},
        {"Threads", "SleepsEnd", sleepsEnd, "platform/Threads.h: sleepMilliseconds()", {}},
        {"Messages",
         "DoNotWaitForTheUser",
         messagesDoNotWait,
         "platform/Messages.h: showMessage() returns without waiting for the user",
         {}},
        {"System",
         "CountsProcessors",
         processorsAreCounted,
         "platform/SystemInformation.h: the number of processors that this process may use",
         {}},
        {"System", "KnowsTheMemory", memoryIsKnown, "platform/SystemInformation.h: the machine's memory",
         Feature::Memory},
        {"Settings",
         "DirectoriesEndInASeparator",
         directoriesEndInASeparator,
         "platform/Settings.h: a directory with a trailing separator, or an empty string",
         {}},
        {"Settings",
         "HaveTheDefaultIfNotSet",
         unsetSettingsHaveTheDefault,
         "platform/Settings.h: config_int() returns `defaultValue` if the setting is not set",
         {}},
        {"Settings", "AreFoundIfSet", setSettingsAreFound,
         "platform/Settings.h: config_int() returns the setting", Feature::Settings},
        {"StartEnv",
         "LacksOtherArguments",
         otherArgumentsAreNotThere,
         "platform/StartEnv.h: non-zero if the program was started with the argument",
         {}},
        {"StartEnv", "HasTheArguments", argumentsAreThere,
         "platform/StartEnv.h: non-zero if the program was started with the argument",
         Feature::StartArguments},
        {"Log", "HasExactlyTheText", theLogHasTheText,
         "platform/Log.h: writes exactly the formatted text; it adds no line end", Feature::Log},
        {"Log", "HasLongTexts", theLogHasLongTexts, "platform/Log.h: writes exactly the formatted text",
         Feature::Log},
        {"Log", "HasNoDebugOutput", debugOutputIsNotTheLog,
         "platform/Log.h: vexo_printf() writes to the debug output", Feature::Log},
        {"DebugOutput", "HasExactlyTheText", debugOutputHasTheText,
         "platform/Log.h: vexo_printf() and LogBoth() write to the debug output", Feature::DebugOutput},
        {"Commands", "Run", commandsRun,
         "platform/Commands.h: the handler runs on the thread that invokes the command", Feature::Commands},
        {"Commands", "DoNotRunOnceRemoved", removedCommandsDoNotRun,
         "platform/Commands.h: a command is registered for the lifetime of the object", Feature::Commands},
    };
}

} // namespace Qx::HostTests
