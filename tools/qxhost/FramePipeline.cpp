#include "tools/qxhost/FramePipeline.h"

#include "QxFxResources/GPUColourConverter.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "tools/qxhost/Failure.h"
#include "tools/qxhost/HostSession.h"

#include <algorithm>
#include <utility>

namespace Qx::Program {

namespace {

using Image::ColourSpace;
using Image::GamutScaling;
using Image::Polarity;
using Image::Surface;

/// Frames between two stages: enough to keep the stages apart, and no more than fit in a share of memory.
std::size_t framesInFlight(int width, int height, Media::Depth depth)
{
    constexpr std::size_t budget = std::size_t{256} << 20U;
    constexpr std::size_t fewest = 2;
    constexpr std::size_t most = 6;
    const std::size_t componentBytes = depth == Media::Depth::bits8 ? 1 : 2;
    const std::size_t frame =
        static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4 * componentBytes;
    return std::clamp(budget / std::max<std::size_t>(frame, 1), fewest, most);
}

Polarity polarityOf(Media::FieldOrder order)
{
    switch (order) {
    case Media::FieldOrder::topFirst:
        return Polarity::UpperFieldFirst;
    case Media::FieldOrder::bottomFirst:
        return Polarity::LowerFieldFirst;
    case Media::FieldOrder::progressive:
        break;
    }
    return Polarity::Progressive;
}

} // namespace

FramePipeline::FramePipeline(const ConversionJob& job, std::function<void(std::int64_t)> onFrame)
    : job_(job),
      onFrame_(std::move(onFrame)),
      width_(job.reader.info().width),
      height_(job.reader.info().height),
      format_(job.source.depth == Media::Depth::bits8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16),
      inFlight_(framesInFlight(width_, height_, job.source.depth)),
      decoded_(inFlight_),
      free_(inFlight_),
      packed_(inFlight_),
      converted_(inFlight_)
{
}

template <class Stage>
void FramePipeline::startStage(std::vector<std::thread>& threads, Stage stage)
{
    threads.emplace_back([this, stage] {
        try {
            (this->*stage)();
        } catch (...) {
            fail(std::current_exception());
        }
    });
}

std::int64_t FramePipeline::run(Media::iFrameWriter& writer)
{
    writer_ = &writer;
    makeHostImages();
    std::vector<std::thread> threads;
    try {
        startStage(threads, &FramePipeline::decode);
        startStage(threads, &FramePipeline::pack);
        startStage(threads, &FramePipeline::convert);
        startStage(threads, &FramePipeline::encode);
    } catch (const std::system_error&) {
        fail(std::make_exception_ptr(Failure(ExitCode::failed, "cannot start another thread")));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    if (failure_) {
        std::rethrow_exception(failure_);
    }
    return written_;
}

void FramePipeline::stop()
{
    stopped_ = true;
    cancel();
}

void FramePipeline::fail(std::exception_ptr failure)
{
    {
        const std::lock_guard lock(mutex_);
        if (!failure_) {
            failure_ = std::move(failure);
        }
    }
    cancel();
}

void FramePipeline::cancel()
{
    decoded_.cancel();
    free_.cancel();
    packed_.cancel();
    converted_.cancel();
}

void FramePipeline::makeHostImages()
{
    for (std::size_t i = 0; i < inFlight_; ++i) {
        Qx::Ptr<iHostImage> image = OS().gpu().createHostImage({(width_ + 1) / 2, height_}, format_);
        if (!image) {
            failOnDevice(width_, height_);
        }
        free_.push(std::move(image));
    }
}

void FramePipeline::decode()
{
    Media::Frame frame;
    std::int64_t taken = 0;
    for (std::int64_t n = 0; job_.frames == 0 || taken < job_.frames; ++n) {
        const Media::ClipReader::Next next = job_.reader.next(frame);
        if (next == Media::ClipReader::Next::failed) {
            throw Failure(ExitCode::input, job_.reader.failure());
        }
        if (next == Media::ClipReader::Next::end) {
            break;
        }
        if (n >= job_.start) {
            ++taken;
            if (!decoded_.push(std::move(frame))) {
                return;
            }
        } else if (stopped_) {
            return;
        }
    }
    decoded_.close();
}

void FramePipeline::pack()
{
    Media::FramePacker packer(job_.source);
    while (std::optional<Media::Frame> frame = decoded_.pop()) {
        std::optional<Qx::Ptr<iHostImage>> image = free_.pop();
        if (!image) {
            return;
        }
        void* rows = (*image)->map(iHostImage::Write);
        if (rows == nullptr) {
            failOnDevice(width_, height_);
        }
        const Media::Status packed =
            packer.pack(*frame, rows, static_cast<std::ptrdiff_t>((*image)->getPitch()));
        if (!packed) {
            throw Failure(ExitCode::input, packed.text());
        }
        if (!packed_.push({std::move(*image), frame->time()})) {
            return;
        }
    }
    packed_.close();
}

Surface FramePipeline::describe(const Packed& frame) const
{
    const bool deep = format_ == iGPUImage::eARGB16;
    Surface surface;
    surface.init(static_cast<unsigned>(width_), static_cast<unsigned>(height_), Image::YUY2, false,
                 deep ? 16 : 8, deep ? 32 : 16, 0);
    surface.setRowPitch(static_cast<std::uint32_t>(frame.image->getPitch()));
    surface.setHostImage(frame.image);
    surface.setColourSpace(job_.source.matrix == Media::Matrix::bt601 ? ColourSpace::BT601
                                                                      : ColourSpace::BT709);
    surface.setGamutScaling(job_.source.range == Media::Range::video ? GamutScaling::Video
                                                                     : GamutScaling::Unscaled);
    surface.setPolarity(polarityOf(frame.time.fieldOrder));
    surface.setTransparency(Image::TransparencyType::Opaque);
    return surface;
}

Surface FramePipeline::toRGB(const Packed& frame) const
{
    const Surface source = describe(frame).uploadToGPU();
    Surface picture = source.createDestARGBGPUSurface(format_);
    if (!source.getGPUSurface() || !picture.getGPUSurface()) {
        failOnDevice(width_, height_);
    }
    // The conversion answers that a technique was there, not that it was drawn.
    const std::uint64_t drawnBefore = drawsSoFar();
    if (!Image::ColourConversion::convertYCrCb422ToRGB(source, picture, job_.outputRange, job_.filter)) {
        throw Failure(ExitCode::effect,
                      "ColourConvert.fx: cannot be used for this conversion; is it installed "
                      "whole? 'qxhost effects list' shows where effects come from");
    }
    if (drawsSoFar() == drawnBefore) {
        failOnDevice(width_, height_);
    }
    return picture;
}

void FramePipeline::convert()
{
    while (std::optional<Packed> frame = packed_.pop()) {
        const Surface picture = job_.effects.apply(toRGB(*frame), format_);
        Surface result = picture.copyToHost();
        if (!result.getHostImage()) {
            failOnDevice(width_, height_);
        }
        // Whoever maps the image for writing waits for its upload.
        if (!free_.push(std::move(frame->image)) || !converted_.push({std::move(result), frame->time})) {
            return;
        }
    }
    converted_.close();
}

void FramePipeline::encode()
{
    while (std::optional<Converted> frame = converted_.pop()) {
        const Qx::Ptr<iHostImage> image = frame->picture.getHostImage();
        const void* rows = image->map(iHostImage::Read);
        if (rows == nullptr) {
            failOnDevice(width_, height_);
        }
        const Media::Status status =
            writer_->write(rows, static_cast<std::ptrdiff_t>(image->getPitch()), frame->time);
        if (!status) {
            throw Failure(ExitCode::output, status.text());
        }
        ++written_;
        onFrame_(written_);
    }
}

} // namespace Qx::Program
