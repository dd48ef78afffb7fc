#include "tools/qxhost/media/write/VideoEncoder.h"

#include "tools/qxhost/media/FfmpegVersions.h"
#include "tools/qxhost/media/Matrices.h"
#include "tools/qxhost/media/rows/BlueNoise.h"
#include "tools/qxhost/media/rows/FieldRows.h"
#include "tools/qxhost/media/rows/FloatPicture.h"
#include "tools/qxhost/media/rows/Levels.h"
#include "tools/qxhost/media/write/EncoderChoice.h"

#include <algorithm>
#include <iterator>

namespace Qx::Media {

namespace {

/// Codecs whose encoders here know how to code fields.
bool codesFields(AVCodecID codec)
{
    return codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_MPEG2VIDEO || codec == AV_CODEC_ID_MPEG4 ||
           codec == AV_CODEC_ID_PRORES;
}

} // namespace

Result<VideoEncoder> VideoEncoder::make(const AVCodec& codec, const OutputSettings& settings,
                                        AVRational timeBase, bool globalHeader)
{
    VideoEncoder encoder;
    if (const Status status = encoder.configure(codec, settings, timeBase, globalHeader); !status) {
        return Error{status.text()};
    }
    if (const Status status = encoder.openCodec(codec, settings); !status) {
        return Error{status.text()};
    }
    return encoder;
}

Status VideoEncoder::configure(const AVCodec& codec, const OutputSettings& settings, AVRational timeBase,
                               bool globalHeader)
{
    const auto format = choosePixelFormat(codec, settings);
    if (!format) {
        return format.error();
    }
    context_.reset(avcodec_alloc_context3(&codec));
    packet_.reset(av_packet_alloc());
    if (!context_ || !packet_) {
        return Error{"out of memory"};
    }
    input_.emplace(settings.depth == Depth::bits8 ? AV_PIX_FMT_RGBA : AV_PIX_FMT_RGBA64);
    codes_ = codesOfFloats(format.value());
    makesFloats_ = codes_ != AV_PIX_FMT_NONE;
    takesFloats_ = makesFloats_ && settings.floats;
    if (makesFloats_ && settings.depth == Depth::bits8) {
        codes_ = codes_ == AV_PIX_FMT_GBRAP16 ? AV_PIX_FMT_GBRAP : AV_PIX_FMT_GBRP;
    }
    codes_ = makesFloats_ ? codes_ : format.value();
    output_.emplace(codes_);
    times_ = PacketTimes(settings.timeBase);
    rgbRange_ = settings.rgbRange;
    dither_ = settings.dither;
    // Who names a format with alpha wants what effects make of it.
    alpha_ = (settings.alpha || !settings.pixelFormat.empty()) && output_->hasAlpha();
    dropsAlpha_ = settings.alpha && !alpha_;

    context_->width = settings.width;
    context_->height = settings.height;
    context_->pix_fmt = format.value();
    context_->time_base = timeBase;
    context_->framerate = toAv(settings.frameRate);
    context_->sample_aspect_ratio = toAv(settings.sampleAspect);
    context_->thread_count = settings.threads;
    context_->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
    context_->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;
    context_->field_order = toAv(settings.fieldOrder);
    if (settings.fieldOrder != FieldOrder::progressive && codesFields(codec.id)) {
        context_->flags |= AV_CODEC_FLAG_INTERLACED_DCT;
    }
    if (globalHeader) {
        context_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    tagColours(settings);
    return {};
}

void VideoEncoder::tagColours(const OutputSettings& settings)
{
    const bool jpeg = isJpegFormat(context_->pix_fmt);
    matrix_ = encodedMatrix(context_->codec_id, context_->pix_fmt, settings.colour.matrix);
    range_ = jpeg ? Range::full : Range::video;
    context_->color_primaries = static_cast<AVColorPrimaries>(settings.colour.primariesTag);
    context_->color_trc = static_cast<AVColorTransferCharacteristic>(settings.colour.transferTag);
    if (output_->isRgb()) {
        context_->colorspace = AVCOL_SPC_RGB;
        context_->color_range = toAv(rgbRange_);
        return;
    }
    context_->colorspace = static_cast<AVColorSpace>(writtenTag(matrix_, settings.colour.matrixTag));
    context_->color_range = toAv(range_);
    context_->chroma_sample_location = jpeg ? AVCHROMA_LOC_CENTER : AVCHROMA_LOC_LEFT; // as outputLocation()
}

Status VideoEncoder::openCodec(const AVCodec& codec, const OutputSettings& settings)
{
    const auto options = optionsFor(codec, context_->pix_fmt, settings);
    if (!options) {
        return options.error();
    }
    if (Status status = applyOptions(*context_, options.value()); !status) {
        return status;
    }
    takeFfmpegMessage();
    const int error = avcodec_open2(context_.get(), &codec, nullptr);
    constexpr std::int64_t half = 1; // of its option, as OpenEXR numbers the types
    std::int64_t type = 0;
    makesHalves_ =
        makesFloats_ && av_opt_get_int(context_->priv_data, "format", 0, &type) >= 0 && type == half;
    if (error < 0) {
        return Error{"encoder " + std::string(codec.name) + " cannot be used for " +
                     std::to_string(settings.width) + "x" + std::to_string(settings.height) + " " +
                     av_get_pix_fmt_name(context_->pix_fmt) + ": " + errorText(error) + ffmpegHint()};
    }
    return {};
}

std::string VideoEncoder::description() const
{
    return std::string(context_->codec->name) + ", " + av_get_pix_fmt_name(context_->pix_fmt);
}

/// The same samples, without what the decoder knew of them. Null if memory is exhausted.
FramePtr VideoEncoder::reference(const AVFrame& picture)
{
    FramePtr frame(av_frame_alloc());
    if (!frame) {
        return {};
    }
    frame->format = picture.format;
    frame->width = picture.width;
    frame->height = picture.height;
    for (std::size_t i = 0; i < std::size(picture.buf) && picture.buf[i] != nullptr; ++i) {
        frame->buf[i] = av_buffer_ref(picture.buf[i]);
        if (frame->buf[i] == nullptr) {
            return {};
        }
    }
    std::copy(std::begin(picture.data), std::end(picture.data), std::begin(frame->data));
    std::copy(std::begin(picture.linesize), std::end(picture.linesize), std::begin(frame->linesize));
    return frame;
}

/// A frame to be filled; null if memory is exhausted. The memory of one that the encoder no longer needs is
/// used again: new memory costs the kernel's time for each of its pages.
FramePtr VideoEncoder::makeFrame(AVPixelFormat format)
{
    for (const FramePtr& known : made_) {
        if (known->format == format && av_frame_is_writable(known.get()) > 0) {
            return reference(*known);
        }
    }
    FramePtr frame(av_frame_alloc());
    if (!frame) {
        return {};
    }
    frame->format = format;
    frame->width = context_->width;
    frame->height = context_->height;
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        return {};
    }
    made_.push_back(std::move(frame));
    return reference(*made_.back());
}

Status VideoEncoder::encodeFloats(const void* rows, std::ptrdiff_t pitch, const FrameTime& time,
                                  const Sink& sink)
{
    FramePtr frame = makeFrame(context_->pix_fmt);
    if (!frame) {
        return Error{"out of memory for a frame"};
    }
    planesFrom({rows, pitch, context_->width, context_->height}, *frame, makesHalves_);
    if (output_->hasAlpha() && !alpha_) {
        constexpr int alpha = 3;
        for (int y = 0; y < context_->height; ++y) {
            auto* line =
                reinterpret_cast<float*>(frame->data[alpha] + std::ptrdiff_t{y} * frame->linesize[alpha]);
            std::fill_n(line, context_->width, 1.0F);
        }
    }
    return send(std::move(frame), time, sink);
}

Status VideoEncoder::encode(const void* rows, std::ptrdiff_t pitch, const FrameTime& time, const Sink& sink)
{
    if (takesFloats_) {
        return encodeFloats(rows, pitch, time, sink);
    }
    FramePtr frame = makeFrame(codes_);
    FramePtr view(av_frame_alloc());
    if (!frame || !view) {
        return Error{"out of memory for a frame"};
    }
    // FFmpeg has no A R G B of 16 bits. From its second sample on a row reads as R G B x (data[0]); from its
    // first, component 0 is alpha (data[1]).
    view->data[1] = static_cast<std::uint8_t*>(const_cast<void*>(rows));
    view->data[0] = view->data[1] + (input_->wide() ? 2 : 1);
    view->linesize[0] = static_cast<int>(pitch);
    if (output_->hasAlpha() && alpha_) {
        AVFrame alpha = *view;
        alpha.data[0] = view->data[1];
        writeAlpha(alpha, 0, *frame);
    } else if (output_->hasAlpha()) {
        fillAlpha(*frame);
    }
    if (output_->isRgb() && output_->bits() == input_->bits()) {
        copyRows(*view, *frame);
    } else if (Status status = convertRows(*view, rgbRange_, *frame, time.fieldOrder); !status) {
        return status;
    }
    if (makesFloats_) {
        FramePtr floats = makeFrame(context_->pix_fmt);
        if (!floats) {
            return Error{"out of memory for a frame"};
        }
        floatsFrom(*frame, *floats, makesHalves_);
        frame = std::move(floats);
    }
    return send(std::move(frame), time, sink);
}

/// Whether the encoder takes that picture as it is.
bool VideoEncoder::isEncodable(const AVFrame& picture, Range range) const
{
    const bool hasPlace = output_->chromaShiftX() == 0 && output_->chromaShiftY() == 0;
    return picture.format == context_->pix_fmt && range == range_ &&
           (hasPlace || chromaLocation(picture) == outputLocation());
}

Status VideoEncoder::encodeDecoded(const Frame& decoded, Range range, const FrameTime& time, const Sink& sink)
{
    const AVFrame* picture = decoded.picture();
    if (!picture || picture->width != context_->width || picture->height != context_->height) {
        return Error{"a frame is not of the size that is encoded, " + std::to_string(context_->width) + "x" +
                     std::to_string(context_->height)};
    }
    const bool isKept = isEncodable(*picture, range);
    FramePtr frame = isKept ? reference(*picture) : makeFrame(codes_);
    if (!frame) {
        return Error{"out of memory for a frame"};
    }
    if (!isKept) {
        const auto format = static_cast<AVPixelFormat>(picture->format);
        if (decoded_ != format) {
            input_.emplace(format);
            decoded_ = format;
        }
        if (output_->hasAlpha()) {
            constexpr int alpha = 3;
            input_->hasAlpha() ? writeAlpha(*picture, alpha, *frame) : fillAlpha(*frame);
        }
        if (Status status = convertRows(*picture, range, *frame, time.fieldOrder); !status) {
            return status;
        }
    }
    return send(std::move(frame), time, sink);
}

Status VideoEncoder::send(FramePtr frame, const FrameTime& time, const Sink& sink)
{
    frame->pts = times_.next(time, context_->time_base);
    durations_[frame->pts] = times_.duration(time, context_->time_base);
    setFieldOrder(*frame, time.fieldOrder);
    frame->sample_aspect_ratio = context_->sample_aspect_ratio;
    frame->color_range = context_->color_range;
    frame->colorspace = context_->colorspace;
    frame->color_primaries = context_->color_primaries;
    frame->color_trc = context_->color_trc;
    frame->chroma_location = context_->chroma_sample_location;
    if (context_->flags & AV_CODEC_FLAG_QSCALE) {
        frame->quality = context_->global_quality;
    }
    const int error = avcodec_send_frame(context_.get(), frame.get());
    if (error < 0) {
        return Error{"encoder " + std::string(context_->codec->name) + " failed: " + errorText(error) +
                     ffmpegHint()};
    }
    return drain(sink);
}

Status VideoEncoder::flush(const Sink& sink)
{
    const int error = avcodec_send_frame(context_.get(), nullptr);
    if (error < 0 && error != AVERROR_EOF) {
        return Error{"encoder " + std::string(context_->codec->name) + " failed: " + errorText(error) +
                     ffmpegHint()};
    }
    return drain(sink);
}

Status VideoEncoder::drain(const Sink& sink)
{
    for (;;) {
        const int error = avcodec_receive_packet(context_.get(), packet_.get());
        if (error == AVERROR(EAGAIN) || error == AVERROR_EOF) {
            return {};
        }
        if (error < 0) {
            return Error{"encoder " + std::string(context_->codec->name) + " failed: " + errorText(error) +
                         ffmpegHint()};
        }
        if (packet_->pts != AV_NOPTS_VALUE && packet_->dts > packet_->pts) {
            packet_->dts = packet_->pts; // x265, of fewer frames than it reorders
        }
        if (const auto known = durations_.find(packet_->pts); known != durations_.end()) {
            packet_->duration = packet_->duration > 0 ? packet_->duration : known->second;
            durations_.erase(known);
        }
        Status status = sink(*packet_);
        av_packet_unref(packet_.get());
        if (!status) {
            return status;
        }
    }
}

void VideoEncoder::fillAlpha(AVFrame& to)
{
    const auto opaque = static_cast<std::uint16_t>(output_->wide() ? (1 << output_->bits()) - 1 : 0xffff);
    scratch_.assign(static_cast<std::size_t>(context_->width), opaque);
    for (int row = 0; row < context_->height; ++row) {
        output_->write(to, 3, row, 0, context_->width, scratch_.data());
    }
}

void VideoEncoder::copyRows(const AVFrame& from, AVFrame& to)
{
    const int width = context_->width;
    scratch_.resize(static_cast<std::size_t>(width));
    for (int row = 0; row < context_->height; ++row) {
        const auto* pixels = reinterpret_cast<const std::uint16_t*>(
            from.data[0] + static_cast<std::ptrdiff_t>(row) * from.linesize[0]);
        if (input_->wide() && output_->writePixelsOfFour(to, row, width, pixels)) {
            continue;
        }
        for (int component = 0; component < 3; ++component) {
            input_->read(from, component, row, 0, width, scratch_.data());
            output_->write(to, component, row, 0, width, scratch_.data());
        }
    }
}

/// Opacity is of full range at every depth.
void VideoEncoder::writeAlpha(const AVFrame& from, int component, AVFrame& to)
{
    const int width = context_->width;
    const Coding given{input_->bits(), Range::full};
    const Coding made{output_->bits(), Range::full};
    scratch_.resize(static_cast<std::size_t>(width));
    auto* bytes = reinterpret_cast<std::uint8_t*>(scratch_.data());
    for (int row = 0; row < context_->height; ++row) {
        input_->read(from, component, row, 0, width, scratch_.data());
        if (given.bits != made.bits) {
            // Samples may become wider or narrower in their place.
            std::vector<std::uint16_t>& codes = alphaCodes_;
            codes.resize(static_cast<std::size_t>(width));
            for (std::size_t i = 0; i < codes.size(); ++i) {
                codes[i] = codeOfLevel(input_->wide() ? scratch_[i] : bytes[i], given, made);
            }
            for (std::size_t i = 0; i < codes.size(); ++i) {
                if (output_->wide()) {
                    scratch_[i] = codes[i];
                } else {
                    bytes[i] = static_cast<std::uint8_t>(codes[i]);
                }
            }
        }
        output_->write(to, 3, row, 0, width, scratch_.data());
    }
}

zimg_chroma_location_e VideoEncoder::outputLocation() const
{
    return isJpegFormat(context_->pix_fmt) ? ZIMG_CHROMA_CENTER : ZIMG_CHROMA_LEFT;
}

/// `range` is that of the codes in `from`.
Status VideoEncoder::convertRows(const AVFrame& from, Range range, AVFrame& to, FieldOrder order)
{
    const bool mixesLines = input_->chromaShiftY() > 0 || output_->chromaShiftY() > 0;
    const bool byField = order != FieldOrder::progressive && mixesLines && context_->height > 1;
    const int fields = byField ? 2 : 1;
    for (int field = 0; field < fields; ++field) {
        if (Status status = convertField(from, range, to, field, fields); !status) {
            return status;
        }
    }
    return {};
}

Status VideoEncoder::convertField(const AVFrame& from, Range range, AVFrame& to, int field, int fields)
{
    const FieldRows given{*input_, context_->width, context_->height, field, fields};
    const FieldRows made{*output_, context_->width, context_->height, field, fields};
    PlanarFormat source = given.planarFormat();
    PlanarFormat target = made.planarFormat();
    source.width = target.width = std::max(source.width, target.width);
    source.height = target.height = std::max(source.height, target.height);
    source.range = range;
    source.chromaLocation = chromaLocation(from);
    target.range = target.rgb ? rgbRange_ : range_;
    target.matrix = source.matrix = matrix_;
    const bool narrows = dither_ == Dither::blueNoise && target.bits == 8 && source.bits > 8;
    target.bits = narrows ? 16 : target.bits;
    target.dither = dither_ == Dither::errorDiffusion && target.bits == 8;
    target.chromaLocation = outputLocation();

    auto& cached = graphs_[static_cast<std::size_t>(field)];
    if (!cached || !(cached->from == source) || !(cached->to == target)) {
        auto graph = RowGraph::make(source, target);
        if (!graph) {
            return graph.error();
        }
        cached.emplace(Graph{source, target, std::move(graph.value())});
    }
    const auto fill = [&](const RowGraph::Window& window, unsigned row, unsigned left, unsigned right) {
        const std::ptrdiff_t codeSize = input_->wide() ? 2 : 1;
        given.fill(window, row, left, right, codeSize,
                   [&](int plane, int at, int first, int end, std::byte* codes) {
                       if (!input_->hasPixelsOfFour()) {
                           input_->read(from, plane, at, first, end - first, codes);
                       } else if (plane == 0) { // and the others with it
                           const auto others = [&](int other) {
                               return static_cast<std::byte*>(window.row(other, row)) + first * codeSize;
                           };
                           input_->readColours(from, at, first, end - first, {codes, others(1), others(2)});
                       }
                   });
    };
    const auto take = [&](const RowGraph::Window& window, unsigned row, unsigned left, unsigned right) {
        if (!narrows) {
            made.take(window, row, left, right, to);
            return;
        }
        scratch_.resize(static_cast<std::size_t>(target.width));
        auto* bytes = reinterpret_cast<std::uint8_t*>(scratch_.data());
        made.each(row, left, right, [&](int plane, int index, int at, int first, int count) {
            const auto* codes = static_cast<const std::uint16_t*>(
                static_cast<const void*>(window.row(plane, static_cast<unsigned>(index))));
            narrowWithBlueNoise(codes + first, bytes, at, first, count,
                                {target.range, !target.rgb && plane > 0, plane});
            output_->write(to, plane, at, first, count, bytes);
        });
    };
    return cached->graph.run(fill, take);
}

} // namespace Qx::Media
