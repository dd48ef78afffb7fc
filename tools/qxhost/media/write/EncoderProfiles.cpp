#include "tools/qxhost/media/write/EncoderProfiles.h"

#include "host/core/AsciiCase.h"
#include "tools/qxhost/media/FfmpegVersions.h"
#include "tools/qxhost/media/rows/ComponentRows.h"

#include <algorithm>
#include <array>

namespace Qx::Media {

namespace {

constexpr EncoderProfile of422(AVCodecID codec, std::string_view word, const char* value, int bits)
{
    return {codec, word, value, 1, 0, bits};
}

constexpr EncoderProfile of420(AVCodecID codec, std::string_view word, const char* value, int bits)
{
    return {codec, word, value, 1, 1, bits};
}

constexpr EncoderProfile of444(AVCodecID codec, std::string_view word, const char* value, int bits)
{
    return {codec, word, value, 0, 0, bits};
}

constexpr std::array profiles{
    of422(AV_CODEC_ID_PRORES, "proxy", "proxy", 10),
    of422(AV_CODEC_ID_PRORES, "lt", "lt", 10),
    of422(AV_CODEC_ID_PRORES, "standard", "standard", 10),
    of422(AV_CODEC_ID_PRORES, "hq", "hq", 10),
    of444(AV_CODEC_ID_PRORES, "4444", "4444", 10),
    of444(AV_CODEC_ID_PRORES, "4444xq", "4444xq", 10),
    of422(AV_CODEC_ID_DNXHD, "lb", "dnxhr_lb", 8),
    of422(AV_CODEC_ID_DNXHD, "sq", "dnxhr_sq", 8),
    of422(AV_CODEC_ID_DNXHD, "hq", "dnxhr_hq", 8),
    of422(AV_CODEC_ID_DNXHD, "hqx", "dnxhr_hqx", 10),
    of444(AV_CODEC_ID_DNXHD, "444", "dnxhr_444", 10),
    of420(AV_CODEC_ID_H264, "baseline", "baseline", 8),
    of420(AV_CODEC_ID_H264, "main", "main", 8),
    of420(AV_CODEC_ID_H264, "high", "high", 8),
    of420(AV_CODEC_ID_H264, "high10", "high10", 10),
    of422(AV_CODEC_ID_H264, "high422", "high422", 10),
    of444(AV_CODEC_ID_H264, "high444", "high444", 10),
    of420(AV_CODEC_ID_HEVC, "main", "main", 8),
    of420(AV_CODEC_ID_HEVC, "main10", "main10", 10),
    of420(AV_CODEC_ID_HEVC, "main12", "main12", 12),
    of422(AV_CODEC_ID_HEVC, "main422-10", "main422-10", 10),
    of444(AV_CODEC_ID_HEVC, "main444-8", "main444-8", 8),
    of444(AV_CODEC_ID_HEVC, "main444-10", "main444-10", 10),
    of420(AV_CODEC_ID_AV1, "main", nullptr, 0),
    of444(AV_CODEC_ID_AV1, "high", nullptr, 0),
    of422(AV_CODEC_ID_AV1, "professional", nullptr, 0),
    of420(AV_CODEC_ID_VP9, "0", nullptr, 8),
    of444(AV_CODEC_ID_VP9, "1", nullptr, 8),
    of420(AV_CODEC_ID_VP9, "2", nullptr, 10),
    of444(AV_CODEC_ID_VP9, "3", nullptr, 10),
};

bool isTaken(const AVCodec& codec, const EncoderProfile& profile)
{
    const std::span<const AVPixelFormat> formats = pixelFormatsOf(codec);
    return std::any_of(formats.begin(), formats.end(), [&](AVPixelFormat format) {
        return ComponentRows::writable(format) && holdsFormat(profile, format);
    });
}

} // namespace

bool holdsFormat(const EncoderProfile& profile, AVPixelFormat format)
{
    const ComponentRows rows(format);
    return !rows.isRgb() && rows.chromaShiftX() == profile.shiftX && rows.chromaShiftY() == profile.shiftY &&
           (profile.bits == 0 || rows.bits() == profile.bits);
}

int numberOf(const EncoderProfile& profile)
{
    int number = 0;
    for (const EncoderProfile* each = profiles.data(); each != &profile; ++each) {
        number += each->codec == profile.codec ? 1 : 0;
    }
    return number;
}

Result<const EncoderProfile*> profileNamed(const AVCodec& codec, const std::string& name)
{
    const EncoderProfile* found = nullptr;
    std::string names;
    for (const EncoderProfile& each : profiles) {
        if (each.codec != codec.id || !isTaken(codec, each)) {
            continue;
        }
        names += (names.empty() ? "" : ", ") + std::string(each.word);
        found = Host::asciiLower(name) == each.word ? &each : found;
    }
    if (name.empty() || found || names.empty()) {
        return found;
    }
    return Error{"encoder " + std::string(codec.name) + " has no profile \"" + name + "\"; it has " + names};
}

} // namespace Qx::Media
