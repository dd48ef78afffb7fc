#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/Result.h"

#include <string>
#include <string_view>

namespace Qx::Media {

/// A profile of a codec: what an encoder is told, and the pixel formats that it holds.
struct EncoderProfile
{
    AVCodecID codec;
    std::string_view word; ///< as people write it: "hq"
    const char* value;     ///< of the encoder's option "profile"; null if the pixel format says it
    int shiftX;            ///< of chroma, as powers of two
    int shiftY;
    int bits; ///< 0: 8 or more
};

/// The profile of that name, in any case, or none if the name is empty or FFmpeg alone knows the codec's
/// profiles. Fails, with those that there are, if the codec has none of that name, or the encoder does not
/// take its pixel formats.
Result<const EncoderProfile*> profileNamed(const AVCodec& codec, const std::string& name);

/// Its place among the codec's, from 0.
int numberOf(const EncoderProfile& profile);

/// Whether frames of this pixel format have the profile.
bool holdsFormat(const EncoderProfile& profile, AVPixelFormat format);

} // namespace Qx::Media
