#include "host/gpu/GPUService.h"
#include "platform/OS.h"
#include "platform/SystemInformation.h"
#include "tools/qxhost/diagnose/Steps.h"

#include <sys/resource.h>

namespace Qx::Diagnosis {

namespace {

Figure mebibytes(const char* id, const char* title, std::uint64_t bytes, Better better)
{
    constexpr double mebibyte = 1024 * 1024;
    Figure figure;
    figure.id = id;
    figure.group = "memory";
    figure.title = title;
    figure.value = static_cast<double>(bytes) / mebibyte;
    figure.unit = "MiB";
    figure.better = better;
    figure.basis = Basis::counted;
    return figure;
}

std::uint64_t peakOfProcess()
{
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    constexpr std::uint64_t unit = 1024; // getrusage(2): ru_maxrss is in kilobytes
    return static_cast<std::uint64_t>(usage.ru_maxrss) * unit;
}

} // namespace

void measureMemory(Probe& probe, Yardsticks&)
{
    const MemoryStatus machine = OS().systemInformation().memoryStatus();
    const Host::GPUStatistics held = Host::gpuService().statistics();
    probe.send(mebibytes("memory-total", "Memory of the machine", machine.total, Better::neither));
    probe.send(mebibytes("memory-available", "Memory available now", machine.available, Better::neither));
    probe.send(mebibytes("memory-limit", "Most that may be under way to the device at once",
                         held.inFlightLimit, Better::neither));
    probe.send(mebibytes("memory-images", "Images on the device, held at the end",
                         held.liveImageBytes + held.idleImageBytes, Better::lower));
    probe.send(mebibytes("memory-host-images", "Images in memory, held at the end",
                         held.liveHostBytes + held.idleHostBytes, Better::lower));
    probe.doing("giving back images that nobody uses");
    Host::gpuService().trim();
    const Host::GPUStatistics kept = Host::gpuService().statistics();
    probe.send(mebibytes("memory-kept", "Both, after what was not in use was given back",
                         kept.liveImageBytes + kept.idleImageBytes + kept.liveHostBytes + kept.idleHostBytes,
                         Better::lower));
    probe.send(
        mebibytes("memory-peak", "The measuring process at its largest", peakOfProcess(), Better::lower));
}

} // namespace Qx::Diagnosis
