#include "tools/qxhost/media/write/FrameWriter.h"

#include "host/core/AsciiCase.h"
#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/files/Names.h"
#include "tools/qxhost/media/files/OutputFile.h"
#include "tools/qxhost/media/rows/ComponentRows.h"
#include "tools/qxhost/media/write/ClipWriter.h"
#include "tools/qxhost/media/write/EncoderChoice.h"
#include "tools/qxhost/media/write/PictureWriter.h"
#include "tools/qxhost/media/write/RawWriter.h"
#include "tools/qxhost/media/write/StoredContainers.h"

#include <algorithm>

namespace Qx::Media {

namespace {

std::string lowerExtension(const std::filesystem::path& file)
{
    std::string text = Host::asciiLower(file.extension().native());
    text.erase(0, 1);
    return text;
}

} // namespace

Result<std::unique_ptr<iFrameWriter>> openWriter(const std::filesystem::path& file,
                                                 const OutputSettings& settings)
{
    captureFfmpegLog();
    if (settings.width <= 0 || settings.height <= 0 || settings.width > 65535 || settings.height > 65535) {
        return Error{"cannot write " + quoted(file) + ": invalid size " + std::to_string(settings.width) +
                     "x" + std::to_string(settings.height) + ": expected 1 to 65535 each way"};
    }
    if (settings.timeBase.num <= 0 || settings.timeBase.den <= 0) {
        return Error{"cannot write " + quoted(file) + ": the time base is not known"};
    }
    const std::string extension = lowerExtension(file);
    if (extension.empty()) {
        return Error{"cannot write " + quoted(file) +
                     ": its name has no extension: expected .png, .mov, .mkv, .mp4 or another"};
    }
    OutputFile::clearAbandoned(file);
    if (settings.stored && writesRawFrames(file, *settings.stored)) {
        return RawWriter::open(file, settings);
    }
    if (isPictureExtension(extension)) {
        if (settings.stored) {
            return Error{"cannot write " + quoted(file) + ": ." + extension +
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
           ", which this kind of file cannot hold; the pictures are written as they are stored";
}

bool writesPictures(const std::filesystem::path& file)
{
    return isPictureExtension(lowerExtension(file));
}

bool writesRawFrames(const std::filesystem::path& file, const StoredLayout& layout)
{
    return isRawExtension(lowerExtension(file), layout.word);
}

Range bestRgbRange(const std::filesystem::path& file, const OutputSettings& settings)
{
    if (writesPictures(file)) {
        return Range::full;
    }
    const std::string extension = lowerExtension(file);
    const AVOutputFormat* container = av_guess_format(nullptr, ("name." + extension).c_str(), nullptr);
    if (!container) {
        return Range::full;
    }
    const auto codec = chooseClipEncoder(extension, *container, settings);
    if (!codec) {
        return Range::full;
    }
    const auto format = choosePixelFormat(*codec.value(), settings);
    return format && !ComponentRows(format.value()).isRgb() && !isJpegFormat(format.value()) ? Range::video
                                                                                             : Range::full;
}

} // namespace Qx::Media