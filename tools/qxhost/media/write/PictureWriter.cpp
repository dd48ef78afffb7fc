#include "tools/qxhost/media/write/PictureWriter.h"

#include "tools/qxhost/media/files/Names.h"
#include "tools/qxhost/media/write/EncoderChoice.h"
#include "tools/qxhost/media/write/EncoderOptions.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <system_error>
#include <utility>

namespace Qx::Media {

namespace {

struct PictureKind
{
    std::string_view extension;
    const char* encoder;
    AVCodecID codec;
    bool holdsAspect; ///< of its pixels
};

constexpr std::array kinds{
    PictureKind{"png", "png", AV_CODEC_ID_PNG, true},
    PictureKind{"tif", "tiff", AV_CODEC_ID_TIFF, true},
    PictureKind{"tiff", "tiff", AV_CODEC_ID_TIFF, true},
    PictureKind{"bmp", "bmp", AV_CODEC_ID_BMP, false},
    PictureKind{"jpg", "mjpeg", AV_CODEC_ID_MJPEG, true},
    PictureKind{"jpeg", "mjpeg", AV_CODEC_ID_MJPEG, true},
    PictureKind{"ppm", "ppm", AV_CODEC_ID_PPM, false},
    PictureKind{"dpx", "dpx", AV_CODEC_ID_DPX, true},
    PictureKind{"exr", "exr", AV_CODEC_ID_EXR, true},
    PictureKind{"tga", "targa", AV_CODEC_ID_TARGA, false},
    PictureKind{"webp", "libwebp", AV_CODEC_ID_WEBP, false},
};

const PictureKind* kindOf(std::string_view extension)
{
    const auto* kind = std::find_if(kinds.begin(), kinds.end(),
                                    [&](const PictureKind& each) { return each.extension == extension; });
    return kind == kinds.end() ? nullptr : kind;
}

/// Whether a later picture would replace a file to keep. Reported before the work starts; each picture is
/// checked again when written.
Status checkKept(const NumberedNames& names, const OutputSettings& settings)
{
    const bool numbered = names.isPattern() || settings.expectedFrames != 1;
    if (!settings.kept || settings.kept->empty() || !numbered) {
        return {};
    }
    for (const long number : names.existing()) {
        const bool written =
            number >= settings.firstNumber &&
            (settings.expectedFrames <= 0 || number < settings.firstNumber + settings.expectedFrames);
        if (written && settings.kept->contains(names.name(number))) {
            return OutputFile::wouldReplaceInput(names.name(number), *settings.kept);
        }
    }
    return {};
}

/// Created before there is a frame, so that an unwritable directory is reported before the work starts.
Result<OutputFile> openFirst(const std::filesystem::path& file, const OutputSettings& settings)
{
    if (settings.standardOutput >= 0) {
        return OutputFile::standardOutput(settings.standardOutput, 0);
    }
    const NumberedNames names(file);
    if (Status status = checkKept(names, settings); !status) {
        return Error{status.text()};
    }
    return OutputFile::create(names.isPattern() ? names.name(settings.firstNumber) : file, settings.force,
                              settings.kept);
}

} // namespace

bool isPictureExtension(const std::string& extension)
{
    return kindOf(extension) != nullptr;
}

std::vector<std::string> pictureExtensions()
{
    std::vector<std::string> extensions;
    for (const PictureKind& kind : kinds) {
        extensions.emplace_back(kind.extension);
    }
    return extensions;
}

Result<const AVCodec*> choosePictureEncoder(const std::string& extension, const OutputSettings& settings)
{
    const PictureKind* kind = kindOf(extension);
    if (!kind) {
        return Error{"unknown picture extension ." + extension};
    }
    const auto codec =
        encoderNamed(settings.encoder.empty() ? kind->encoder : settings.encoder, AVMEDIA_TYPE_VIDEO);
    if (codec && codec.value()->id != kind->codec) {
        return Error{"a ." + extension + " cannot hold " + avcodec_get_name(codec.value()->id) +
                     "; leave out the codec, or choose another ending (.mkv)"};
    }
    return codec;
}

Result<std::unique_ptr<iFrameWriter>> PictureWriter::open(const std::filesystem::path& file,
                                                          const std::string& extension,
                                                          const OutputSettings& settings)
{
    const auto codec = choosePictureEncoder(extension, settings);
    if (!codec) {
        return Error{"cannot write " + quotedOutput(file) + ": " + codec.text()};
    }
    auto made = VideoEncoder::make(*codec.value(), settings, toAv(settings.timeBase), false);
    if (!made) {
        return Error{"cannot write " + quotedOutput(file) + ": " + made.text()};
    }
    auto first = openFirst(file, settings);
    if (!first) {
        return first.error();
    }
    std::unique_ptr<PictureWriter> writer(new PictureWriter(file, settings, std::move(made.value())));
    const Rational& aspect = settings.sampleAspect;
    if (!kindOf(extension)->holdsAspect && aspect.num > 0 && aspect.num != aspect.den) {
        writer->warnings_.push_back("pixel aspect " + std::to_string(aspect.num) + ":" +
                                    std::to_string(aspect.den) + " is left out: ." + extension +
                                    " does not hold it; .png and .tif do");
    }
    writer->first_ = std::move(first.value());
    return std::unique_ptr<iFrameWriter>(std::move(writer));
}

PictureWriter::PictureWriter(const std::filesystem::path& file, const OutputSettings& settings,
                             VideoEncoder encoder)
    : file_(file),
      names_(file),
      force_(settings.force),
      kept_(settings.kept),
      encoder_(std::move(encoder)),
      firstNumber_(settings.firstNumber),
      numbersByTime_(settings.numbersByTime),
      frames_(toAv(settings.frameRate))
{
    if (encoder_.dropsAlpha()) {
        warnings_.push_back("alpha is left out: " + encoder_.description() + " cannot hold it");
    }
    if (std::string idle = ditherIsIdle(encoder_.context(), settings); !idle.empty()) {
        warnings_.push_back(std::move(idle));
    }
    if (std::string steps = highDynamicRangeSteps(encoder_.context(), settings); !steps.empty()) {
        warnings_.push_back(std::move(steps));
    }
    if (settings.rgbRange == Range::video && ComponentRows(encoder_.context().pix_fmt).isRgb()) {
        warnings_.push_back("colour tags (range video) are left out: " + encoder_.description() +
                            " does not hold them, and readers assume full range; read it with --range video");
    }
    if (settings.orientation) {
        warnings_.push_back(orientationIsLost(*settings.orientation));
    }
    if (settings.audio && !settings.audio->tracks().empty()) {
        warnings_.emplace_back("audio is left out: pictures cannot hold it");
    }
}

Status PictureWriter::write(const void* rows, std::ptrdiff_t pitch, const FrameTime& time)
{
    return encoder_.encode(rows, pitch, time, [this](const AVPacket& packet) { return take(packet); });
}

/// Syncing and renaming a picture takes a disk's time and no processor's, so the next one is encoded
/// meanwhile.
Status PictureWriter::complete(OutputFile picture)
{
    if (Status status = awaitCompletion(); !status) {
        return status;
    }
    completing_ = picture.file();
    const auto moved = std::make_shared<OutputFile>(std::move(picture));
    const auto commit = [moved] { return moved->commit(OutputFile::DirectorySync::Later); };
    try {
        completion_ = std::async(std::launch::async, commit);
        return {};
    } catch (const std::system_error&) { // no thread can be started
        completion_ = std::async(std::launch::deferred, commit);
        return awaitCompletion();
    }
}

Status PictureWriter::awaitCompletion()
{
    Status status = completion_.valid() ? completion_.get() : Status();
    if (status && !completing_.empty()) {
        lastDone_ = std::exchange(completing_, {});
        firstDone_ = firstDone_.empty() ? lastDone_ : firstDone_;
    }
    return status;
}

long PictureWriter::numberFor(const AVPacket& packet)
{
    if (taken_ == 1) {
        firstTime_ = packet.pts;
        return firstNumber_;
    }
    if (!numbersByTime_ || packet.pts == AV_NOPTS_VALUE) {
        return number_ + 1;
    }
    const std::int64_t passed =
        av_rescale_q(av_sat_sub64(packet.pts, firstTime_), encoder_.context().time_base, av_inv_q(frames_));
    return std::max(number_ + 1, firstNumber_ + static_cast<long>(passed));
}

Status PictureWriter::take(const AVPacket& packet)
{
    ++taken_;
    number_ = numberFor(packet);
    const auto size = static_cast<std::size_t>(packet.size);
    if (first_ && first_->isStandardOutput()) {
        return first_->write(packet.data, size);
    }
    if (taken_ == 1) {
        if (Status status = first_->write(packet.data, size); !status || !names_.isPattern()) {
            return status;
        }
        return complete(std::move(*first_));
    }
    if (taken_ == 2 && !names_.isPattern()) {
        if (Status status = first_->retarget(names_.name(firstNumber_)); !status) {
            return status;
        }
        if (Status status = complete(std::move(*first_)); !status) {
            return status;
        }
    }
    auto picture = OutputFile::create(names_.name(number_), force_, kept_);
    if (!picture) {
        return picture.error();
    }
    if (Status status = picture.value().write(packet.data, size); !status) {
        return status;
    }
    return complete(std::move(picture.value()));
}

Status PictureWriter::finish()
{
    if (Status status = encoder_.flush([this](const AVPacket& packet) { return take(packet); }); !status) {
        return status;
    }
    if (taken_ == 0) {
        return Error{"cannot write " + quotedOutput(file_) + ": there was no frame to write"};
    }
    if (first_ && first_->isStandardOutput()) {
        return {};
    }
    if (taken_ == 1 && !names_.isPattern()) {
        if (Status status = complete(std::move(*first_)); !status) {
            return status;
        }
    }
    Status status = awaitCompletion();
    return status ? OutputFile::syncDirectory(lastDone_) : status;
}

std::vector<std::filesystem::path> PictureWriter::files() const
{
    if (firstDone_.empty()) {
        return {};
    }
    return firstDone_ == lastDone_ ? std::vector{firstDone_} : std::vector{firstDone_, lastDone_};
}

} // namespace Qx::Media
