#include "Qx/LightweightString.h"
#include "host/Host.h"
#include "platform/BackgroundTasks.h"
#include "platform/Commands.h"
#include "platform/CriticalSection.h"
#include "platform/Settings.h"
#include "platform/Shutdown.h"

#include <cstdio>

namespace {

class Task final : public BackgroundTaskBase
{
public:
    LightweightString<char> getID() const override { return "late"; }
    LightweightString<wchar_t> getDescription() const override { return L"late"; }
    bool run() override
    {
        std::puts("a task ran after the shutdown");
        return true;
    }
};

void give()
{
    std::puts("in main: command given");
}

/// Uses the host while the process starts and, constructed first, after everything of main is gone.
struct BeforeAndAfter
{
    BeforeAndAfter()
        : text("a string that is longer than nothing"), command("probe", give, {}, {}, GlobalCommand, {})
    {
        std::printf("before main: %d, command %s\n", config_int("ProbeNumber", 1),
                    Qx::Host::listCommands().size() == 1 ? "known" : "unknown");
    }

    ~BeforeAndAfter()
    {
        const CriticalSectionScope scope(lock);
        UIBackgroundTasksQueue::instance().queue(Qx::makePtr<Task>(), false);
        text += "!";
        std::printf("after main: %d, string %s, task dropped\n", config_int("ProbeNumber", 1),
                    text == "a string that is longer than nothing!" ? "kept" : "lost");
    }

    CriticalSection lock;
    LightweightString<char> text;
    CommandRegistrar command;
} beforeAndAfter;

/// Two parts of the program start and stop the host; later there is a third.
int runParts()
{
    Qx::Host::start({.quiet = true});
    Qx::Host::start({.device = "a device that is not there", .quiet = false});
    Shutdown::addCallback([](Shutdown::eExitType) { std::puts("shut down"); }, 450);
    Qx::Host::stop();
    std::puts("one part has stopped");
    Qx::Host::stop();
    Qx::Host::stop();
    Qx::Host::start({.quiet = true});
    for (const LightweightString<char>& complaint : Qx::Host::takeComplaints()) {
        std::printf("%s\n", complaint.c_str());
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1) {
        return runParts();
    }
    Qx::Host::start({.argc = argc, .argv = argv, .quiet = true});
    Shutdown::addCallback([](Shutdown::eExitType) { std::puts("order 450"); }, 450);
    Shutdown::addCallback(
        [](Shutdown::eExitType) {
            std::puts("order 1500");
            Shutdown::addCallback([](Shutdown::eExitType) { std::puts("order 450 registered in 1500"); },
                                  450);
        },
        1500);
    if (!Qx::Host::runCommand("probe")) {
        return 1;
    }
    Qx::Host::stop();
    Qx::Host::stop();
    return 0;
}
