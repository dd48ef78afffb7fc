#pragma once

#include "Promise.h"

#include <array>
#include <cstddef>
#include <string_view>
#include <vector>

namespace Qx::HostTests {

/// Bytes of a row of an image without padding.
std::size_t rowBytes(XY<int> size, iGPUImage::eFormat format);

/// Bytes that differ from their neighbours, and from those of another seed.
std::vector<unsigned char> pattern(std::size_t bytes, unsigned seed);

/// Fills a host image with pattern(). Returns false, with a failure, if it cannot be mapped.
bool fill(iHostImage& image, unsigned seed);

/// The bytes of a host image, or none, with a failure, if it cannot be mapped.
std::vector<unsigned char> bytesOf(iHostImage& image);

/// The bytes of a GPU image; none, with a failure, if there is no image or the download fails.
std::vector<unsigned char> downloaded(const Kit& kit, const Ptr<iGPUImage>& image);

/// A GPU image of 8 bits with these bytes.
Ptr<iGPUImage> uploaded(const Kit& kit, XY<int> size, const std::vector<unsigned char>& bytes);

/// Expects the 8-bit components of a texel in memory order, give or take one code.
void expectTexel(const std::vector<unsigned char>& bytes, std::size_t index, std::array<int, 4> expected,
                 std::string_view what);

} // namespace Qx::HostTests
