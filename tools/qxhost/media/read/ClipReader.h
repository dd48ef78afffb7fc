#pragma once

#include "tools/qxhost/media/AudioQueue.h"
#include "tools/qxhost/media/Frame.h"
#include "tools/qxhost/media/MediaTypes.h"
#include "tools/qxhost/media/Result.h"
#include "tools/qxhost/media/files/FileSet.h"
#include "tools/qxhost/media/read/ClipDescription.h"
#include "tools/qxhost/media/read/SeekTarget.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Media {

/// When a frame is shown, as its packet says.
struct ShownFrame
{
    std::int64_t pts = 0;
    bool isKey = false; ///< decoding can begin with it
};

/// The properties of a clip or picture, known once its first frame is decoded.
struct StreamInfo
{
    /// Pixels. At most ClipReader::largestSide each.
    int width = 0;
    int height = 0;
    /// Frames a second; num 0 when not known (a still picture).
    Rational frameRate;
    /// Seconds of one unit of a timestamp.
    Rational timeBase{1, 1};
    /// Width to height of one pixel; num 0 when the stream does not say.
    Rational sampleAspect;
    int streamIndex = 0;
    /// Of the first frame, in units of timeBase.
    std::int64_t firstPts = 0;
    /// Seconds; 0 when not known.
    double duration = 0;
    /// 0 when not known. Exact only when frameCountIsExact.
    std::int64_t frameCount = 0;
    bool frameCountIsExact = false;
    /// A single picture rather than a clip.
    bool isStill = false;
    /// Of a numbered sequence, its first picture's number.
    std::optional<std::int64_t> firstNumber;
    /// What is to be said of the input, such as what fills the gaps of a sequence; a line each.
    std::vector<std::string> remarks;
    FieldOrder fieldOrder = FieldOrder::progressive;
    Colour colour;
    /// FFmpeg's names, for people: "yuv422p10le", "prores", "mov".
    std::string pixelFormat;
    std::string codec;
    std::string container;
    /// Significant bits of a component.
    int bitsPerComponent = 8;
    /// The depth that loses nothing: 8 bits for sources of up to 8 bits, else 16.
    Depth naturalDepth = Depth::bits8;
    /// The depth at which packing to 4:2:2 loses nothing: that of the source where packing only rearranges
    /// it, else 16 bits, since chroma is computed.
    Depth packingDepth = Depth::bits8;
    /// Packing to 4:2:2 only rearranges the codes.
    bool packsCodes = false;
    bool hasAudio = false;
    /// Frames are of floats, which Options::keepsFloats has kept: see floatsOf().
    bool hasFloats = false;
    /// Frames say how opaque they are.
    bool hasAlpha = false;
    /// Colour at the full width (RGB, 4:4:4), of which packing to 4:2:2 keeps half.
    bool hasFullChroma = false;
    /// Pixels share their chroma, or have none.
    bool subsamplesChroma = false;
    /// Of the first frame, as the clip has it ("01:00:00:00", ';' before the frames of drop-frame counting);
    /// empty when it has none.
    std::string timeCode;
    /// If the clip has one; the reader rotates nothing.
    std::optional<Orientation> orientation;
};

/// Reads the video and the audio packets of any clip or still picture that FFmpeg reads.
///
/// A name with a number pattern ("shot_%05d.png") that is not itself a file is read as a numbered sequence,
/// from the lowest number there is up to the first gap. A list may name other files, but cannot send the
/// reader to the network. "-" is standard input if that is allowed: it is read once, from beginning to end.
///
/// One thread at a time; decoding uses threads of its own. The frames and the audio queue handed out live on
/// their own and may be used on other threads and after the reader is gone.
class ClipReader
{
public:
    static constexpr int largestSide = 32768;

    struct Options
    {
        /// Decoding threads; 0 is one for each processor.
        int threads = 0;
        /// Whether to queue the audio packets. The caller must then drain the queue.
        bool keepAudio = false;
        /// Whether the name "-" is standard input.
        bool mayBeStandardInput = false;
        /// What is said of a pipe that holds no clip, behind the reason: "; ...".
        std::string ofPipesWithoutClip = {};
        /// Whether frames of floats are kept as such beside their codes, since they are converted as floats.
        bool keepsFloats = false;
        /// Of a numbered sequence: frames a second, its first picture, and what is done about missing ones.
        std::optional<Rational> sequenceRate = std::nullopt;
        std::optional<std::int64_t> startNumber = std::nullopt;
        MissingPictures missing = MissingPictures::end;
        /// Whether the file's header and first frame say enough: frame rates and lengths may be estimates.
        bool isBrief = false;
    };

    enum class Next
    {
        frame,
        end,
        failed
    };

    /// Whether that is a numbered sequence.
    static bool isSequence(const std::filesystem::path& file);

    /// Opens the file and decodes its first frame. Fails if there is no such file, if it cannot be read or is
    /// not media, or if it has no video, no decodable frame, or an unsupported size or pixel format.
    static Result<std::unique_ptr<ClipReader>> open(const std::filesystem::path& file,
                                                    const Options& options);
    ~ClipReader();
    ClipReader(const ClipReader&) = delete;
    ClipReader& operator=(const ClipReader&) = delete;

    /// Of the clip; what it says of a frame is of the first.
    const StreamInfo& info() const;

    /// The file's streams and tags.
    ClipDescription description() const;

    /// Goes on with that frame, as if those before it had been read. In files that allow it, decoding begins
    /// at the key frame before it: MOV and MP4 say where that is, in others packets are read up to it. Raw
    /// streams without times, and codecs whose packets do not stand for one frame each, are decoded from the
    /// start. Returns the place of the frame that next() gives.
    ///
    /// Call it once, before everything but info().
    ClipPlace skipTo(const SeekTarget& target);

    /// Packets of the video that have been decoded so far.
    std::int64_t packetsDecoded() const;

    /// The file, or every file of a numbered sequence; with every file that a list names, and every other
    /// that has been opened so far. Grows while frames are read.
    std::shared_ptr<FileSet> files() const;

    /// Gives the next frame in order of presentation. A damaged frame that can be skipped or patched does not
    /// end the clip: it is counted and described in problems(). `failed` means that decoding cannot go on
    /// (failure() says why); after `end` and `failed` the result stays the same.
    Next next(Frame& frame);

    /// Reads on, without decoding, until the audio up to that time of the video is in the queue. Frames
    /// cannot be read after it.
    void readAudioUpTo(std::int64_t pts);

    /// Reads to the end, without decoding: the times of all frames from the first one on, ascending. Fails if
    /// the file has none, or the same twice. Damage ends it early. Frames cannot be read after it.
    Result<std::vector<ShownFrame>> readTimes();

    /// Why next() returned failed.
    const std::string& failure() const;
    /// Damage found so far: the number of cases, and a line for each of the first few.
    std::int64_t problemCount() const;
    const std::vector<std::string>& problems() const;

    /// What else is to be said of the frames given so far, a line each.
    std::vector<std::string> remarks() const;

    /// Those of remarks() that are about times.
    std::vector<std::string> remarksOnTimes() const;

    /// The audio packets, in file order; without tracks if the file has none or keepAudio is off. next()
    /// fills it; it is complete once next() has returned end or failed.
    std::shared_ptr<AudioQueue> audio() const;

private:
    struct Impl;
    explicit ClipReader(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

} // namespace Qx::Media
