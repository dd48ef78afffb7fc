#include "tests/pixels/Picture.h"

#include <array>
#include <cmath>
#include <random>
#include <utility>

namespace Qx::Pixels {

namespace {

using Texel = std::array<std::uint16_t, 4>;

void put(Picture& picture, int texel, int row, const Texel& value)
{
    for (int component = 0; component < 4; ++component)
        picture.at(texel, row, component) = value[static_cast<std::size_t>(component)];
}

/// Padding is noise too: what leaks in from it shows.
Picture randomPicture(std::string name, Layout layout, int width, int height, int depth, int padding = 0)
{
    Picture picture = Picture::blank(std::move(name), layout, width, height, depth, padding);
    std::mt19937 random(static_cast<std::uint32_t>(width * 7919 + height));
    for (std::uint16_t& code : picture.codes)
        code = static_cast<std::uint16_t>(random() & picture.maxCode());
    return picture;
}

/// Every code of each component; at 8 bits every pair of luma and Cb, or of red and green.
Picture ramps(Layout layout, int depth)
{
    Picture picture = Picture::blank("ramps", layout, layout == Layout::Packed422 ? 512 : 256, 256, depth);
    for (int row = 0; row < picture.height; ++row) {
        for (int texel = 0; texel < picture.texels(); ++texel) {
            const int along = depth == 8 ? texel : row * 256 + texel;
            const int across = depth == 8 ? row : row * 256 + texel;
            const int last = picture.maxCode();
            put(picture, texel, row,
                {static_cast<std::uint16_t>(along), static_cast<std::uint16_t>(across),
                 static_cast<std::uint16_t>(last - along), static_cast<std::uint16_t>(last - across)});
        }
    }
    return picture;
}

/// Each grey there is, so that colour where there should be none shows.
Picture greys(Layout layout, int depth)
{
    const int height = depth == 8 ? 1 : 256;
    Picture picture = Picture::blank("greys", layout, layout == Layout::Packed422 ? 512 : 256, height, depth);
    const auto zero = static_cast<std::uint16_t>(1 << (depth - 1));
    for (int row = 0; row < height; ++row) {
        for (int texel = 0; texel < picture.texels(); ++texel) {
            const auto grey = static_cast<std::uint16_t>(row * 256 + texel);
            put(picture, texel, row,
                layout == Layout::Rgb ? Texel{grey, grey, grey, picture.maxCode()}
                                      : Texel{grey, zero, grey, zero});
        }
    }
    return picture;
}

/// Black, blue, green, ... white at full and at three quarters height: 8-bit codes of the layout's own
/// published bars (BT.709, 100 %), scaled to the depth.
Picture bars(Layout layout, int depth)
{
    static constexpr std::array<std::array<int, 3>, 8> yCbCr{{{235, 128, 128},
                                                              {219, 16, 138},
                                                              {188, 154, 16},
                                                              {173, 42, 26},
                                                              {78, 214, 230},
                                                              {63, 102, 240},
                                                              {32, 240, 118},
                                                              {16, 128, 128}}};
    constexpr int barWidth = 10;
    Picture picture = Picture::blank("bars", layout, 8 * barWidth, 16, depth);
    const int step = depth == 8 ? 1 : 256;
    for (int row = 0; row < picture.height; ++row) {
        const int percent = row < 8 ? 100 : 75;
        for (int texel = 0; texel < picture.texels(); ++texel) {
            const int pixel = layout == Layout::Packed422 ? texel * 2 : texel;
            const int bar = pixel / barWidth;
            const auto code = [&](int value) { return static_cast<std::uint16_t>(value * step); };
            if (layout == Layout::Packed422) {
                const auto& colour = yCbCr[static_cast<std::size_t>(bar)];
                const std::uint16_t y = code(16 + (colour[0] - 16) * percent / 100);
                put(picture, texel, row,
                    {y, code(128 + (colour[1] - 128) * percent / 100), y,
                     code(128 + (colour[2] - 128) * percent / 100)});
                continue;
            }
            const int white = 16 + 219 * percent / 100;
            const int lit = 7 - bar;
            put(picture, texel, row,
                {code((lit & 2) != 0 ? white : 16), code((lit & 4) != 0 ? white : 16),
                 code((lit & 1) != 0 ? white : 16), picture.maxCode()});
        }
    }
    return picture;
}

/// In row r, colour from one extreme to the other at texel r (upper half) or at texel r alone (lower half).
Picture edges(Layout layout, int depth)
{
    Picture picture = Picture::blank("edges", layout, layout == Layout::Packed422 ? 47 : 24, 48, depth);
    const std::uint16_t high = picture.maxCode();
    const auto middle = static_cast<std::uint16_t>(1 << (depth - 1));
    for (int row = 0; row < picture.height; ++row) {
        const bool impulse = row >= 24;
        const int place = row % 24;
        for (int texel = 0; texel < picture.texels(); ++texel) {
            const bool on = impulse ? texel == place : texel >= place;
            const std::uint16_t rising = on ? high : 0;
            const std::uint16_t falling = on ? 0 : high;
            put(picture, texel, row,
                layout == Layout::Packed422 ? Texel{middle, rising, middle, falling}
                                            : Texel{rising, middle, falling, high});
        }
    }
    return picture;
}

} // namespace

int Picture::texelsFor(Layout layout, int width)
{
    return layout == Layout::Packed422 ? (width + 1) / 2 : width;
}

Picture Picture::blank(std::string name, Layout layout, int width, int height, int depth, int padding)
{
    Picture picture;
    picture.name = std::move(name);
    picture.layout = layout;
    picture.width = width;
    picture.height = height;
    picture.depth = depth;
    picture.rowTexels = picture.texels() + padding;
    picture.codes.resize(static_cast<std::size_t>(picture.rowTexels) * static_cast<std::size_t>(height) * 4);
    return picture;
}

std::vector<Picture> trialPictures(Layout layout, int depth)
{
    std::vector<Picture> pictures;
    pictures.push_back(randomPicture("random", layout, 512, 128, depth));
    pictures.push_back(ramps(layout, depth));
    pictures.push_back(greys(layout, depth));
    pictures.push_back(bars(layout, depth));
    pictures.push_back(edges(layout, depth));
    for (const int width : {1, 2, 3, 5, 17, 67})
        pictures.push_back(randomPicture("width-" + std::to_string(width), layout, width, 5, depth));
    if (layout == Layout::Packed422) {
        pictures.push_back(randomPicture("padded-by-1", layout, 50, 9, depth, 1));
        pictures.push_back(randomPicture("padded-by-13", layout, 37, 9, depth, 13));
    }
    return pictures;
}

Picture naturalPicture(Layout layout, int depth, int width, int height)
{
    struct Disc
    {
        double x, y, radius;
        std::array<double, 3> colour;
    };
    static constexpr std::array<Disc, 4> discs{{{0.25, 0.4, 0.22, {0.75, 0.35, 0.7}},
                                                {0.6, 0.3, 0.15, {0.5, 0.7, 0.3}},
                                                {0.7, 0.75, 0.3, {0.35, 0.4, 0.6}},
                                                {0.4, 0.8, 0.12, {0.85, 0.55, 0.45}}}};
    Picture picture = Picture::blank("natural", layout, width, height, depth);
    std::mt19937 random(20);
    const double step = depth == 8 ? 1.0 : 256.0;

    const auto colourAt = [&](int pixel, int row) {
        const double u = (pixel + 0.5) / width;
        const double v = (row + 0.5) / height;
        std::array<double, 3> colour{0.25 + 0.5 * v, 0.5 + 0.15 * std::sin(5 * u),
                                     0.5 - 0.1 * std::cos(4 * v)};
        for (const Disc& disc : discs) {
            const double distance = std::hypot(u - disc.x, v - disc.y) - disc.radius;
            const double cover = 1.0 / (1.0 + std::exp(distance * 60.0));
            for (std::size_t i = 0; i < 3; ++i)
                colour[i] += (disc.colour[i] - colour[i]) * cover;
        }
        return colour;
    };
    const auto code = [&](double value) {
        const double noise = static_cast<double>(random() % 1024) / 1024.0 - 0.5;
        return static_cast<std::uint16_t>(std::lround((16.0 + 219.0 * value + 2.0 * noise) * step));
    };

    for (int row = 0; row < height; ++row) {
        for (int texel = 0; texel < picture.texels(); ++texel) {
            if (layout == Layout::Rgb) {
                const auto c = colourAt(texel, row);
                put(picture, texel, row, {code(c[0]), code(c[1]), code(c[2]), picture.maxCode()});
                continue;
            }
            const auto even = colourAt(texel * 2, row);
            const auto odd = colourAt(texel * 2 + 1, row);
            put(picture, texel, row, {code(even[0]), code(even[1]), code(odd[0]), code(even[2])});
        }
    }
    return picture;
}

} // namespace Qx::Pixels
