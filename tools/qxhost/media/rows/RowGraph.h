#pragma once

#include "tools/qxhost/media/MediaTypes.h"
#include "tools/qxhost/media/Result.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include <zimg.h>

namespace Qx::Media {

/// One side of a conversion: three planes of codes, bytes for 8 bits and 16-bit words for more.
struct PlanarFormat
{
    /// Pixels; whole multiples of the subsampling.
    unsigned width = 0;
    unsigned height = 0;
    int shiftX = 0;
    int shiftY = 0;
    bool rgb = false;
    int bits = 8;
    Range range = Range::video;
    Matrix matrix = Matrix::bt709;
    zimg_chroma_location_e chromaLocation = ZIMG_CHROMA_LEFT;
    zimg_field_parity_e parity = ZIMG_FIELD_PROGRESSIVE;
    /// Of what is made: codes are rounded by diffusing the error, the same way each time.
    bool dither = false;

    bool operator==(const PlanarFormat&) const = default;
};

/// Converts pictures between planar formats with zimg; callbacks supply and take the rows.
///
/// Chroma is resampled with the Catmull-Rom kernel; codes are rounded to nearest. Where both sides are YCbCr
/// the matrix is ignored: YCbCr is never converted to another matrix.
class RowGraph
{
public:
    /// A few rows of each plane, on their way in or out.
    class Window
    {
    public:
        /// Address of the row's column 0. Only the columns requested are valid.
        void* row(int plane, unsigned index) const
        {
            const Ring& ring = rings_[static_cast<std::size_t>(plane)];
            return ring.start + static_cast<std::ptrdiff_t>(index & ring.mask) * ring.stride;
        }

    private:
        friend class RowGraph;
        struct Ring
        {
            std::byte* start = nullptr;
            std::ptrdiff_t stride = 0;
            unsigned mask = 0;
        };
        std::array<Ring, 3> rings_;
    };

    /// To fill, or to take, the pixels [left, right) of row `row` of plane 0, and, when row is a multiple of
    /// 2^shiftY, of the rows up to the next multiple and of the chroma row that belongs to them.
    using Rows = std::function<void(const Window& window, unsigned row, unsigned left, unsigned right)>;

    static Result<RowGraph> make(const PlanarFormat& from, const PlanarFormat& to);

    Status run(const Rows& fill, const Rows& take);

private:
    struct FreeGraph
    {
        void operator()(zimg_filter_graph* graph) const { zimg_filter_graph_free(graph); }
    };
    struct FreeBytes
    {
        void operator()(std::byte* bytes) const;
    };
    using Bytes = std::unique_ptr<std::byte, FreeBytes>;

    static Bytes allocate(std::size_t size);
    bool makeWindow(const PlanarFormat& format, unsigned lines, Window& window);

    std::unique_ptr<zimg_filter_graph, FreeGraph> graph_;
    std::vector<Bytes> memory_;
    Bytes scratch_;
    Window in_;
    Window out_;
};

} // namespace Qx::Media
