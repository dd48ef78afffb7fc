#include "platform/GPUService.h"
#include "platform/OS.h"
#include "tools/qxhost/diagnose/Steps.h"

#include <cstring>
#include <fmt/format.h>

namespace Qx::Diagnosis {

namespace {

Figure measureUpload(Probe& probe, const FrameSize& size)
{
    probe.doing(fmt::format("uploading an image of {} x {}", size.width, size.height));
    const Qx::Ptr<iHostImage> image = OS().gpu().createHostImage(size.size());
    const Timing timing = timeFrames(probe, [&] { return static_cast<bool>(probe.upload(image)); });
    return bandwidthFigure(fmt::format("upload-{}", size.id), "transfers",
                           fmt::format("Upload, {}", size.name), timing, bytesOf(size, iGPUImage::eARGB8));
}

Figure measureDownload(Probe& probe, const FrameSize& size)
{
    probe.doing(fmt::format("downloading an image of {} x {}", size.width, size.height));
    const Qx::Ptr<iGPUImage> image = OS().gpu().createGPUImage(size.size(), iGPUImage::eARGB8);
    const Timing timing = timeFrames(probe, [&] { return static_cast<bool>(probe.download(image)); });
    return bandwidthFigure(fmt::format("download-{}", size.id), "transfers",
                           fmt::format("Download, {}", size.name), timing, bytesOf(size, iGPUImage::eARGB8));
}

} // namespace

void measureTransfers(Probe& probe, Yardsticks& yardsticks)
{
    for (const auto measure : {measureUpload, measureDownload}) {
        for (const FrameSize& size : frameSizes) {
            Figure figure = measure(probe, size);
            yardsticks.compareWithMemory(figure, size);
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
