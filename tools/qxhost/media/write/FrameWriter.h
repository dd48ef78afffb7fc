#pragma once

#include "tools/qxhost/media/AudioQueue.h"
#include "tools/qxhost/media/Frame.h"
#include "tools/qxhost/media/MediaTypes.h"
#include "tools/qxhost/media/Result.h"
#include "tools/qxhost/media/StoredLayout.h"
#include "tools/qxhost/media/files/FileSet.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Media {

/// How large an encoder may make its output. At most one is set; without any, it is left to the encoder's
/// defaults here.
struct RateWish
{
    std::optional<double> quality; ///< 0, the worst, to 100
    std::int64_t bitRate = 0;      ///< bits a second
};

/// What becomes of what codes of 8 bits cannot hold. The result is the same each time.
enum class Dither
{
    none,           ///< it is rounded away
    errorDiffusion, ///< it is passed on to the pixels beside and below
    blueNoise       ///< it decides how many pixels of a surface have the next code, by a fixed pattern
};

/// What to write, and how.
struct OutputSettings
{
    /// Pixels of every frame.
    int width = 0;
    int height = 0;
    /// Of the frames given: four components a pixel in memory order A R G B.
    Depth depth = Depth::bits8;
    /// Frames are given as four 32-bit floats a pixel in that order; `depth` is 16 bits. For outputs for
    /// which takesFloats() is true.
    bool floats = false;
    /// If set, frames have this layout instead and are written unconverted; depth and alpha above are
    /// ignored. `colour`, including its range, goes into the file's tags.
    std::optional<StoredLayout> stored;
    /// Of the RGB codes given. Files of RGB keep the codes as they are.
    Range rgbRange = Range::full;
    /// Keeps the alpha component where the file format can hold it; otherwise it is dropped.
    bool alpha = false;
    /// Clips only: frames a second, and seconds of one unit of FrameTime::pts.
    Rational frameRate{25, 1};
    Rational timeBase{1, 25};
    /// num 0 if unknown.
    Rational sampleAspect;
    FieldOrder fieldOrder = FieldOrder::progressive;
    /// The display orientation, written if the file format has it; the frames themselves are not rotated.
    std::optional<Orientation> orientation;
    /// Clips only: of the first frame given, "01:00:00:00" (';' before the frames of drop-frame counting). It
    /// must be one at frameRate. Empty for none.
    std::string timeCode;
    /// The matrix used where the file holds YCbCr, and the source's tags to write into it. YCbCr is written
    /// in video range (full range where the encoder knows no other, as JPEG).
    Colour colour;
    /// FFmpeg's name of an encoder and of a pixel format it takes; empty picks by the output's name.
    std::string encoder;
    std::string pixelFormat;
    /// A profile of the codec ("hq"), in any case; empty leaves it to the pixel format.
    std::string profile;
    /// How large the encoder may make its output.
    RateWish rate;
    /// Passed to the encoder as they are; an option it does not know is an error. They override all else.
    std::map<std::string, std::string> encoderOptions;
    /// Encoding threads; 0 is one for each processor.
    int threads = 0;
    /// What becomes of the rest where codes of 8 bits are computed from deeper ones.
    Dither dither = Dither::none;
    /// Encoders are given 8 bits where they take deeper codes too, although the frames are deeper.
    bool prefersEightBits = false;
    /// The number of the first picture of a sequence.
    std::int64_t firstNumber = 1;
    /// Pictures that come later by more than a frame have numbers as much higher, instead of the next ones.
    bool numbersByTime = false;
    /// For the file "-", which is standard output: its descriptor, else -1; and the container by its usual
    /// extension, empty for "nut".
    int standardOutput = -1;
    std::string container;
    /// Replaces files that exist.
    bool force = false;
    /// Null, or files that are not replaced even with force: those the frames come from.
    std::shared_ptr<const FileSet> kept;
    /// Frames that will be given; 0 when not known. Only used to foresee which names they will take.
    std::int64_t expectedFrames = 0;
    /// Null, or the audio of a clip.
    std::shared_ptr<AudioQueue> audio;
    /// "copy", the name of an encoder or codec, or empty: each track is copied where the container holds it,
    /// and encoded where it does not.
    std::string audioCodec;
    /// For the audio encoders. Tracks are then encoded though they could be copied.
    std::map<std::string, std::string> audioOptions;
    /// Clips only: times are counted from the first frame given.
    bool beginsAtZero = false;
    /// Clips only, for a part of one: the time that is subtracted from all others, in units of timeBase. A
    /// container that only counts frames begins with the first all the same.
    std::optional<std::int64_t> origin;
    /// The frames are a part of a clip: PCM and audio that is encoded begin and end with them to the sample;
    /// of other audio, packets are kept that begin while frames are shown.
    bool cutsAudio = false;
};

/// What has become of a track of audio. Codecs have FFmpeg's names.
struct WrittenAudio
{
    std::string codec;   ///< of the source
    std::string written; ///< of the output; empty if the track is left out
    bool isCopied = false;
};

/// Writes frames to a clip or to pictures. One thread at a time; encoders use threads of their own.
///
/// Files appear under their name only when complete: they are written as ".NAME.part-PID" beside it and
/// renamed. Destroying a writer that has not finished removes what is incomplete.
class iFrameWriter
{
public:
    virtual ~iFrameWriter() = default;

    /// Takes a frame: settings.height rows at rows, rows + pitch, ... (pitch in bytes). The memory is not
    /// used after the call returns. After a failure the writer can only be destroyed.
    virtual Status write(const void* rows, std::ptrdiff_t pitch, const FrameTime& time) = 0;

    /// Takes a frame of YCbCr as it was decoded, of settings' size, instead; for outputs for which
    /// takesDecoded() is true. Its codes, which are of that range, are kept where the output has as many bits
    /// and samples, in the same range; else zimg makes them.
    virtual Status writeDecoded(const Frame& frame, Range range);

    /// Completes the file or files. Call it once. Fails if no frame was written.
    virtual Status finish() = 0;

    /// What could not be preserved and other remarks, a line each ("audio (pcm_s16le) is left out: ...").
    virtual const std::vector<std::string>& warnings() const = 0;

    /// For people: "prores_ks, yuv422p10le, mov" or "png, rgb48be".
    virtual std::string description() const = 0;

    /// The tracks of settings.audio, in order; empty for what has no audio.
    virtual std::vector<WrittenAudio> audio() const { return {}; }

    /// Names of the files completed so far, at most the first and the last of a sequence.
    virtual std::vector<std::filesystem::path> files() const = 0;
};

/// Opens a writer by the output's name.
///
/// - Pictures: png, tif, tiff, bmp, jpg, jpeg, ppm, dpx, exr, tga, webp. A name with a number pattern
///   ("out_%05d.png") makes a numbered sequence from 1; without one, one frame makes NAME.png and several
///   make NAME_00001.png, NAME_00002.png, ... Every picture is renamed as soon as it is complete.
/// - Clips: any container that FFmpeg knows by the extension. If settings.encoder is empty: mov ProRes 422
///   HQ, mkv, avi and nut FFV1 in RGB (lossless), mp4, m4v and ts H.264 4:2:0, webm VP9, mxf DNxHR, else what
///   FFmpeg prefers.
///
/// - "-" is standard output: a clip in a container that needs no seeking, or pictures one after the other
///   (pipeContainers()), or raw frames.
///   What has been written stays written, also after a failure.
///
/// With settings.stored: clips whose container knows such frames, or a raw file for .raw, .yuv, .rgb, .bin,
/// .data and the format's own name.
///
/// Fails if the extension is unknown, the encoder is missing or refuses the size, the file exists and force
/// is off, the file is one to keep, or it cannot be created.
Result<std::unique_ptr<iFrameWriter>> openWriter(const std::filesystem::path& file,
                                                 const OutputSettings& settings);

/// Checks, before there is a frame, what does not depend on any: the names of encoders, pixel format and
/// profile, and the options of the encoders. openWriter() checks all of it again.
Status checkEncoding(const std::filesystem::path& file, const OutputSettings& settings);

/// The remark if the file format has no orientation.
std::string orientationIsLost(const Orientation& orientation);

/// The containers for standard output, by their extensions, and those of pictures; "raw" is none.
std::vector<std::string> pipeContainers();

/// Whether openWriter() would write pictures to that file, not a clip.
bool writesPictures(const std::filesystem::path& file);

/// Whether openWriter() would write that file raw, as frames without a container.
bool writesRawFrames(const std::filesystem::path& file, const StoredLayout& layout);

/// Whether openWriter() would encode YCbCr of settings.colour's matrix into a clip, with alpha only if the
/// frames have it: what writeDecoded() is for.
bool takesDecoded(const std::filesystem::path& file, const OutputSettings& settings);

/// Whether openWriter() would write pictures of floats.
bool takesFloats(const std::filesystem::path& file, const OutputSettings& settings);

/// The range in which RGB codes lose least on their way into that file, whatever settings.rgbRange says:
/// video for YCbCr in video range, full for everything else, and for what openWriter() would refuse.
Range bestRgbRange(const std::filesystem::path& file, const OutputSettings& settings);

} // namespace Qx::Media
