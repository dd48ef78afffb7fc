#include "tools/qxhost/diagnose/Yardsticks.h"

#include "host/gpu/GPUService.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "tools/qxhost/diagnose/Steps.h"

#include <cstring>
#include <fmt/format.h>
#include <memory>
#include <new>

namespace Qx::Diagnosis {

namespace {

constexpr double bytesPerMillisecond = 1e6; // of one GB/s

Timing timeDeviceCopy(Probe& probe, iGPUImage::eFormat format)
{
    probe.doing(fmt::format("copying an image of 1920 x 1080 on the device, {} bits",
                            format == iGPUImage::eARGB8 ? 8 : 16));
    const Qx::Ptr<iGPUImage> source = OS().gpu().createGPUImage(hd.size(), format);
    const Qx::Ptr<iGPUImage> target = OS().gpu().createGPUImage(hd.size(), format);
    return timeFrames(probe,
                      [&] { return probe.operation() && Host::gpuService().copyImage(source, target); });
}

/// Keeps the compiler from leaving out a copy that nobody reads.
void use(const void* memory)
{
    asm volatile("" : : "g"(memory) : "memory"); // NOLINT(hicpp-no-assembler)
}

Timing timeMemoryCopy(Probe& probe, std::size_t bytes)
{
    probe.doing(fmt::format("copying {} bytes in memory", bytes));
    const std::unique_ptr<char[]> source(new (std::nothrow) char[bytes]);
    const std::unique_ptr<char[]> target(new (std::nothrow) char[bytes]);
    if (!source || !target) {
        Timing failed;
        failed.failed = true;
        return failed;
    }
    std::memset(source.get(), 1, bytes);
    const auto copy = [&] {
        std::memcpy(target.get(), source.get(), bytes);
        use(target.get());
        return probe.operation();
    };
    copy(); // touches the target for the first time
    return timeWork(probe, copy, Basis::processor);
}

} // namespace

double bytesOf(const FrameSize& size, iGPUImage::eFormat format)
{
    return size.pixels() * (format == iGPUImage::eARGB8 ? 4 : 8);
}

const Timing& Yardsticks::deviceCopy(iGPUImage::eFormat format)
{
    const auto found = device_.find(format);
    return found != device_.end() ? found->second
                                  : device_.emplace(format, timeDeviceCopy(probe_, format)).first->second;
}

const Timing& Yardsticks::memoryCopy(const FrameSize& size)
{
    const double bytes = bytesOf(size, iGPUImage::eARGB8);
    const auto found = memory_.find(bytes);
    return found != memory_.end()
               ? found->second
               : memory_.emplace(bytes, timeMemoryCopy(probe_, static_cast<std::size_t>(bytes)))
                     .first->second;
}

void Yardsticks::compareWithDevice(Figure& figure, double bytes, iGPUImage::eFormat format)
{
    constexpr double millisecondsPerSecond = 1000;
    if (const auto copy = deviceCopy(format).milliseconds()) {
        const double copied = 2 * bytesOf(hd, format); // read and written
        figure.yardstick = millisecondsPerSecond / *copy * copied / bytes;
        figure.yardstickName = "copy on the device";
    }
}

void Yardsticks::compareWithMemory(Figure& figure, const FrameSize& size)
{
    if (const auto copy = memoryCopy(size).milliseconds()) {
        figure.yardstick = bytesOf(size, iGPUImage::eARGB8) / *copy / bytesPerMillisecond;
        figure.yardstickName = "copy in memory";
    }
}

void measureCopies(Probe& probe, Yardsticks& yardsticks)
{
    for (const auto format : {iGPUImage::eARGB8, iGPUImage::eARGB16}) {
        const int bits = format == iGPUImage::eARGB8 ? 8 : 16;
        probe.send(bandwidthFigure(fmt::format("copy-device-{}", bits), "copies",
                                   fmt::format("Copy on the device, 1920 x 1080, {} bits", bits),
                                   yardsticks.deviceCopy(format), bytesOf(hd, format)));
    }
    for (const FrameSize& size : frameSizes) {
        probe.send(bandwidthFigure(fmt::format("copy-memory-{}", size.id), "copies",
                                   fmt::format("Copy in memory, {}", size.name), yardsticks.memoryCopy(size),
                                   bytesOf(size, iGPUImage::eARGB8)));
    }
}

} // namespace Qx::Diagnosis
