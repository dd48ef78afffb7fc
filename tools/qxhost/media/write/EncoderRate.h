#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/Result.h"
#include "tools/qxhost/media/write/EncoderOptions.h"
#include "tools/qxhost/media/write/FrameWriter.h"

#include <string>

namespace Qx::Media {

/// The options that make an encoder do it. Fails for encoders that have no such choice, with what they have
/// instead.
Result<EncoderOptions> rateOptions(const AVCodec& codec, const RateWish& wish);

/// Whether an option says how large the output is, so that the defaults for that do not hold.
bool isRateOption(const std::string& name);

} // namespace Qx::Media
