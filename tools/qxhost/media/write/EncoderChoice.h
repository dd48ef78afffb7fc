#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/write/FrameWriter.h"

#include <string>
#include <utility>
#include <vector>

namespace Qx::Media {

/// The encoder for a clip by its name's extension (lower case), or of the name the settings give.
Result<const AVCodec*> chooseClipEncoder(const std::string& extension, const AVOutputFormat& container,
                                         const OutputSettings& settings);

/// The pixel format an encoder is given: the one the settings name, or the nearest to what suits the codec:
/// RGB for lossless and still-picture codecs, 4:2:2 for those used between editing steps, 4:2:0 for delivery.
/// Never one that the encoder cannot use for the size.
Result<AVPixelFormat> choosePixelFormat(const AVCodec& codec, const OutputSettings& settings);

/// One of JPEG's formats: YCbCr in full range.
bool isJpegFormat(AVPixelFormat format);

/// High-quality options for encoders whose defaults favour small files.
std::vector<std::pair<std::string, std::string>> defaultOptions(const AVCodec& codec, AVPixelFormat format,
                                                                const OutputSettings& settings);

} // namespace Qx::Media
