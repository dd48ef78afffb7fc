#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/write/EncoderOptions.h"
#include "tools/qxhost/media/write/FrameWriter.h"

#include <string>

namespace Qx::Media {

/// Why a wish for dither changes nothing with this encoder, whose codes have more than 8 bits; else empty.
std::string ditherIsIdle(const AVCodecContext& encoder, const OutputSettings& settings);

/// The remark if this encoder gets deeper codes of high dynamic range in 8 bits; else empty.
std::string highDynamicRangeSteps(const AVCodecContext& encoder, const OutputSettings& settings);

/// The encoder for a clip by its name's extension (lower case), or of the name the settings give.
Result<const AVCodec*> chooseClipEncoder(const std::string& extension, const AVOutputFormat& container,
                                         const OutputSettings& settings);

/// The pixel format an encoder is given: the one the settings name, or the nearest to what suits the codec:
/// RGB for lossless and still-picture codecs, 4:2:2 for those used between editing steps, 4:2:0 for delivery.
/// Never one that the encoder cannot use for the size. Fails if the codec has no profile as the settings name
/// it, or the two formats exclude each other.
Result<AVPixelFormat> choosePixelFormat(const AVCodec& codec, const OutputSettings& settings);

/// What to say of a name that no pixel format has.
std::string noPixelFormat(const std::string& name);

/// One of JPEG's formats: YCbCr in full range.
bool isJpegFormat(AVPixelFormat format);

/// The matrix of the YCbCr that is encoded: the one wanted, unless the codec has one of its own.
Matrix encodedMatrix(AVCodecID codec, AVPixelFormat format, Matrix wanted);

/// All options of an encoder: for high quality where its defaults favour small files, those for the profile
/// and the size that the settings ask for, and the settings' own, which override the others. Without a
/// pixel format (AV_PIX_FMT_NONE), those that do not depend on it.
Result<EncoderOptions> optionsFor(const AVCodec& codec, AVPixelFormat format, const OutputSettings& settings);

} // namespace Qx::Media
