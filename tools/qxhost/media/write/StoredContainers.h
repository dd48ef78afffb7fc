#pragma once

#include "platform/ImageFormat.h"
#include "tools/qxhost/media/Ffmpeg.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Media {

/// How a container holds frames of a pixel format as they are.
struct StoredContainer
{
    Image::Format format;
    int bits;
    std::string_view extension;
    AVCodecID codec;
    const char* tag; ///< four characters, or "" for the container's own choice
    AVPixelFormat pixelFormat;
    bool bigEndian; ///< 16-bit words are stored with their upper byte first
};

/// Null when files of that extension cannot hold it.
const StoredContainer* findContainer(Image::Format format, int bits, std::string_view extension);

/// Extensions of files that can, without a dot.
std::vector<std::string> containersOf(Image::Format format, int bits);

/// FFmpeg's name of the pixel format whose memory layout is the same; empty when it has none.
std::string ffmpegNameOf(Image::Format format, int bits);

/// Whether a name's extension stands for frames one after the other with nothing around them: raw, yuv, rgb,
/// bin, or the name of a pixel format itself.
bool isRawExtension(std::string_view extension, std::string_view formatWord);

/// Those that stand for any format: "raw", ...
std::span<const std::string_view> rawExtensions();

} // namespace Qx::Media
