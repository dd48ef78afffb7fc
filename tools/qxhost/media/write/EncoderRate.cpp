#include "tools/qxhost/media/write/EncoderRate.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

namespace Qx::Media {

namespace {

/// An encoder's scale of quality: the option's values for 0 and for 100.
struct QualityScale
{
    std::string_view encoder;
    const char* option;
    double worst;
    double best;
};

constexpr std::array scales{
    QualityScale{"libx264", "crf", 51, 0},       QualityScale{"libx265", "crf", 51, 0},
    QualityScale{"libvpx-vp9", "crf", 63, 0},    QualityScale{"libaom-av1", "crf", 63, 0},
    QualityScale{"libsvtav1", "crf", 63, 1},     QualityScale{"librav1e", "qp", 255, 0},
    QualityScale{"libwebp", "quality", 0, 100},  QualityScale{"libtheora", "qscale", 0, 10},
    QualityScale{"mpeg4", "qscale", 31, 1},      QualityScale{"mpeg2video", "qscale", 31, 1},
    QualityScale{"mpeg1video", "qscale", 31, 1}, QualityScale{"mjpeg", "qscale", 31, 1},
};

constexpr std::array<std::string_view, 9> rateNames{"b",  "crf", "qp",      "q",      "global_quality",
                                                    "rc", "cqp", "crf_max", "quality"};

/// Why an encoder has no choice, or an empty string.
std::string whyNot(const AVCodec& codec)
{
    const std::string encoder = "encoder " + std::string(codec.name);
    if (codec.id == AV_CODEC_ID_PRORES || codec.id == AV_CODEC_ID_DNXHD) {
        return encoder + ": its profile says how large frames are; choose --profile";
    }
    const AVCodecDescriptor* descriptor = avcodec_descriptor_get(codec.id);
    const bool isLossy = !descriptor || (descriptor->props & AV_CODEC_PROP_LOSSY) != 0;
    return isLossy ? "" : encoder + " is lossless";
}

std::string wholeNumber(double value)
{
    return std::to_string(std::lround(value));
}

} // namespace

Result<EncoderOptions> rateOptions(const AVCodec& codec, const RateWish& wish)
{
    if (!wish.quality && wish.bitRate == 0) {
        return EncoderOptions{};
    }
    if (const std::string why = whyNot(codec); !why.empty()) {
        return Error{std::string(wish.quality ? "--quality" : "--bitrate") + ": " + why};
    }
    if (wish.bitRate > 0) {
        return EncoderOptions{{"b", std::to_string(wish.bitRate)}};
    }
    const auto* scale = std::find_if(scales.begin(), scales.end(),
                                     [&](const QualityScale& each) { return each.encoder == codec.name; });
    if (scale == scales.end()) {
        return Error{"--quality: not known for encoder " + std::string(codec.name) +
                     "; choose --bitrate, or what 'ffmpeg -h encoder=" + codec.name +
                     "' lists with --video-option"};
    }
    constexpr double best = 100;
    const double value = scale->worst + (scale->best - scale->worst) * *wish.quality / best;
    if (std::string_view(scale->option) == "qscale") {
        return EncoderOptions{{"flags", "+qscale"}, {"global_quality", wholeNumber(value * FF_QP2LAMBDA)}};
    }
    EncoderOptions options{{scale->option, wholeNumber(value)}};
    if (codec.id == AV_CODEC_ID_VP9 || codec.id == AV_CODEC_ID_AV1) {
        options["b"] = "0"; // or it would be a limit
    }
    return options;
}

bool isRateOption(const std::string& name)
{
    return std::find(rateNames.begin(), rateNames.end(), name) != rateNames.end();
}

} // namespace Qx::Media
