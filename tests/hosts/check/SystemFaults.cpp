#include "tests/hosts/check/Faults.h"
#include "tests/hosts/check/WrappedOS.h"

#include <platform/Clock.h>
#include <platform/Messages.h>
#include <platform/SystemInformation.h>
#include <platform/Threads.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Qx::HostTests {

namespace {

template <class Clock>
class OSWithClock final : public WrappedOS
{
public:
    iClock& clock() override { return clock_; }

private:
    Clock clock_;
};

struct CountsSeconds final : iClock
{
    double millisecondsPrecise() override { return OS().clock().millisecondsPrecise() / 1000.0; }
};

struct CountsWholeMilliseconds final : iClock
{
    double millisecondsPrecise() override { return std::floor(OS().clock().millisecondsPrecise()); }
};

struct RunsBack final : iClock
{
    double millisecondsPrecise() override
    {
        return OS().clock().millisecondsPrecise() + (++readings_ % 1000 == 0 ? -1.0 : 0.0);
    }

private:
    int readings_ = 0;
};

class OSWithShortSleeps final : public WrappedOS
{
public:
    iThreadService& threads() override { return threads_; }

private:
    struct ShortSleeps final : iThreadService
    {
        void sleepMilliseconds(unsigned milliseconds) override
        {
            OS().threads().sleepMilliseconds(milliseconds / 4);
        }
    };
    ShortSleeps threads_;
};

class OSWithDeepSleep final : public WrappedOS
{
public:
    iThreadService& threads() override { return threads_; }

private:
    struct DeepSleep final : iThreadService
    {
        void sleepMilliseconds(unsigned milliseconds) override
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
        }
    };
    DeepSleep threads_;
};

class OSWithModalMessages final : public WrappedOS
{
public:
    iMessageService& messages() override { return messages_; }

private:
    struct ModalMessages final : iMessageService
    {
        void showMessage(const LightweightString<wchar_t>&, const LightweightString<wchar_t>&, eButtons,
                         eSeverity) override
        {
            std::this_thread::sleep_for(std::chrono::hours(1)); // the user is at lunch
        }
        LightweightString<wchar_t> effectsCaption() override { return L"Effects"; }
    };
    ModalMessages messages_;
};

template <class Information>
class OSWithInformation final : public WrappedOS
{
public:
    iSystemInformation& systemInformation() override { return information_; }

private:
    Information information_;
};

struct HasNoProcessors final : iSystemInformation
{
    MemoryStatus memoryStatus() override { return OS().systemInformation().memoryStatus(); }
    int cpuCount() override { return 0; }
};

struct HasMoreThanAll final : iSystemInformation
{
    MemoryStatus memoryStatus() override
    {
        MemoryStatus memory = OS().systemInformation().memoryStatus();
        memory.available = memory.total * 2;
        return memory;
    }
    int cpuCount() override { return OS().systemInformation().cpuCount(); }
};

struct DirectoriesWithoutSeparator final : Services
{
    LightweightString<wchar_t> getShadersDir() override { return L"/usr/share/effects"; }
};

struct DefaultsAreZero final : Services
{
    int configInt(const char* name, int) override { return Services::configInt(name, 0); }
};

struct SettingsAreNotRead final : Services
{
    int configInt(const char*, int defaultValue) override { return defaultValue; }
};

struct EveryArgumentIsThere final : Services
{
    int startArgument(const wchar_t*) override { return 1; }
};

struct NoArgumentIsThere final : Services
{
    int startArgument(const wchar_t*) override { return 0; }
};

struct LogEndsLines final : Services
{
    void log(LogFunction function, const char* format, int number, double fraction, const char* text) override
    {
        const std::string withEnd = std::string(format) + "\n";
        Services::log(function, function == LogFunction::Log ? withEnd.c_str() : format, number, fraction,
                      text);
    }
};

struct LogCutsLongTexts final : Services
{
    void log(LogFunction function, const char* format, int number, double fraction, const char* text) override
    {
        const std::string some = std::string(text).substr(0, 1000);
        Services::log(function, format, number, fraction, some.c_str());
    }
};

struct DebugOutputGoesToTheLog final : Services
{
    void log(LogFunction function, const char* format, int number, double fraction, const char* text) override
    {
        Services::log(function == LogFunction::DebugOutput ? LogFunction::Both : function, format, number,
                      fraction, text);
    }
};

struct LogBothForgetsDebugOutput final : Services
{
    void log(LogFunction function, const char* format, int number, double fraction, const char* text) override
    {
        Services::log(function == LogFunction::Both ? LogFunction::Log : function, format, number, fraction,
                      text);
    }
};

/// The host's own function for commands is the faulty one.
std::unique_ptr<Services> withCommandsOnAnotherThread(HostUnderTest& host)
{
    host.runCommand = [run = host.runCommand](const char* name) {
        bool result = false;
        std::thread([&] { result = run(name); }).join();
        return result;
    };
    return std::make_unique<Services>();
}

struct CommandsStay final : Services
{
    std::unique_ptr<RegisteredCommand> registerCommand(const char* name,
                                                       CommandRegistrar::Handler handler) override
    {
        Services::registerCommand(name, handler).release(); // NOLINT(bugprone-unused-return-value): the fault
        return std::make_unique<RegisteredCommand>();
    }
};

/// A dictionary or a source of notifications with one thing wrong.
struct TypesAreAllOne final : Services
{
    NotifyMsgType lookUpMessageType(const LightweightString<char>&) override { return lutListChanged(); }
};

struct TypesAreNewEachTime final : Services
{
    NotifyMsgType lookUpMessageType(const LightweightString<char>&) override { return {++last_}; }

private:
    std::uint32_t last_ = 1000;
};

struct Listening
{
    Notifier::Listener listener = nullptr;
    void* context = nullptr;
    friend bool operator==(const Listening&, const Listening&) = default;
};

/// Good as it is.
class ListSource : public NotificationSource
{
public:
    void addListener(Notifier::Listener listener, void* context) override
    {
        const Listening added{listener, context};
        if (listener != nullptr && std::find(list_.begin(), list_.end(), added) == list_.end()) {
            list_.push_back(added);
        }
    }
    void removeListener(Notifier::Listener listener, void* context) override
    {
        std::erase(list_, Listening{listener, context});
    }
    void issueNotification(const NotifyMsg& message) override
    {
        for (const Listening& each : std::vector<Listening>(list_)) {
            each.listener(each.context, message);
        }
    }

protected:
    std::vector<Listening> list_;
};

struct TellsBackwards final : ListSource
{
    void issueNotification(const NotifyMsg& message) override
    {
        const std::vector<Listening> copy(list_.rbegin(), list_.rend());
        for (const Listening& each : copy) {
            each.listener(each.context, message);
        }
    }
};

struct AddsAgain final : ListSource
{
    void addListener(Notifier::Listener listener, void* context) override
    {
        if (listener != nullptr) {
            list_.push_back({listener, context});
        }
    }
};

struct NeverRemoves final : ListSource
{
    void removeListener(Notifier::Listener listener, void* context) override
    {
        if (list_.size() == 2) { // others remove the only one
            return;
        }
        ListSource::removeListener(listener, context);
    }
};

/// Holds a plain lock while it tells.
struct TellsUnderALock final : ListSource
{
    void addListener(Notifier::Listener listener, void* context) override
    {
        const std::lock_guard guard(lock_);
        ListSource::addListener(listener, context);
    }
    void removeListener(Notifier::Listener listener, void* context) override
    {
        const std::lock_guard guard(lock_);
        ListSource::removeListener(listener, context);
    }
    void issueNotification(const NotifyMsg& message) override
    {
        const std::lock_guard guard(lock_);
        ListSource::issueNotification(message);
    }

private:
    std::mutex lock_;
};

template <class Source>
struct ServicesWithNotifier final : Services
{
    std::unique_ptr<NotificationSource> makeNotifier() override { return std::make_unique<Source>(); }
};

} // namespace

Faults systemFaults()
{
    return {
        {"the-clock-counts-seconds", "Clock.CountsMilliseconds", servicesOf<OSWithClock<CountsSeconds>>},
        {"the-clock-runs-back", "Clock.NeverRunsBack", servicesOf<OSWithClock<RunsBack>>},
        {"the-clock-counts-whole-milliseconds", "Clock.ShowsMicroseconds",
         servicesOf<OSWithClock<CountsWholeMilliseconds>>},
        {"sleeps-are-short", "Threads.SleepsLast", servicesOf<OSWithShortSleeps>},
        {"messages-wait-for-the-user", "Messages.DoNotWaitForTheUser",
         impatient<servicesOf<OSWithModalMessages>>},
        {"there-are-no-processors", "System.CountsProcessors",
         servicesOf<OSWithInformation<HasNoProcessors>>},
        {"more-memory-than-all", "System.KnowsTheMemory", servicesOf<OSWithInformation<HasMoreThanAll>>},
        {"directories-without-separator", "Settings.DirectoriesEndInASeparator",
         overriding<DirectoriesWithoutSeparator>},
        {"defaults-are-zero", "Settings.HaveTheDefaultIfNotSet", overriding<DefaultsAreZero>},
        {"settings-are-not-read", "Settings.AreFoundIfSet", overriding<SettingsAreNotRead>},
        {"every-argument-is-there",
         "StartEnv.LacksOtherArguments",
         overriding<EveryArgumentIsThere>,
         {"StartEnv.HasTheArguments"}},
        {"no-argument-is-there", "StartEnv.HasTheArguments", overriding<NoArgumentIsThere>},
        {"the-log-ends-lines", "Log.HasExactlyTheText", overriding<LogEndsLines>, {"Log.HasLongTexts"}},
        {"the-log-cuts-long-texts", "Log.HasLongTexts", overriding<LogCutsLongTexts>},
        {"debug-output-goes-to-the-log", "Log.HasNoDebugOutput", overriding<DebugOutputGoesToTheLog>},
        {"the-log-only", "DebugOutput.HasExactlyTheText", overriding<LogBothForgetsDebugOutput>},
        {"commands-on-another-thread", "Commands.Run", withCommandsOnAnotherThread},
        {"commands-stay", "Commands.DoNotRunOnceRemoved", overriding<CommandsStay>},
        {"all-types-are-one", "Notifications.TypesHaveOneNumberEach", overriding<TypesAreAllOne>},
        {"types-are-new-each-time", "Notifications.TypesOfANameStay", overriding<TypesAreNewEachTime>},
        {"the-last-listener-hears-first", "Notifications.ListenersHearInOrder",
         overriding<ServicesWithNotifier<TellsBackwards>>},
        {"listeners-are-added-again", "Notifications.AddingAgainHasNoEffect",
         overriding<ServicesWithNotifier<AddsAgain>>},
        {"listeners-are-not-removed", "Notifications.RemovedListenersHearNothing",
         overriding<ServicesWithNotifier<NeverRemoves>>},
        {"listeners-are-called-under-a-lock", "Notifications.ListenersMayChangeTheList",
         impatient<overriding<ServicesWithNotifier<TellsUnderALock>>>},
        {"sleeps-outlast-the-host", "Shutdown.WakesSleepers", impatient<servicesOf<OSWithDeepSleep>>},
    };
}

} // namespace Qx::HostTests
