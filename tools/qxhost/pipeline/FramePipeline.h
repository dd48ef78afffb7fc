#pragma once

#include "Qx/Ptr.h"
#include "platform/GPUImage.h"
#include "platform/Surface.h"
#include "tools/qxhost/media/Frame.h"
#include "tools/qxhost/media/rows/FloatPicture.h"
#include "tools/qxhost/media/rows/FramePacker.h"
#include "tools/qxhost/media/write/FrameWriter.h"
#include "tools/qxhost/pipeline/BoundedQueue.h"
#include "tools/qxhost/pipeline/burnin/BurnIn.h"
#include "tools/qxhost/pipeline/effects/EffectChain.h"
#include "tools/qxhost/pipeline/effects/PictureSteps.h"
#include "tools/qxhost/pipeline/input/FrameInput.h"
#include "tools/qxhost/pipeline/input/FrameRange.h"
#include "tools/qxhost/pipeline/input/FrameUpload.h"
#include "tools/qxhost/pipeline/output/FrameDelivery.h"

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace Qx::Program {

/// What a pipeline converts, and how.
struct ConversionJob
{
    iFrameInput& input;
    EffectChain& effects;

    Media::FramePacker::Target source;        ///< how frames come to the GPU; their range and matrix
    Media::Depth depth = Media::Depth::bits8; ///< of pictures: of the RGB made
    bool tenBits = false; ///< make pictures of 10 bits instead; without effects and others
    Image::GamutScaling outputRange = Image::GamutScaling::Unscaled;
    Image::Filter filter = Image::Filter::CatmullRom;
    std::span<const std::unique_ptr<BurnIn>> burnIns{}; ///< after the effects, in this order
    PictureStep step;                                   ///< after these
    const FrameDelivery* delivery = nullptr;            ///< how pictures are read back; null: as A R G B
    bool keepCodes = false;  ///< YCrCb goes from the input to the delivery without becoming RGB
    bool keepFrames = false; ///< frames go from the input to the writer as they were decoded
    bool packOnly = false;   ///< frames go to the writer as they are packed for the GPU, without it

    std::int64_t start = 0;    ///< number of the frame that the input gives first
    FrameRange range{};        ///< where to end
    bool floats = false;       ///< pictures are of floats, and nothing of them is clipped on the way
    bool writesFloats = false; ///< the writer takes them; else the nearest codes of 16 bits are written
    std::optional<std::int64_t> writeFrom{}; ///< frames before that time run through the effects alone
};

/// Converts a clip: one thread each decodes, packs into the device's memory, drives the GPU, and encodes.
/// What needs no GPU is packed and encoded by one thread, and touches no device. Frames keep their order, and
/// the queues between the threads bound how many are in memory.
class FramePipeline
{
public:
    /// Calls `onFrame` on the encoding thread after every frame written, with their number.
    FramePipeline(const ConversionJob& job, std::function<void(std::int64_t)> onFrame);

    /// Converts everything and returns the number of frames written; the writer is not finished. Throws the
    /// first Failure of any thread. If the input fails, what came before is converted first, and
    /// inputFailure() says why. Call it once.
    std::int64_t run(Media::iFrameWriter& writer);

    /// Empty, or why the input could not be read to its end, and what to do.
    const std::string& inputFailure() const { return inputFailure_; }

    /// Whether the input ended before the end of the range.
    bool endedEarly() const { return endedEarly_; }

    /// The times of the first and the last frame that was written, in the input's units. After run().
    const Media::FrameTime& firstTime() const { return firstTime_; }
    const Media::FrameTime& lastTime() const { return lastTime_; }

    /// What the codes that are written could not hold of pictures of floats. After run().
    const Media::ClippedNumbers& clipped() const { return clipped_; }

    /// Ends run() early, from any thread.
    void stop();

    /// Whether stop() ended it.
    bool stopped() const { return stopped_; }

private:
    /// A frame's place in the clip.
    struct Moment
    {
        std::int64_t number = 0; ///< from 0
        double seconds = 0;      ///< since the first frame
    };

    struct Decoded
    {
        Media::Frame frame;
        Moment moment;
    };

    struct Packed
    {
        Qx::Ptr<iHostImage> image;
        Media::FramePacker::CodeForm form;
        Media::FrameTime time;
        Moment moment;
    };

    struct Converted
    {
        Image::Surface picture;
        Media::FrameTime time;
    };

    template <class Stage>
    void startStage(std::vector<std::thread>& threads, Stage stage);
    void fail(std::exception_ptr failure);
    void cancel();

    void decode();
    std::string failureOfInput(std::int64_t given, std::int64_t taken) const;
    void pack();
    void convert();
    void encode();
    void encodeDecoded();
    void encodePacked();
    bool isRunUp(const Media::FrameTime& time) const;
    void countWritten(const Media::FrameTime& time);

    bool needsDevice() const { return !job_.keepFrames && !job_.packOnly; }
    void makeHostImages();
    Qx::Ptr<iHostImage> makeHostImage() const;
    Image::Surface uploaded(const Packed& frame) const;
    Media::Status write(const Media::FloatRows& frame, const Media::FrameTime& time);
    Image::Surface decoded(const Image::Surface& frame, const Media::FramePacker::CodeForm& form) const;
    bool convertFrame(const Packed& frame);

    ConversionJob job_;
    std::function<void(std::int64_t)> onFrame_;
    Media::iFrameWriter* writer_ = nullptr;
    int width_;
    int height_;
    iGPUImage::eFormat format_;
    std::size_t inFlight_;
    FrameUpload upload_;

    BoundedQueue<Decoded> decoded_;
    BoundedQueue<Qx::Ptr<iHostImage>> free_; ///< host images that wait to be packed into
    BoundedQueue<Packed> packed_;
    BoundedQueue<Converted> converted_;

    std::mutex mutex_;
    std::exception_ptr failure_;
    std::string inputFailure_;
    bool endedEarly_ = false;
    std::atomic<bool> stopped_{false};
    std::int64_t written_ = 0;
    Media::ClippedNumbers clipped_;
    std::vector<std::uint16_t> codes_; ///< of a frame of floats
    Media::FrameTime firstTime_;
    Media::FrameTime lastTime_;
};

} // namespace Qx::Program
