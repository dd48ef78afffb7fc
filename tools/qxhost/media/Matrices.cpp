#include "tools/qxhost/media/Matrices.h"

#include "tools/qxhost/media/Ffmpeg.h"

extern "C" {
#include <libavutil/csp.h>
}

#include <algorithm>
#include <tuple>
#include <zimg.h>

namespace Qx::Media {

namespace {

constexpr std::array table{
    MatrixInfo{Matrix::bt601,
               "bt601",
               "BT.601",
               Image::ColourSpace::BT601,
               {AVCOL_SPC_SMPTE170M, AVCOL_SPC_BT470BG}}, // 525 and 625 lines
    MatrixInfo{Matrix::bt709, "bt709", "BT.709", Image::ColourSpace::BT709, {AVCOL_SPC_BT709, 0}},
    MatrixInfo{Matrix::bt2020, "bt2020", "BT.2020", Image::ColourSpace::Unknown, {AVCOL_SPC_BT2020_NCL, 0}},
};

// One number serves FFmpeg and zimg.
static_assert(static_cast<int>(AVCOL_SPC_BT709) == static_cast<int>(ZIMG_MATRIX_BT709) &&
              static_cast<int>(AVCOL_SPC_SMPTE170M) == static_cast<int>(ZIMG_MATRIX_ST170_M) &&
              static_cast<int>(AVCOL_SPC_BT2020_NCL) == static_cast<int>(ZIMG_MATRIX_BT2020_NCL));

bool hasTag(const MatrixInfo& info, int tag)
{
    return tag != 0 && std::find(info.tags.begin(), info.tags.end(), tag) != info.tags.end();
}

} // namespace

std::span<const MatrixInfo> matrices()
{
    return table;
}

const MatrixInfo& infoOf(Matrix matrix)
{
    // Not a search, so that a matrix without a row does not compile.
    switch (matrix) {
    case Matrix::bt601:
        break;
    case Matrix::bt709:
        return std::get<1>(table);
    case Matrix::bt2020:
        return std::get<2>(table);
    }
    return std::get<0>(table);
}

std::array<double, 3> lumaWeights(Matrix matrix)
{
    const auto tag = static_cast<AVColorSpace>(infoOf(matrix).tags[0]);
    const AVLumaCoefficients* weights = av_csp_luma_coeffs_from_avcsp(tag);
    return {av_q2d(weights->cr), av_q2d(weights->cg), av_q2d(weights->cb)};
}

std::vector<std::pair<std::string, Matrix>> matrixWords()
{
    std::vector<std::pair<std::string, Matrix>> words;
    for (const MatrixInfo& info : table) {
        words.emplace_back(info.word, info.matrix);
    }
    return words;
}

std::optional<Matrix> matrixOfTag(int tag)
{
    const auto* found =
        std::find_if(table.begin(), table.end(), [&](const MatrixInfo& info) { return hasTag(info, tag); });
    return found != table.end() ? std::optional(found->matrix) : std::nullopt;
}

int writtenTag(Matrix matrix, int tag)
{
    const MatrixInfo& info = infoOf(matrix);
    return hasTag(info, tag) ? tag : info.tags.front();
}

} // namespace Qx::Media
