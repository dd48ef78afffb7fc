#pragma once

#include "tools/qxhost/media/Frame.h"
#include "tools/qxhost/media/MediaTypes.h"
#include "tools/qxhost/media/Result.h"
#include "tools/qxhost/media/rows/PackRows.h"

#include <cstddef>
#include <memory>

struct AVFrame;

namespace Qx::Media {

/// Writes frames as packed 4:2:2: for every pair of pixels Y0 Cb Y1 Cr, or these in another order, chroma
/// sited on the even pixel. Or, if the target says so, as 4:4:4 with alpha.
///
/// - A 4:2:2 source in any order of its samples is only repacked. Each code becomes the one of the same level
///   at the target's bits (Levels.h): with as many bits it stays the same.
/// - Everything else goes through zimg: chroma is resampled with the Catmull-Rom kernel (bicubic b=0, c=1/2)
///   from where the stream says it is sited, each field by itself when the frame is interlaced and its chroma
///   is subsampled vertically. Unstated siting is left (MPEG-2), or centre for JPEG's formats.
/// - RGB, grey and palettes become YCbCr in the requested range and matrix. Alpha is dropped.
/// - Rounding is to nearest, without dither.
///
/// Holds scratch memory, so use one for each thread that packs.
class FramePacker
{
public:
    struct Target
    {
        Depth depth = Depth::bits8; ///< of a sample in memory
        /// Range of the codes written, and of the source's codes unless the source is RGB or its tags are
        /// followed.
        Range range = Range::video;
        /// Used for RGB sources only: YCbCr is never changed from one matrix to another.
        Matrix matrix = Matrix::bt709;
        /// Bits of a code, which fill the upper ones of a sample; 0: all of them.
        int bits = 0;
        /// The source's codes are of Frame::range(); those of another range than the one written are brought
        /// to their levels in it.
        bool followTags = false;
        /// Packed frames may have any CodeForm, which formOf() says. Otherwise all have codeBits().
        bool anyForm = false;

        Range rangeOf(const Frame& frame) const { return followTags ? frame.range() : range; }
        /// Packs A Y Cb Cr of every pixel instead of 4:2:2: codes of the frame's own bits in the upper ones
        /// of a sample, alpha of full range. Chroma that is subsampled is computed, at all bits of a sample.
        bool fullChroma = false;
        /// Of the samples of 4:2:2.
        PairOrder order = PairOrder::yuyv;

        int codeBits() const { return bits != 0 ? bits : static_cast<int>(depth); }
    };

    /// How the codes of a packed frame stand for levels.
    struct CodeForm
    {
        /// Codes of so many bits fill the upper ones of a sample. The others may hold fractions.
        int bits = 8;
        /// Cb and Cr are halved around their zero: what interpolation overshoots has room.
        bool halfChroma = false;
    };

    explicit FramePacker(const Target& target);
    ~FramePacker();
    FramePacker(FramePacker&&) noexcept;
    FramePacker& operator=(FramePacker&&) noexcept;

    /// The form that pack() gives this frame.
    CodeForm formOf(const Frame& frame) const;

    /// Whether packing computes nothing of the picture: each code becomes the one of its level.
    static bool onlyRearranges(const AVFrame& frame);

    /// Bytes that a row of this width has: ceil(width / 2) pairs, or width pixels, of 4 samples.
    static std::size_t rowBytes(int width, Depth depth, bool fullChroma = false)
    {
        return static_cast<std::size_t>(fullChroma ? width : (width + 1) / 2) * 4 *
               (depth == Depth::bits8 ? 1 : 2);
    }

    /// Fills height rows at rows, rows + pitch, ...; pitch is in bytes, a multiple of the sample's size and
    /// at least rowBytes. The odd pixel that an odd width lacks repeats the last one. Bytes of a row past
    /// rowBytes are left alone. Memory is only written, in order, and never read back.
    Status pack(const Frame& frame, void* rows, std::ptrdiff_t pitch);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace Qx::Media
