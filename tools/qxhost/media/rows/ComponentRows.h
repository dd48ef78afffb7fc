#pragma once

#include "tools/qxhost/media/Ffmpeg.h"

#include <array>
#include <cstdint>
#include <string>

namespace Qx::Media {

/// Reads and writes single components of frames of any pixel format as plain rows of codes.
///
/// A code is a byte when the format's deepest component has up to 8 bits, else a 16-bit word in the machine's
/// order, its value in the low bits. RGB components of fewer than 8 bits are scaled to 8 bits.
class ComponentRows
{
public:
    /// Empty if frames of this format can be read, else why not ("bayer mosaic").
    static std::string unreadable(AVPixelFormat format);
    /// Whether frames of this format can be written.
    static bool writable(AVPixelFormat format);

    explicit ComponentRows(AVPixelFormat format);

    /// RGB proper, a palette, or grey: what is not YCbCr by its format.
    bool isRgb() const { return rgb_; }
    bool isGrey() const { return grey_; }
    bool hasAlpha() const { return alpha_; }
    /// Of the codes given: 8 to 16.
    int bits() const { return bits_; }
    bool wide() const { return bits_ > 8; }
    int chromaShiftX() const { return rgb_ || grey_ ? 0 : desc_->log2_chroma_w; }
    int chromaShiftY() const { return rgb_ || grey_ ? 0 : desc_->log2_chroma_h; }

    /// The row's address if it is already a plain row of codes, else null.
    const void* direct(const AVFrame& frame, int component, int row) const;

    /// Copies count codes of a component's row, from its column `first` on. Component 0 to 2 are R G B or
    /// Y Cb Cr, 3 is alpha; grey is returned for each of 0 to 2.
    void read(const AVFrame& frame, int component, int row, int first, int count, void* codes) const;

    /// Whether pixels are four samples in the machine's order, R G B x, as those that pictures are read as.
    bool hasPixelsOfFour() const { return format_ == AV_PIX_FMT_RGBA || format_ == AV_PIX_FMT_RGBA64; }

    /// read() of R, G and B at once, for pixels of four.
    void readColours(const AVFrame& frame, int row, int first, int count,
                     const std::array<void*, 3>& codes) const;

    /// The reverse of read(); for writable formats.
    void write(AVFrame& frame, int component, int row, int first, int count, const void* codes) const;

    /// Copies `count` pixels of four words, R G B x, to the beginning of a row. Returns false, and does
    /// nothing, if this format is not R G B in words without anything between.
    bool writePixelsOfFour(AVFrame& frame, int row, int count, const std::uint16_t* pixels) const;

private:
    void readPalette(const AVFrame& frame, int component, int row, int first, int count,
                     std::uint8_t* codes) const;
    void readBits(const AVFrame& frame, int component, int row, int first, int count, void* codes) const;
    bool isStrided(int component) const;

    AVPixelFormat format_;
    const AVPixFmtDescriptor* desc_;
    bool rgb_;
    bool grey_;
    bool alpha_;
    int bits_;
};

} // namespace Qx::Media
