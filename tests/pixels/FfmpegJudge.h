#pragma once

#include "tests/pixels/HostFrames.h"
#include "tests/pixels/TenBitFrames.h"

#include <cstdint>
#include <string>
#include <vector>

/// What FFmpeg makes of rows of bytes.
namespace Qx::Pixels {

/// The samples of one component of an interleaved pixel format of FFmpeg, by its name: 0 to 3 are R, G, B, A
/// or Y, Cb, Cr. `width` counts samples. Empty for a name that FFmpeg does not know.
std::vector<std::vector<std::uint16_t>> samplesByFfmpeg(const std::string& pixelFormat, const Rows& rows,
                                                        int component, int width);

/// What a decoder makes of a frame, as codes of its depth. Empty when it refuses.
TenBitCodes decodedByFfmpeg(const std::string& decoder, const std::vector<std::byte>& frame, unsigned width,
                            unsigned height, const std::vector<std::uint8_t>& extradata);

/// What the "m101" decoder needs to know, as AVI files carry it: the depth, progressive, the bytes of a row.
std::vector<std::uint8_t> m101Extradata(unsigned depth, std::size_t pitch);

/// The frame that FFmpeg's v210 encoder writes. Empty when it refuses.
std::vector<std::byte> v210ByFfmpeg(const TenBitCodes& codes);

/// Sixteen-bit A R G B, most significant byte first, as FFmpeg reads b64a: R G B A of each pixel.
std::vector<std::uint16_t> b64aByFfmpeg(const std::vector<std::byte>& frame, unsigned width, unsigned height);

} // namespace Qx::Pixels
