#include "tests/pixels/StarterEffects.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

// What moves, cuts, mixes, measures and separates pixels: to the pixel, and where it is said to the code.

namespace Qx::Pixels {
namespace {

const Colour backdrop{0.2, 0.6, 0.4, 1};
const std::vector<float> backdropSetting{0.2F, 0.6F, 0.4F, 1.0F};

TEST(StarterCrop, CutsAtThePixelsThatAreStated)
{
    for (const int depth : {8, 16}) {
        const Picture source = noise(53, 37, depth);
        const Settings settings{
            {"left", {10}}, {"right", {7}}, {"top", {3}}, {"bottom", {5}}, {"background", backdropSetting}};
        const auto exact = [&](int x, int y) {
            const bool inside = x >= 10 && x < 53 - 7 && y >= 3 && y < 37 - 5;
            return inside ? colourAt(source, x, y) : backdrop;
        };
        expectNear(through("crop", "Crop", settings, source), exact, 0);
    }
}

TEST(StarterCrop, SoftEdgesLieInsideUncroppedSidesHaveNone)
{
    const Picture source = opaqueNoise(53, 37, 8);
    const auto exact = [&](int x, int y) {
        const double left = std::clamp((x + 0.5 - 10) / 8, 0.0, 1.0);
        const double bottom = std::clamp((37 - 5 - (y + 0.5)) / 8, 0.0, 1.0);
        return mixed(backdrop, colourAt(source, x, y), left * bottom);
    };
    expectNear(through("crop", "Crop",
                       {{"left", {10}},
                        {"right", {0}},
                        {"top", {0}},
                        {"bottom", {5}},
                        {"softness", {8}},
                        {"background", backdropSetting}},
                       source),
               exact, 1);
}

TEST(StarterCrop, ATransparentBackgroundLeavesStraightColours)
{
    const Picture source = opaqueNoise(32, 8, 8);
    const Picture got = through("crop", "Crop",
                                {{"left", {8}},
                                 {"right", {0}},
                                 {"top", {0}},
                                 {"bottom", {0}},
                                 {"softness", {8}},
                                 {"background", {0}}},
                                source);
    for (int x = 0; x < 32; ++x) {
        EXPECT_NEAR(got.at(x, 4, 3), 255 * std::clamp((x + 0.5 - 8) / 8, 0.0, 1.0), 0.51) << x;
        for (int i = 0; x >= 8 && i < 3; ++i)
            EXPECT_NEAR(got.at(x, 4, i), source.at(x, 4, i), 1) << x;
    }
}

TEST(StarterTransform, ShiftsByWholePixelsKeepEveryCode)
{
    for (const int depth : {8, 16}) {
        const Picture source = opaqueNoise(53, 37, depth);
        const auto exact = [&](int x, int y) {
            const bool inside = x >= 5 && y - 37 < -11;
            return inside ? colourAt(source, x - 5, y + 11) : backdrop;
        };
        expectNear(through("transform", "Transform",
                           {{"position", {5, -11}},
                            {"scale", {1}},
                            {"rotation", {0}},
                            {"anchor", {0.31F, 0.77F}},
                            {"background", backdropSetting}},
                           source),
                   exact, 0);
    }
}

TEST(StarterTransform, AQuarterTurnIsClockwise)
{
    const Picture source = opaqueNoise(40, 40, 8);
    expectNear(
        through("transform", "Transform", {{"scale", {1}}, {"rotation", {90}}}, source),
        [&](int x, int y) { return colourAt(source, y, 39 - x); }, 0);
    expectNear(
        through("transform", "Transform", {{"scale", {-1, 1}}, {"rotation", {0}}}, source),
        [&](int x, int y) { return colourAt(source, 39 - x, y); }, 0);
}

/// The picture and the background around it at a place, premultiplied, bilinearly.
Colour bilinear(const Picture& source, const Colour& background, double x, double y)
{
    const int left = static_cast<int>(std::floor(x - 0.5));
    const int top = static_cast<int>(std::floor(y - 0.5));
    Colour sum{};
    for (int j = 0; j < 2; ++j) {
        for (int i = 0; i < 2; ++i) {
            const double s = x - 0.5 - left;
            const double t = y - 0.5 - top;
            const double weight = (i == 0 ? 1 - s : s) * (j == 0 ? 1 - t : t);
            const bool inside =
                left + i >= 0 && left + i < source.width && top + j >= 0 && top + j < source.height;
            const Colour c = inside ? colourAt(source, left + i, top + j) : background;
            for (std::size_t k = 0; k < 3; ++k)
                sum[k] += weight * c[k] * c[3];
            sum[3] += weight * c[3];
        }
    }
    return sum;
}

TEST(StarterTransform, InterpolatesAndReduces)
{
    // Places in a picture have 18 bits behind the point here: codes of 16 bits that differ much are that far
    // off.
    struct Case
    {
        double scaleX, scaleY, rotation, anchorX, anchorY, moveX, moveY;
        int samplesX, samplesY;
    };
    for (const Case& c : {Case{2, 2, 0, 0, 0, 0, 0, 1, 1}, Case{1.3, 0.7, 44, 0.25, 0.5, 3.5, -2, 1, 2},
                          Case{0.5, 0.25, -75, 0.5, 0.5, 0, 0, 2, 4}}) {
        const Picture source = noise(48, 36, 16);
        const auto exact = [&](int x, int y) {
            Colour sum{};
            const double angle = c.rotation * std::numbers::pi / 180;
            for (int j = 0; j < c.samplesY; ++j) {
                for (int i = 0; i < c.samplesX; ++i) {
                    const double ax = c.anchorX * 48;
                    const double ay = c.anchorY * 36;
                    const double dx = x + 0.5 - c.moveX - ax;
                    const double dy = y + 0.5 - c.moveY - ay;
                    const double px =
                        std::cos(angle) * dx + std::sin(angle) * dy + (i + 0.5) / c.samplesX - 0.5;
                    const double py =
                        std::cos(angle) * dy - std::sin(angle) * dx + (j + 0.5) / c.samplesY - 0.5;
                    const Colour one = bilinear(source, {0, 0, 0, 0}, ax + px / c.scaleX, ay + py / c.scaleY);
                    for (std::size_t k = 0; k < 4; ++k)
                        sum[k] += one[k] / (c.samplesX * c.samplesY);
                }
            }
            for (std::size_t k = 0; k < 3; ++k)
                sum[k] = sum[3] > 0 ? sum[k] / sum[3] : 0;
            return sum;
        };
        expectNear(through("transform", "Transform",
                           {{"scale", {static_cast<float>(c.scaleX), static_cast<float>(c.scaleY)}},
                            {"rotation", {static_cast<float>(c.rotation)}},
                            {"anchor", {static_cast<float>(c.anchorX), static_cast<float>(c.anchorY)}},
                            {"position", {static_cast<float>(c.moveX), static_cast<float>(c.moveY)}},
                            {"background", {0}}},
                           source),
                   exact, 20);
    }
}

Picture half(const Picture& one, const Picture& other)
{
    Picture mean = one;
    for (std::size_t i = 0; i < mean.codes.size(); ++i)
        mean.codes[i] = static_cast<std::uint16_t>((one.codes[i] + other.codes[i] + 1) / 2);
    return mean;
}

TEST(StarterDissolve, BeginsEndsAndHalvesExactly)
{
    for (const int depth : {8, 16}) {
        const Picture source = opaqueNoise(65, 33, depth);
        const Picture other = drawn(65, 33, depth, [](int x, int y) {
            return Colour{x / 64.0, y / 32.0, 0.3, 1};
        });
        const auto at = [&](float amount) {
            return through("dissolve", "Dissolve", {{"amount", {amount}}}, source, {{"To", other}});
        };
        expectSame(at(0), source);
        expectSame(at(1), other);
        expectSame(at(0.5F), half(source, other));
        expectNear(
            at(0.3F),
            [&](int x, int y) { return mixed(colourAt(source, x, y), colourAt(other, x, y), 0.3F); }, 1);
    }
}

TEST(StarterDissolve, DoesNotCountTheColourOfWhatIsTransparent)
{
    const Picture source = noise(31, 17, 8);
    const Picture other = noise(31, 17, 8);
    const Picture turned = drawn(31, 17, 8, [&](int x, int y) { return colourAt(other, 30 - x, 16 - y); });
    expectNear(
        through("dissolve", "Dissolve", {{"amount", {0.7F}}}, source, {{"To", turned}}),
        [&](int x, int y) { return mixed(colourAt(source, x, y), colourAt(turned, x, y), 0.7); }, 1);
}

TEST(StarterDissolve, StretchesAPictureOfAnotherSize)
{
    const Picture source = opaqueNoise(64, 32, 8);
    const Picture small = drawn(8, 4, 8, [](int x, int y) { return Colour{x / 7.0, y / 3.0, 0.5, 1}; });
    const Picture got = through("dissolve", "Dissolve", {{"amount", {1}}}, source, {{"To", small}});
    for (int x = 4; x < 60; ++x)
        EXPECT_NEAR(got.at(x, 16, 0), ((x + 0.5) / 8 - 0.5) / 7 * 255, 2) << x;
}

TEST(StarterDissolve, RunsForItsDuration)
{
    const Picture source = opaqueNoise(16, 16, 8);
    const Picture other = drawn(16, 16, 8, [](int, int) { return Colour{0.2, 0.4, 0.8, 1}; });
    const auto at = [&](float seconds) {
        return through("dissolve", "Dissolve", {{"start", {2}}, {"duration", {4}}, {"seconds", {seconds}}},
                       source, {{"To", other}});
    };
    expectSame(at(0), source);
    expectSame(at(2), source);
    expectSame(at(4), half(source, other));
    expectSame(at(6), other);
    expectSame(at(60), other);
}

TEST(StarterWipe, AHardEdgeFallsBetweenPixels)
{
    const Picture source = opaqueNoise(40, 30, 16);
    const Picture other = drawn(40, 30, 16, [](int x, int y) { return Colour{x / 40.0, y / 30.0, 0.5, 1}; });
    const auto wiped = [&](const char* technique, float amount, float angle) {
        return through("wipe", technique, {{"amount", {amount}}, {"angle", {angle}}, {"softness", {0}}},
                       source, {{"To", other}});
    };
    const auto where = [&](const std::function<bool(int, int)>& isOther) {
        return [&, isOther](int x, int y) { return colourAt(isOther(x, y) ? other : source, x, y); };
    };
    expectNear(wiped("Wipe", 0.5F, 0), where([](int x, int) { return x < 20; }), 0);
    expectNear(wiped("Wipe", 0.25F, 180), where([](int x, int) { return x >= 30; }), 0);
    expectNear(wiped("Wipe", 0.4F, 90), where([](int, int y) { return y < 12; }), 0);
    expectNear(wiped("Iris", 0.5F, 0),
               where([](int x, int y) { return std::hypot(x - 19.5, y - 14.5) < 0.5 * std::hypot(20, 15); }),
               0);
    expectNear(wiped("Clock", 0.25F, 0), where([](int x, int y) { return x >= 20 && y < 15; }), 0);
    for (const char* technique : {"Wipe", "Iris", "Clock"}) {
        expectSame(wiped(technique, 0, 30), source);
        expectSame(wiped(technique, 1, 30), other);
    }
}

TEST(StarterWipe, ASoftEdgeMixes)
{
    const Picture source = opaqueNoise(64, 8, 8);
    const Picture other = drawn(64, 8, 8, [](int, int) { return Colour{1, 1, 1, 1}; });
    expectNear(
        through("wipe", "Wipe", {{"amount", {0.5F}}, {"softness", {0.25F}}}, source, {{"To", other}}),
        [&](int x, int y) {
            const double share = std::clamp((0.5 * 1.25 - (x + 0.5) / 64) / 0.25, 0.0, 1.0);
            return mixed(colourAt(source, x, y), {1, 1, 1, 1}, share);
        },
        1);
}

TEST(StarterGuides, LieOnTheLinesOfTheStandard)
{
    // SMPTE ST 2046-1 at 1920 x 1080: 93 % and 90 % of the width and height.
    const Picture grey = drawn(1920, 1080, 8, [](int, int) { return Colour{0.5, 0.5, 0.5, 1}; });
    const Picture got =
        through("guides", "Guides", {{"thickness", {1}}, {"centre", {0}}, {"opacity", {1}}}, grey);
    const auto onEdge = [](int x, int y, int left, int top) {
        const int right = 1919 - left;
        const int bottom = 1079 - top;
        const bool inside = x >= left && x <= right && y >= top && y <= bottom;
        return inside && (x == left || x == right || y == top || y == bottom);
    };
    expectNear(
        got,
        [&](int x, int y) {
            return onEdge(x, y, 96, 54)   ? Colour{1, 1, 1, 1}
                   : onEdge(x, y, 67, 38) ? Colour{1, 0.8, 0, 1}
                                          : Colour{0.5, 0.5, 0.5, 1};
        },
        1);
    EXPECT_EQ(got.at(66, 500, 2), 128);
    EXPECT_EQ(got.at(67, 500, 2), 0);
    EXPECT_EQ(got.at(1852, 500, 2), 0);
    EXPECT_EQ(got.at(1853, 500, 2), 128);
}

TEST(StarterGuides, RoundMarginsAndMixByTheirOpacity)
{
    const Picture source = opaqueNoise(99, 61, 8);
    const auto exact = [&](int x, int y) {
        const auto inside = [&](double percent) {
            const int left = static_cast<int>(std::floor(99 * (100 - percent) / 200 + 0.5));
            const int top = static_cast<int>(std::floor(61 * (100 - percent) / 200 + 0.5));
            return std::min(std::min(x, 98 - x) - left, std::min(y, 60 - y) - top);
        };
        const bool onTitle = inside(80) >= 0 && inside(80) < 2;
        const bool onAction = inside(90) >= 0 && inside(90) < 2;
        const bool onCross =
            (x >= 48 && x < 50 && y >= 26 && y < 34) || (y >= 29 && y < 31 && x >= 45 && x < 53);
        const Colour colour = onTitle || onCross ? Colour{1, 1, 1, 1} : Colour{1, 0.8, 0, 1};
        return mixed(colourAt(source, x, y), colour, onTitle || onAction || onCross ? 0.4 : 0.0);
    };
    expectNear(through("guides", "Guides", {{"action", {90}}, {"title", {80}}, {"opacity", {0.4F}}}, source),
               exact, 1);
}

/// The lines that lie evenly between others, as the picture's own; a still picture.
Picture stillRamp(int depth)
{
    Picture ramp = Picture::blank("ramp", Layout::Rgb, 24, 32, depth);
    const int step = depth == 8 ? 1 : 256;
    for (int y = 0; y < ramp.height; ++y) {
        for (int x = 0; x < ramp.width; ++x) {
            ramp.at(x, y, 0) = static_cast<std::uint16_t>((10 + 7 * y) * step);
            ramp.at(x, y, 1) = static_cast<std::uint16_t>((250 - 5 * y - x) * step);
            ramp.at(x, y, 2) = static_cast<std::uint16_t>((3 * y + x) * step);
            ramp.at(x, y, 3) = ramp.maxCode();
        }
    }
    return ramp;
}

TEST(StarterDeinterlace, LeavesAStillRampButForTheEdges)
{
    for (const int depth : {8, 16}) {
        const Picture ramp = stillRamp(depth);
        for (const char* technique : {"Bob", "Blend", "EdgeDirected"}) {
            for (const float second : {0.0F, 1.0F}) {
                const Picture got = through("deinterlace", technique, {{"secondField", {second}}}, ramp);
                for (int y = 1; y < ramp.height - 1; ++y) {
                    for (int x = 0; x < ramp.width; ++x) {
                        for (int i = 0; i < 4; ++i)
                            ASSERT_EQ(got.at(x, y, i), ramp.at(x, y, i))
                                << technique << ", " << x << ", " << y << ", " << i;
                    }
                }
            }
        }
    }
}

TEST(StarterDeinterlace, KeepsTheLinesOfAFieldAndMakesTheOthersAnew)
{
    for (const int depth : {8, 16}) {
        const Picture source = noise(20, 15, depth);
        for (const int order : {0, 1}) {
            for (const int second : {0, 1}) {
                const int kept = (order + second) % 2;
                const Settings settings{{"fieldOrder", {static_cast<float>(order)}},
                                        {"secondField", {static_cast<float>(second)}}};
                const Picture got = through("deinterlace", "Bob", settings, source);
                for (int y = 0; y < source.height; ++y) {
                    const int up = y > 0 ? y - 1 : 1;
                    const int down = y + 1 < source.height ? y + 1 : source.height - 2;
                    for (int x = 0; x < source.width; ++x) {
                        for (int i = 0; i < 4; ++i) {
                            const int wanted = y % 2 == kept
                                                   ? source.at(x, y, i)
                                                   : (source.at(x, up, i) + source.at(x, down, i) + 1) / 2;
                            ASSERT_EQ(got.at(x, y, i), wanted) << x << ", " << y << ", " << i;
                        }
                    }
                }
            }
        }
    }
}

TEST(StarterDeinterlace, BlendsBothFields)
{
    const Picture source = noise(20, 15, 16);
    const Picture got = through("deinterlace", "Blend", {}, source);
    for (int y = 0; y < source.height; ++y) {
        const int up = y > 0 ? y - 1 : 1;
        const int down = y + 1 < source.height ? y + 1 : source.height - 2;
        for (int x = 0; x < source.width; ++x) {
            for (int i = 0; i < 4; ++i)
                ASSERT_EQ(got.at(x, y, i),
                          (source.at(x, up, i) + 2 * source.at(x, y, i) + source.at(x, down, i) + 2) / 4);
        }
    }
}

TEST(StarterDeinterlace, FollowsEdges)
{
    // A diagonal edge, of which one field is missing: to be seen again.
    const auto edge = [](int x, int y) {
        return x > y ? Colour{0.9, 0.8, 0.7, 1} : Colour{0.1, 0.2, 0.1, 1};
    };
    const Picture whole = drawn(48, 48, 8, edge);
    const Picture combed = drawn(48, 48, 8, [&](int x, int y) {
        return y % 2 == 0 ? edge(x, y) : Colour{0.5, 0, 0.5, 1};
    });
    const auto wrong = [&](const char* technique) {
        const Picture got = through("deinterlace", technique, {}, combed);
        int count = 0;
        for (int y = 1; y < 47; ++y) {
            for (int x = 3; x < 45; ++x)
                count += std::abs(got.at(x, y, 1) - whole.at(x, y, 1)) > 1 ? 1 : 0;
        }
        return count;
    };
    EXPECT_GT(wrong("Bob"), 20);
    EXPECT_EQ(wrong("EdgeDirected"), 0);
}

/// How many of a column's pixels have their level on that line of the scope; -1 is luma.
int hits(const Picture& source, int x, int line, int component, int height, int lines)
{
    const int largest = source.maxCode();
    int count = 0;
    for (int i = 0; i < lines; ++i) {
        const int y = i * source.height / lines;
        const long luma =
            (2126L * source.at(x, y, 0) + 7152L * source.at(x, y, 1) + 722L * source.at(x, y, 2) + 5000) /
            10000;
        const double code = component < 0 ? static_cast<double>(luma) : source.at(x, y, component);
        count += static_cast<int>(std::floor(code * (height - 1) / largest + 0.5)) == line ? 1 : 0;
    }
    return count;
}

TEST(StarterScopes, CountEveryPixelOfAColumn)
{
    for (const int depth : {8, 16}) {
        const Picture source = naturalPicture(Layout::Rgb, depth, 40, 60);
        const int height = 30;
        for (const int lines : {60, 20}) {
            const Settings settings{
                {"height", {0.5F}}, {"gain", {2}}, {"opacity", {1}}, {"lines", {static_cast<float>(lines)}}};
            const auto trace = [&](int x, int y, int component, int columns) {
                int count = 0;
                for (int i = 0; i < columns; ++i)
                    count += hits(source, x + i, 59 - y, component, height, lines);
                return std::min(1.0, 2.0 * count * height / (4.0 * lines * columns));
            };
            const auto isScale = [&](int y) {
                const int line = 59 - y;
                return line == 0 || line == 7 || line == 15 || line == 22 || line == 29;
            };
            const auto over = [&](int x, int y, const Colour& colour) {
                if (59 - y >= height)
                    return colourAt(source, x, y);
                Colour c = colour;
                for (std::size_t i = 0; i < 3 && isScale(y); ++i)
                    c[i] = std::max(c[i], 0.3);
                return c;
            };
            expectNear(
                through("scopes", "Waveform", settings, source),
                [&](int x, int y) {
                    const double t = trace(x, y, -1, 1);
                    return over(x, y, {0.7 * t, t, 0.75 * t, 1});
                },
                1);
            expectNear(
                through("scopes", "Overlay", settings, source),
                [&](int x, int y) {
                    return over(x, y, {trace(x, y, 0, 1), trace(x, y, 1, 1), trace(x, y, 2, 1), 1});
                },
                1);
            expectNear(
                through("scopes", "Parade", settings, source),
                [&](int x, int y) {
                    const int which = x / 13;
                    if (which > 2)
                        return over(x, y, {0, 0, 0, 1});
                    const double t = trace((x - which * 13) * 3, y, which, 3);
                    return over(x, y,
                                which == 0   ? Colour{t, 0.35 * t, 0.35 * t, 1}
                                : which == 1 ? Colour{0.35 * t, t, 0.35 * t, 1}
                                             : Colour{0.45 * t, 0.55 * t, t, 1});
                },
                1);
        }
    }
}

} // namespace
} // namespace Qx::Pixels
