#include "tools/qxhost/studio/session/Probe.h"

#include "tools/qxhost/media/Matrices.h"
#include "tools/qxhost/media/rows/Levels.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace Qx::Program::Studio {

namespace {

constexpr std::array depths{8, 10, 16};

/// 0 for black, 1 for white.
double levelOf(unsigned code, int bits, Media::Range range)
{
    const double scale = std::exp2(bits - 8);
    return range == Media::Range::video ? (code / scale - 16) / 219 : code / (std::exp2(bits) - 1);
}

long rounded(double code, int bits)
{
    return std::lround(std::min(std::max(code, 0.0), std::exp2(bits) - 1));
}

Json ycbcrOf(const std::array<double, 3>& rgb, Media::Matrix matrix, int bits)
{
    const auto [kr, kg, kb] = Media::lumaWeights(matrix);
    const double luma = kr * rgb[0] + kg * rgb[1] + kb * rgb[2];
    const double blue = (rgb[2] - luma) / (2 * (1 - kb));
    const double red = (rgb[0] - luma) / (2 * (1 - kr));
    const double scale = std::exp2(bits - 8);
    return {rounded(scale * (16 + 219 * luma), bits), rounded(scale * (128 + 224 * blue), bits),
            rounded(scale * (128 + 224 * red), bits)};
}

} // namespace

Json probed(const std::array<unsigned, 4>& codes, int bits, Media::Range range, Media::Matrix matrix)
{
    std::array<double, 3> levels{};
    for (std::size_t i = 0; i < levels.size(); ++i) {
        levels[i] = levelOf(codes[i + 1], bits, range);
    }
    Json result;
    for (const int depth : depths) {
        Json rgb = Json::array();
        for (std::size_t i = 0; i < levels.size(); ++i) {
            rgb.push_back(Media::codeAtDepth(codes[i + 1], bits, depth, range));
        }
        result["rgb" + std::to_string(depth)] = rgb;
        result["ycbcr" + std::to_string(depth)] = ycbcrOf(levels, matrix, depth);
    }
    return result;
}

} // namespace Qx::Program::Studio
