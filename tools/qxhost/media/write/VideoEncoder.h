#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/rows/ComponentRows.h"
#include "tools/qxhost/media/rows/RowGraph.h"
#include "tools/qxhost/media/write/FrameWriter.h"
#include "tools/qxhost/media/write/PacketTimes.h"
#include "tools/qxhost/media/write/VideoPackets.h"

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Media {

/// Turns A R G B frames into an encoder's packets: RGB encoders get the codes as they are, others YCbCr made
/// by zimg. YCbCr as it was decoded is given to encoders of YCbCr as it is, or brought to their samples, bits
/// and range by zimg.
class VideoEncoder final : public iVideoPackets
{
public:
    /// timeBase is the packets' time base; the frames' times are rescaled to it.
    static Result<VideoEncoder> make(const AVCodec& codec, const OutputSettings& settings,
                                     AVRational timeBase, bool globalHeader);

    Status encode(const void* rows, std::ptrdiff_t pitch, const FrameTime& time, const Sink& sink) override;
    Status encodeDecoded(const Frame& frame, Range range, const FrameTime& time, const Sink& sink) override;
    Status flush(const Sink& sink) override;

    AVCodecContext& context() const override { return *context_; }
    std::string description() const override;
    bool dropsAlpha() const override { return dropsAlpha_; }
    std::int64_t movedFrames() const override { return times_.moved(); }

private:
    Status encodeFloats(const void* rows, std::ptrdiff_t pitch, const FrameTime& time, const Sink& sink);
    VideoEncoder() = default;

    Status configure(const AVCodec& codec, const OutputSettings& settings, AVRational timeBase,
                     bool globalHeader);
    void tagColours(const OutputSettings& settings);
    Status openCodec(const AVCodec& codec, const OutputSettings& settings);
    FramePtr makeFrame(AVPixelFormat format);
    static FramePtr reference(const AVFrame& picture);
    zimg_chroma_location_e outputLocation() const;
    bool isEncodable(const AVFrame& picture, Range range) const;
    Status send(FramePtr frame, const FrameTime& time, const Sink& sink);
    Status drain(const Sink& sink);
    void fillAlpha(AVFrame& to);
    void writeAlpha(const AVFrame& from, int component, AVFrame& to);
    void copyRows(const AVFrame& from, AVFrame& to);
    Status convertRows(const AVFrame& from, Range range, AVFrame& to, FieldOrder order);
    Status convertField(const AVFrame& from, Range range, AVFrame& to, int field, int fields);

    struct Graph
    {
        PlanarFormat from;
        PlanarFormat to;
        RowGraph graph;
    };

    CodecPtr context_;
    PacketPtr packet_;
    std::optional<ComponentRows> input_;      // of the frames given
    AVPixelFormat decoded_ = AV_PIX_FMT_NONE; // of input_, if frames are given as they were decoded
    std::optional<ComponentRows> output_;
    std::array<std::optional<Graph>, 2> graphs_; // one for each field
    std::vector<FramePtr> made_;                 // of makeFrame(), whose memory is used again
    std::vector<std::uint16_t> scratch_;
    std::vector<std::uint16_t> alphaCodes_;
    std::map<std::int64_t, std::int64_t> durations_; // by time of the frame, until its packet comes
    PacketTimes times_;
    Range rgbRange_ = Range::full;
    Range range_ = Range::video;
    Matrix matrix_ = Matrix::bt709;
    bool alpha_ = false;
    Dither dither_ = Dither::none;
    bool dropsAlpha_ = false;
    bool takesFloats_ = false;              // as they are
    bool makesFloats_ = false;              // of the codes
    bool makesHalves_ = false;              // of the floats
    AVPixelFormat codes_ = AV_PIX_FMT_NONE; // what is made before floats, or the encoder's format
};

} // namespace Qx::Media
