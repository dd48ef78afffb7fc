#include "tools/qxhost/diagnose/WholeFrames.h"

#include "QxFxResources/GPUColourConverter.h"
#include "image/TechniqueApplication.h"
#include "tools/qxhost/diagnose/Steps.h"

#include <chrono>
#include <cstring>
#include <fmt/format.h>
#include <thread>

namespace Qx::Diagnosis {

using namespace Image;

namespace {

constexpr std::size_t underWay = 3;

Surface makeFrame(const FrameSize& size)
{
    Surface frame(static_cast<unsigned>(size.width), static_cast<unsigned>(size.height), YUY2, false, 8, 0,
                  0);
    frame.setColourSpace(ColourSpace::BT709);
    frame.setGamutScaling(GamutScaling::Video);
    if (frame.allocateHost()) {
        const Qx::Ptr<iHostImage> image = frame.getHostImage();
        constexpr int grey = 128;
        std::memset(image->map(iHostImage::Write), grey,
                    image->getPitch() * static_cast<std::size_t>(image->getSize().y));
    }
    return frame;
}

struct Stream
{
    std::thread thread;
    std::uint64_t frames = 0;
    bool failed = false;
};

Figure measureStreamCount(Probe& probe, int count)
{
    using Clock = std::chrono::steady_clock;
    probe.doing(fmt::format("running {} stream{} of whole frames of 1920 x 1080 at once", count,
                            count == 1 ? "" : "s"));
    std::vector<Stream> streams(static_cast<std::size_t>(count));
    const Clock::time_point begin = Clock::now();
    const Clock::time_point end = begin + probe.budget();
    for (Stream& stream : streams) {
        stream.thread = std::thread([&probe, &stream, end] {
            WholeFrames frames(probe, hd);
            do {
                stream.failed = !frames.next();
                stream.frames += stream.failed ? 0 : 1;
            } while (!stream.failed && Clock::now() < end);
            stream.failed = !frames.drain() || stream.failed;
        });
    }
    std::uint64_t frames = 0;
    bool failed = false;
    for (Stream& stream : streams) {
        stream.thread.join();
        frames += stream.frames;
        failed = failed || stream.failed;
    }
    const std::chrono::duration<double> took = Clock::now() - begin;
    Figure figure;
    figure.id = fmt::format("streams-{}", count);
    figure.group = "streams";
    figure.title = fmt::format("Whole frames, {} stream{} together", count, count == 1 ? "" : "s");
    figure.unit = "frames/s";
    figure.failed = failed;
    if (failed) {
        figure.note = "the device refused a frame";
    } else {
        figure.value = static_cast<double>(frames) / took.count();
        figure.note = fmt::format("{:.3g} each", *figure.value / count);
    }
    return figure;
}

} // namespace

WholeFrames::WholeFrames(Probe& probe, const FrameSize& size) : probe_(probe), effect_(getShader(L"cc3.fx"))
{
    for (std::size_t i = 0; i < underWay; ++i) {
        frames_.push_back(makeFrame(size));
    }
}

bool WholeFrames::order()
{
    Surface source = probe_.upload(frames_[ordered_++ % frames_.size()]);
    if (!source.getGPUSurface() || !effect_) {
        return false;
    }
    Surface picture = source.createDestARGBGPUSurface(iGPUImage::eARGB8);
    Surface graded = source.createDestARGBGPUSurface(iGPUImage::eARGB8);
    Surface video = source.createDestYUY2GPUSurface(iGPUImage::eARGB8);
    const auto width = static_cast<float>(source.getWidth());
    if (!picture.getGPUSurface() || !graded.getGPUSurface() || !video.getGPUSurface() ||
        !probe_.operation() ||
        !ColourConversion::convertYCrCb422ToRGB(source, picture, GamutScaling::Unscaled,
                                                Filter::CatmullRom) ||
        !applyTechnique(effect_, picture, graded, effect_->getTechniqueNames().front(), width)) {
        return false;
    }
    video.setColourSpace(ColourSpace::BT709);
    video.setGamutScaling(GamutScaling::Video);
    if (!ColourConversion::convertRGBToYCrCb422(graded, video, Filter::Lanczos) || !probe_.operation()) {
        return false;
    }
    results_.push_back(video.copyToHost());
    return true;
}

bool WholeFrames::take()
{
    const Qx::Ptr<iHostImage> image = results_.front().getHostImage();
    const bool came = image && image->map(iHostImage::Read) != nullptr;
    results_.pop_front();
    return came;
}

bool WholeFrames::next()
{
    return order() && (results_.size() < underWay || take());
}

bool WholeFrames::drain()
{
    bool came = true;
    while (!results_.empty()) {
        came = take() && came;
    }
    return came;
}

void measureFrames(Probe& probe, Yardsticks&)
{
    for (const FrameSize* size : {&hd, &uhd}) {
        probe.doing(fmt::format("sending whole frames of {} x {} through", size->width, size->height));
        WholeFrames frames(probe, *size);
        for (std::size_t i = 0; i < underWay; ++i) {
            frames.next(); // from then on as many come back as go out; a refusal shows again below
        }
        const Timing timing = timeWork(
            probe, [&] { return frames.next(); }, Basis::waited);
        probe.send(rateFigure(fmt::format("frame-{}", size->id), "frames",
                              fmt::format("Whole frames, {} x {}, 8 bits", size->width, size->height),
                              timing));
        frames.drain();
    }
}

void measureStreams(Probe& probe, Yardsticks&)
{
    for (const int count : {1, 2, 4}) {
        probe.send(measureStreamCount(probe, count));
    }
}

} // namespace Qx::Diagnosis
