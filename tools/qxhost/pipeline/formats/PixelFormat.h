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

/// Reads "NAME" or "NAME:BITS", letter case aside. Throws Failure (usage) with the option's name and what was
/// probably meant.
PixelFormat parsePixelFormat(const std::string& option, const std::string& text);

/// The format that a file's extension names ("clip.v210"); empty for any other extension.
std::optional<PixelFormat> pixelFormatOf(const std::filesystem::path& file);

/// A frame of that size in memory, rows without padding but what the format itself asks for.
Image::Core::Data describeFrame(const PixelFormat& format, unsigned width, unsigned height);

/// The same in files. `rowBytes` is the distance of rows there, of the first plane where there are more; 0
/// for the format's own. Throws Failure (usage) in the name of `option` when no row is as long.
Media::StoredLayout storedLayout(const PixelFormat& format, unsigned width, unsigned height,
                                 std::size_t rowBytes, const char* option);

/// The same of frames that are written to `file`, whose rows only raw files can have at a distance of one's
/// own. Throws Failure (usage) for others.
Media::StoredLayout writtenLayout(const PixelFormat& format, const std::filesystem::path& file,
                                  unsigned width, unsigned height, std::size_t rowBytes);

} // namespace Qx::Program
