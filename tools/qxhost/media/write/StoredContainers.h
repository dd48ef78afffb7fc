#pragma once

#include "platform/ImageFormat.h"
#include "tools/qxhost/media/Ffmpeg.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Media {

/// How a container stores unconverted frames of a pixel format.
struct StoredContainer
{
    Image::Format format;
    int bits;
    std::string_view extension;
    AVCodecID codec;
    const char* tag; ///< four characters, or "" for the container's own choice
    AVPixelFormat pixelFormat;
    bool bigEndian;  ///< 16-bit words are stored with their upper byte first
    bool evenWidths; ///< nobody reads back rows of another number of pixels
};

/// Null if files of that extension cannot hold the format.
const StoredContainer* findContainer(Image::Format format, int bits, std::string_view extension);

/// The extensions of files that can hold it, without a dot.
std::vector<std::string> containersOf(Image::Format format, int bits);

/// FFmpeg's name of the pixel format whose memory layout is the same; empty if there is none.
std::string ffmpegNameOf(Image::Format format, int bits);

/// Whether an extension stands for raw files: raw, yuv, rgb, bin, data, or the name of the pixel format.
bool isRawExtension(std::string_view extension, std::string_view formatWord);

/// The extensions for raw files of any format: "raw", ...
std::span<const std::string_view> rawExtensions();

} // namespace Qx::Media
