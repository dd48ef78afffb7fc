#include "host/gpu/GPUService.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "tools/qxhost/diagnose/Steps.h"

#include <cstring>
#include <fmt/format.h>
#include <functional>

namespace Qx::Diagnosis {

namespace {

/// What moving such an image comes to. `move` says whether it worked.
Figure measure(Probe& probe, const char* direction, const char* id, const FrameSize& size,
               const std::function<bool()>& move)
{
    const std::uint64_t before = Host::gpuService().statistics().sharedTransfers;
    const Timing timing = timeFrames(probe, move);
    const std::string title = fmt::format("{}, {}", direction, size.name);
    if (!timing.failed && Host::gpuService().statistics().sharedTransfers > before) {
        return notMeasured(fmt::format("{}-{}", id, size.id), "transfers", title, "GB/s",
                           std::string(nothingCopied));
    }
    return bandwidthFigure(fmt::format("{}-{}", id, size.id), "transfers", title, timing,
                           bytesOf(size, iGPUImage::eARGB8));
}

Figure measureUpload(Probe& probe, const FrameSize& size)
{
    probe.doing(fmt::format("uploading an image of {} x {}", size.width, size.height));
    const Qx::Ptr<iHostImage> image = OS().gpu().createHostImage(size.size());
    return measure(probe, "Upload", "upload", size, [&] { return static_cast<bool>(probe.upload(image)); });
}

Figure measureDownload(Probe& probe, const FrameSize& size)
{
    probe.doing(fmt::format("downloading an image of {} x {}", size.width, size.height));
    const Qx::Ptr<iGPUImage> image = OS().gpu().createGPUImage(size.size(), iGPUImage::eARGB8);
    return measure(probe, "Download", "download", size,
                   [&] { return static_cast<bool>(probe.download(image)); });
}

} // namespace

void measureTransfers(Probe& probe, Yardsticks& yardsticks)
{
    for (const auto direction : {measureUpload, measureDownload}) {
        for (const FrameSize& size : frameSizes) {
            Figure figure = direction(probe, size);
            if (figure.value) {
                yardsticks.compareWithMemory(figure, size);
            }
            probe.send(figure);
        }
    }
}

void measureLatency(Probe& probe, Yardsticks&)
{
    constexpr XY<int> small{64, 64};
    probe.doing("sending an image of 64 x 64 to the device and reading it back");
    const Qx::Ptr<iHostImage> image = OS().gpu().createHostImage(small);
    const auto thereAndBack = [&] {
        void* memory = image ? image->map(iHostImage::Write) : nullptr;
        if (memory == nullptr) {
            return false;
        }
        std::memset(memory, 1, image->getPitch() * static_cast<std::size_t>(small.y));
        const Qx::Ptr<iHostImage> back = probe.download(probe.upload(image));
        return back && back->map(iHostImage::Read) != nullptr;
    };
    thereAndBack(); // pays for what is made at first use; a refusal shows again
    probe.send(durationFigure("latency", "latency", "64 x 64, sent, read back and seen",
                              timeWork(probe, thereAndBack, Basis::waited)));
}

} // namespace Qx::Diagnosis
