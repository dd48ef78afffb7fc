#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace Qx::Media {

/// What the samples of a TIFF file are, if FFmpeg would read none of them, or take them for whole numbers
/// that they are not: "32-bit floats". Empty for whole numbers of up to 16 bits, and for what is no TIFF.
std::string unreadableSamples(std::span<const std::uint8_t> tiff);

} // namespace Qx::Media
