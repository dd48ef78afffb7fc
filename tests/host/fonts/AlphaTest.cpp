#include "tests/host/gpu/GpuFixture.h"

#include "host/fonts/Typeface.h"
#include "platform/Font.h"

#include <algorithm>
#include <cmath>
#include <cstring>

// What is drawn on the device, against the same line composed in double precision from the pictures that
// FreeType makes of its glyphs.

namespace Qx::FontTests {
namespace {

using GpuTests::Bytes;
using Texel = std::array<double, 4>; // a r g b, 0 to 1

const XY<int> size{300, 60};
const XY<int> place{7, 3};

struct Depth
{
    iGPUImage::eFormat format;
    std::array<double, 4> largest; ///< codes of a r g b
};

constexpr Depth bits8{iGPUImage::eARGB8, {255, 255, 255, 255}};
constexpr Depth bits10{iGPUImage::eARGB10, {3, 1023, 1023, 1023}};
constexpr Depth bits16{iGPUImage::eARGB16, {65535, 65535, 65535, 65535}};

std::vector<Texel> texelsOf(const Bytes& bytes, const Depth& depth)
{
    std::vector<Texel> texels;
    for (std::size_t i = 0; i < bytes.size();) {
        Texel texel{};
        if (depth.format == iGPUImage::eARGB10) {
            std::uint32_t word = 0;
            std::memcpy(&word, &bytes[i], sizeof word);
            texel = {double(word >> 30U), double(word >> 20U & 1023U), double(word >> 10U & 1023U),
                     double(word & 1023U)};
            i += 4;
        } else {
            for (double& component : texel) {
                std::uint16_t code = bytes[i];
                if (depth.format == iGPUImage::eARGB16) {
                    std::memcpy(&code, &bytes[i++], sizeof code);
                }
                component = code;
                ++i;
            }
        }
        for (std::size_t c = 0; c < 4; ++c) {
            texel[c] /= depth.largest[c];
        }
        texels.push_back(texel);
    }
    return texels;
}

/// The line by itself, premultiplied, opaque where its glyphs are.
std::vector<Texel> layerOf(Host::Text::TextShaper& shaper, const wchar_t* text, const NormalisedRGB& colour)
{
    std::vector<Texel> layer(static_cast<std::size_t>(size.x * size.y));
    for (const Host::Text::PlacedGlyph& placed : shaper.shape(text).glyphs) {
        const std::int64_t quarters = (placed.x + 8) >> 4;
        const auto bitmap = placed.face->draw(placed.glyph, static_cast<unsigned>(quarters & 3));
        for (int row = 0; row < bitmap.height; ++row) {
            for (int column = 0; column < bitmap.width; ++column) {
                const int x = place.x + static_cast<int>(quarters >> 2) + bitmap.left + column;
                const int y = place.y + shaper.ascent() - placed.y - bitmap.top + row;
                if (x < 0 || y < 0 || x >= size.x || y >= size.y) {
                    continue;
                }
                const std::uint8_t* texel =
                    &bitmap.texels[static_cast<std::size_t>(row * bitmap.width + column) * 4];
                const double alpha = texel[0] / 255.0;
                const Texel own{alpha, texel[1] / 255.0, texel[2] / 255.0, texel[3] / 255.0};
                const Texel tinted{alpha, alpha * colour.red, alpha * colour.green, alpha * colour.blue};
                Texel& below = layer[static_cast<std::size_t>(y * size.x + x)];
                for (std::size_t c = 0; c < 4; ++c) {
                    below[c] = (bitmap.colour ? own : tinted)[c] + below[c] * (1.0 - alpha);
                }
            }
        }
    }
    return layer;
}

Texel composed(const Texel& layer, const Texel& under, double opacity, iFont::eAlpha alpha)
{
    const double a = layer[0] * opacity;
    Texel result{a + under[0] * (1.0 - a)};
    for (std::size_t c = 1; c < 4; ++c) {
        result[c] = alpha == iFont::Premultiplied
                        ? layer[c] * opacity + under[c] * (1.0 - a)
                        : (layer[c] * opacity + under[c] * under[0] * (1.0 - a)) / result[0];
    }
    return a > 0.0 ? result : under;
}

class Alpha : public GpuTests::GpuTest
{
protected:
    void expectComposition(const Depth& depth, const Bytes& background, const NormalisedRGB& colour,
                           iFont::eAlpha alpha)
    {
        const wchar_t* text = L"Ag\u00E9 \u0628\u0633\u0628 W\u0338 \U0001F3AC 0:8;";
        const auto shaper = Host::Text::openTypeface(L"DejaVu Sans", 33, 0);
        const Qx::Ptr<iFont> font = gpu().createFont(L"DejaVu Sans", 33, 0);
        const Qx::Ptr<iGPUImage> image = upload(size, depth.format, background);
        ASSERT_TRUE(font && image && shaper != nullptr);
        ASSERT_TRUE(font->draw(image, text, place, colour, alpha)) << GpuTests::takeLog();
        const std::vector<Texel> got = texelsOf(download(image), depth);
        const std::vector<Texel> under = texelsOf(background, depth);
        const std::vector<Texel> layer = layerOf(*shaper, text, colour);
        ASSERT_EQ(got.size(), layer.size());
        std::size_t edges = 0;
        for (std::size_t i = 0; i < got.size(); ++i) {
            const Texel wanted = composed(layer[i], under[i], colour.alpha, alpha);
            edges += layer[i][0] > 0.02 && layer[i][0] < 0.98;
            for (std::size_t c = 0; c < 4; ++c) {
                // The layer has 16 bits; what is nearly transparent shows its rounding more.
                const double layerStep = depth.largest[c] / 65535.0 / std::max(wanted[0], 1.0 / 65535.0);
                const double tolerance = layer[i][0] > 0 ? 0.501 + 2.0 * layerStep : 0.0;
                EXPECT_LE(std::abs(got[i][c] - std::min(wanted[c], 1.0)) * depth.largest[c], tolerance)
                    << "component " << c << " at " << i % static_cast<std::size_t>(size.x) << ","
                    << i / static_cast<std::size_t>(size.x) << ": " << got[i][c] << ", not " << wanted[c];
                if (HasFailure()) {
                    return;
                }
            }
        }
        EXPECT_GT(edges, 500U) << "there was little to see";
    }

    /// Noise that is opaque.
    static Bytes opaque(const Depth& depth)
    {
        Bytes bytes = GpuTests::noise(GpuTests::bytesOf(size, depth.format));
        const std::size_t texel = depth.format == iGPUImage::eARGB16 ? 8 : 4;
        for (std::size_t i = 0; i < bytes.size(); i += texel) {
            if (depth.format == iGPUImage::eARGB10) {
                bytes[i + 3] |= 0xC0U;
            } else {
                std::fill_n(&bytes[i], texel / 4, std::uint8_t{255});
            }
        }
        return bytes;
    }

    /// Noise of which no colour is more than its alpha.
    static Bytes premultiplied()
    {
        Bytes bytes = GpuTests::noise(GpuTests::bytesOf(size, iGPUImage::eARGB8));
        for (std::size_t i = 0; i < bytes.size(); i += 4) {
            for (std::size_t c = 1; c < 4; ++c) {
                bytes[i + c] = static_cast<std::uint8_t>(bytes[i + c] * bytes[i] / 255);
            }
        }
        return bytes;
    }
};

const NormalisedRGB white{1, 1, 1, 1};
const NormalisedRGB amber{1.0F, 0.7F, 0.2F, 1.0F};
const NormalisedRGB faint{0.2F, 0.9F, 0.4F, 0.35F};

TEST_F(Alpha, overOpaquePicturesAtEveryDepth)
{
    for (const Depth& depth : {bits8, bits10, bits16}) {
        for (const NormalisedRGB& colour : {white, amber, faint}) {
            for (const iFont::eAlpha alpha : {iFont::Straight, iFont::Premultiplied}) {
                SCOPED_TRACE(std::to_string(depth.format) + (alpha == iFont::Straight ? " straight" : ""));
                expectComposition(depth, opaque(depth), colour, alpha);
            }
        }
    }
}

TEST_F(Alpha, overTranslucentPicturesOfStraightAlpha)
{
    for (const Depth& depth : {bits8, bits16}) {
        for (const NormalisedRGB& colour : {white, faint}) {
            expectComposition(depth, GpuTests::noise(GpuTests::bytesOf(size, depth.format)), colour,
                              iFont::Straight);
        }
    }
}

TEST_F(Alpha, overTranslucentPicturesOfPremultipliedAlpha)
{
    for (const NormalisedRGB& colour : {white, faint}) {
        expectComposition(bits8, premultiplied(), colour, iFont::Premultiplied);
    }
}

TEST_F(Alpha, onNothingStraightTextHasItsColourEverywhere)
{
    const Qx::Ptr<iGPUImage> image = upload(size, iGPUImage::eARGB8, GpuTests::filled(size, {0, 0, 0, 0}));
    const Qx::Ptr<iFont> font = gpu().createFont(L"DejaVu Sans", 33, 0);
    ASSERT_TRUE(font->draw(image, L"Edges", place, {1.0F, 0.0F, 1.0F, 1.0F}));
    const Bytes bytes = download(image);
    std::size_t translucent = 0;
    for (std::size_t i = 0; i < bytes.size(); i += 4) {
        if (bytes[i] > 0) {
            translucent += bytes[i] < 255;
            ASSERT_EQ(bytes[i + 1], 255);
            ASSERT_EQ(bytes[i + 2], 0);
            ASSERT_EQ(bytes[i + 3], 255);
        }
    }
    EXPECT_GT(translucent, 100U);
}

} // namespace
} // namespace Qx::FontTests
