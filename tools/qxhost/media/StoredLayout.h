#pragma once

#include "platform/ImageFormat.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Qx::Media {

/// The layout of frames of a pixel format in files that store them unconverted.
///
/// In memory the rows of all planes follow each other at one pitch. In a file every plane has row bytes of
/// its own, and nothing lies between rows or planes.
struct StoredLayout
{
    struct Plane
    {
        int rows = 0;
        std::size_t usedBytes = 0; ///< of a row, what pixels need
        std::size_t rowBytes = 0;  ///< from a row to the next in a file; at least usedBytes
    };

    Image::Format format = Image::UnknownFormat;
    int bits = 0;     ///< of a component
    std::string word; ///< the format's name on the command line: "uyvy"
    std::string name; ///< the same with the depth where it is not the usual one: "uyvy:16"
    bool yCrCb = false;
    bool words = false; ///< components are 16-bit words, in the machine's order
    std::vector<Plane> planes;

    std::size_t frameBytes() const;
    int rows() const; ///< of all planes

    /// Whether a frame in memory, with rows of that pitch, is what gather() would make of it.
    bool liesTheSame(std::ptrdiff_t pitch) const;

    /// Copies a frame from memory to `frame`, which has frameBytes(). Row padding is zeroed.
    void gather(const void* rows, std::ptrdiff_t pitch, std::byte* frame) const;

    /// The reverse. A row in memory has `pitch` bytes; its padding is zeroed.
    void scatter(const std::byte* frame, void* rows, std::ptrdiff_t pitch) const;
};

} // namespace Qx::Media
