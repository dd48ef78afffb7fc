#include "tools/qxhost/pipeline/input/FrameInput.h"

#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/media/filter/FilteredClip.h"
#include "tools/qxhost/media/read/RawReader.h"
#include "tools/qxhost/media/rows/FloatPicture.h"
#include "tools/qxhost/media/rows/RgbPacker.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <map>
#include <mutex>

namespace Qx::Program {

namespace {

const PixelFormat& require(const std::optional<PixelFormat>& format)
{
    return *format;
}

/// A clip or picture, decoded by FFmpeg: RGB as A R G B, everything else as YUY2.
class ClipInput final : public iFrameInput
{
public:
    explicit ClipInput(std::unique_ptr<Media::ClipReader> reader) : reader_(std::move(reader)) {}

    const Media::StreamInfo& info() const override { return filtered_ ? filtered_->info() : reader_->info(); }

    Media::ClipPlace skipTo(const Media::SeekTarget& target) override { return reader_->skipTo(target); }

    Image::Core::Data prepare(const Media::FramePacker::Target& source) override
    {
        source_ = source;
        packer_.emplace(source);
        const bool deep = source.depth == Media::Depth::bits16;
        const Image::Format format = holdsRgb(info()) || source.fullChroma ? Image::ARGB : Image::YUY2;
        return describeFrame({Host::findFormat(format), deep ? 16U : 8U}, static_cast<unsigned>(info().width),
                             static_cast<unsigned>(info().height));
    }

    int codeBits(const Media::FramePacker::Target& source) const override { return source.codeBits(); }

    Media::FramePacker::CodeForm formOf(const Media::Frame& frame) const override
    {
        return packer_->formOf(frame);
    }

    std::vector<std::string> filter(const std::string& graph, const std::string& option,
                                    const FrameRange& range) override
    {
        limit_ = RangeLimit(range, reader_->info().firstPts);
        auto made = Media::FilteredClip::make(graph, option, reader_->info(),
                                              [this](Media::Frame& frame) { return nextPicked(frame); });
        if (!made) {
            const std::string& failure = reader_->failure();
            throw Failure(failure.empty() ? ExitCode::usage : ExitCode::input,
                          failure.empty() ? made.text() : failure);
        }
        filtered_ = std::move(made.value());
        return filtered_->notes();
    }

    bool hasEndedEarly() const override { return hasEndedEarly_; }

    Next next(Media::Frame& frame) override
    {
        return filtered_ ? filtered_->next(frame) : reader_->next(frame);
    }

    void readAudioUpTo(std::int64_t pts) override { reader_->readAudioUpTo(pts); }

    std::vector<Media::ShownFrame> readTimes() override
    {
        auto times = reader_->readTimes();
        if (!times) {
            throw Failure(ExitCode::input, times.text());
        }
        return std::move(times.value());
    }

    Media::Status place(const Media::Frame& frame, void* rows, std::ptrdiff_t pitch) override
    {
        return holdsRgb(info()) ? Media::packRgb(frame, source_, rows, pitch)
                                : packer_->pack(frame, rows, pitch);
    }

    void placeFloats(const Media::Frame& frame, void* rows, std::ptrdiff_t pitch) override
    {
        placesFloats_ = true;
        if (Media::hasFloatPlanes(*frame.picture())) {
            Media::placeFloats(*frame.picture(), rows, pitch);
            return;
        }
        // A picture of whole numbers among those of floats.
        const std::size_t codesOfRow = std::size_t{4} * static_cast<std::size_t>(info().width);
        std::vector<std::uint16_t> codes(codesOfRow * static_cast<std::size_t>(info().height));
        const Media::FramePacker::Target target{.depth = Media::Depth::bits16, .range = source_.range};
        static_cast<void>(Media::packRgb(frame, target, codes.data(),
                                         static_cast<std::ptrdiff_t>(codesOfRow * sizeof codes[0])));
        for (std::size_t i = 0; i < codes.size(); ++i) {
            constexpr float white = 65535;
            auto* const row = reinterpret_cast<float*>(static_cast<std::byte*>(rows) +
                                                       static_cast<std::ptrdiff_t>(i / codesOfRow) * pitch);
            row[i % codesOfRow] = static_cast<float>(codes[i]) / white;
        }
    }

    const std::string& failure() const override
    {
        return filtered_ && !filtered_->failure().empty() ? filtered_->failure() : reader_->failure();
    }
    std::int64_t problemCount() const override { return reader_->problemCount(); }
    const std::vector<std::string>& problems() const override { return reader_->problems(); }
    /// What was placed as floats was not clipped, and what was filtered as floats was clipped behind the
    /// filters.
    std::vector<std::string> remarks() const override
    {
        const bool isFiltered = filtered_ && filtered_->info().hasFloats;
        if (!placesFloats_ && !isFiltered) {
            return reader_->remarks();
        }
        std::vector<std::string> remarks = reader_->remarksOnTimes();
        const std::string text =
            isFiltered && !placesFloats_ ? Media::clippedText(filtered_->clipped()) : std::string();
        if (!text.empty()) {
            remarks.push_back("behind the filters: " + text);
        }
        return remarks;
    }
    std::shared_ptr<Media::FileSet> files() const override { return reader_->files(); }
    std::shared_ptr<Media::AudioQueue> audio() const override { return reader_->audio(); }

private:
    /// The next frame of the range, for the filters.
    Next nextPicked(Media::Frame& frame)
    {
        const Next next = limit_.isFull() ? Next::end : reader_->next(frame);
        if (next == Next::end && !limit_.isFull()) {
            hasEndedEarly_ = limit_.isUnreached();
            return next;
        }
        if (next == Next::frame && limit_.take(frame.time())) {
            return next;
        }
        if (next != Next::failed) {
            reader_->readAudioUpTo(limit_.reached());
            return Next::end;
        }
        return next;
    }

    std::unique_ptr<Media::ClipReader> reader_;
    std::unique_ptr<Media::FilteredClip> filtered_; ///< null: frames are as they are decoded
    RangeLimit limit_;                              ///< of the frames that are filtered
    bool hasEndedEarly_ = false;
    bool placesFloats_ = false;
    Media::FramePacker::Target source_;
    std::optional<Media::FramePacker> packer_;
};

/// Raw frames have no tags: their properties come from the user's options.
Media::StreamInfo describeRaw(const RawInputOptions& raw, std::int64_t frames)
{
    Media::StreamInfo info;
    info.width = static_cast<int>(raw.width);
    info.height = static_cast<int>(raw.height);
    info.frameRate = raw.frameRate.value_or(Media::Rational{25, 1});
    info.timeBase = {info.frameRate.den, info.frameRate.num};
    info.frameCount = frames;
    info.frameCountIsExact = frames > 0;
    info.duration = static_cast<double>(frames) / info.frameRate.toDouble();
    const PixelFormat& format = require(raw.format);
    const bool yCrCb = format.isYCrCb();
    info.colour.matrix = Media::matrixForWidth(info.width);
    info.colour.rangeGuessed = true;
    info.colour.matrixGuessed = yCrCb;
    info.colour.fromRgb = !yCrCb;
    info.pixelFormat = format.name();
    info.codec = "raw";
    info.container = "raw";
    info.bitsPerComponent = static_cast<int>(format.bits);
    info.naturalDepth = format.isDeep() ? Media::Depth::bits16 : Media::Depth::bits8;
    info.packingDepth = info.naturalDepth;
    info.packsCodes = yCrCb;
    info.hasAlpha = std::strchr(format.info->order, 'A') != nullptr;
    info.hasFullChroma = !yCrCb;
    return info;
}

/// A raw file of frames of a pixel format, which are uploaded unchanged.
class RawInput final : public iFrameInput
{
public:
    RawInput(std::unique_ptr<Media::RawReader> reader, const RawInputOptions& raw)
        : reader_(std::move(reader)),
          format_(require(raw.format)),
          info_(describeRaw(raw, reader_->frameCount()))
    {
    }

    const Media::StreamInfo& info() const override { return info_; }

    Media::ClipPlace skipTo(const Media::SeekTarget& target) override
    {
        const std::int64_t wanted = target.pts.value_or(target.frame);
        if (reader_->isPipe()) {
            while (given_ < wanted && reader_->readNext()) {
                ++given_;
            }
        } else {
            given_ = std::min(wanted, reader_->frameCount());
        }
        return {given_, given_};
    }

    std::vector<std::string> filter(const std::string& /*graph*/, const std::string& option,
                                    const FrameRange& /*range*/) override
    {
        throw Failure(ExitCode::usage, option + ": raw frames cannot be filtered before they are converted; "
                                                "use --after");
    }

    Image::Core::Data prepare(const Media::FramePacker::Target& source) override
    {
        bits_ = source.bits;
        return describeFrame(format_, static_cast<unsigned>(info_.width),
                             static_cast<unsigned>(info_.height));
    }

    int codeBits(const Media::FramePacker::Target& /*source*/) const override
    {
        return static_cast<int>(format_.bits);
    }

    Media::FramePacker::CodeForm formOf(const Media::Frame& /*frame*/) const override
    {
        const int sampleBits = format_.isDeep() ? 16 : 8;
        return {.bits = bits_ != 0 ? bits_ : sampleBits, .halfChroma = false};
    }

    Next next(Media::Frame& frame) override
    {
        const bool hasFrame = reader_->isPipe() ? readAhead() : given_ < reader_->frameCount();
        if (!reader_->failure().empty()) {
            return Next::failed;
        }
        if (!hasFrame) {
            if (problems_.empty() && !reader_->remainder().empty()) {
                problems_.push_back(reader_->remainder());
            }
            return Next::end;
        }
        frame = Media::Frame({}, {given_++, 1, Media::FieldOrder::progressive}, false);
        return Next::frame;
    }

    void readAudioUpTo(std::int64_t /*pts*/) override {}

    std::vector<Media::ShownFrame> readTimes() override
    {
        std::vector<Media::ShownFrame> times;
        for (std::int64_t i = 0; i < reader_->frameCount(); ++i) {
            times.push_back({i, true});
        }
        return times;
    }

    Media::Status place(const Media::Frame& frame, void* rows, std::ptrdiff_t pitch) override
    {
        if (!reader_->isPipe()) {
            return reader_->read(frame.time().pts, rows, pitch);
        }
        std::shared_ptr<const std::vector<std::byte>> bytes;
        {
            const std::lock_guard lock(mutex_);
            bytes = ahead_.extract(frame.time().pts).mapped();
        }
        reader_->scatter(*bytes, rows, pitch);
        return {};
    }

    const std::string& failure() const override { return reader_->failure(); }
    std::int64_t problemCount() const override { return static_cast<std::int64_t>(problems_.size()); }
    const std::vector<std::string>& problems() const override { return problems_; }
    std::shared_ptr<Media::FileSet> files() const override { return reader_->files(); }
    std::shared_ptr<Media::AudioQueue> audio() const override { return nullptr; }

private:
    /// The next frame of a pipe, for place(). Returns false if there is none.
    bool readAhead()
    {
        auto bytes = reader_->readNext();
        if (!bytes) {
            return false;
        }
        const std::lock_guard lock(mutex_);
        ahead_[given_] = std::move(bytes);
        return true;
    }

    std::unique_ptr<Media::RawReader> reader_;
    std::mutex mutex_;
    std::map<std::int64_t, std::shared_ptr<const std::vector<std::byte>>> ahead_; ///< of a pipe, by number
    PixelFormat format_;
    Media::StreamInfo info_;
    std::vector<std::string> problems_;
    std::int64_t given_ = 0;
    int bits_ = 0; ///< of the codes' levels once they are on the GPU; 0: all of a sample
};

std::unique_ptr<iFrameInput> openRaw(const ConvertOptions& options)
{
    const RawInputOptions& raw = options.raw;
    const PixelFormat& format = require(raw.format);
    if (raw.width == 0) {
        throw Failure(ExitCode::usage, options.inputName() + ": the size of its " + format.name() +
                                           " frames is not given; add " + raw.sizeOption + " WxH, as in " +
                                           raw.sizeOption + " 1920x1080");
    }
    if (raw.width > Media::ClipReader::largestSide || raw.height > Media::ClipReader::largestSide) {
        throw Failure(ExitCode::usage,
                      fmt::format("{} {}x{}: the largest picture that is read is {} each way", raw.sizeOption,
                                  raw.width, raw.height, Media::ClipReader::largestSide));
    }
    auto reader = Media::RawReader::open(
        options.input,
        storedLayout(format, raw.width, raw.height, static_cast<std::size_t>(raw.rowBytes), "--row-bytes"),
        static_cast<int>(raw.width), static_cast<int>(raw.height));
    if (!reader) {
        throw Failure(ExitCode::input, reader.text());
    }
    return std::make_unique<RawInput>(std::move(reader.value()), raw);
}

/// Refuses options that only raw input takes.
void refuseRawOptions(const RawInputOptions& raw, bool isSequence)
{
    const char* option = raw.width != 0                 ? raw.sizeOption
                         : raw.rowBytes != 0            ? "--row-bytes"
                         : raw.frameRate && !isSequence ? "--fps"
                                                        : nullptr;
    if (option != nullptr) {
        throw Failure(
            ExitCode::usage,
            std::string(option) +
                (raw.frameRate && option == std::string("--fps")
                     ? ": is for raw frames (--raw) and numbered pictures; clips have a rate of their own, "
                       "which --before fps=N changes"
                     : ": describes raw frames; add --raw FORMAT ('qxhost formats' lists them)"));
    }
}

/// Refuses options that only numbered pictures take.
void refuseSequenceOptions(const ConvertOptions& options)
{
    const SequenceOptions& sequence = options.sequence;
    const bool isSequence = Media::ClipReader::isSequence(options.input);
    if (sequence.startNumber && !isSequence) {
        throw Failure(ExitCode::usage,
                      "--start-number: says with which of numbered pictures the input begins, and " +
                          options.inputName() +
                          " is no pattern such as shot_%05d.png; --renumber numbers pictures that "
                          "are written, --start picks frames");
    }
    if (sequence.missing != Media::MissingPictures::end && !isSequence) {
        throw Failure(ExitCode::usage, "--missing: is for numbered pictures, and " + options.inputName() +
                                           " is no pattern such as shot_%05d.png");
    }
}

/// What to do if a pipe that holds no clip holds raw frames.
std::string ofRawFrames(const RawInputOptions& raw)
{
    return fmt::format("; raw frames need --raw FORMAT and {0} WxH, as in --raw uyvy {0} 1920x1080",
                       raw.sizeOption);
}

} // namespace

bool holdsRgb(const Media::StreamInfo& info)
{
    return info.colour.fromRgb && info.hasFullChroma;
}

bool holdsFullChroma(const Media::StreamInfo& info)
{
    return !holdsRgb(info) && (info.hasFullChroma || info.hasAlpha);
}

std::unique_ptr<iFrameInput> openFrameInput(const ConvertOptions& options, bool keepAudio)
{
    if (options.raw.format) {
        return openRaw(options);
    }
    refuseRawOptions(options.raw, Media::ClipReader::isSequence(options.input));
    refuseSequenceOptions(options);
    auto reader =
        Media::ClipReader::open(options.input, {.threads = 0,
                                                .keepAudio = keepAudio,
                                                .mayBeStandardInput = true,
                                                .ofPipesWithoutClip = ofRawFrames(options.raw),
                                                .keepsFloats = !options.depth, // which asks for codes
                                                .sequenceRate = options.raw.frameRate,
                                                .startNumber = options.sequence.startNumber,
                                                .missing = options.sequence.missing});
    if (!reader) {
        throw Failure(ExitCode::input, reader.text());
    }
    return std::make_unique<ClipInput>(std::move(reader.value()));
}

} // namespace Qx::Program
