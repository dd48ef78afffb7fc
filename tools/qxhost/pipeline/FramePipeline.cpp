#include "tools/qxhost/pipeline/FramePipeline.h"

#include "host/gpu/FloatImages.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/effects/NullEffect.h"
#include "tools/qxhost/pipeline/input/PairsToPicture.h"

#include <algorithm>
#include <string>
#include <utility>

namespace Qx::Program {

namespace {

using Image::Surface;

/// Frames between two stages: enough to decouple the stages, within a memory budget.
std::size_t framesInFlight(int width, int height, std::size_t componentBytes)
{
    constexpr std::size_t budget = std::size_t{256} << 20U;
    constexpr std::size_t fewest = 2;
    constexpr std::size_t most = 3;
    const std::size_t frame =
        static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4 * componentBytes;
    return std::clamp(budget / std::max<std::size_t>(frame, 1), fewest, most);
}

} // namespace

FramePipeline::FramePipeline(const ConversionJob& job, std::function<void(std::int64_t)> onFrame)
    : job_(job),
      onFrame_(std::move(onFrame)),
      width_(job.input.info().width),
      height_(job.input.info().height),
      format_(job.floats                         ? Host::floatTexels
              : job.tenBits                      ? iGPUImage::eARGB10
              : job.depth == Media::Depth::bits8 ? iGPUImage::eARGB8
                                                 : iGPUImage::eARGB16),
      inFlight_(framesInFlight(width_, height_,
                               job.floats                                ? sizeof(float)
                               : job.source.depth == Media::Depth::bits8 ? 1
                                                                         : 2)),
      upload_(job.input.prepare(job.source), job.source, job.input.codeBits(job.source)),
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
    if (needsDevice()) {
        makeHostImages();
    }
    std::vector<std::thread> threads;
    try {
        startStage(threads, &FramePipeline::decode);
        if (job_.keepFrames) {
            startStage(threads, &FramePipeline::encodeDecoded);
        } else if (job_.packOnly) {
            startStage(threads, &FramePipeline::encodePacked);
        } else {
            startStage(threads, &FramePipeline::pack);
            startStage(threads, &FramePipeline::convert);
            startStage(threads, &FramePipeline::encode);
        }
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

Qx::Ptr<iHostImage> FramePipeline::makeHostImage() const
{
    return job_.floats ? makeFloatImage(width_, height_) : upload_.makeHostImage();
}

void FramePipeline::makeHostImages()
{
    for (std::size_t i = 0; i < inFlight_; ++i) {
        Qx::Ptr<iHostImage> image = makeHostImage();
        if (!image) {
            failOnDevice(width_, height_);
        }
        free_.push(std::move(image));
    }
}

void FramePipeline::decode()
{
    const Media::StreamInfo& info = job_.input.info();
    Media::Frame frame;
    RangeLimit limit(job_.range, info.firstPts);
    bool hasMore = true;
    while (!limit.isFull()) {
        const std::int64_t taken = limit.taken();
        const iFrameInput::Next next = job_.input.next(frame);
        if (next == iFrameInput::Next::failed) {
            inputFailure_ = failureOfInput(job_.start + taken, taken);
        }
        if (next != iFrameInput::Next::frame) {
            endedEarly_ = limit.isUnreached() || job_.input.hasEndedEarly();
            hasMore = false;
            break;
        }
        if (!limit.take(frame.time())) {
            break;
        }
        const std::int64_t pts = frame.time().pts;
        const double seconds = static_cast<double>(pts - info.firstPts) * info.timeBase.toDouble();
        if (!decoded_.push({std::move(frame), {frameNumber(info, pts, job_.start + taken), seconds}})) {
            return;
        }
    }
    if (hasMore) {
        job_.input.readAudioUpTo(limit.reached());
    }
    decoded_.close();
}

/// `given`: frames that the input gave; `taken`: those of them that are converted.
std::string FramePipeline::failureOfInput(std::int64_t given, std::int64_t taken) const
{
    std::string text = job_.input.failure();
    if (taken > 0) {
        text += "; --frames " + std::to_string(taken) + " converts what is before it";
    } else if (given > 0) {
        text += "; it has " + std::to_string(given) + (given == 1 ? " frame" : " frames") +
                " before that, choose a smaller --start";
    }
    return text;
}

void FramePipeline::pack()
{
    while (std::optional<Decoded> decoded = decoded_.pop()) {
        const Media::Frame& frame = decoded->frame;
        std::optional<Qx::Ptr<iHostImage>> image = free_.pop();
        if (!image) {
            return;
        }
        void* rows = (*image)->map(iHostImage::Write);
        if (rows == nullptr) {
            failOnDevice(width_, height_);
        }
        const auto pitch = static_cast<std::ptrdiff_t>((*image)->getPitch());
        Media::Status packed;
        if (job_.floats) {
            job_.input.placeFloats(frame, rows, pitch);
        } else {
            packed = job_.input.place(frame, rows, pitch);
        }
        if (!packed) {
            throw Failure(ExitCode::input, packed.text());
        }
        if (!packed_.push({std::move(*image), job_.input.formOf(frame), frame.time(), decoded->moment})) {
            return;
        }
    }
    packed_.close();
}

Surface FramePipeline::uploaded(const Packed& frame) const
{
    if (!job_.floats) {
        return job_.source.fullChroma ? upload_.uploadAsIs(frame.image, frame.time)
                                      : upload_.upload(frame.image, frame.time, format_);
    }
    return uploadFloats(frame.image);
}

Surface FramePipeline::decoded(const Surface& frame, const Media::FramePacker::CodeForm& form) const
{
    const Media::FramePacker::Target& source = job_.source;
    if (job_.floats) {
        return frame;
    }
    if (source.fullChroma) {
        return fullChromaToPicture(frame, form, source, format_, job_.outputRange);
    }
    return upload_.isYCrCb() ? toPicture(frame, form, source.matrix, format_, job_.outputRange, job_.filter)
                             : frame;
}

bool FramePipeline::convertFrame(const Packed& frame)
{
    const Surface uploaded = this->uploaded(frame);
    if (job_.keepCodes) {
        return converted_.push({job_.delivery->fromPairs(uploaded), frame.time});
    }
    const Media::Rational rate = job_.input.info().frameRate;
    const Surface picture = job_.effects.apply(decoded(uploaded, frame.form), format_,
                                               {.seconds = frame.moment.seconds,
                                                .frameSeconds = rate.num > 0 ? 1 / rate.toDouble() : 0,
                                                .number = frame.moment.number});
    if (isRunUp(frame.time)) {
        return true;
    }
    const Media::Range range =
        job_.outputRange == Image::GamutScaling::Video ? Media::Range::video : Media::Range::full;
    for (const std::unique_ptr<BurnIn>& burnIn : job_.burnIns) {
        burnIn->draw(picture, frame.moment.number, range);
    }
    bool going = true;
    runStep(job_.step, picture, frame.time, [&](const Surface& made, const Media::FrameTime& time) {
        const bool becomesCodes = job_.floats && job_.delivery != nullptr;
        const Surface codes = becomesCodes ? atDepth(made, iGPUImage::eARGB16, range) : made;
        Surface result =
            job_.delivery != nullptr ? job_.delivery->fromPicture(codes, range) : codes.copyToHost();
        if (!result.getHostImage()) {
            failOnDevice(width_, height_);
        }
        going = going && converted_.push({std::move(result), time});
    });
    return going;
}

void FramePipeline::convert()
{
    while (std::optional<Packed> frame = packed_.pop()) {
        // Mapping the image for writing waits for its upload.
        if (!convertFrame(*frame) || !free_.push(std::move(frame->image))) {
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
            write({rows, static_cast<std::ptrdiff_t>(image->getPitch()),
                   static_cast<int>(frame->picture.getWidth()), static_cast<int>(frame->picture.getHeight())},
                  frame->time);
        if (!status) {
            throw Failure(ExitCode::output, status.text());
        }
        countWritten(frame->time);
    }
}

Media::Status FramePipeline::write(const Media::FloatRows& frame, const Media::FrameTime& time)
{
    if (!job_.floats || job_.writesFloats || job_.delivery != nullptr) {
        return writer_->write(frame.rows, frame.pitch, time);
    }
    const auto codesOfRow = std::size_t{4} * static_cast<std::size_t>(frame.width);
    const auto codesPitch = static_cast<std::ptrdiff_t>(codesOfRow * sizeof(std::uint16_t));
    codes_.resize(codesOfRow * static_cast<std::size_t>(frame.height));
    Media::codesFrom(frame, codes_.data(), codesPitch, clipped_);
    return writer_->write(codes_.data(), codesPitch, time);
}

/// Whether the frame is not written, but only has what comes after it know it.
bool FramePipeline::isRunUp(const Media::FrameTime& time) const
{
    return job_.writeFrom && time.pts < *job_.writeFrom;
}

void FramePipeline::countWritten(const Media::FrameTime& time)
{
    firstTime_ = written_ == 0 ? time : firstTime_;
    lastTime_ = time;
    ++written_;
    onFrame_(written_);
}

void FramePipeline::encodeDecoded()
{
    while (std::optional<Decoded> decoded = decoded_.pop()) {
        if (isRunUp(decoded->frame.time())) {
            continue;
        }
        const Media::Status status =
            writer_->writeDecoded(decoded->frame, job_.source.rangeOf(decoded->frame));
        if (!status) {
            throw Failure(ExitCode::output, status.text());
        }
        countWritten(decoded->frame.time());
    }
}

void FramePipeline::encodePacked()
{
    const std::size_t pitch = Media::FramePacker::rowBytes(width_, job_.source.depth);
    std::vector<std::byte> rows(pitch * static_cast<std::size_t>(height_));
    while (std::optional<Decoded> decoded = decoded_.pop()) {
        const Media::Frame& frame = decoded->frame;
        if (isRunUp(frame.time())) {
            continue;
        }
        const Media::Status packed = job_.input.place(frame, rows.data(), static_cast<std::ptrdiff_t>(pitch));
        if (!packed) {
            throw Failure(ExitCode::input, packed.text());
        }
        const Media::Status status =
            writer_->write(rows.data(), static_cast<std::ptrdiff_t>(pitch), frame.time());
        if (!status) {
            throw Failure(ExitCode::output, status.text());
        }
        countWritten(frame.time());
    }
}

} // namespace Qx::Program
