#pragma once

#include "host/effects/Supplies.h"
#include "tools/qxhost/console/Console.h"
#include "tools/qxhost/console/ExitCode.h"
#include "tools/qxhost/media/pieces/PieceJoiner.h"
#include "tools/qxhost/media/read/ClipReader.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Program {

/// Converts on a host of its own, with progress and remarks. Returns ExitCode::input if the input is damaged;
/// the output then holds what could be read. Throws Failure.
ExitCode runConversion(const ConvertOptions& options, Console& console);

/// What has become of a segment. Times are the input's, in its units.
struct ConvertedSegment
{
    std::int64_t frames = 0;
    Media::FrameTime first;
    Media::FrameTime last;
    std::vector<std::string> problems; ///< damage of the input, a line each
    std::vector<std::string> remarks;  ///< what there is to say in the end, a line each
};

/// Converts options.segment, without audio if the caller leaves it out of the options, as runConversion()
/// does. Starts `host` if it is null; it serves further segments of the same conversion. Throws Failure.
ConvertedSegment convertSegment(const ConvertOptions& options, std::unique_ptr<HostSession>& host,
                                Console& console);

/// What is known of a conversion before it is split.
struct ConversionPlan
{
    std::vector<Media::ShownFrame> frames;           ///< that are converted, at least one
    std::optional<std::int64_t> after;               ///< the time of the next one, if there is one
    std::int64_t origin = 0;                         ///< from which the times of the output count
    int framesBefore = 0;                            ///< that the effects need before a frame
    std::vector<std::filesystem::path> textureFiles; ///< that the effects read
    std::string container;                           ///< of the input, FFmpeg's name
    std::int64_t frameBytes = 0;                     ///< of a frame in memory, at most
};

/// Checks a conversion as far as that is possible without a frame, and notes what is decided. A HostSession
/// must exist. Throws Failure, also if the conversion cannot be split.
ConversionPlan planConversion(const ConvertOptions& options, Console& console);

/// Joins the pieces that convertSegment() made of a clip into options.output, and adds the audio. Neither the
/// input nor one of the files `alsoRead` is replaced. Needs no device. Returns the number of frames. Throws
/// Failure, (interrupted) once `stopped` is true.
std::int64_t joinSegments(const ConvertOptions& options, const std::vector<Media::Piece>& pieces,
                          const std::vector<std::filesystem::path>& alsoRead,
                          const std::atomic<bool>& stopped, Console& console);

struct QuietConversion
{
    std::vector<std::string> warnings;               ///< of the effects' settings, a line each
    std::vector<std::filesystem::path> textureFiles; ///< that pictures of textures were read from
};

/// Converts on the host that is running, without output to the console. Throws Failure.
QuietConversion convertQuietly(const ConvertOptions& options);

/// A frame in memory, as A R G B, rows without padding; words of 16 bits and floats are native.
struct HeldFrame
{
    int width = 0; ///< pixels
    int height = 0;
    Media::Depth depth = Media::Depth::bits8; ///< of codes
    bool isOfFloats = false;                  ///< of 32 bits, where 0 is black and 1 is white
    Media::Range range = Media::Range::full;
    std::vector<std::uint8_t> bytes;
    Host::FrameFacts facts; ///< its place in the clip

    std::size_t rowBytes() const
    {
        const std::size_t component = isOfFloats ? sizeof(float) : depth == Media::Depth::bits8 ? 1 : 2;
        return static_cast<std::size_t>(width) * 4 * component;
    }
};

/// Converts the first frame that the options pick, on the host that is running, without writing it; the
/// output of the options says what it is meant for. Notes on the console what is decided. Throws Failure.
HeldFrame convertToMemory(const ConvertOptions& options, Console& console);

} // namespace Qx::Program
