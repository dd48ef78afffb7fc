#include "host/Host.h"
#include "host/gpu/GPUService.h"
#include "platform/OS.h"
#include "platform/SystemInformation.h"
#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/diagnose/MeasureOptions.h"
#include "tools/qxhost/diagnose/StepEffects.h"
#include "tools/qxhost/pipeline/device/HostSession.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/utsname.h>
#include <thread>
#include <unistd.h>

// The process that measures. Its standard output is the pipe to the process that watches it.

namespace Qx::Program {

using namespace Diagnosis;

namespace {

constexpr const char* commandWord = "diagnose-measure";
constexpr const char* lifeSignOption = "--life-sign";
constexpr const char* parentOption = "--parent";
constexpr const char* quickOption = "--quick";
constexpr const char* scratchOption = "--scratch";
constexpr const char* onlyOption = "--only";

/// Without the parent nobody reads the results or ends a hang.
void dieWithParent(int parent)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) {
        ::_exit(static_cast<int>(ExitCode::interrupted));
    }
}

/// Turns the device's progress into signs of life, for steps whose single operations the library runs.
class Pulse
{
public:
    explicit Pulse(LifeSign& life)
        : thread_([&life](const std::stop_token& stop) {
              constexpr std::chrono::milliseconds interval{100};
              std::uint64_t before = 0;
              while (!stop.stop_requested()) {
                  const Host::GPUStatistics statistics = Host::gpuService().statistics();
                  const std::uint64_t now = statistics.draws + statistics.batchesSubmitted;
                  if (now != before) {
                      before = now;
                      life.beat();
                  }
                  std::this_thread::sleep_for(interval);
              }
          })
    {
    }

private:
    std::jthread thread_;
};

Machine describeMachine()
{
    Machine machine;
    utsname system{};
    if (::uname(&system) == 0) {
        machine.system = fmt::format("{} {} {}", system.sysname, system.release, system.machine);
    }
    const MemoryStatus memory = OS().systemInformation().memoryStatus();
    machine.processors = OS().systemInformation().cpuCount();
    machine.memory = memory.total;
    machine.memoryAvailable = memory.available;
    if (double average = 0; ::getloadavg(&average, 1) == 1) {
        machine.load = {average, static_cast<int>(::sysconf(_SC_NPROCESSORS_ONLN))};
    }
    return machine;
}

Device describeDevice()
{
    for (const Host::DeviceDescription& device : Host::gpuService().listDevices()) {
        if (device.chosen) {
            return {device.name, device.type, device.driver, device.software};
        }
    }
    return {};
}

std::vector<Step> chosenSteps(const MeasureOptions& options)
{
    std::vector<Step> chosen;
    for (const Step& step : steps()) {
        const auto named = std::find(options.only.begin(), options.only.end(), step.name);
        if (options.only.empty() ? !options.quick || step.isQuick : named != options.only.end()) {
            chosen.push_back(step);
        }
    }
    return chosen;
}

Figure lostDevice(const Step& step)
{
    Figure figure = notMeasured("device", "checks", "The device", "",
                                fmt::format("it was lost in the step '{}'; nothing after it could be "
                                            "measured",
                                            step.title));
    figure.failed = true;
    return figure;
}

void measure(Probe& probe, const std::vector<Step>& chosen)
{
    Yardsticks yardsticks(probe);
    for (const Step& step : chosen) {
        probe.beginStep(std::string(step.name), std::string(step.title));
        step.run(probe, yardsticks);
        if (deviceIsLost()) {
            probe.send(lostDevice(step));
            return;
        }
    }
}

ExitCode runMeasure(const MeasureOptions& options, Console& console)
{
    constexpr std::chrono::milliseconds thorough{600};
    constexpr std::chrono::milliseconds quick{120};
    constexpr std::chrono::seconds quickTime{8};
    dieWithParent(options.parent);
    LifeSign life(options.lifeSign);
    const Probe::Send send = [&](const Message& message) { console.data(lineOf(message)); };
    Probe probe(life, options.quick ? quick : thorough, options.scratch, send);
    life.doing("starting the device");
    try {
        const HostSession host(options.device, nullptr, HostSession::Output::quiet,
                               HostSession::Effects::readyWhenLoaded);
        for (const LightweightString<char>& complaint : Host::takeComplaints()) {
            send(Remark{std::string(complaint.view())});
        }
        std::vector<Step> chosen = chosenSteps(options);
        send(Begun{describeDevice(), describeMachine(), static_cast<int>(chosen.size())});
        const Pulse pulse(life);
        compileEffects(probe, chosen);
        if (options.quick) {
            probe.hurryAfter(quickTime);
        }
        measure(probe, chosen);
        life.doing("ending the device");
    } catch (const Failure& failure) {
        if (failure.code() != ExitCode::device) {
            throw;
        }
        send(NoDevice{failure.what(), describeMachine()});
        return ExitCode::device;
    }
    send(Finished{});
    return ExitCode::ok;
}

class MeasureCommand : public CommandWithOptions<MeasureOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        app.add_option(lifeSignOption, options_.lifeSign,
                       "File descriptor of the memory shared with the parent");
        app.add_option(parentOption, options_.parent, "Process id of the parent");
        app.add_flag(quickOption, options_.quick, "Skip the timed suite, and measure for less time");
        app.add_option(scratchOption, options_.scratch, "An empty directory");
        app.add_option(onlyOption, options_.only, "A step to run")->allow_extra_args(false)->take_all();
        addDevice(app, options_.device);
    }

    void check(const CLI::App& app) override
    {
        if (options_.lifeSign < 0 || options_.parent <= 0) {
            complain(app, "diagnose-measure is started by 'qxhost diagnose' only");
        }
    }

    ExitCode run(Console& console) override { return runMeasure(options_, console); }
};

const Registered<MeasureCommand> registeredMeasure(
    {.name = commandWord, .order = 100, .about = "Measure for 'qxhost diagnose'", .hidden = true});

} // namespace

std::vector<std::string> argumentsOf(const MeasureOptions& options)
{
    const auto with = [](const char* option, const std::string& value) { return option + ("=" + value); };
    std::vector<std::string> words{commandWord, with(lifeSignOption, std::to_string(options.lifeSign)),
                                   with(parentOption, std::to_string(options.parent))};
    if (options.quick) {
        words.emplace_back(quickOption);
    }
    if (!options.scratch.empty()) {
        words.push_back(with(scratchOption, options.scratch.string()));
    }
    if (!options.device.empty()) {
        words.push_back(with("--device", options.device));
    }
    for (const std::string& step : options.only) {
        words.push_back(with(onlyOption, step));
    }
    return words;
}

} // namespace Qx::Program
