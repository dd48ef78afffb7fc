#include "host/Host.h"
#include "host/gpu/GPUService.h"
#include "platform/OS.h"
#include "platform/SystemInformation.h"
#include "tools/qxhost/commands/Commands.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/diagnose/StepEffects.h"
#include "tools/qxhost/pipeline/device/HostSession.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <csignal>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/utsname.h>
#include <thread>
#include <unistd.h>

// The process that measures. Its standard output is the pipe to the one that watches.

namespace Qx::Program {

using namespace Diagnosis;

namespace {

/// A parent that is gone has no use for what is measured, and nobody could end a hang any more.
void dieWithParent(int parent)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) {
        ::_exit(static_cast<int>(ExitCode::interrupted));
    }
}

/// Turns what the device gets done into signs of life, for steps whose single operations are the library's.
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
                                fmt::format("it was lost in the step '{}', and nothing after it could be "
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

constexpr const char* measureWord = "diagnose-measure";

std::optional<int> numberFrom(const std::string& word)
{
    int number = 0;
    const char* end = word.data() + word.size();
    const auto [stopped, error] = std::from_chars(word.data(), end, number);
    return error == std::errc() && stopped == end ? std::optional(number) : std::nullopt;
}

} // namespace

std::vector<std::string> argumentsOf(const MeasureOptions& options)
{
    std::vector<std::string> words{measureWord,
                                   std::to_string(options.lifeSign),
                                   std::to_string(options.parent),
                                   options.quick ? "quick" : "thorough",
                                   options.scratch.string(),
                                   options.device};
    words.insert(words.end(), options.only.begin(), options.only.end());
    return words;
}

std::optional<MeasureOptions> measureOptionsFrom(const std::vector<std::string>& arguments)
{
    constexpr std::size_t fixed = 6;
    if (arguments.size() < fixed || arguments[0] != measureWord) {
        return std::nullopt;
    }
    const auto lifeSign = numberFrom(arguments[1]);
    const auto parent = numberFrom(arguments[2]);
    if (!lifeSign || !parent) {
        return std::nullopt;
    }
    MeasureOptions options;
    options.lifeSign = *lifeSign;
    options.parent = *parent;
    options.quick = arguments[3] == "quick";
    options.scratch = arguments[4];
    options.device = arguments[5];
    options.only.assign(arguments.begin() + fixed, arguments.end());
    return options;
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

} // namespace Qx::Program
