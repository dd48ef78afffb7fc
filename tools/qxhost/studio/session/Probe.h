#pragma once

#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/media/MediaTypes.h"
#include "tools/qxhost/media/rows/Levels.h"

#include <array>
#include <optional>

namespace Qx::Program::Studio {

/// A pixel of a picture.
struct ProbedPixel
{
    std::array<unsigned, 4> codes{}; ///< A R G B
    int bits = 8;                    ///< of the codes
    Media::Range range = Media::Range::full;
};

/// Y, Cb and Cr of a pixel, as a clip holds them.
struct ProbedSample
{
    std::array<unsigned, 3> codes{};
    Media::Coding coding;
};

/// The signal that a pixel is told as.
struct ProbedSignal
{
    Media::Matrix matrix = Media::Matrix::bt709;
    Media::Range range = Media::Range::video; ///< of Y, Cb and Cr
    int bits = 8;                             ///< of the clip
};

/// The codes of a pixel for people: rgb8, rgb10, rgb16, ycbcr8, ycbcr10, ycbcr16 and those of the clip's
/// depth, each rounded to nearest. Y, Cb and Cr are computed from the pixel, or are those of the sample.
Json probed(const ProbedPixel& pixel, const ProbedSignal& signal,
            const std::optional<ProbedSample>& sample = {});

} // namespace Qx::Program::Studio
