#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Qx::Pixels {

enum class Layout
{
    Rgb,      ///< a texel is one pixel: R G B A
    Packed422 ///< a texel is two pixels: Y0 Cb Y1 Cr, Cb and Cr sited on the even one
};

/// A picture made of unsigned codes, four to a texel.
struct Picture
{
    std::string name;
    Layout layout = Layout::Rgb;
    int width = 0; ///< in pixels
    int height = 0;
    int depth = 8;     ///< bits a code: 8 or 16
    int rowTexels = 0; ///< of a row in `codes`, padding included
    std::vector<std::uint16_t> codes;

    /// A picture of zeros; `padding` texels stand behind each row.
    static Picture blank(std::string name, Layout layout, int width, int height, int depth, int padding = 0);

    /// Texels that a row of the picture itself has: a pair of pixels, also a half one, is one texel.
    static int texelsFor(Layout layout, int width);

    int texels() const { return texelsFor(layout, width); }
    std::uint16_t maxCode() const { return depth == 8 ? 255 : 65535; }

    std::uint16_t& at(int texel, int row, int component) { return codes[index(texel, row, component)]; }
    std::uint16_t at(int texel, int row, int component) const { return codes[index(texel, row, component)]; }

private:
    std::size_t index(int texel, int row, int component) const
    {
        return (static_cast<std::size_t>(row) * static_cast<std::size_t>(rowTexels) +
                static_cast<std::size_t>(texel)) *
                   4 +
               static_cast<std::size_t>(component);
    }
};

/// Every kind of content that a conversion can get wrong, in one layout and depth: random codes, every code
/// of each component, colour bars, single chroma edges and impulses, odd widths, padded rows. The same at
/// every call.
std::vector<Picture> trialPictures(Layout layout, int depth);

/// Smooth shading, a few soft discs and a little noise: what a camera might see, within video range.
Picture naturalPicture(Layout layout, int depth, int width, int height);

} // namespace Qx::Pixels
