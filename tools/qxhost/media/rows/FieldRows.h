#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/rows/ComponentRows.h"
#include "tools/qxhost/media/rows/RowGraph.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace Qx::Media {

/// The next whole multiple of 2^shift.
constexpr int roundUp(int value, int shift)
{
    const int step = 1 << shift;
    return (value + step - 1) / step * step;
}

/// A plane's columns or rows, of those of the picture.
constexpr int ceilShift(int value, int shift)
{
    return (value + (1 << shift) - 1) >> shift;
}

/// Where a frame says its chroma is, or where its format has it.
zimg_chroma_location_e chromaLocation(const AVFrame& frame);

/// Fills [count, wanted) of a row of codes with its last code.
void repeatLast(void* row, int count, int wanted, bool wide);

/// The rows of a picture, or of one of its two fields, as RowGraph asks for them.
struct FieldRows
{
    const ComponentRows& components; ///< of the picture
    int width;                       ///< pixels of the picture
    int height;
    int field = 0;
    int fields = 1;

    int rows() const { return (height + fields - 1 - field) / fields; }
    int shiftX(int plane) const { return plane == 0 ? 0 : components.chromaShiftX(); }
    int shiftY(int plane) const { return plane == 0 ? 0 : components.chromaShiftY(); }
    int columnsOf(int plane) const { return ceilShift(width, shiftX(plane)); }
    int rowsOf(int plane) const { return ceilShift(height, shiftY(plane)); }
    /// Rows of a plane that belong to a row of the picture which is a multiple of 2^shiftY.
    int linesOf(int plane) const { return 1 << (components.chromaShiftY() - shiftY(plane)); }

    /// The format of these rows, with the padding that zimg needs. Range, matrix and location are left.
    PlanarFormat planarFormat() const;

    /// Fills a window. `read` is called with a plane, a row of the picture's plane, the columns [first, end)
    /// and the place for their codes of `codeSize` bytes. What lies beyond the picture repeats its edge.
    template <class Read>
    void fill(const RowGraph::Window& window, unsigned row, unsigned left, unsigned right,
              std::ptrdiff_t codeSize, Read&& read) const
    {
        for (int plane = 0; plane < 3; ++plane) {
            const int fieldRows = std::max((rowsOf(plane) + fields - 1 - field) / fields, 1);
            const int first = std::min(static_cast<int>(left) >> shiftX(plane), columnsOf(plane) - 1);
            const int end = ceilShift(static_cast<int>(right), shiftX(plane));
            const int have = std::min(end, columnsOf(plane));
            for (int line = 0; line < linesOf(plane); ++line) {
                const int index = (static_cast<int>(row) >> shiftY(plane)) + line;
                const int at = std::min(std::min(index, fieldRows - 1) * fields + field, rowsOf(plane) - 1);
                auto* codes = static_cast<std::byte*>(window.row(plane, static_cast<unsigned>(index))) +
                              first * codeSize;
                read(plane, at, first, have, codes);
                repeatLast(codes, have - first, end - first, codeSize == 2);
            }
        }
    }

    /// Calls `visit` for each row of each plane that a window has of the picture: with the plane, the row in
    /// the window, the row of the picture's plane, its first column and how many there are.
    template <class Visit>
    void each(unsigned row, unsigned left, unsigned right, Visit&& visit) const
    {
        for (int plane = 0; plane < 3; ++plane) {
            const int first = static_cast<int>(left) >> shiftX(plane);
            const int count =
                std::min(ceilShift(static_cast<int>(right), shiftX(plane)), columnsOf(plane)) - first;
            for (int line = 0; line < linesOf(plane) && count > 0; ++line) {
                const int index = (static_cast<int>(row) >> shiftY(plane)) + line;
                const int at = index * fields + field;
                if (at < rowsOf(plane)) {
                    visit(plane, index, at, first, count);
                }
            }
        }
    }

    /// Writes a window into the picture.
    void take(const RowGraph::Window& window, unsigned row, unsigned left, unsigned right, AVFrame& to) const;
};

} // namespace Qx::Media
