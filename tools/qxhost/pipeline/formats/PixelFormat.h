#pragma once

#include "host/surfaces/FormatTable.h"
#include "platform/ImageDescription.h"
#include "tools/qxhost/media/StoredLayout.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Program {

/// A pixel format of the table at one of its depths.
struct PixelFormat
{
    const Host::FormatInfo* info = nullptr; ///< never null
    unsigned bits = 0;                      ///< of a component

    bool isYCrCb() const { return info->kind == Host::FormatKind::YCrCb; }
    bool isDeep() const { return bits > 8; }

    /// "uyvy", or with the depth where it is not the usual one "uyvy:16".
    std::string name() const;
};

/// Every format at every depth, in the table's order.
std::vector<PixelFormat> pixelFormats();

/// Reads "NAME" or "NAME:BITS", ignoring case. Throws Failure (usage) with the option's name and a
/// suggestion.
PixelFormat parsePixelFormat(const std::string& option, const std::string& text);

/// The format that a file's extension names ("clip.v210"); empty for any other extension.
std::optional<PixelFormat> pixelFormatOf(const std::filesystem::path& file);

/// Describes a frame of that size in memory, with no row padding beyond what the format requires.
Image::Core::Data describeFrame(const PixelFormat& format, unsigned width, unsigned height);

/// The layout of such a frame in files. `rowBytes` is the stride there, of the first plane if there are
/// several; 0 is the format's own. Throws Failure (usage), naming `option`, if the stride is invalid.
Media::StoredLayout storedLayout(const PixelFormat& format, unsigned width, unsigned height,
                                 std::size_t rowBytes, const char* option);

/// The same for frames that are written to `file`. Throws Failure (usage) also if `rowBytes` is given for a
/// file that is not raw.
Media::StoredLayout writtenLayout(const PixelFormat& format, const std::filesystem::path& file,
                                  unsigned width, unsigned height, std::size_t rowBytes);

} // namespace Qx::Program
