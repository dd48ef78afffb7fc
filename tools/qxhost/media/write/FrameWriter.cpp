#include "tools/qxhost/media/write/FrameWriter.h"

#include "host/core/AsciiCase.h"
#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/files/Names.h"
#include "tools/qxhost/media/files/OutputFile.h"
#include "tools/qxhost/media/rows/ComponentRows.h"
#include "tools/qxhost/media/rows/FloatPicture.h"
#include "tools/qxhost/media/write/AudioChoice.h"
#include "tools/qxhost/media/write/ClipWriter.h"
#include "tools/qxhost/media/write/EncoderChoice.h"
#include "tools/qxhost/media/write/PictureWriter.h"
#include "tools/qxhost/media/write/RawWriter.h"
#include "tools/qxhost/media/write/StoredContainers.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace Qx::Media {

namespace {

std::string lowerExtension(const std::filesystem::path& file)
{
    std::string text = Host::asciiLower(file.extension().native());
    text.erase(0, 1);
    return text;
}

/// What a file's name ends in, or what stands for that.
std::string kindOf(const std::filesystem::path& file, const OutputSettings& settings)
{
    if (file != standardName) {
        return lowerExtension(file);
    }
    return settings.container.empty() ? "nut" : settings.container;
}

/// Whether an encoder takes options, without opening it.
Status tryOptions(const AVCodec& codec, const EncoderOptions& options)
{
    const CodecPtr context(avcodec_alloc_context3(&codec));
    return context ? applyOptions(*context, options) : Status(Error{"out of memory"});
}

Status checkVideo(const std::string& extension, const AVOutputFormat* container,
                  const OutputSettings& settings)
{
    const auto codec = container == nullptr ? choosePictureEncoder(extension, settings)
                                            : chooseClipEncoder(extension, *container, settings);
    if (!codec) {
        return Error{codec.text()};
    }
    const std::string& format = settings.pixelFormat;
    if (!format.empty() && av_get_pix_fmt(format.c_str()) == AV_PIX_FMT_NONE) {
        return Error{noPixelFormat(format)};
    }
    const auto options = optionsFor(*codec.value(), AV_PIX_FMT_NONE, settings);
    return options ? tryOptions(*codec.value(), options.value()) : Status(options.error());
}

Status checkAudio(const AVOutputFormat& container, const OutputSettings& settings)
{
    const bool isNamed = !settings.audioCodec.empty() && settings.audioCodec != "copy";
    if (!isNamed && settings.audioOptions.empty()) {
        return {};
    }
    // Whatever the track: PCM of all depths takes the same options.
    const AVCodecParameters any{};
    const auto codec =
        isNamed ? encoderNamed(settings.audioCodec, AVMEDIA_TYPE_AUDIO) : chooseAudioEncoder(container, any);
    return codec ? tryOptions(*codec.value(), settings.audioOptions) : Status(codec.error());
}

} // namespace

Status checkEncoding(const std::filesystem::path& file, const OutputSettings& settings)
{
    captureFfmpegLog();
    const std::string extension = kindOf(file, settings);
    const bool isPicture = isPictureExtension(extension);
    const AVOutputFormat* container =
        isPicture ? nullptr : av_guess_format(nullptr, ("name." + extension).c_str(), nullptr);
    if (!isPicture && !container) {
        return {}; // openWriter() says it
    }
    Status status = settings.stored ? Status() : checkVideo(extension, container, settings);
    if (status && container) {
        status = checkAudio(*container, settings);
    }
    return status ? status : Status(Error{"cannot write " + quotedOutput(file) + ": " + status.text()});
}

Result<std::unique_ptr<iFrameWriter>> openWriter(const std::filesystem::path& file,
                                                 const OutputSettings& settings)
{
    captureFfmpegLog();
    if (settings.width <= 0 || settings.height <= 0 || settings.width > 65535 || settings.height > 65535) {
        return Error{"cannot write " + quotedOutput(file) + ": invalid size " +
                     std::to_string(settings.width) + "x" + std::to_string(settings.height) +
                     ": expected 1 to 65535 each way"};
    }
    if (settings.timeBase.num <= 0 || settings.timeBase.den <= 0) {
        return Error{"cannot write " + quotedOutput(file) + ": the time base is not known"};
    }
    const std::string extension = kindOf(file, settings);
    if (file == standardName && settings.standardOutput < 0) {
        return Error{"cannot write to standard output here; give a file's name"};
    }
    if (std::error_code unknown; settings.standardOutput < 0 && std::filesystem::is_fifo(file, unknown)) {
        return OutputFile::isPipe(file); // whatever its name ends in
    }
    if (extension.empty()) {
        return Error{"cannot write " + quotedOutput(file) +
                     ": its name has no extension: expected .png, .mov, .mkv, .mp4 or another"};
    }
    if (settings.standardOutput < 0) {
        OutputFile::clearAbandoned(file);
    }
    if (settings.stored && isRawExtension(extension, settings.stored->word)) {
        return RawWriter::open(file, settings);
    }
    if (isPictureExtension(extension)) {
        if (settings.stored) {
            return Error{"cannot write " + quotedOutput(file) + ": ." + extension +
                         " has a layout of its own; leave out --format, or choose a name that ends in .raw"};
        }
        return PictureWriter::open(file, extension, settings);
    }
    return ClipWriter::open(file, extension, settings);
}

std::string orientationIsLost(const Orientation& orientation)
{
    const std::string how = orientation.degrees == 0
                                ? "flipped"
                                : "turned by " + std::to_string(orientation.degrees) + " degrees";
    return "the clip is marked to be shown " + how +
           ", which this kind of file cannot hold; the pictures are written as they are stored; 'qxhost "
           "convert --rotate' "
           "turns them";
}

std::vector<std::string> pipeContainers()
{
    std::vector<std::string> names{"nut", "mkv", "mov", "webm", "ts", "y4m", "raw"};
    const std::vector<std::string> pictures = pictureExtensions();
    names.insert(names.end(), pictures.begin(), pictures.end());
    return names;
}

bool writesPictures(const std::filesystem::path& file)
{
    return isPictureExtension(lowerExtension(file));
}

bool writesRawFrames(const std::filesystem::path& file, const StoredLayout& layout)
{
    return isRawExtension(lowerExtension(file), layout.word);
}

namespace {

/// The encoder of a clip and the pixel format that it would be given; empty if there is none, or no clip.
std::optional<std::pair<const AVCodec*, AVPixelFormat>> encodingOf(const std::filesystem::path& file,
                                                                   const OutputSettings& settings)
{
    const std::string extension = kindOf(file, settings);
    if (settings.stored || isPictureExtension(extension)) {
        return {};
    }
    const AVOutputFormat* container = av_guess_format(nullptr, ("name." + extension).c_str(), nullptr);
    if (!container) {
        return {};
    }
    const auto codec = chooseClipEncoder(extension, *container, settings);
    if (!codec) {
        return {};
    }
    const auto format = choosePixelFormat(*codec.value(), settings);
    return format ? std::optional(std::pair(codec.value(), format.value())) : std::nullopt;
}

} // namespace

bool takesDecoded(const std::filesystem::path& file, const OutputSettings& settings)
{
    const auto encoding = encodingOf(file, settings);
    if (!encoding) {
        return false;
    }
    const ComponentRows rows(encoding->second);
    const bool hasItsAlpha = settings.alpha || !rows.hasAlpha();
    return !rows.isRgb() && !rows.isGrey() && hasItsAlpha &&
           encodedMatrix(encoding->first->id, encoding->second, settings.colour.matrix) ==
               settings.colour.matrix;
}

bool takesFloats(const std::filesystem::path& file, const OutputSettings& settings)
{
    const std::string extension = kindOf(file, settings);
    if (settings.stored || !isPictureExtension(extension)) {
        const auto encoding = encodingOf(file, settings);
        return encoding && codesOfFloats(encoding->second) != AV_PIX_FMT_NONE;
    }
    const auto codec = choosePictureEncoder(extension, settings);
    if (!codec) {
        return false;
    }
    const auto format = choosePixelFormat(*codec.value(), settings);
    return format && codesOfFloats(format.value()) != AV_PIX_FMT_NONE;
}

Range bestRgbRange(const std::filesystem::path& file, const OutputSettings& settings)
{
    const auto encoding = encodingOf(file, settings);
    return encoding && !ComponentRows(encoding->second).isRgb() && !isJpegFormat(encoding->second)
               ? Range::video
               : Range::full;
}

Status iFrameWriter::writeDecoded(const Frame&, Range)
{
    return Error{"this kind of output takes no frames as they are decoded"};
}

} // namespace Qx::Media