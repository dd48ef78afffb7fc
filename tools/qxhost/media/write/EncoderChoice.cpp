#include "tools/qxhost/media/write/EncoderChoice.h"

#include "tools/qxhost/media/FfmpegVersions.h"
#include "tools/qxhost/media/rows/ComponentRows.h"
#include "tools/qxhost/media/rows/FloatPicture.h"
#include "tools/qxhost/media/write/EncoderProfiles.h"
#include "tools/qxhost/media/write/EncoderRate.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <span>
#include <string_view>

namespace Qx::Media {

namespace {

struct DefaultEncoder
{
    std::string_view extension;
    const char* encoder;
};

constexpr std::array defaultEncoders{
    DefaultEncoder{"mov", "prores_ks"}, DefaultEncoder{"mkv", "ffv1"},
    DefaultEncoder{"avi", "ffv1"},      DefaultEncoder{"nut", "ffv1"},
    DefaultEncoder{"mp4", "libx264"},   DefaultEncoder{"m4v", "libx264"},
    DefaultEncoder{"ts", "libx264"},    DefaultEncoder{"webm", "libvpx-vp9"},
    DefaultEncoder{"mxf", "dnxhd"},
};

/// The smallest picture that FFmpeg's encoder accepts.
constexpr int dnxhrWidth = 256;
constexpr int dnxhrHeight = 120;

/// The pixel format that suits a codec.
struct Wish
{
    bool rgb = false;
    int shiftX = 1;
    int shiftY = 1;
    int bits = 8;
};

bool isHighRange(const Colour& colour)
{
    return colour.transferTag == AVCOL_TRC_SMPTE2084 || colour.transferTag == AVCOL_TRC_ARIB_STD_B67;
}

Wish wishFor(AVCodecID codec, const OutputSettings& settings)
{
    const bool deep = settings.depth == Depth::bits16 && !settings.prefersEightBits;
    if (codec == AV_CODEC_ID_RAWVIDEO && settings.standardOutput >= 0 && settings.encoder.empty()) {
        return {true, 0, 0, deep ? 16 : 8};
    }
    switch (codec) {
    case AV_CODEC_ID_FFV1:
    case AV_CODEC_ID_UTVIDEO:
    case AV_CODEC_ID_HUFFYUV:
    case AV_CODEC_ID_FFVHUFF:
    case AV_CODEC_ID_MAGICYUV:
    case AV_CODEC_ID_QTRLE:
    case AV_CODEC_ID_PNG:
    case AV_CODEC_ID_APNG:
    case AV_CODEC_ID_TIFF:
    case AV_CODEC_ID_BMP:
    case AV_CODEC_ID_PPM:
    case AV_CODEC_ID_PAM:
    case AV_CODEC_ID_DPX:
    case AV_CODEC_ID_TARGA:
    case AV_CODEC_ID_WEBP:
    case AV_CODEC_ID_JPEGLS:
    case AV_CODEC_ID_JPEG2000:
        return {true, 0, 0, deep ? 16 : 8};
    case AV_CODEC_ID_PRORES:
        return settings.alpha ? Wish{false, 0, 0, 10} : Wish{false, 1, 0, deep ? 10 : 8}; // 4444 has alpha
    case AV_CODEC_ID_DNXHD:
    case AV_CODEC_ID_V210:
    case AV_CODEC_ID_CFHD:
    case AV_CODEC_ID_RAWVIDEO:
        return {false, 1, 0, deep ? 10 : 8};
    case AV_CODEC_ID_WRAPPED_AVFRAME: // Y4M
        return {false, 1, 0, deep ? 16 : 8};
    case AV_CODEC_ID_MJPEG:
        return {false, 1, 0, 8};
    case AV_CODEC_ID_HEVC:
    case AV_CODEC_ID_VP9:
    case AV_CODEC_ID_AV1:
        return {false, 1, 1, deep ? 10 : 8};
    case AV_CODEC_ID_H264: // 8 bits are what players take, and too few for high dynamic range
        return {false, 1, 1, isHighRange(settings.colour) && !settings.prefersEightBits ? 10 : 8};
    default:
        return {false, 1, 1, 8};
    }
}

/// FFV1 since level 3 cuts a picture into a grid of slices, which may not be finer than the picture.
EncoderOptions ffv1Options(const OutputSettings& settings)
{
    constexpr int enoughForSixteen = 64;
    constexpr int enoughForFour = 8;
    const int least = std::min(settings.width, settings.height);
    if (least < enoughForFour) {
        return {{"level", "1"}};
    }
    return {{"level", "3"}, {"slices", least < enoughForSixteen ? "4" : "16"}, {"slicecrc", "1"}};
}

/// Whether this encoder refuses sizes that the format's chroma does not divide evenly.
bool needsEvenSizes(const AVCodec& codec)
{
    return codec.id == AV_CODEC_ID_H264 || codec.id == AV_CODEC_ID_HEVC;
}

bool dividesSize(AVPixelFormat format, const OutputSettings& settings)
{
    const ComponentRows rows(format);
    return settings.width % (1 << rows.chromaShiftX()) == 0 &&
           settings.height % (1 << rows.chromaShiftY()) == 0;
}

std::string sizeText(const OutputSettings& settings)
{
    return std::to_string(settings.width) + "x" + std::to_string(settings.height);
}

/// Smaller is nearer; losing information costs more than carrying too much.
int distance(AVPixelFormat format, const Wish& wish, bool alpha)
{
    const ComponentRows rows(format);
    const auto missing = [](int have, int wanted, int lost, int spare) {
        return have < wanted ? (wanted - have) * lost : (have - wanted) * spare;
    };
    int cost = rows.isRgb() == wish.rgb ? 0 : 1000;
    if (!rows.isRgb()) {
        cost += missing(-rows.chromaShiftX(), -wish.shiftX, 100, 40);
        cost += missing(-rows.chromaShiftY(), -wish.shiftY, 100, 40);
    }
    cost += missing(rows.bits(), wish.bits, 30, 5);
    cost += missing(rows.hasAlpha() ? 1 : 0, alpha ? 1 : 0, 20, 4);
    return cost;
}

/// Whether frames of the format can be made here for the encoder: of codes, or for OpenEXR floats of RGB. Raw
/// frames of floats have no name in NUT, whose readers take them for others.
bool isMadeFor(const AVCodec& codec, AVPixelFormat format)
{
    const bool isOfFloats = codesOfFloats(format) != AV_PIX_FMT_NONE;
    return isOfFloats ? codec.id == AV_CODEC_ID_EXR && av_pix_fmt_count_planes(format) >= 3
                      : ComponentRows::writable(format);
}

std::string listOf(const AVCodec& codec)
{
    std::string text;
    for (const AVPixelFormat each : pixelFormatsOf(codec)) {
        if (isMadeFor(codec, each)) {
            text += (text.empty() ? "" : ", ") + std::string(av_get_pix_fmt_name(each));
        }
    }
    return text;
}

/// For encoders that take anything.
constexpr std::array anyFormats{AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV422P10, AV_PIX_FMT_YUV422P16,
                                AV_PIX_FMT_RGB24,   AV_PIX_FMT_RGB48,     AV_PIX_FMT_RGBA,
                                AV_PIX_FMT_RGBA64};

Result<AVPixelFormat> namedFormat(const AVCodec& codec, const OutputSettings& settings,
                                  const EncoderProfile* profile)
{
    const std::string& name = settings.pixelFormat;
    const AVPixelFormat format = av_get_pix_fmt(name.c_str());
    if (format == AV_PIX_FMT_NONE) {
        return Error{noPixelFormat(name)};
    }
    const std::span<const AVPixelFormat> taken = pixelFormatsOf(codec);
    const bool known = taken.empty() || std::find(taken.begin(), taken.end(), format) != taken.end();
    if (!known || !isMadeFor(codec, format)) {
        return Error{"encoder " + std::string(codec.name) + " cannot be given pixel format " + name +
                     (!taken.empty()                             ? "; it takes " + listOf(codec)
                      : codesOfFloats(format) != AV_PIX_FMT_NONE ? "; choose .exr, which holds floats"
                                                                 : "")};
    }
    if (profile && !holdsFormat(*profile, format)) {
        return Error{"profile " + std::string(profile->word) + " of encoder " + codec.name +
                     " does not hold pixel format " + name + "; leave one of them out"};
    }
    if (needsEvenSizes(codec) && !dividesSize(format, settings)) {
        return Error{"encoder " + std::string(codec.name) + " cannot hold " + sizeText(settings) +
                     " pixels as " + name + "; choose .mkv, or the pixel format yuv444p"};
    }
    return format;
}

/// For high quality, for encoders whose defaults favour small files.
EncoderOptions defaultOptions(const AVCodec& codec, AVPixelFormat format, const OutputSettings& settings)
{
    const std::string_view name = codec.name;
    const bool isKnown = format != AV_PIX_FMT_NONE;
    const bool deep = isKnown && ComponentRows(format).wide();
    const bool full = isKnown && ComponentRows(format).chromaShiftX() == 0;
    if (name == "libx264") {
        return {{"crf", "16"}, {"preset", "medium"}};
    }
    if (name == "libx265") {
        // It writes to standard error by itself; FFmpeg's messages do not.
        return {{"crf", "16"}, {"preset", "medium"}, {"x265-params", "log-level=error"}};
    }
    if (name == "libvpx-vp9") {
        return {{"crf", "20"}, {"b", "0"}, {"row-mt", "1"}, {"cpu-used", "4"}};
    }
    if (name == "prores_ks") {
        return {{"profile", full ? "4444" : "hq"}, {"vendor", "apl0"}};
    }
    if (name == "dnxhd") {
        return {{"profile", full ? "dnxhr_444" : deep ? "dnxhr_hqx" : "dnxhr_hq"}};
    }
    if (name == "libsvtav1") {
        return {{"crf", "20"}, {"b", "0"}, {"preset", "8"}};
    }
    if (name == "libaom-av1") {
        return {{"crf", "20"}, {"b", "0"}, {"row-mt", "1"}, {"cpu-used", "6"}};
    }
    if (name == "librav1e") {
        return {{"qp", "60"}, {"speed", "8"}};
    }
    if (name == "ffv1") {
        return ffv1Options(settings);
    }
    if (name == "exr") {
        return {{"compression", "zip16"}};
    }
    if (name == "png") {
        return {{"compression_level", "1"},
                {"pred", "sub"}}; // higher levels cost twice the time for 2% of size
    }
    if (name == "mpeg4" || name == "mpeg2video" || name == "mjpeg") {
        return {{"flags", "+qscale"}, {"global_quality", std::to_string(2 * FF_QP2LAMBDA)}};
    }
    return {};
}

} // namespace

Result<const AVCodec*> chooseClipEncoder(const std::string& extension, const AVOutputFormat& container,
                                         const OutputSettings& settings)
{
    if (!settings.encoder.empty()) {
        return encoderNamed(settings.encoder, AVMEDIA_TYPE_VIDEO);
    }
    if (settings.standardOutput >= 0 && extension == "nut") {
        return encoderNamed("rawvideo", AVMEDIA_TYPE_VIDEO); // for a program that reads it at once
    }
    for (const DefaultEncoder& each : defaultEncoders) {
        const AVCodec* codec =
            each.extension == extension ? avcodec_find_encoder_by_name(each.encoder) : nullptr;
        if (codec) {
            return codec;
        }
    }
    const AVCodec* codec = avcodec_find_encoder(container.video_codec);
    if (!codec || codec->type != AVMEDIA_TYPE_VIDEO) {
        return Error{"a file of type ." + extension +
                     " cannot hold video, or this FFmpeg has no encoder for it"};
    }
    return codec;
}

Result<AVPixelFormat> choosePixelFormat(const AVCodec& codec, const OutputSettings& settings)
{
    const auto profile = profileNamed(codec, settings.profile);
    if (!profile) {
        return profile.error();
    }
    if (codec.id == AV_CODEC_ID_EXR && settings.pixelFormat.empty()) {
        return settings.alpha ? AV_PIX_FMT_GBRAPF32 : AV_PIX_FMT_GBRPF32; // made of codes
    }
    if (!settings.pixelFormat.empty()) {
        return namedFormat(codec, settings, profile.value());
    }
    if (codec.id == AV_CODEC_ID_DNXHD && (settings.width < dnxhrWidth || settings.height < dnxhrHeight)) {
        return Error{"DNxHR holds pictures of " + std::to_string(dnxhrWidth) + "x" +
                     std::to_string(dnxhrHeight) + " pixels or more, and these are " + sizeText(settings) +
                     "; choose another codec or another kind of file (.mov, .mkv)"};
    }
    const Wish wish = wishFor(codec.id, settings);
    AVPixelFormat best = AV_PIX_FMT_NONE;
    int bestDistance = 0;
    const std::span<const AVPixelFormat> taken = pixelFormatsOf(codec);
    for (const AVPixelFormat each : taken.empty() ? std::span<const AVPixelFormat>(anyFormats) : taken) {
        if (!ComponentRows::writable(each) || (needsEvenSizes(codec) && !dividesSize(each, settings)) ||
            (profile.value() && !holdsFormat(*profile.value(), each))) {
            continue;
        }
        const int here = distance(each, wish, settings.alpha);
        if (best == AV_PIX_FMT_NONE || here < bestDistance) {
            best = each;
            bestDistance = here;
        }
    }
    if (best == AV_PIX_FMT_NONE) {
        return Error{
            "encoder " + std::string(codec.name) +
            " takes no pixel format that can be made here; choose another codec or another kind of file "
            "(.mov, .mkv, .png)"};
    }
    return best;
}

std::string noPixelFormat(const std::string& name)
{
    std::vector<std::string> names;
    for (const AVPixFmtDescriptor* each = nullptr; (each = av_pix_fmt_desc_next(each));) {
        names.emplace_back(each->name);
    }
    return "there is no pixel format \"" + name + "\"" + nearestWords(name, names);
}

std::string ditherIsIdle(const AVCodecContext& encoder, const OutputSettings& settings)
{
    const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(encoder.pix_fmt);
    if (settings.dither == Dither::none || settings.stored || !format || format->comp[0].depth <= 8) {
        return {};
    }
    return "nothing is dithered: the codes of " + std::string(format->name) +
           " have more than 8 bits; --pixel-format chooses others";
}

std::string highDynamicRangeSteps(const AVCodecContext& encoder, const OutputSettings& settings)
{
    const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(encoder.pix_fmt);
    const int transfer = settings.colour.transferTag;
    const bool isHigh = transfer == AVCOL_TRC_SMPTE2084 || transfer == AVCOL_TRC_ARIB_STD_B67;
    if (!isHigh || settings.stored || settings.depth == Depth::bits8 || !format ||
        format->comp[0].depth > 8) {
        return {};
    }
    return "the codes of " + std::string(transfer == AVCOL_TRC_SMPTE2084 ? "PQ" : "HLG") +
           " become 8 bits (" + format->name +
           "), in which gradients show steps; another --profile or --pixel-format keeps more bits, "
           "--tone-map bt2390 makes BT.709 of them";
}

Matrix encodedMatrix(AVCodecID codec, AVPixelFormat format, Matrix wanted)
{
    // JFIF 1.02 has one matrix. VC-3 (SMPTE ST 2019-1) has BT.709 alone of those here, and its decoders
    // assume it whatever the container says.
    return isJpegFormat(format) ? Matrix::bt601 : codec == AV_CODEC_ID_DNXHD ? Matrix::bt709 : wanted;
}

bool isJpegFormat(AVPixelFormat format)
{
    return format == AV_PIX_FMT_YUVJ420P || format == AV_PIX_FMT_YUVJ422P || format == AV_PIX_FMT_YUVJ444P;
}

Result<EncoderOptions> optionsFor(const AVCodec& codec, AVPixelFormat format, const OutputSettings& settings)
{
    EncoderOptions options = defaultOptions(codec, format, settings);
    const auto rate = rateOptions(codec, settings.rate);
    if (!rate) {
        return rate.error();
    }
    const auto profile = profileNamed(codec, settings.profile);
    if (!profile) {
        return profile.error();
    }
    const EncoderOptions& own = settings.encoderOptions;
    const bool choosesRate =
        !rate.value().empty() ||
        std::any_of(own.begin(), own.end(), [](const auto& each) { return isRateOption(each.first); });
    if (choosesRate) {
        std::erase_if(options, [](const auto& each) {
            return isRateOption(each.first) ||
                   each == std::pair<const std::string, std::string>("flags", "+qscale");
        });
    }
    if (profile.value() && profile.value()->value) {
        // FFmpeg's other encoders of ProRes know the number alone.
        const bool byNumber = codec.id == AV_CODEC_ID_PRORES && std::string_view(codec.name) != "prores_ks";
        options["profile"] = byNumber ? std::to_string(numberOf(*profile.value())) : profile.value()->value;
    } else if (!profile.value() && !settings.profile.empty()) {
        options["profile"] = settings.profile;
    }
    for (const EncoderOptions& more : {rate.value(), own}) {
        for (const auto& [name, value] : more) {
            // It writes to standard error by itself.
            options[name] = name == "x265-params" ? "log-level=error:" + value : value;
        }
    }
    return options;
}

} // namespace Qx::Media
