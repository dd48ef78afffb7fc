#include "QxFxResources/Manager.h"
#include "host/gpu/GPUService.h"
#include "platform/Text.h"
#include "tools/qxhost/diagnose/Steps.h"

#include <chrono>
#include <filesystem>
#include <fmt/format.h>
#include <string>

namespace Qx::Diagnosis {

namespace {

std::string numberOfDevice()
{
    for (const Host::DeviceDescription& device : Host::gpuService().listDevices()) {
        if (device.chosen) {
            return std::to_string(device.index);
        }
    }
    return {};
}

/// How long a service that has just started takes for an effect; failed when it does not compile.
Timing timeCompiling(Probe& probe, const FxResources::ShaderEffectInfo& info,
                     const std::filesystem::path& cache)
{
    using Clock = std::chrono::steady_clock;
    Timing timing;
    Host::GPUOptions options;
    options.device = numberOfDevice();
    options.cacheDirectory = cache;
    const Host::GPUOptions ours = Host::gpuService().options();
    options.worker = ours.worker;
    options.workerStepLimit = ours.workerStepLimit;
    options.workerMemory = ours.workerMemory;
    Host::GPUService service(options);
    timing.failed = !service.start();
    if (!timing.failed && probe.operation()) {
        const Clock::time_point begin = Clock::now();
        const EffectCompileResult result =
            service.compileEffectFile(info.getFullPath(), FxResources::Manager::instance().definitions());
        timing.failed = !result.effect;
        timing.samples.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
    } else {
        timing.failed = true;
    }
    service.shutdown();
    return timing;
}

Figure compile(Probe& probe, const wchar_t* name, const std::filesystem::path& cache, bool cached)
{
    const std::string file(toUTF8(name).view());
    probe.compiling(fmt::format("compiling {}{}", file, cached ? " again" : ""));
    const Timing timing = timeCompiling(probe, FxResources::Manager::instance().findEffect(name), cache);
    Figure figure = durationFigure(
        fmt::format("compile-{}-{}", file, cached ? "cached" : "first"), "compiling",
        fmt::format("Compiling {}, {}", file, cached ? "at the next start" : "for the first time"), timing);
    if (timing.failed) {
        figure.note = "the effect did not compile; 'qxhost effects check' says why";
    }
    return figure;
}

} // namespace

void measureCompiling(Probe& probe, Yardsticks&)
{
    const std::filesystem::path& cache = probe.scratch();
    for (const wchar_t* name : {L"ColourConvert.fx", L"cc3.fx"}) {
        probe.send(compile(probe, name, cache, false));
        if (!cache.empty()) {
            probe.send(compile(probe, name, cache, true));
            continue;
        }
        const std::string file(toUTF8(name).view());
        probe.send(notMeasured(fmt::format("compile-{}-cached", file), "compiling",
                               "Compiling " + file + ", at the next start", "ms",
                               "no temporary directory could be made for its cache"));
    }
}

} // namespace Qx::Diagnosis
