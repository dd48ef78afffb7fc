#include "host/fonts/ScaleBitmap.h"

#include <algorithm>
#include <cmath>

namespace Qx::Host::Text {

namespace {

/// The weight of each texel of a row or column in one pixel.
struct Weights
{
    int first = 0;
    std::vector<double> shares;
};

/// An axis of the result: its first pixel and the weights of each.
struct Axis
{
    int first = 0;
    std::vector<Weights> pixels;
};

/// The axis of `count` texels, the first of which begins at `origin` before scaling.
Axis axisOf(int origin, int count, double scale)
{
    Axis axis;
    const double spread = std::max(1.0, 1.0 / scale);
    // An enlarged texel reaches half its width further than its own square.
    const double reach = scale > 1.0 ? scale / 2.0 : 0.0;
    axis.first = static_cast<int>(std::floor(origin * scale - reach));
    const int end = static_cast<int>(std::ceil((origin + count) * scale + reach));
    for (int pixel = axis.first; pixel < end; ++pixel) {
        const double centre = (pixel + 0.5) / scale - origin;
        const double low = centre - spread / 2.0;
        const double high = centre + spread / 2.0;
        Weights weights;
        weights.first = std::clamp(static_cast<int>(std::floor(low)), 0, count);
        const int last = std::clamp(static_cast<int>(std::ceil(high)), 0, count);
        for (int texel = weights.first; texel < last; ++texel) {
            weights.shares.push_back((std::min(high, texel + 1.0) - std::max(low, double(texel))) / spread);
        }
        axis.pixels.push_back(std::move(weights));
    }
    return axis;
}

} // namespace

GlyphBitmap scaled(const GlyphBitmap& bitmap, double scale)
{
    if (bitmap.width == 0 || bitmap.height == 0) {
        return {};
    }
    const Axis columns = axisOf(bitmap.left, bitmap.width, scale);
    // Rows count downward from the baseline.
    const Axis rows = axisOf(-bitmap.top, bitmap.height, scale);
    const std::size_t across = columns.pixels.size() * 4;
    std::vector<double> narrowed(across * static_cast<std::size_t>(bitmap.height));
    for (std::size_t y = 0; y < static_cast<std::size_t>(bitmap.height); ++y) {
        const std::uint8_t* source = bitmap.texels.data() + y * static_cast<std::size_t>(bitmap.width) * 4;
        for (std::size_t i = 0; i < across; ++i) {
            const Weights& weights = columns.pixels[i / 4];
            double sum = 0;
            for (std::size_t k = 0; k < weights.shares.size(); ++k) {
                sum += weights.shares[k] * source[(static_cast<std::size_t>(weights.first) + k) * 4 + i % 4];
            }
            narrowed[y * across + i] = sum;
        }
    }
    GlyphBitmap result{columns.first,
                       -rows.first,
                       static_cast<int>(columns.pixels.size()),
                       static_cast<int>(rows.pixels.size()),
                       bitmap.colour,
                       std::vector<std::uint8_t>(across * rows.pixels.size())};
    for (std::size_t y = 0; y < rows.pixels.size(); ++y) {
        const Weights& weights = rows.pixels[y];
        for (std::size_t i = 0; i < across; ++i) {
            double sum = 0;
            for (std::size_t k = 0; k < weights.shares.size(); ++k) {
                sum +=
                    weights.shares[k] * narrowed[(static_cast<std::size_t>(weights.first) + k) * across + i];
            }
            result.texels[y * across + i] = static_cast<std::uint8_t>(std::lround(std::min(sum, 255.0)));
        }
    }
    return result;
}

} // namespace Qx::Host::Text
