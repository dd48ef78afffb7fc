#include "tests/pixels/Reference.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace Qx::Pixels {

namespace {

/// Signals as the standards write them: E'Y, E'R, E'G, E'B from 0 to 1, E'Cb and E'Cr from -1/2 to 1/2.
struct Signals
{
    double y = 0.0;
    double cb = 0.0;
    double cr = 0.0;
};
using Rgb = std::array<double, 3>;

/// How signals become codes.
struct Quantiser
{
    Range range;
    int depth;

    double step() const { return std::exp2(depth - 8); }
    double last() const { return std::exp2(depth) - 1.0; }
    double black() const { return range == Range::Video ? 16.0 * step() : 0.0; }
    double lumaCodes() const { return range == Range::Video ? 219.0 * step() : last(); }
    double zero() const { return std::exp2(depth - 1); }
    double chromaCodes() const { return range == Range::Video ? 224.0 * step() : last(); }

    double fromLuma(double code) const { return (code - black()) / lumaCodes(); }
    double fromChroma(double code) const { return (code - zero()) / chromaCodes(); }
    double toLuma(double signal) const { return held(black() + lumaCodes() * signal); }
    double toChroma(double signal) const { return held(zero() + chromaCodes() * signal); }
    double held(double code) const { return std::clamp(code, 0.0, last()); }
};

struct Standard
{
    Matrix matrix;
    const char* name; // in the techniques' names
    double kr;
    double kb;
};

constexpr std::array standards{Standard{Matrix::Bt601, "BT601", 0.299, 0.114},
                               Standard{Matrix::Bt709, "BT709", 0.2126, 0.0722},
                               Standard{Matrix::Bt2020, "BT2020", 0.2627, 0.0593}};

const Standard& standardOf(Matrix matrix)
{
    switch (matrix) {
    case Matrix::Bt601:
        break;
    case Matrix::Bt709:
        return std::get<1>(standards);
    case Matrix::Bt2020:
        return std::get<2>(standards);
    }
    return std::get<0>(standards);
}

struct Weights
{
    double kr, kg, kb;

    explicit Weights(Matrix matrix) : kr(standardOf(matrix).kr), kb(standardOf(matrix).kb)
    {
        kg = 1.0 - kr - kb;
    }

    Signals signals(const Rgb& c) const
    {
        const double y = kr * c[0] + kg * c[1] + kb * c[2];
        return {y, (c[2] - y) / (2.0 * (1.0 - kb)), (c[0] - y) / (2.0 * (1.0 - kr))};
    }

    Rgb rgb(const Signals& s) const
    {
        const double r = s.y + 2.0 * (1.0 - kr) * s.cr;
        const double b = s.y + 2.0 * (1.0 - kb) * s.cb;
        return {r, (s.y - kr * r - kb * b) / kg, b};
    }
};

/// The two-parameter family of cubics, Mitchell and Netravali 1988, equation 8.
double cubic(double x, double b, double c)
{
    x = std::abs(x);
    if (x < 1.0)
        return ((12 - 9 * b - 6 * c) * x * x * x + (-18 + 12 * b + 6 * c) * x * x + (6 - 2 * b)) / 6.0;
    if (x < 2.0) {
        return ((-b - 6 * c) * x * x * x + (6 * b + 30 * c) * x * x + (-12 * b - 48 * c) * x +
                (8 * b + 24 * c)) /
               6.0;
    }
    return 0.0;
}

double sinc(double x)
{
    return x == 0.0 ? 1.0 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
}

double lanczos3(double x)
{
    return std::abs(x) < 3.0 ? sinc(x) * sinc(x / 3.0) : 0.0;
}

/// `sample(i)` for whole i, filtered at `position`; the kernel's argument is the distance times `squeeze`.
/// Indices are held to 0..last.
template <typename Sample, typename Kernel>
double filtered(const Sample& sample, int last, double position, const Kernel& kernel, double squeeze)
{
    const int reach = static_cast<int>(std::ceil(3.0 / squeeze)) + 1;
    const int centre = static_cast<int>(std::floor(position));
    double sum = 0.0;
    double weights = 0.0;
    for (int i = centre - reach; i <= centre + reach; ++i) {
        const double weight = kernel((position - i) * squeeze);
        sum += weight * sample(std::clamp(i, 0, last));
        weights += weight;
    }
    return sum / weights;
}

double chromaOfPixel(const Picture& source, int pixel, int row, int component, Filter filter)
{
    if (filter == Filter::Point)
        return source.at(pixel / 2, row, component);
    const auto sample = [&](int pair) { return static_cast<double>(source.at(pair, row, component)); };
    const auto kernel = [&](double x) {
        return filter == Filter::CatmullRom ? cubic(x, 0.0, 0.5) : cubic(x, 1.0 / 3.0, 1.0 / 3.0);
    };
    // Pair i's chroma is at pixel 2i.
    return filtered(sample, source.texels() - 1, pixel / 2.0, kernel, 1.0);
}

std::vector<double> decoded(const Conversion& conversion, const Picture& source, int targetDepth)
{
    const Quantiser from{conversion.source, source.depth};
    const Quantiser to{conversion.target, targetDepth};
    const Weights weights(conversion.matrix);
    std::vector<double> out;
    out.reserve(static_cast<std::size_t>(source.width) * static_cast<std::size_t>(source.height) * 4);
    for (int row = 0; row < source.height; ++row) {
        for (int pixel = 0; pixel < source.width; ++pixel) {
            const Rgb rgb =
                weights.rgb({from.fromLuma(source.at(pixel / 2, row, pixel % 2 == 0 ? 0 : 2)),
                             from.fromChroma(chromaOfPixel(source, pixel, row, 1, conversion.filter)),
                             from.fromChroma(chromaOfPixel(source, pixel, row, 3, conversion.filter))});
            for (const double signal : rgb)
                out.push_back(to.toLuma(signal));
            out.push_back(to.last());
        }
    }
    return out;
}

Rgb colourAt(const Picture& source, int pixel, int row, const Quantiser& from)
{
    const int held = std::clamp(pixel, 0, source.width - 1);
    return {from.fromLuma(source.at(held, row, 0)), from.fromLuma(source.at(held, row, 1)),
            from.fromLuma(source.at(held, row, 2))};
}

Rgb colourOfSite(const Picture& source, int pixel, int row, const Quantiser& from, Filter filter)
{
    if (filter == Filter::Point)
        return colourAt(source, pixel, row, from);
    Rgb colour{};
    for (std::size_t channel = 0; channel < 3; ++channel) {
        const auto sample = [&](int at) { return colourAt(source, at, row, from)[channel]; };
        colour[channel] = filtered(sample, source.width - 1, pixel, lanczos3, 0.5);
    }
    return colour;
}

std::vector<double> encoded(const Conversion& conversion, const Picture& source, int targetDepth)
{
    const Quantiser from{conversion.source, source.depth};
    const Quantiser to{conversion.target, targetDepth};
    const Weights weights(conversion.matrix);
    const int pairs = Picture::texelsFor(Layout::Packed422, source.width);
    std::vector<double> out;
    out.reserve(static_cast<std::size_t>(pairs) * static_cast<std::size_t>(source.height) * 4);
    for (int row = 0; row < source.height; ++row) {
        for (int pair = 0; pair < pairs; ++pair) {
            const Signals even = weights.signals(colourAt(source, 2 * pair, row, from));
            const Signals odd = weights.signals(colourAt(source, 2 * pair + 1, row, from));
            const Signals site =
                weights.signals(colourOfSite(source, 2 * pair, row, from, conversion.filter));
            out.push_back(to.toLuma(even.y));
            out.push_back(to.toChroma(site.cb));
            out.push_back(to.toLuma(odd.y));
            out.push_back(to.toChroma(site.cr));
        }
    }
    return out;
}

std::string text(Range range)
{
    return range == Range::Full ? "Unscaled" : "Video";
}

std::string text(Matrix matrix)
{
    return standardOf(matrix).name;
}

std::string text(Filter filter)
{
    static const std::array<std::string, 4> names{"Point", "CatmullRom", "Mitchell", "Lanczos"};
    return names[static_cast<std::size_t>(filter) - 1];
}

} // namespace

std::string Conversion::technique() const
{
    if (direction == Direction::Decode) {
        return "YCrCb422_" + text(source) + "_" + text(matrix) + "_To_RGB_" + text(target) + "_" +
               text(filter);
    }
    return "RGB_" + text(source) + "_To_YCrCb422_" + text(target) + "_" + text(matrix) + "_" + text(filter);
}

std::vector<Conversion> allConversions()
{
    std::vector<Conversion> all;
    for (const Range source : {Range::Full, Range::Video}) {
        for (const Range target : {Range::Full, Range::Video}) {
            for (const Standard& standard : standards) {
                const Matrix matrix = standard.matrix;
                for (const Filter filter : {Filter::Point, Filter::CatmullRom, Filter::Mitchell})
                    all.push_back({Direction::Decode, source, target, matrix, filter});
                for (const Filter filter : {Filter::Point, Filter::Lanczos})
                    all.push_back({Direction::Encode, source, target, matrix, filter});
            }
        }
    }
    return all;
}

std::vector<double> exactConversion(const Conversion& conversion, const Picture& source, int targetDepth)
{
    return conversion.direction == Direction::Decode ? decoded(conversion, source, targetDepth)
                                                     : encoded(conversion, source, targetDepth);
}

} // namespace Qx::Pixels
