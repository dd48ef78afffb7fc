#include "tools/qxhost/media/rows/FramePacker.h"

#include "tools/qxhost/media/FfmpegVersions.h"
#include "tools/qxhost/media/rows/ComponentRows.h"
#include "tools/qxhost/media/rows/FieldRows.h"
#include "tools/qxhost/media/rows/Levels.h"
#include "tools/qxhost/media/rows/PackRows.h"
#include "tools/qxhost/media/rows/RowGraph.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <type_traits>
#include <vector>

namespace Qx::Media {

namespace {

bool isTaggedVideoRange(const AVFrame& frame)
{
    return tagOf(frame.color_range, AVCOL_RANGE_NB, AVCOL_RANGE_UNSPECIFIED) == AVCOL_RANGE_MPEG;
}

/// YCbCr with the chroma of every pixel.
bool hasWholeChroma(const ComponentRows& components)
{
    return !components.isRgb() && !components.isGrey() && components.chromaShiftX() == 0 &&
           components.chromaShiftY() == 0;
}

/// Places of a packed pixel, A Y Cb Cr.
constexpr int alphaPlace = 0;
constexpr int lumaPlace = 1;

} // namespace

struct FramePacker::Impl
{
    explicit Impl(const Target& wanted) : target(wanted) {}

    struct Output
    {
        std::byte* rows;
        std::ptrdiff_t pitch;

        std::byte* row(int index) const { return rows + index * pitch; }
    };

    void choose(AVPixelFormat format);
    void packAlpha(const AVFrame& frame, const Output& out);
    void packWhole(const AVFrame& frame, const Output& out);
    void fillWholeTables();
    void spreadRow(const void* codes, bool areWide, const std::vector<std::uint16_t>& levels, std::byte* row,
                   int place, int count) const;
    void repack(const AVFrame& frame, const Output& out);
    const void* plainRow(const AVFrame& frame, int component, int row, int count, int wanted, int scratch);
    bool isShift() const;
    int unusedBits() const { return static_cast<int>(target.depth) - target.codeBits(); }
    void fillTables();
    void repackRow(const void* y, const void* cb, const void* cr, void* to, int pairs) const;
    Status convert(const AVFrame& frame, const Output& out);
    Status convertField(const AVFrame& frame, const Output& out, int field, int fields);
    FieldRows rowsOf(const AVFrame& frame, int field, int fields) const
    {
        return {*components, frame.width, frame.height, field, fields};
    }
    void readRow(const AVFrame& frame, int plane, int row, int first, int end, std::byte* codes) const;
    PlanarFormat sourceFormat(const AVFrame& frame, int field, int fields) const;

    Target target;
    std::optional<ComponentRows> components;
    AVPixelFormat format = AV_PIX_FMT_NONE;
    std::array<std::vector<std::uint16_t>, 3> scratchRows;
    Range sourceRange = Range::video; // of the frame's YCbCr codes
    bool halfChroma = false;          // in what the frame becomes
    PackTables tables;                // for sources that are repacked at another depth or in another range
    std::vector<std::uint16_t> alphaLevels; // of what is packed with the chroma of every pixel
    Range tablesRange = Range::video;
    struct Graph
    {
        PlanarFormat from;
        PlanarFormat to;
        RowGraph graph;
    };
    std::array<std::optional<Graph>, 2> graphs; // one for each field
};

FramePacker::FramePacker(const Target& target) : impl_(std::make_unique<Impl>(target)) {}
FramePacker::~FramePacker() = default;
FramePacker::FramePacker(FramePacker&&) noexcept = default;
FramePacker& FramePacker::operator=(FramePacker&&) noexcept = default;

Status FramePacker::pack(const Frame& frame, void* rows, std::ptrdiff_t pitch)
{
    if (frame.empty() || !rows) {
        return Error{"there is no frame, or no memory, to pack"};
    }
    const AVFrame& picture = *frame.picture();
    const std::ptrdiff_t needed =
        static_cast<std::ptrdiff_t>(rowBytes(picture.width, impl_->target.depth, impl_->target.fullChroma));
    if (pitch < needed || (impl_->target.depth == Depth::bits16 && pitch % 2 != 0)) {
        return Error{"rows of " + std::to_string(pitch) + " bytes cannot hold a picture " +
                     std::to_string(picture.width) + " pixels wide, which needs " + std::to_string(needed)};
    }
    const auto format = static_cast<AVPixelFormat>(picture.format);
    if (const std::string why = ComponentRows::unreadable(format); !why.empty()) {
        const char* name = av_get_pix_fmt_name(format);
        return Error{"pixel format " + std::string(name ? name : "?") + " is not supported: " + why};
    }
    impl_->choose(format);
    impl_->sourceRange = impl_->target.rangeOf(frame);
    impl_->halfChroma = formOf(frame).halfChroma;
    const Impl::Output out{static_cast<std::byte*>(rows), pitch};
    if (impl_->target.fullChroma) {
        impl_->packAlpha(picture, out);
        if (hasWholeChroma(*impl_->components)) {
            impl_->packWhole(picture, out);
            return {};
        }
        return impl_->convert(picture, out);
    }
    if (onlyRearranges(picture)) {
        impl_->repack(picture, out);
        return {};
    }
    return impl_->convert(picture, out);
}

void FramePacker::Impl::choose(AVPixelFormat wanted)
{
    if (format != wanted) {
        components.emplace(wanted);
        format = wanted;
        graphs = {};
        tables = {};
        alphaLevels.clear();
    }
}

FramePacker::CodeForm FramePacker::formOf(const Frame& frame) const
{
    const Target& target = impl_->target;
    const ComponentRows components(static_cast<AVPixelFormat>(frame.picture()->format));
    constexpr int sampleBits = 16;
    if (target.fullChroma) {
        const int all = static_cast<int>(target.depth);
        return {hasWholeChroma(components) ? std::min(components.bits(), all) : all, false};
    }
    const bool roomy = target.anyForm && target.codeBits() == sampleBits &&
                       !onlyRearranges(*frame.picture()) && !components.isRgb() && !components.isGrey() &&
                       components.bits() < sampleBits && target.rangeOf(frame) == target.range;
    return roomy ? CodeForm{components.bits(), true} : CodeForm{target.codeBits(), false};
}

bool FramePacker::onlyRearranges(const AVFrame& frame)
{
    const ComponentRows components(static_cast<AVPixelFormat>(frame.format));
    if (components.isGrey()) {
        return isTaggedVideoRange(frame);
    }
    return !components.isRgb() && components.chromaShiftX() == 1 && components.chromaShiftY() == 0;
}

bool FramePacker::Impl::isShift() const
{
    const int bits = components->bits();
    return sourceRange == target.range &&
           (bits == target.codeBits() || (bits < target.codeBits() && target.range == Range::video));
}

void FramePacker::Impl::fillTables()
{
    const int bits = components->bits();
    const auto count = std::size_t{1} << bits;
    if (tables.luma.size() == count && tablesRange == sourceRange) {
        return;
    }
    tablesRange = sourceRange;
    const Coding from{bits, sourceRange};
    const Coding to{target.codeBits(), target.range};
    tables.luma.resize(count);
    tables.chroma.resize(count);
    for (unsigned code = 0; code < count; ++code) {
        const auto stored = [&](std::uint16_t level) {
            return static_cast<std::uint16_t>(level << unusedBits());
        };
        tables.luma[code] = stored(codeOfLevel(code, from, to));
        tables.chroma[code] = stored(chromaOfLevel(code, from, to));
    }
}

const void* FramePacker::Impl::plainRow(const AVFrame& frame, int component, int row, int count, int wanted,
                                        int scratch)
{
    if (count == wanted) {
        if (const void* direct = components->direct(frame, component, row)) {
            return direct;
        }
    }
    auto& memory = scratchRows[static_cast<std::size_t>(scratch)];
    if (memory.size() < static_cast<std::size_t>(wanted)) {
        memory.resize(static_cast<std::size_t>(wanted));
    }
    components->read(frame, component, row, 0, count, memory.data());
    repeatLast(memory.data(), count, wanted, components->wide());
    return memory.data();
}

/// Puts codes into every fourth place of a row, each by its level, or as it is without levels.
void FramePacker::Impl::spreadRow(const void* codes, bool areWide, const std::vector<std::uint16_t>& levels,
                                  std::byte* row, int place, int count) const
{
    // Samples of raw video may hold more bits than codes have.
    const std::size_t mask = levels.empty() ? 0 : levels.size() - 1;
    const auto codeAt = [&](int i) -> std::uint16_t {
        return areWide ? static_cast<const std::uint16_t*>(codes)[i]
                       : static_cast<const std::uint8_t*>(codes)[i];
    };
    const auto put = [&](auto* to) {
        for (int i = 0; i < count; ++i) {
            using Sample = std::remove_pointer_t<decltype(to)>;
            const std::uint16_t code = codeAt(i);
            to[std::ptrdiff_t{4} * i + place] =
                static_cast<Sample>(levels.empty() ? code : levels[code & mask]);
        }
    };
    if (target.depth == Depth::bits8) {
        put(reinterpret_cast<std::uint8_t*>(row));
    } else {
        put(reinterpret_cast<std::uint16_t*>(row));
    }
}

void FramePacker::Impl::packAlpha(const AVFrame& frame, const Output& out)
{
    const int depth = static_cast<int>(target.depth);
    const auto opaque = static_cast<std::uint16_t>((1 << depth) - 1);
    if (alphaLevels.empty()) {
        alphaLevels.assign(std::size_t{1} << components->bits(), opaque);
        for (unsigned code = 0; components->hasAlpha() && code < alphaLevels.size(); ++code) {
            alphaLevels[code] = codeOfLevel(code, {components->bits(), Range::full}, {depth, Range::full});
        }
    }
    // Without alpha any component's codes will do.
    const int component = components->hasAlpha() ? 3 : 0;
    for (int row = 0; row < frame.height; ++row) {
        const void* codes = plainRow(frame, component, row, frame.width, frame.width, 0);
        spreadRow(codes, components->wide(), alphaLevels, out.row(row), alphaPlace, frame.width);
    }
}

/// The tables of packWhole(), in the upper bits of a sample.
void FramePacker::Impl::fillWholeTables()
{
    const int depth = static_cast<int>(target.depth);
    const Coding from{components->bits(), sourceRange};
    const Coding to{std::min(components->bits(), depth), target.range};
    const auto count = std::size_t{1} << from.bits;
    if (tables.luma.size() == count && tablesRange == sourceRange) {
        return;
    }
    tablesRange = sourceRange;
    tables.luma.resize(count);
    tables.chroma.resize(count);
    for (unsigned code = 0; code < count; ++code) {
        tables.luma[code] = static_cast<std::uint16_t>(codeOfLevel(code, from, to) << (depth - to.bits));
        tables.chroma[code] = static_cast<std::uint16_t>(chromaOfLevel(code, from, to) << (depth - to.bits));
    }
}

void FramePacker::Impl::packWhole(const AVFrame& frame, const Output& out)
{
    fillWholeTables();
    for (int component = 0; component < 3; ++component) {
        const auto& levels = component == 0 ? tables.luma : tables.chroma;
        for (int row = 0; row < frame.height; ++row) {
            const void* codes = plainRow(frame, component, row, frame.width, frame.width, 0);
            spreadRow(codes, components->wide(), levels, out.row(row), lumaPlace + component, frame.width);
        }
    }
}

void FramePacker::Impl::repack(const AVFrame& frame, const Output& out)
{
    const int pairs = (frame.width + 1) / 2;
    if (!isShift()) {
        fillTables();
    }
    if (components->isGrey()) {
        // No chroma: half of the codes, which is chroma's zero.
        const auto count = static_cast<std::size_t>(pairs);
        scratchRows[1].resize(count);
        if (components->wide()) {
            std::fill(scratchRows[1].begin(), scratchRows[1].end(),
                      static_cast<std::uint16_t>(1 << (components->bits() - 1)));
        } else {
            std::memset(scratchRows[1].data(), 128, count);
        }
    }
    for (int row = 0; row < frame.height; ++row) {
        const void* y = plainRow(frame, 0, row, frame.width, pairs * 2, 0);
        const void* cb =
            components->isGrey() ? scratchRows[1].data() : plainRow(frame, 1, row, pairs, pairs, 1);
        const void* cr = components->isGrey() ? cb : plainRow(frame, 2, row, pairs, pairs, 2);
        repackRow(y, cb, cr, out.row(row), pairs);
    }
}

void FramePacker::Impl::repackRow(const void* y, const void* cb, const void* cr, void* to, int pairs) const
{
    if (!isShift()) {
        packRowByTables(y, cb, cr, components->wide(), to, target.depth == Depth::bits16, pairs, tables,
                        target.order);
        return;
    }
    const int shift = static_cast<int>(target.depth) - components->bits();
    if (components->wide()) {
        packRow16(static_cast<const std::uint16_t*>(y), static_cast<const std::uint16_t*>(cb),
                  static_cast<const std::uint16_t*>(cr), static_cast<std::uint16_t*>(to), pairs, shift,
                  target.order);
    } else if (target.depth == Depth::bits16) {
        packRow8To16(static_cast<const std::uint8_t*>(y), static_cast<const std::uint8_t*>(cb),
                     static_cast<const std::uint8_t*>(cr), static_cast<std::uint16_t*>(to), pairs, shift,
                     target.order);
    } else {
        packRow8(static_cast<const std::uint8_t*>(y), static_cast<const std::uint8_t*>(cb),
                 static_cast<const std::uint8_t*>(cr), static_cast<std::uint8_t*>(to), pairs, target.order);
    }
}

Status FramePacker::Impl::convert(const AVFrame& frame, const Output& out)
{
    // The rows of an interlaced frame belong to two instants: chroma is resampled within one field only.
    const bool interlaced = fieldOrderOf(frame) != FieldOrder::progressive;
    const int fields = interlaced && components->chromaShiftY() > 0 && frame.height > 1 ? 2 : 1;
    for (int field = 0; field < fields; ++field) {
        if (Status status = convertField(frame, out, field, fields); !status) {
            return status;
        }
    }
    return {};
}

PlanarFormat FramePacker::Impl::sourceFormat(const AVFrame& frame, int field, int fields) const
{
    PlanarFormat from = rowsOf(frame, field, fields).planarFormat();
    from.width = static_cast<unsigned>(roundUp(frame.width, std::max(from.shiftX, 1)));
    from.range = sourceRange;
    if (from.rgb) {
        from.range = isTaggedVideoRange(frame) ? Range::video : Range::full;
    }
    if (halfChroma) {
        // Codes with one bit more, of which zimg takes luma for half as bright and chroma for half as strong.
        // In its video range it changes the depth by powers of two.
        from.bits += 1;
        from.range = Range::video;
    }
    from.matrix = target.matrix;
    from.chromaLocation = chromaLocation(frame);
    return from;
}

Status FramePacker::Impl::convertField(const AVFrame& frame, const Output& out, int field, int fields)
{
    const PlanarFormat from = sourceFormat(frame, field, fields);
    PlanarFormat to = from;
    to.rgb = false;
    to.shiftX = target.fullChroma ? 0 : 1;
    to.shiftY = 0;
    to.bits = target.codeBits();
    to.range = halfChroma ? from.range : target.range;
    to.chromaLocation = ZIMG_CHROMA_LEFT;

    auto& cached = graphs[static_cast<std::size_t>(field)];
    if (!cached || !(cached->from == from) || !(cached->to == to)) {
        auto made = RowGraph::make(from, to);
        if (!made) {
            return made.error();
        }
        cached.emplace(Graph{from, to, std::move(made.value())});
    }

    const FieldRows source = rowsOf(frame, field, fields);
    const int rows = source.rows();
    const int allPairs = (frame.width + 1) / 2;
    const std::ptrdiff_t codeSize = components->wide() || halfChroma ? 2 : 1;
    return cached->graph.run(
        [&](const RowGraph::Window& window, unsigned row, unsigned left, unsigned right) {
            source.fill(window, row, left, right, codeSize,
                        [&](int plane, int at, int first, int end, std::byte* codes) {
                            readRow(frame, plane, at, first, end, codes);
                        });
        },
        [&](const RowGraph::Window& window, unsigned row, unsigned left, unsigned right) {
            if (static_cast<int>(row) >= rows) {
                return; // a row added to make the height whole
            }
            if (target.fullChroma) {
                std::byte* const to4 = out.row(static_cast<int>(row) * fields + field);
                const int end = std::min(static_cast<int>(right), frame.width);
                const std::ptrdiff_t size = to.bits > 8 ? 2 : 1;
                for (int plane = 0; plane < 3; ++plane) {
                    const auto* codes = static_cast<const std::byte*>(window.row(plane, row)) + left * size;
                    spreadRow(codes, size == 2, {}, to4 + static_cast<std::ptrdiff_t>(left) * 4 * size,
                              lumaPlace + plane, end - static_cast<int>(left));
                }
                return;
            }
            const std::ptrdiff_t first = left / 2;
            const int pairs = std::min(static_cast<int>(right + 1) / 2, allPairs) - static_cast<int>(first);
            std::byte* to8 = out.row(static_cast<int>(row) * fields + field);
            if (target.depth == Depth::bits8) {
                packRow8(static_cast<const std::uint8_t*>(window.row(0, row)) + first * 2,
                         static_cast<const std::uint8_t*>(window.row(1, row)) + first,
                         static_cast<const std::uint8_t*>(window.row(2, row)) + first,
                         reinterpret_cast<std::uint8_t*>(to8) + first * 4, pairs, target.order);
            } else {
                packRow16(static_cast<const std::uint16_t*>(window.row(0, row)) + first * 2,
                          static_cast<const std::uint16_t*>(window.row(1, row)) + first,
                          static_cast<const std::uint16_t*>(window.row(2, row)) + first,
                          reinterpret_cast<std::uint16_t*>(to8) + first * 4, pairs, unusedBits(),
                          target.order);
            }
        });
}

/// The codes [first, end) of a row, as sourceFormat() describes them.
void FramePacker::Impl::readRow(const AVFrame& frame, int plane, int row, int first, int end,
                                std::byte* codes) const
{
    components->read(frame, plane, row, first, end - first, codes);
    if (!halfChroma) {
        return;
    }
    auto* words = reinterpret_cast<std::uint16_t*>(codes);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(codes);
    const int quarter = 1 << (components->bits() - 1); // of the codes with one bit more
    for (int i = end - first - 1; i >= 0; --i) {       // bytes become words in their place
        const int code = components->wide() ? words[i] : bytes[i];
        words[i] = static_cast<std::uint16_t>(plane == 0 ? 2 * code : code + quarter);
    }
}

} // namespace Qx::Media
