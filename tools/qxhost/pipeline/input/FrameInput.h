#pragma once

#include "platform/ImageDescription.h"
#include "tools/qxhost/media/Frame.h"
#include "tools/qxhost/media/read/ClipReader.h"
#include "tools/qxhost/media/rows/FramePacker.h"
#include "tools/qxhost/pipeline/input/FrameRange.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Qx::Program {

/// Where frames come from: a clip, or a file of nothing but frames. next() and place() may run on two
/// threads.
class iFrameInput
{
public:
    using Next = Media::ClipReader::Next;

    virtual ~iFrameInput() = default;

    virtual const Media::StreamInfo& info() const = 0;

    /// Goes on with that frame, as ClipReader::skipTo() does. To be called first.
    virtual Media::ClipPlace skipTo(const Media::SeekTarget& target) = 0;

    /// Runs frames through a graph of FFmpeg's filters, from the next one on, which info() then describes.
    /// The graph gets the frames of the range alone. Returns notes. Throws Failure (usage, input). Call it
    /// once, after skipTo().
    virtual std::vector<std::string> filter(const std::string& graph, const std::string& option,
                                            const FrameRange& range) = 0;

    /// Whether the input has ended before the end of the range that filter() was given.
    virtual bool hasEndedEarly() const { return false; }

    /// How place() lays frames out in memory, for 4:2:2 or 4:4:4 of the given depth, range and matrix. Call
    /// it before place().
    virtual Image::Core::Data prepare(const Media::FramePacker::Target& source) = 0;

    /// Bits of the codes that place() writes, which fill the upper ones of their samples.
    virtual int codeBits(const Media::FramePacker::Target& source) const = 0;

    /// How the codes that place() writes for this frame stand for levels.
    virtual Media::FramePacker::CodeForm formOf(const Media::Frame& frame) const = 0;

    /// Gives the next frame in order of presentation, as ClipReader::next() does.
    virtual Next next(Media::Frame& frame) = 0;

    /// No more frames are read, but the audio up to that time, as ClipReader::readAudioUpTo() does.
    virtual void readAudioUpTo(std::int64_t pts) = 0;

    /// The times of all frames, as ClipReader::readTimes() gives them. Throws Failure (input).
    virtual std::vector<Media::ShownFrame> readTimes() = 0;

    /// Writes a frame to memory in the layout that prepare() returned; rows begin at rows, rows + pitch, ...
    virtual Media::Status place(const Media::Frame& frame, void* rows, std::ptrdiff_t pitch) = 0;

    /// As place(), but four floats a pixel, A R G B. For inputs whose info().hasFloats is true, which are
    /// RGB.
    virtual void placeFloats(const Media::Frame& /*frame*/, void* /*rows*/, std::ptrdiff_t /*pitch*/) {}

    /// Why next() returned failed.
    virtual const std::string& failure() const = 0;
    /// Damage found so far: the number of cases, and a line for each of the first few.
    virtual std::int64_t problemCount() const = 0;
    virtual const std::vector<std::string>& problems() const = 0;

    /// What else is to be said of the frames given, a line each.
    virtual std::vector<std::string> remarks() const { return {}; }

    /// The files that belong to it; others that the run reads may be added.
    virtual std::shared_ptr<Media::FileSet> files() const = 0;
    virtual std::shared_ptr<Media::AudioQueue> audio() const = 0;
};

/// Whether frames come as RGB and are kept as RGB.
bool holdsRgb(const Media::StreamInfo& info);

/// Whether frames come as Y Cb Cr of every pixel, with alpha, unless YCrCb of 4:2:2 is made of them: those of
/// 4:4:4, and those with alpha.
bool holdsFullChroma(const Media::StreamInfo& info);

/// The clip, or the raw frames, that the options name. Throws Failure (input, usage).
std::unique_ptr<iFrameInput> openFrameInput(const ConvertOptions& options, bool keepAudio);

} // namespace Qx::Program
