#pragma once

// What FFmpeg's versions, 5.1 to 7.1, do in different ways. Nothing else asks for a version.

#include "tools/qxhost/media/Ffmpeg.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace Qx::Media {

/// How long the picture is shown, in the stream's time base; 0 if that is unknown.
std::int64_t durationOf(const AVFrame& frame);

void setDuration(AVFrame& frame, std::int64_t duration);

FieldOrder fieldOrderOf(const AVFrame& frame);
void setFieldOrder(AVFrame& frame, FieldOrder order);

/// What a stream says beside its packets, such as the display that it was mastered on; empty if it does not.
/// The bytes are the stream's.
std::span<const std::uint8_t> sideDataOf(const AVStream& stream, AVPacketSideDataType type);
/// Copies the bytes. False if memory lacks.
bool setSideData(AVStream& stream, AVPacketSideDataType type, std::span<const std::uint8_t> content);

/// What a function that takes written bytes for FFmpeg is given.
#if LIBAVFORMAT_VERSION_MAJOR >= 61
using WrittenBytes = const std::uint8_t*;
#else
using WrittenBytes = std::uint8_t*;
#endif

using DisplayMatrix = std::array<std::int32_t, 9>;

/// How players rotate and flip the pictures; null where the stream does not say. It is the stream's.
const std::int32_t* displayMatrixOf(const AVStream& stream);
/// False if memory lacks.
bool setDisplayMatrix(AVStream& stream, const DisplayMatrix& matrix);

/// What the source of a filter graph is told of its colours, after its other arguments: versions that agree
/// on colours between filters leave out the tags that it is not told.
std::string colourArguments(AVPixelFormat format, AVColorSpace matrix, AVColorRange range);

/// The formats that an encoder takes, FFmpeg's own list; empty if it takes any.
std::span<const AVPixelFormat> pixelFormatsOf(const AVCodec& codec);
std::span<const AVSampleFormat> sampleFormatsOf(const AVCodec& codec);
std::span<const int> sampleRatesOf(const AVCodec& codec);
std::span<const AVChannelLayout> channelLayoutsOf(const AVCodec& codec);

} // namespace Qx::Media
