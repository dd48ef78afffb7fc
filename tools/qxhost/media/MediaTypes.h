#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Media {

/// A ratio; den is never 0. A num of 0 means unknown.
struct Rational
{
    int num = 0;
    int den = 1;

    double toDouble() const { return static_cast<double>(num) / den; }
    bool operator==(const Rational&) const = default;
};

/// How codes stand for levels (BT.601 2.5.3, BT.709 4.6): video is 16-235/16-240 scaled to the depth, full is
/// 0 to the largest code.
enum class Range
{
    video,
    full
};

/// The luma coefficients Kr and Kb of a recommendation. Matrices.h describes each.
enum class Matrix
{
    bt601,
    bt709,
    bt2020 ///< with non-constant luminance
};

/// The order in time of a frame's two fields; progressive if it has none.
enum class FieldOrder
{
    progressive,
    topFirst,
    bottomFirst
};

/// What becomes of numbers that a sequence of pictures lacks.
enum class MissingPictures
{
    end,  ///< the sequence ends before the first of them
    fail, ///< the sequence is not read at all
    hold, ///< the picture before them stands for them
    black
};

/// Whether colours have been multiplied by their opacity.
enum class AlphaKind
{
    straight,
    premultiplied,
    none ///< there is none, whatever the pictures hold
};

/// Bits of a sample in memory. Sixteen-bit samples are in the machine's byte order.
enum class Depth
{
    bits8 = 8,
    bits16 = 16
};

/// What is known of a stream's brightness.
struct Brightness
{
    /// FFmpeg's AVMasteringDisplayMetadata (SMPTE ST 2086) and AVContentLightMetadata (CTA-861.3), to be
    /// handed on; empty if there is none.
    std::vector<std::uint8_t> mastering;
    std::vector<std::uint8_t> content;
    /// In cd/m2, of the mastering display, else of the brightest pixel; 0 if unknown.
    double peak = 0;
};

/// A stream's colour tags, and what is assumed where there are none.
///
/// The assumption: BT.2020 if the primaries are, else BT.709 for pictures wider than 720 pixels, else BT.601;
/// video range. RGB, palette and grey
/// pictures become YCbCr in video range with the matrix that the same rule picks, which is no guess because
/// the conversion is made here. RGB that stays RGB is assumed to be full range.
struct Colour
{
    Range range = Range::video;
    Matrix matrix = Matrix::bt709;
    bool rangeGuessed = false; ///< of RGB: rgbRange
    bool matrixGuessed = false;
    /// The stream holds RGB, grey or a palette; range and matrix tell what the reader makes of it.
    bool fromRgb = false;
    /// Of the stream's own codes, if it holds RGB: full unless its tag says video.
    Range rgbRange = Range::full;
    /// Empty, or why these colours cannot be converted ("its matrix is ycgco"). Range and matrix then hold
    /// the assumption, for a user who insists.
    std::string unsupported;
    /// Code points of ITU-T H.273 tables 2 to 4 as the stream has them; 2 is "unspecified".
    int primariesTag = 2;
    int transferTag = 2;
    int matrixTag = 2;
    Brightness brightness;
};

/// The widest picture, in pixels, that is taken to be standard definition.
inline constexpr int standardDefinitionWidth = 720;

/// The matrix assumed for untagged video and used for RGB pictures of this width.
constexpr Matrix matrixForWidth(int width)
{
    return width > standardDefinitionWidth ? Matrix::bt709 : Matrix::bt601;
}

/// How players rotate and flip the pictures: the 3x3 fixed-point matrix of ISO/IEC 14496-12, 8.2.2.3, and the
/// equivalent clockwise degrees.
struct Orientation
{
    std::array<std::int32_t, 9> matrix{};
    int degrees = 0;

    bool operator==(const Orientation&) const = default;
};

/// When a frame is shown.
struct FrameTime
{
    /// In units of the stream's time base; always present, and strictly increasing.
    std::int64_t pts = 0;
    /// In the same units; 0 if unknown.
    std::int64_t duration = 0;
    FieldOrder fieldOrder = FieldOrder::progressive;
};

} // namespace Qx::Media
