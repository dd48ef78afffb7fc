#include "tests/pixels/StarterPictures.h"

#include "tests/pixels/StarterEffects.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace Qx::Pixels {

namespace {

constexpr int width = 192;
constexpr int height = 108;

Colour lerp(const Colour& from, const Colour& to, double share)
{
    Colour colour{};
    for (std::size_t i = 0; i < 4; ++i)
        colour[i] = from[i] + (to[i] - from[i]) * std::clamp(share, 0.0, 1.0);
    return colour;
}

/// How much of a pixel a shape covers whose edge is that far away; below 0 inside.
double cover(double distance, double softness = 1.0)
{
    return std::clamp(0.5 - distance / softness, 0.0, 1.0);
}

double ellipse(double x, double y, double cx, double cy, double rx, double ry)
{
    return (std::hypot((x - cx) / rx, (y - cy) / ry) - 1) * std::min(rx, ry);
}

/// Whether a letter of 5 x 7 dots has the dot. Knows "Q", "X" and blanks.
bool hasDot(char letter, int column, int row)
{
    static constexpr std::array<std::string_view, 7> q{"01110", "10001", "10001", "10001",
                                                       "10101", "10010", "01101"};
    static constexpr std::array<std::string_view, 7> x{"10001", "10001", "01010", "00100",
                                                       "01010", "10001", "10001"};
    if (column < 0 || column > 4 || row < 0 || row > 6 || letter == ' ')
        return false;
    return (letter == 'Q' ? q : x)[static_cast<std::size_t>(row)][static_cast<std::size_t>(column)] == '1';
}

/// Whether the pixel belongs to a text whose dots are squares of `dot` pixels.
bool isText(std::string_view text, int x, int y, int left, int top, int dot)
{
    if (x < left || y < top)
        return false;
    const int column = (x - left) / dot;
    const auto letter = static_cast<std::size_t>(column / 6);
    return letter < text.size() && hasDot(text[letter], column % 6, (y - top) / dot);
}

struct Landscape
{
    Colour zenith, horizon, far, near, disc;
    double discX, discY;
};

constexpr Landscape byDay{{0.24, 0.46, 0.78, 1},
                          {0.97, 0.84, 0.62, 1},
                          {0.42, 0.47, 0.52, 1},
                          {0.2, 0.33, 0.16, 1},
                          {1, 0.99, 0.92, 1},
                          140,
                          26};
constexpr Landscape byNight{{0.02, 0.03, 0.12, 1},
                            {0.22, 0.2, 0.42, 1},
                            {0.1, 0.1, 0.22, 1},
                            {0.03, 0.05, 0.09, 1},
                            {0.93, 0.93, 0.85, 1},
                            48,
                            30};

Colour landscapeAt(const Landscape& land, int x, int y)
{
    const double u = x + 0.5;
    const double v = y + 0.5;
    Colour c = lerp(land.zenith, land.horizon, std::pow(v / 66, 1.3));
    c = lerp(c, land.disc, cover(ellipse(u, v, land.discX, land.discY, 11, 11)));
    const double far = 52 - 10 * std::sin(u / 19) - 5 * std::sin(u / 7.3 + 1);
    c = lerp(c, land.far, cover(far - v));
    const double near = 70 - 6 * std::sin(u / 31 + 2) - 1.5 * std::sin(u / 4.1);
    return lerp(c, lerp(land.near, {0, 0, 0, 1}, (v - near) / 60), cover(near - v));
}

/// Two tones of skin, then red, orange, yellow, green, cyan, blue, magenta.
Colour patchAt(int index)
{
    static constexpr std::array<Colour, 9> patches{{{0.89, 0.71, 0.61, 1},
                                                    {0.47, 0.32, 0.25, 1},
                                                    {0.75, 0.16, 0.15, 1},
                                                    {0.9, 0.5, 0.12, 1},
                                                    {0.92, 0.82, 0.2, 1},
                                                    {0.25, 0.62, 0.25, 1},
                                                    {0.15, 0.62, 0.68, 1},
                                                    {0.16, 0.26, 0.66, 1},
                                                    {0.66, 0.22, 0.52, 1}}};
    return patches[static_cast<std::size_t>(index)];
}

Colour chartAt(const Landscape& land, int x, int y)
{
    if (isText("QX", x, y, 12, 10, 4))
        return {0.98, 0.98, 0.98, 1};
    if (y >= 78 && y < 94 && x >= 6 && x < 186 && (x - 6) % 20 >= 2 && y >= 80)
        return patchAt((x - 6) / 20);
    if (y >= 96 && y < 104 && x >= 8 && x < 186) {
        const double grey = (x - 8) / 177.0;
        return {grey, grey, grey, 1};
    }
    return landscapeAt(land, x, y);
}

} // namespace

Picture daylight()
{
    return drawn(width, height, 8, [](int x, int y) { return chartAt(byDay, x, y); });
}

Picture night()
{
    return drawn(width, height, 8, [](int x, int y) {
        Colour c = landscapeAt(byNight, x, y);
        const bool star = (x * 7919 + y * 104729) % 251 == 0 && y < 36;
        return star ? Colour{0.9, 0.9, 1, 1} : c;
    });
}

Picture greenScreen()
{
    return drawn(width, height, 8, [](int x, int y) {
        const double u = x + 0.5;
        const double v = y + 0.5;
        const double shade = 1.06 - 0.22 * std::hypot((u - 96) / 120, (v - 50) / 80);
        Colour c{0.1 * shade, 0.7 * shade, 0.2 * shade, 1};
        // Edges of two pixels, as a camera has them, and light of the screen on the person's rims.
        const auto put = [&](Colour colour, double distance) {
            const double rim = std::clamp(1 + distance / 7, 0.0, 1.0) * 0.3;
            colour =
                lerp(colour, {colour[0] * 0.8, std::min(1.0, colour[1] + 0.25), colour[2] * 0.8, 1}, rim);
            c = lerp(c, colour, cover(distance, 2));
        };
        put({0.2, 0.28, 0.5, 1}, std::max(ellipse(u, v, 96, 112, 48, 38), v - 200));
        put({0.85, 0.84, 0.8, 1}, ellipse(u, v, 96, 88, 12, 14));
        put({0.83, 0.63, 0.53, 1}, std::max(std::abs(u - 96) - 7, std::abs(v - 74) - 9));
        put({0.2, 0.12, 0.08, 1}, ellipse(u, v, 96, 43, 23, 26));
        put({0.89, 0.71, 0.61, 1}, ellipse(u, v, 96, 50, 18, 23));
        for (const double eye : {-7.0, 7.0})
            c = lerp(c, {0.15, 0.1, 0.1, 1}, cover(ellipse(u, v, 96 + eye, 47, 2.2, 1.8)));
        c = lerp(c, {0.7, 0.33, 0.3, 1}, cover(ellipse(u, v, 96, 61, 6, 1.8)));
        return c;
    });
}

Picture interlaced()
{
    return drawn(width, height, 8, [](int x, int y) {
        const double moved = y % 2 == 0 ? 0 : 14;
        const double u = x + 0.5;
        const double v = y + 0.5;
        Colour c = lerp({0.16, 0.2, 0.26, 1}, {0.34, 0.4, 0.46, 1}, v / height);
        c = lerp(c, {0.93, 0.88, 0.75, 1}, cover(std::abs((u - 20) * 0.5 - (v - 54)) - 3));
        c = lerp(c, {0.92, 0.42, 0.14, 1}, cover(ellipse(u - moved, v, 110, 54, 34, 34)));
        return lerp(c, {1, 0.93, 0.8, 1}, 0.9 * cover(ellipse(u - moved, v, 99, 42, 8, 8), 6));
    });
}

} // namespace Qx::Pixels
