#include "tests/pixels/Colorimetry.h"
#include "tests/pixels/StarterEffects.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

// What changes colours, against double precision.

namespace Qx::Pixels {
namespace {

/// Codes of 16 bits. Devices compute pow with fewer digits than a product has.
constexpr int powTolerance = 4;

constexpr Matrix3 bradford{{{0.8951, 0.2664, -0.1614}, {-0.7502, 1.7135, 0.0367}, {0.0389, -0.0685, 1.0296}}};

/// Krystek's approximation in u, v of CIE 1960.
std::pair<double, double> locus(double t)
{
    return {(0.860117757 + 1.54118254e-4 * t + 1.28641212e-7 * t * t) /
                (1 + 8.42420235e-4 * t + 7.08145163e-7 * t * t),
            (0.317398726 + 4.22806245e-5 * t + 4.20481691e-8 * t * t) /
                (1 - 2.89741816e-5 * t + 1.61456053e-7 * t * t)};
}

/// XYZ of a light of luminance 1; `duv` is its distance above the Planckian locus, or above that of daylight.
Vector lightOf(double kelvins, double duv)
{
    const auto [u, v] = locus(kelvins);
    const auto [u1, v1] = locus(kelvins + 1);
    const auto [u0, v0] = locus(kelvins - 1);
    const double length = std::hypot(u1 - u0, v1 - v0);
    // The locus runs to the left and down as it gets hotter; above it is what is at its right hand.
    const auto [u65, v65] = locus(6504);
    const double below = -2 * 0.3127 + 12 * 0.3290 + 3;
    const double daylight = std::clamp((kelvins - 4000) / 1000, 0.0, 1.0);
    const double pu = u + daylight * (4 * 0.3127 / below - u65) + duv * (v1 - v0) / length;
    const double pv = v + daylight * (6 * 0.3290 / below - v65) - duv * (u1 - u0) / length;
    const double x = 3 * pu / (2 * pu - 8 * pv + 4);
    const double y = 2 * pv / (2 * pu - 8 * pv + 4);
    return xyzOf(x, y);
}

Colour balanced(const Colour& colour, double kelvins, double duv)
{
    const Matrix3 toXyz = xyzOfRgb(primariesOfBt709);
    Vector rgb{};
    for (std::size_t i = 0; i < 3; ++i)
        rgb[i] = std::pow(colour[i], 2.4);
    Vector cones = bradford * (toXyz * rgb);
    const Vector from = bradford * lightOf(kelvins, duv);
    const Vector to = bradford * xyzOf(0.3127, 0.3290);
    for (std::size_t i = 0; i < 3; ++i)
        cones[i] *= to[i] / from[i];
    rgb = inverse(toXyz) * (inverse(bradford) * cones);
    return {std::pow(std::max(rgb[0], 0.0), 1 / 2.4), std::pow(std::max(rgb[1], 0.0), 1 / 2.4),
            std::pow(std::max(rgb[2], 0.0), 1 / 2.4), colour[3]};
}

TEST(StarterWhiteBalance, AdaptsAsBradfordsMatrixDoes)
{
    // Not at 16 bits: floats leave 0.000004 of the light, many codes of nearly black.
    const Picture source = noise(64, 48, 8);
    for (const auto& [kelvins, tint] :
         {std::pair{2800.0, 0.0}, std::pair{4600.0, 12.5}, std::pair{11000.0, -20.0}}) {
        expectNear(
            through("white-balance", "WhiteBalance",
                    {{"temperature", {static_cast<float>(kelvins)}}, {"tint", {static_cast<float>(tint)}}},
                    source),
            [&, kelvins = kelvins, tint = tint](int x, int y) {
                return balanced(colourAt(source, x, y), kelvins, tint / 1000);
            },
            1);
    }
}

TEST(StarterWhiteBalance, MakesTheLightOfTheSceneGrey)
{
    // A grey surface in a light of 3200 kelvins, somewhat green.
    Vector rgb = inverse(xyzOfRgb(primariesOfBt709)) * lightOf(3200, 0.006);
    const double most = *std::max_element(rgb.begin(), rgb.end());
    const Picture lit = drawn(8, 8, 16, [&](int, int) {
        return Colour{std::pow(rgb[0] / most, 1 / 2.4), std::pow(rgb[1] / most, 1 / 2.4),
                      std::pow(rgb[2] / most, 1 / 2.4), 1};
    });
    const Picture got =
        through("white-balance", "WhiteBalance", {{"temperature", {3200}}, {"tint", {6}}}, lit);
    const Colour c = colourAt(got, 4, 4);
    EXPECT_NEAR(c[0] / c[1], 1, 0.0005);
    EXPECT_NEAR(c[2] / c[1], 1, 0.0005);
}

using Points = std::array<double, 5>;

/// The cubic of Hermite's basis with Fritsch and Butland's tangents.
double curve(const Points& p, double x)
{
    const auto slope = [&](int i) {
        return p[static_cast<std::size_t>(i + 1)] - p[static_cast<std::size_t>(i)];
    };
    const auto tangent = [&](int i) {
        const double before = slope(std::max(i - 1, 0));
        const double after = slope(std::min(i, 3));
        return before * after > 0 ? 2 / (1 / before + 1 / after) : 0.0;
    };
    const int i = std::min(static_cast<int>(x * 4), 3);
    const double t = x * 4 - i;
    return (1 + 2 * t) * (1 - t) * (1 - t) * p[static_cast<std::size_t>(i)] +
           t * (1 - t) * (1 - t) * tangent(i) + t * t * (3 - 2 * t) * p[static_cast<std::size_t>(i + 1)] +
           t * t * (t - 1) * tangent(i + 1);
}

std::vector<float> floats(const Points& points)
{
    return {points.begin(), points.end()};
}

TEST(StarterCurves, GoThroughTheirPointsAndBetweenThem)
{
    const Points master{0.05, 0.2, 0.6, 0.7, 0.95};
    const std::array<Points, 3> own{
        {{0, 0.3, 0.5, 0.75, 1}, {0.1, 0.1, 0.4, 0.9, 0.2}, {1, 0.75, 0.5, 0.25, 0}}};
    for (const int depth : {8, 16}) {
        const Picture source = noise(64, 48, depth);
        expectNear(
            through("curves", "Curves",
                    {{"master", floats(master)},
                     {"red", floats(own[0])},
                     {"green", floats(own[1])},
                     {"blue", floats(own[2])}},
                    source),
            [&](int x, int y) {
                Colour c = colourAt(source, x, y);
                for (std::size_t i = 0; i < 3; ++i)
                    c[i] = curve(own[i], curve(master, c[i]));
                return c;
            },
            depth == 8 ? 1 : 2);
    }
}

TEST(StarterCurves, RiseWhereTheirPointsRise)
{
    const Picture ramp = drawn(256, 1, 8, [](int x, int) {
        return Colour{x / 255.0, x / 255.0, x / 255.0, 1};
    });
    const Picture got = through("curves", "Curves", {{"master", {0, 0, 0.9F, 0.9F, 1}}}, ramp);
    for (int x = 1; x < 256; ++x)
        EXPECT_GE(got.at(x, 0, 1), got.at(x - 1, 0, 1)) << x;
    for (int x = 0; x < 64; ++x)
        EXPECT_EQ(got.at(x, 0, 1), 0) << x;
    for (int x = 128; x < 192; ++x)
        EXPECT_NEAR(got.at(x, 0, 1), 0.9 * 255, 0.51) << x;
}

/// Red, green and blue of a wheel's point: chroma of BT.709 without luma, half as much as there can be.
Vector push(double across, double up)
{
    const double blue = 0.5 * across * (1 - 0.0722);
    const double red = 0.5 * up * (1 - 0.2126);
    return {red, -(0.2126 * red + 0.0722 * blue) / 0.7152, blue};
}

TEST(StarterColourWheels, LiftBendAndGain)
{
    const Picture source = noise(64, 48, 16);
    const auto exact = [&](int x, int y) {
        Colour c = colourAt(source, x, y);
        const Vector lift = push(0.2, -0.1);
        const Vector gamma = push(-0.3, 0.2);
        const Vector gain = push(0.1, 0.4);
        for (std::size_t i = 0; i < 3; ++i) {
            const double v = (c[i] + (0.05 + lift[i]) * (1 - c[i])) * 1.1 * (1 + gain[i]);
            c[i] = std::copysign(std::pow(std::abs(v), 1 / (1.3 * (1 + gamma[i]))), v);
        }
        const double luma = lumaOf(c);
        for (std::size_t i = 0; i < 3; ++i)
            c[i] = luma + 1.2 * (c[i] - luma);
        return c;
    };
    expectNear(through("colour-wheels", "ColourWheels",
                       {{"liftWheel", {0.2F, -0.1F}},
                        {"lift", {0.05F}},
                        {"gammaWheel", {-0.3F, 0.2F}},
                        {"gamma", {1.3F}},
                        {"gainWheel", {0.1F, 0.4F}},
                        {"gain", {1.1F}},
                        {"saturation", {1.2F}}},
                       source),
               exact, powTolerance);
}

TEST(StarterColourWheels, AWheelKeepsTheLumaOfGreys)
{
    const Picture greys = drawn(128, 1, 16, [](int x, int) {
        const double v = 0.3 + x / 400.0;
        return Colour{v, v, v, 1};
    });
    const Picture got = through("colour-wheels", "ColourWheels",
                                {{"liftWheel", {0.3F, 0.2F}}, {"gainWheel", {-0.2F, 0.1F}}}, greys);
    for (int x = 0; x < 128; ++x) {
        const Colour was = colourAt(greys, x, 0);
        // Each wheel by itself keeps luma; lift is then multiplied by the gain.
        const Vector lift = push(0.3, 0.2);
        const Vector gain = push(-0.2, 0.1);
        double added = 0;
        for (std::size_t i = 0; i < 3; ++i)
            added += std::array{0.2126, 0.7152, 0.0722}[i] * lift[i] * gain[i] * (1 - was[0]);
        EXPECT_NEAR(lumaOf(colourAt(got, x, 0)), was[0] + added, 0.0001) << x;
    }
}

struct Screen
{
    Vector colour{0.1, 0.7, 0.2};
    double foreground = 0.15;
    double clear = 0.6;
    double selectivity = 1;
    double spill = 1;

    static std::pair<double, double> chroma(double r, double g, double b)
    {
        const double luma = 0.2126 * r + 0.7152 * g + 0.0722 * b;
        return {(b - luma) / 1.8556, (r - luma) / 1.5748};
    }

    /// The foreground and its alpha.
    Colour operator()(const Colour& c) const
    {
        const auto [b, r] = chroma(c[0], c[1], c[2]);
        const auto [sb, sr] = chroma(colour[0], colour[1], colour[2]);
        const double square = sb * sb + sr * sr;
        const double along = (b * sb + r * sr) / square;
        const double across = std::abs(b * sr - r * sb) / square;
        const double part = std::max(along - selectivity * across, 0.0);
        const double key = std::clamp((part - foreground) / (clear - foreground), 0.0, 1.0);
        const double luma = 0.2126 * colour[0] + 0.7152 * colour[1] + 0.0722 * colour[2];
        Colour result = c;
        for (std::size_t i = 0; i < 3; ++i)
            result[i] -= (colour[i] - luma) * part * spill;
        result[3] = c[3] * (1 - key);
        return result;
    }
};

TEST(StarterChromaKey, CutsAndSuppressesSpillAsItSays)
{
    const Picture source = opaqueNoise(64, 48, 16);
    const Screen screen{.spill = 0.7};
    const Colour background{0.3, 0.2, 0.8, 1};
    expectNear(
        through("chroma-key", "Key", {{"spill", {0.7F}}, {"background", {0.3F, 0.2F, 0.8F, 1}}}, source),
        [&](int x, int y) {
            const Colour cut = screen(colourAt(source, x, y));
            return mixed(background, {cut[0], cut[1], cut[2], 1}, cut[3]);
        },
        2);
    expectNear(
        through("chroma-key", "Matte", {{"spill", {0.7F}}}, source),
        [&](int x, int y) {
            const double alpha = screen(colourAt(source, x, y))[3];
            return Colour{alpha, alpha, alpha, 1};
        },
        2);
    const Picture behind = opaqueNoise(64, 48, 16);
    expectNear(
        through("chroma-key", "OverPicture", {{"spill", {0.7F}}}, source, {{"Background", behind}}),
        [&](int x, int y) {
            Colour cut = screen(colourAt(source, x, y));
            const double alpha = cut[3];
            cut[3] = 1;
            return mixed(colourAt(behind, x, y), cut, alpha);
        },
        2);
}

TEST(StarterChromaKey, TakesTheScreenAwayAndLeavesColoursWithoutIt)
{
    // Greys, skin, red, blue and magenta; none has a part along green.
    const std::vector<Colour> kept{{0, 0, 0, 1},          {0.5, 0.5, 0.5, 1},   {1, 1, 1, 1},
                                   {0.87, 0.67, 0.57, 1}, {0.45, 0.3, 0.24, 1}, {0.8, 0.1, 0.1, 1},
                                   {0.1, 0.2, 0.9, 1},    {0.9, 0.2, 0.8, 1}};
    const Picture source = drawn(16, static_cast<int>(kept.size()), 16, [&](int x, int y) {
        return x < 8 ? Colour{0.1, 0.7, 0.2, 1} : kept[static_cast<std::size_t>(y)];
    });
    const Picture got = through("chroma-key", "Key", {{"background", {0.25F, 0, 0.5F, 0}}}, source);
    for (int y = 0; y < source.height; ++y) {
        for (int x = 0; x < 16; ++x) {
            if (x < 8) {
                EXPECT_EQ(got.at(x, y, 3), 0) << x << ", " << y;
                continue;
            }
            for (int i = 0; i < 4; ++i)
                EXPECT_EQ(got.at(x, y, i), source.at(x, y, i)) << x << ", " << y << ", " << i;
        }
    }
}

TEST(StarterChromaKey, TakesSpillOutAndKeepsLuma)
{
    const Colour greenish{0.5, 0.6, 0.5, 1};
    const Picture source = drawn(4, 4, 16, [&](int, int) { return greenish; });
    const Picture got = through("chroma-key", "Key", {{"foreground", {0.9F}}, {"clear", {1}}}, source);
    const Colour c = colourAt(got, 2, 2);
    EXPECT_NEAR(lumaOf(c), lumaOf(greenish), 0.0001);
    EXPECT_LT(c[1] - std::max(c[0], c[2]), 0.03);
    EXPECT_EQ(c[3], 1);
}

} // namespace
} // namespace Qx::Pixels
