#pragma once

#include "platform/ImageFormat.h"
#include "tools/qxhost/media/MediaTypes.h"

#include <array>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace Qx::Media {

/// A matrix as the program knows it.
struct MatrixInfo
{
    Matrix matrix;
    const char* word; ///< its name on a command line: lower case, unique
    const char* name; ///< its name for people: "BT.709"

    /// The library's name for it, which picks the shader constants.
    Image::ColourSpace colourSpace;

    /// The code points of ITU-T H.273, table 4, that have these coefficients, which FFmpeg's and zimg's
    /// enumerations share: first the one that files are given, zeros at the end.
    std::array<int, 2> tags;
};

/// Every matrix that can be converted.
std::span<const MatrixInfo> matrices();

const MatrixInfo& infoOf(Matrix matrix);

/// What red, green and blue count in luma: Kr, Kg and Kb, the sum of which is 1.
std::array<double, 3> lumaWeights(Matrix matrix);

/// Their words on a command line.
std::vector<std::pair<std::string, Matrix>> matrixWords();

/// The matrix that a code point stands for; empty if it cannot be converted.
std::optional<Matrix> matrixOfTag(int tag);

/// The code point to write into a file of this matrix: `tag`, the source's, if it stands for the same matrix,
/// else the matrix's first.
int writtenTag(Matrix matrix, int tag);

} // namespace Qx::Media
