#pragma once

#include "platform/Surface.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Frames in host memory as bytes, in any format.
namespace Qx::Pixels {

struct FrameSpec
{
    Image::Format format = Image::UnknownFormat;
    unsigned depth = 8;
    unsigned width = 1;
    unsigned height = 1;
    bool bottomUp = false;
    unsigned padding = 0; ///< texels behind each row

    std::string name() const;
};

/// Bytes that the pixels of a row need, and rows of all planes: from the definition of each format.
std::size_t rowBytesOf(const FrameSpec& spec);
std::size_t rowsOf(const FrameSpec& spec);

/// A frame with memory, whose rows lie as the description says. Without pixels when the host refuses.
Image::Surface makeFrame(const FrameSpec& spec);

/// A frame of random bytes, padding included. The same at every call.
Image::Surface randomFrame(const FrameSpec& spec);

using Rows = std::vector<std::vector<std::byte>>;

/// The bytes of a frame in host memory, row by row as they lie there, without padding. Empty when there are
/// none, or fewer than the description needs.
Rows rowsIn(const Image::Surface& host, const FrameSpec& spec);

/// Puts bytes into a frame's rows.
void fillRows(Image::Surface& host, const Rows& rows);

/// Names the first byte that differs; empty when the rows are the same.
std::string firstDifference(const Rows& got, const Rows& wanted);

} // namespace Qx::Pixels
