#pragma once

#include "tools/qxhost/media/Frame.h"
#include "tools/qxhost/media/rows/Levels.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace Qx::Media {

class ComponentRows;

/// The codes of luma and chroma that a frame holds, as they are stored. Shares the frame's picture.
class FrameCodes
{
public:
    /// Nothing if the frame holds no YCbCr.
    static std::optional<FrameCodes> of(const Frame& frame);

    int width() const;
    int height() const;
    /// Of the codes: 8 to 16 bits, and the frame's range.
    Coding coding() const;

    /// Y, Cb and Cr of a pixel of the frame. Where chroma has fewer samples, the one that covers the pixel;
    /// in interlaced frames, of the pixel's own field.
    std::array<unsigned, 3> at(int x, int y) const;

    /// Y, Cb and Cr of each pixel of a row, with the same samples as at().
    using Row = std::array<std::vector<std::uint16_t>, 3>;
    void read(int y, Row& row) const;

private:
    FrameCodes(Frame frame, std::shared_ptr<const ComponentRows> rows);

    int chromaRow(int y) const;
    void readComponent(int component, int row, int first, int count, std::uint16_t* codes) const;

    Frame frame_;
    std::shared_ptr<const ComponentRows> rows_;
    int chromaHeight_;
};

} // namespace Qx::Media
