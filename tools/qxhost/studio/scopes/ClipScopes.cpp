#include "tools/qxhost/studio/scopes/ClipScopes.h"

#include <cstddef>

namespace Qx::Program::Studio {

namespace {

using Table = std::vector<std::uint16_t>;

/// The shown code of each code.
template <class Convert>
Table shownCodes(const Media::Coding& from, const Media::Coding& to, Convert convert)
{
    Table table(std::size_t{1} << static_cast<unsigned>(from.bits));
    for (std::size_t code = 0; code < table.size(); ++code) {
        table[code] = convert(static_cast<unsigned>(code), from, to);
    }
    return table;
}

} // namespace

void countClip(const Media::FrameCodes& codes, const Host::ScopeRequest& request, Media::Range range,
               Host::ScopeCounts& counts)
{
    const Media::Coding shown{request.levels == 256 ? 8 : 10, range};
    const Table lumas = shownCodes(codes.coding(), shown, Media::codeOfLevel);
    Table cells = shownCodes(codes.coding(), shown, Media::chromaOfLevel);
    for (std::uint16_t& cell : cells) {
        cell = static_cast<std::uint16_t>(cell * request.vectorscope / request.levels);
    }
    counts.luma.assign(std::size_t{request.columns} * request.levels, 0);
    counts.vectorscope.assign(std::size_t{request.vectorscope} * request.vectorscope, 0);
    const auto width = static_cast<std::size_t>(codes.width());
    Media::FrameCodes::Row row;
    for (int y = 0; y < codes.height(); ++y) {
        codes.read(y, row);
        for (std::size_t x = 0; x < width; ++x) {
            ++counts.luma[lumas[row[0][x]] * std::size_t{request.columns} + x * request.columns / width];
        }
        for (std::size_t x = 0; request.vectorscope > 0 && x < width; ++x) {
            ++counts.vectorscope[std::size_t{cells[row[2][x]]} * request.vectorscope + cells[row[1][x]]];
        }
    }
}

} // namespace Qx::Program::Studio
