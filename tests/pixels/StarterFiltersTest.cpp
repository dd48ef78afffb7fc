#include "tests/pixels/StarterEffects.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

// What blurs, sharpens, glows, darkens and grains, against double precision.

namespace Qx::Pixels {
namespace {

/// Colours of a whole picture, row by row.
struct Plane
{
    int width = 0;
    int height = 0;
    std::vector<Colour> colours;

    const Colour& at(int x, int y) const
    {
        return colours[static_cast<std::size_t>(std::clamp(y, 0, height - 1) * width +
                                                std::clamp(x, 0, width - 1))];
    }

    static Plane of(int width, int height, const Reference& colour)
    {
        Plane plane{width, height, {}};
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x)
                plane.colours.push_back(colour(x, y));
        }
        return plane;
    }
};

/// The Gaussian of three deviations in one direction.
Plane blurred(const Plane& plane, double deviation, int dx, int dy)
{
    const int reach = static_cast<int>(std::ceil(3 * deviation));
    std::vector<double> weights;
    double sum = 0;
    for (int i = -reach; i <= reach; ++i) {
        weights.push_back(i == 0 ? 1.0 : std::exp(-i * i / (2 * deviation * deviation)));
        sum += weights.back();
    }
    return Plane::of(plane.width, plane.height, [&](int x, int y) {
        Colour total{};
        for (int i = -reach; i <= reach; ++i) {
            for (std::size_t c = 0; c < 4; ++c)
                total[c] +=
                    weights[static_cast<std::size_t>(i + reach)] / sum * plane.at(x + i * dx, y + i * dy)[c];
        }
        return total;
    });
}

Plane premultiplied(const Picture& picture)
{
    return Plane::of(picture.width, picture.height, [&](int x, int y) {
        Colour c = colourAt(picture, x, y);
        for (std::size_t i = 0; i < 3; ++i)
            c[i] *= c[3];
        return c;
    });
}

Colour straight(Colour c)
{
    for (std::size_t i = 0; i < 3; ++i)
        c[i] = c[3] > 0 ? c[i] / c[3] : 0;
    return c;
}

TEST(StarterBlur, IsTheNormalisedGaussianToACode)
{
    for (const int depth : {8, 16}) {
        for (const double radius : {0.7, 2.5, 9.0}) {
            const Picture source = opaqueNoise(61, 43, depth);
            const Plane plane = premultiplied(source);
            const Plane across = blurred(plane, radius, 1, 0);
            const Plane both = blurred(across, radius, 0, 1);
            const Plane down = blurred(plane, radius, 0, 1);
            const Settings settings{{"radius", {static_cast<float>(radius)}}};
            // At 16 bits the first pass rounds too.
            const auto expect = [&](const char* technique, const Plane& exact) {
                expectNear(
                    through("blur", technique, settings, source),
                    [&](int x, int y) { return exact.at(x, y); }, 1);
            };
            expect("Blur", both);
            expect("Horizontal", across);
            expect("Vertical", down);
        }
    }
}

TEST(StarterBlur, OfAnEvenAreaIsThatArea)
{
    const Colour colour{0.2, 0.7, 0.45, 1};
    const Picture even = drawn(40, 30, 16, [&](int, int) { return colour; });
    expectSame(through("blur", "Blur", {{"radius", {20}}}, even), even);
}

TEST(StarterBlur, DoesNotSpreadTheColourOfWhatIsTransparent)
{
    const Picture source = noise(48, 32, 8);
    const Plane exact = blurred(blurred(premultiplied(source), 2, 1, 0), 2, 0, 1);
    expectNear(
        through("blur", "Blur", {{"radius", {2}}}, source),
        [&](int x, int y) { return straight(exact.at(x, y)); }, 1);
    // Transparent green beside opaque red stays out of it.
    const Picture halves = drawn(32, 8, 8, [](int x, int) {
        return x < 16 ? Colour{1, 0, 0, 1} : Colour{0, 1, 0, 0};
    });
    const Picture got = through("blur", "Blur", {{"radius", {3}}}, halves);
    for (int x = 0; x < 24; ++x)
        EXPECT_EQ(got.at(x, 4, 1), 0) << x;
    EXPECT_LT(got.at(16, 4, 3), 255);
    EXPECT_GT(got.at(16, 4, 3), 0);
}

TEST(StarterSharpen, AddsTheDifferenceToTheBlur)
{
    for (const int depth : {8, 16}) {
        const Picture source = naturalPicture(Layout::Rgb, depth, 64, 48);
        const Plane blur = blurred(blurred(premultiplied(source), 1.5, 1, 0), 1.5, 0, 1);
        const double threshold = 0.02;
        const auto exact = [&](int x, int y) {
            Colour c = colourAt(source, x, y);
            for (std::size_t i = 0; i < 3; ++i) {
                const double detail = c[i] - blur.at(x, y)[i];
                c[i] += 1.75 * std::copysign(std::max(std::abs(detail) - threshold, 0.0), detail);
            }
            return c;
        };
        const Picture got =
            through("sharpen", "Sharpen", {{"amount", {1.75F}}, {"threshold", {0.02F}}}, source);
        expectNear(got, exact, depth == 8 ? 1 : 2);
    }
}

double light(double value)
{
    return std::pow(value, 2.4);
}

TEST(StarterGlow, SpreadsTheLightOfBrightAreas)
{
    const Picture source = naturalPicture(Layout::Rgb, 8, 64, 48);
    const double threshold = 0.5;
    const double amount = 0.8;
    const std::array<double, 3> tint{1, 0.8, 0.6};
    const auto glowing = [&](int x, int y) {
        const Colour c = clampedColourAt(source, x, y);
        const double part =
            std::clamp((std::max({c[0], c[1], c[2]}) - threshold) / (1 - threshold), 0.0, 1.0) * c[3];
        return Colour{light(c[0]) * part, light(c[1]) * part, light(c[2]) * part, 1};
    };
    const Plane half = Plane::of(32, 24, [&](int x, int y) {
        Colour mean{};
        for (std::size_t i = 0; i < 4; ++i) {
            mean[i] = (glowing(2 * x, 2 * y)[i] + glowing(2 * x + 1, 2 * y)[i] +
                       glowing(2 * x, 2 * y + 1)[i] + glowing(2 * x + 1, 2 * y + 1)[i]) /
                      4;
        }
        return mean;
    });
    const Plane spread = blurred(blurred(half, 3, 1, 0), 3, 0, 1);
    const auto exact = [&](int x, int y) {
        Colour c = colourAt(source, x, y);
        const double u = (x + 0.5) / 2 - 0.5;
        const double v = (y + 0.5) / 2 - 0.5;
        const int left = static_cast<int>(std::floor(u));
        const int top = static_cast<int>(std::floor(v));
        for (std::size_t i = 0; i < 3; ++i) {
            const double s = u - left;
            const double t = v - top;
            const double upper = spread.at(left, top)[i] * (1 - s) + spread.at(left + 1, top)[i] * s;
            const double lower = spread.at(left, top + 1)[i] * (1 - s) + spread.at(left + 1, top + 1)[i] * s;
            const double added = (upper * (1 - t) + lower * t) * amount * tint[i];
            c[i] = std::pow(light(c[i]) + added, 1 / 2.4);
        }
        return c;
    };
    expectNear(
        through("glow", "Glow",
                {{"threshold", {0.5F}}, {"amount", {0.8F}}, {"radius", {6}}, {"tint", {1, 0.8F, 0.6F}}},
                source),
        exact, 1);
}

TEST(StarterGlow, LeavesAPictureThatIsNowhereBrightEnough)
{
    const Picture dark = drawn(33, 21, 16, [](int x, int y) { return Colour{x / 80.0, y / 60.0, 0.1, 1}; });
    expectSame(through("glow", "Glow", {{"threshold", {0.6F}}, {"amount", {2}}}, dark), dark);
}

TEST(StarterVignette, DarkensByTheDistanceFromTheCentre)
{
    for (const double roundness : {0.0, 0.5, 1.0}) {
        const Picture source = opaqueNoise(80, 45, 16);
        const double wide = 1 + (80.0 / 45.0 - 1) * roundness;
        const auto exact = [&](int x, int y) {
            Colour c = colourAt(source, x, y);
            const double u = ((x + 0.5) / 80 * 2 - 1) * wide;
            const double v = (y + 0.5) / 45 * 2 - 1;
            const double away = std::hypot(u, v) / std::hypot(wide, 1);
            const double t = std::clamp((away - (0.7 - 0.3)) / 0.6, 0.0, 1.0);
            for (std::size_t i = 0; i < 3; ++i)
                c[i] *= 1 - 0.8 * t * t * (3 - 2 * t);
            return c;
        };
        expectNear(through("vignette", "Vignette",
                           {{"amount", {0.8F}},
                            {"size", {0.7F}},
                            {"softness", {0.6F}},
                            {"roundness", {static_cast<float>(roundness)}}},
                           source),
                   exact, 1);
    }
}

std::uint32_t scrambled(std::uint32_t number)
{
    const std::uint32_t state = number * 747796405U + 2891336453U;
    const std::uint32_t word = ((state >> ((state >> 28U) + 4U)) ^ state) * 277803737U;
    return (word >> 22U) ^ word;
}

double grainAt(int x, int y, std::uint32_t channel, std::uint32_t frame, std::uint32_t seed)
{
    std::uint32_t hash = scrambled(seed * 4 + channel) + frame;
    hash = scrambled(hash) + static_cast<std::uint32_t>(x);
    hash = scrambled(hash) + static_cast<std::uint32_t>(y);
    hash = scrambled(hash);
    double sum = 0;
    for (int i = 0; i < 4; ++i, hash >>= 8U)
        sum += hash & 255U;
    return (sum - 4 * 127.5) / std::sqrt(4 * (256.0 * 256.0 - 1) / 12);
}

double grain(int x, int y, double size, std::uint32_t channel, std::uint32_t frame, std::uint32_t seed)
{
    const double u = (x + 0.5) / size - 0.5;
    const double v = (y + 0.5) / size - 0.5;
    const int left = static_cast<int>(std::floor(u));
    const int top = static_cast<int>(std::floor(v));
    double sum = 0;
    double squares = 0;
    for (int j = 0; j < 2; ++j) {
        for (int i = 0; i < 2; ++i) {
            const double weight = (i == 0 ? 1 - (u - left) : u - left) * (j == 0 ? 1 - (v - top) : v - top);
            sum += weight * grainAt(left + i, top + j, channel, frame, seed);
            squares += weight * weight;
        }
    }
    return sum / std::sqrt(squares);
}

TEST(StarterGrain, IsTheSameOnEveryDevice)
{
    const Picture source = naturalPicture(Layout::Rgb, 8, 48, 40);
    const double colour = 0.4;
    for (const auto& [size, frame, seed] : {std::tuple{1.0, 3U, 0U}, std::tuple{2.5, 120000U, 77U}}) {
        const auto exact = [&, size = size, frame = frame, seed = seed](int x, int y) {
            Colour c = colourAt(source, x, y);
            const double luma = lumaOf(c);
            const double strength = 0.1 * (1 + (4 * luma * (1 - luma) - 1) * 0.5);
            for (std::uint32_t i = 0; i < 3; ++i) {
                const double grey = grain(x, y, size, 0, frame, seed);
                const double own = grain(x, y, size, i + 1, frame, seed);
                c[i] += strength * (grey * (1 - colour) + own * colour) / std::hypot(1 - colour, colour);
            }
            return c;
        };
        expectNear(through("grain", "Grain",
                           {{"amount", {0.1F}},
                            {"size", {static_cast<float>(size)}},
                            {"colour", {0.4F}},
                            {"midtones", {0.5F}},
                            {"frame", {static_cast<float>(frame)}},
                            {"seed", {static_cast<float>(seed)}}},
                           source),
                   exact, 1);
    }
}

TEST(StarterGrain, HasItsStandardDeviationAndChangesWithTheFrame)
{
    const Picture grey = drawn(256, 256, 16, [](int, int) { return Colour{0.5, 0.5, 0.5, 1}; });
    std::vector<Picture> frames;
    for (const float size : {1.0F, 3.3F}) {
        for (const float frame : {0.0F, 1.0F}) {
            frames.push_back(through(
                "grain", "Grain",
                {{"amount", {0.05F}}, {"size", {size}}, {"midtones", {0}}, {"frame", {frame}}}, grey));
            double sum = 0;
            double squares = 0;
            for (int y = 0; y < 256; ++y) {
                for (int x = 0; x < 256; ++x) {
                    const double by = colourAt(frames.back(), x, y)[1] - 0.5;
                    sum += by / 65536;
                    squares += by * by / 65536;
                }
            }
            EXPECT_NEAR(sum, 0, 0.003);
            EXPECT_NEAR(std::sqrt(squares), 0.05, 0.003);
        }
    }
    EXPECT_NE(frames[0].codes, frames[1].codes);
    expectSame(through("grain", "Grain", {{"amount", {0.05F}}, {"size", {1}}, {"midtones", {0}}}, grey),
               frames[0]);
}

} // namespace
} // namespace Qx::Pixels
