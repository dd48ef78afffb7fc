#include "tools/qxhost/studio/session/Probe.h"

#include "tools/qxhost/media/Matrices.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <string>

namespace Qx::Program::Studio {

namespace {

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

Json ycbcrOf(const std::array<double, 3>& rgb, const ProbedSignal& signal, int bits)
{
    const auto [kr, kg, kb] = Media::lumaWeights(signal.matrix);
    const double luma = kr * rgb[0] + kg * rgb[1] + kb * rgb[2];
    const double blue = (rgb[2] - luma) / (2 * (1 - kb));
    const double red = (rgb[0] - luma) / (2 * (1 - kr));
    const double scale = std::exp2(bits - 8);
    const bool video = signal.range == Media::Range::video;
    const double black = video ? 16 * scale : 0;
    const double lumas = video ? 219 * scale : std::exp2(bits) - 1;
    const double chromas = video ? 224 * scale : std::exp2(bits) - 1;
    return {rounded(black + lumas * luma, bits), rounded(128 * scale + chromas * blue, bits),
            rounded(128 * scale + chromas * red, bits)};
}

Json ycbcrOf(const ProbedSample& sample, int bits)
{
    const auto& [from, range] = sample.coding;
    return {Media::codeAtDepth(sample.codes[0], from, bits, range),
            Media::chromaAtDepth(sample.codes[1], from, bits, range),
            Media::chromaAtDepth(sample.codes[2], from, bits, range)};
}

} // namespace

Json probed(const ProbedPixel& pixel, const ProbedSignal& signal, const std::optional<ProbedSample>& sample)
{
    std::array<double, 3> levels{};
    for (std::size_t i = 0; i < levels.size(); ++i) {
        levels[i] = levelOf(pixel.codes[i + 1], pixel.bits, pixel.range);
    }
    Json result;
    for (const int depth : std::set{8, 10, 16, signal.bits}) {
        Json rgb = Json::array();
        for (std::size_t i = 0; i < levels.size(); ++i) {
            rgb.push_back(Media::codeAtDepth(pixel.codes[i + 1], pixel.bits, depth, pixel.range));
        }
        result["rgb" + std::to_string(depth)] = rgb;
        result["ycbcr" + std::to_string(depth)] =
            sample ? ycbcrOf(*sample, depth) : ycbcrOf(levels, signal, depth);
    }
    return result;
}

} // namespace Qx::Program::Studio
