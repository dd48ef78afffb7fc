#pragma once

#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/media/MediaTypes.h"

#include <array>

namespace Qx::Program::Studio {

/// The codes of a pixel for people: rgb8, rgb10, rgb16, and ycbcr8, ycbcr10, ycbcr16 of video range with that
/// matrix, each rounded to nearest. `codes` is A R G B of so many bits, in that range.
Json probed(const std::array<unsigned, 4>& codes, int bits, Media::Range range, Media::Matrix matrix);

} // namespace Qx::Program::Studio
