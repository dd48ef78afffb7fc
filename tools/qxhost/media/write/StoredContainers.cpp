#include "tools/qxhost/media/write/StoredContainers.h"

#include <algorithm>
#include <array>

namespace Qx::Media {

namespace {

using Image::Format;

constexpr auto rawVideo = AV_CODEC_ID_RAWVIDEO;

/// Frames whose bytes are FFmpeg's own, with the four characters by which each container knows them
/// (libavformat's tables for RIFF, QuickTime and NUT).
constexpr StoredContainer stored(Format format, int bits, std::string_view extension, const char* tag,
                                 AVPixelFormat pixelFormat, bool bigEndian = false)
{
    return {format, bits, extension, rawVideo, tag, pixelFormat, bigEndian, false};
}

constexpr std::array containers{
    stored(Image::YUY2, 8, "avi", "YUY2", AV_PIX_FMT_YUYV422),
    stored(Image::YUY2, 8, "mov", "yuvs", AV_PIX_FMT_YUYV422),
    stored(Image::YUY2, 8, "nut", "YUY2", AV_PIX_FMT_YUYV422),
    stored(Image::YUY2, 8, "mkv", "YUY2", AV_PIX_FMT_YUYV422),
    stored(Image::UYVY, 8, "mov", "2vuy", AV_PIX_FMT_UYVY422),
    stored(Image::UYVY, 8, "avi", "UYVY", AV_PIX_FMT_UYVY422),
    stored(Image::UYVY, 8, "nut", "UYVY", AV_PIX_FMT_UYVY422),
    stored(Image::UYVY, 8, "mkv", "UYVY", AV_PIX_FMT_UYVY422),
    stored(Image::YVYU, 8, "avi", "YVYU", AV_PIX_FMT_YVYU422),
    stored(Image::YVYU, 8, "nut", "YVYU", AV_PIX_FMT_YVYU422),
    stored(Image::YVYU, 8, "mkv", "YVYU", AV_PIX_FMT_YVYU422),
    stored(Image::YV12, 8, "avi", "YV12", AV_PIX_FMT_YUV420P),
    stored(Image::YV12, 8, "nut", "YV12", AV_PIX_FMT_YUV420P),
    StoredContainer{Image::V210, 10, "mov", AV_CODEC_ID_V210, "v210", AV_PIX_FMT_YUV422P10, false, false},
    StoredContainer{Image::V210, 10, "avi", AV_CODEC_ID_V210, "v210", AV_PIX_FMT_YUV422P10, false, false},
    StoredContainer{Image::V210, 10, "mkv", AV_CODEC_ID_V210, "v210", AV_PIX_FMT_YUV422P10, false, false},
    StoredContainer{Image::M101, 10, "avi", AV_CODEC_ID_M101, "M101", AV_PIX_FMT_YUV422P10, false, false},
    StoredContainer{Image::M101, 8, "avi", AV_CODEC_ID_M101, "M101", AV_PIX_FMT_YUYV422, false, false},
    StoredContainer{Image::M102, 10, "avi", AV_CODEC_ID_M101, "M102", AV_PIX_FMT_YUV422P10, false, false},
    StoredContainer{Image::M102, 8, "avi", AV_CODEC_ID_M101, "M102", AV_PIX_FMT_YUYV422, false, false},
    stored(Image::ARGB, 8, "mov", "raw ", AV_PIX_FMT_ARGB),
    stored(Image::ARGB, 8, "nut", "ARGB", AV_PIX_FMT_ARGB),
    stored(Image::BGRA, 8, "mov", "BGRA", AV_PIX_FMT_BGRA),
    stored(Image::BGRA, 8, "avi", "", AV_PIX_FMT_BGRA),
    stored(Image::BGRA, 8, "nut", "BGRA", AV_PIX_FMT_BGRA),
    stored(Image::RGBA, 8, "mov", "RGBA", AV_PIX_FMT_RGBA),
    stored(Image::RGBA, 8, "nut", "RGBA", AV_PIX_FMT_RGBA),
    stored(Image::ABGR, 8, "mov", "ABGR", AV_PIX_FMT_ABGR),
    stored(Image::ABGR, 8, "nut", "ABGR", AV_PIX_FMT_ABGR),
    stored(Image::RGBA, 16, "nut", "RBA@", AV_PIX_FMT_RGBA64LE),
    stored(Image::BGRA, 16, "nut", "BRA@", AV_PIX_FMT_BGRA64LE),
    stored(Image::BGR24, 8, "mov", "24BG", AV_PIX_FMT_BGR24),
    stored(Image::BGR24, 8, "avi", "", AV_PIX_FMT_BGR24),
    stored(Image::BGR24, 8, "nut", "BGR\x18", AV_PIX_FMT_BGR24),
    stored(Image::BGR24, 16, "nut", "BGR0", AV_PIX_FMT_BGR48LE),
    stored(Image::B48R, 16, "mov", "b48r", AV_PIX_FMT_RGB48BE, true),
    stored(Image::B48R, 16, "nut", "RGB0", AV_PIX_FMT_RGB48LE),
    // QuickTime fills its rows up to words of 16 bits, and FFmpeg reads them in words of 32.
    StoredContainer{Image::B48R, 8, "mov", rawVideo, "raw ", AV_PIX_FMT_RGB24, false, true},
    stored(Image::B48R, 8, "nut", "RGB\x18", AV_PIX_FMT_RGB24),
    stored(Image::PlanarRGB, 8, "nut", "G3\0\x08", AV_PIX_FMT_GBRP),
    stored(Image::PlanarRGB, 16, "nut", "G3\0\x10", AV_PIX_FMT_GBRP16LE),
    stored(Image::B64A, 16, "mov", "b64a", AV_PIX_FMT_RGBA64BE, true), // the decoder puts alpha last
};

/// FFmpeg's formats of the same bytes that no container above names.
struct SameBytes
{
    Format format;
    int bits;
    AVPixelFormat pixelFormat;
};
constexpr std::array sameBytes{
    SameBytes{Image::ARGB10, 10, AV_PIX_FMT_X2RGB10LE},
    SameBytes{Image::Y216, 16, AV_PIX_FMT_Y210LE}, // which looks at the upper ten bits
};

constexpr std::array<std::string_view, 5> raw{"raw", "yuv", "rgb", "bin", "data"};

/// Formats whose rows are those of another, which stands for them above.
Format sameRows(Format format, int bits)
{
    switch (format) {
    case Image::YUYV:
        return bits == 16 ? Image::Y216 : Image::YUY2;
    case Image::V216:
        return Image::Y216;
    case Image::YUY2:
        return bits == 16 ? Image::Y216 : format;
    case Image::BGRA32:
        return Image::BGRA;
    case Image::RGB24:
        return Image::BGR24;
    case Image::BGR3:
        return Image::B48R;
    case Image::ARGB:
    case Image::ARGB10:
        return bits == 16 ? Image::B64A : (bits == 10 ? format : Image::ARGB);
    case Image::B64A:
        return bits == 8 ? Image::ARGB : format;
    case Image::UnknownFormat:
    case Image::PlanarRGB:
    case Image::YVYU:
    case Image::UYVY:
    case Image::VYUY:
    case Image::YV12:
    case Image::V210:
    case Image::M101:
    case Image::M102:
    case Image::Y216:
    case Image::BGRA:
    case Image::RGBA:
    case Image::ABGR:
    case Image::BGR24:
    case Image::B48R:
        break;
    }
    return format;
}

} // namespace

const StoredContainer* findContainer(Format format, int bits, std::string_view extension)
{
    format = sameRows(format, bits);
    const auto* found = std::find_if(containers.begin(), containers.end(), [&](const StoredContainer& each) {
        return each.format == format && each.bits == bits && each.extension == extension;
    });
    return found != containers.end() ? found : nullptr;
}

std::vector<std::string> containersOf(Format format, int bits)
{
    std::vector<std::string> extensions;
    for (const std::string_view extension : {"mov", "avi", "nut", "mkv"}) {
        if (findContainer(format, bits, extension) != nullptr) {
            extensions.emplace_back(extension);
        }
    }
    return extensions;
}

std::string ffmpegNameOf(Format format, int bits)
{
    if (format == Image::M101 || format == Image::M102 || format == Image::V210) {
        return bits == 8 ? "yuyv422" : "";
    }
    // Only where FFmpeg's own layout is meant, and not what a decoder makes of it.
    const Format same = sameRows(format, bits);
    for (const StoredContainer& each : containers) {
        const bool isSame = each.format == same && each.bits == bits && !each.bigEndian;
        if (isSame && each.format != Image::YV12 && each.format != Image::PlanarRGB) {
            return av_get_pix_fmt_name(each.pixelFormat);
        }
    }
    for (const SameBytes& each : sameBytes) {
        if (each.format == same && each.bits == bits) {
            return av_get_pix_fmt_name(each.pixelFormat);
        }
    }
    return {};
}

bool isRawExtension(std::string_view extension, std::string_view formatWord)
{
    return extension == formatWord || std::find(raw.begin(), raw.end(), extension) != raw.end();
}

std::span<const std::string_view> rawExtensions()
{
    return raw;
}

} // namespace Qx::Media
