#include "tools/qxhost/pipeline/input/Rotation.h"

#include "tools/qxhost/console/Failure.h"

#include <array>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

/// What a column vector (x, y) of a picture becomes: the signs of the matrix's upper left part, by rows.
using Signs = std::array<int, 4>;

struct Turn
{
    Signs signs;
    const char* graph;
};

constexpr std::array turns{Turn{{1, 0, 0, 1}, ""},
                           Turn{{0, 1, -1, 0}, "transpose=clock"},
                           Turn{{-1, 0, 0, -1}, "hflip,vflip"},
                           Turn{{0, -1, 1, 0}, "transpose=cclock"},
                           Turn{{-1, 0, 0, 1}, "hflip"},
                           Turn{{1, 0, 0, -1}, "vflip"},
                           Turn{{0, 1, 1, 0}, "transpose=cclock_flip"},
                           Turn{{0, -1, -1, 0}, "transpose=clock_flip"}};

int signOf(std::int32_t value)
{
    constexpr std::int32_t almostNothing = 1 << 8; // of 1 << 16
    return value > almostNothing ? 1 : value < -almostNothing ? -1 : 0;
}

} // namespace

std::optional<std::string> rotationGraph(const Media::Orientation& orientation)
{
    const std::array<std::int32_t, 9>& m = orientation.matrix;
    const Signs signs{signOf(m[0]), signOf(m[1]), signOf(m[3]), signOf(m[4])};
    for (const Turn& turn : turns) {
        if (turn.signs == signs) {
            return turn.graph;
        }
    }
    return std::nullopt;
}

std::string rotationOf(const Media::StreamInfo& info, const std::string& name, const RotationAdvice& advice,
                       bool isDeinterlaced)
{
    if (!info.orientation) {
        return {};
    }
    const std::optional<std::string> graph = rotationGraph(*info.orientation);
    if (!graph) {
        throw Failure(
            ExitCode::input,
            fmt::format("--rotate: {} is shown turned by {} degrees, and only quarters of a turn are "
                        "applied; {}",
                        name, info.orientation->degrees, advice.oddTurns));
    }
    const bool mixesFields = graph->starts_with("transpose") &&
                             info.fieldOrder != Media::FieldOrder::progressive && !isDeinterlaced;
    if (mixesFields) {
        throw Failure(ExitCode::input, "--rotate: " + name +
                                           " is interlaced, and its lines would become columns; " +
                                           advice.fields);
    }
    return *graph;
}

} // namespace Qx::Program
