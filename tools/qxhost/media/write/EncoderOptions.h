#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/Result.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Media {

using EncoderOptions = std::map<std::string, std::string>;

/// Sets options on an encoder that is not open yet, its own and those of all encoders. Fails if it has no
/// such option, with the names near it, or does not take the value, with those that it takes.
Status applyOptions(AVCodecContext& encoder, const EncoderOptions& options);

/// "; near it are a, b" with the words like this one, the nearest first, or an empty string.
std::string nearestWords(std::string_view word, const std::vector<std::string>& words);

/// The encoder of that name, or the usual one of the codec of that name. Fails with the names near it.
Result<const AVCodec*> encoderNamed(const std::string& name, AVMediaType kind);

} // namespace Qx::Media
