#include "tools/qxhost/farm/job/Split.h"

#include <algorithm>

namespace Qx::Program::Farm {

namespace {

/// The frame nearest to `ideal` that decoding can begin with, no further than `reach` away; else `ideal`.
std::int64_t nearestKey(const std::vector<Media::ShownFrame>& frames, std::int64_t ideal, std::int64_t reach)
{
    const auto isKey = [&](std::int64_t number) {
        return number > 0 && number < static_cast<std::int64_t>(frames.size()) &&
               frames[static_cast<std::size_t>(number)].isKey;
    };
    for (std::int64_t distance = 0; distance <= reach; ++distance) {
        for (const std::int64_t number : {ideal - distance, ideal + distance}) {
            if (isKey(number)) {
                return number;
            }
        }
    }
    return ideal;
}

} // namespace

std::int64_t usualPieces(std::int64_t frames)
{
    constexpr std::int64_t framesOfPiece = 250;
    constexpr std::int64_t most = 1000; // what Slurm takes in an array, if it is not set otherwise
    return std::clamp<std::int64_t>((frames + framesOfPiece - 1) / framesOfPiece, 1, most);
}

std::vector<PlannedPiece> splitFrames(const ConversionPlan& plan, std::int64_t count)
{
    const auto total = static_cast<std::int64_t>(plan.frames.size());
    count = std::clamp<std::int64_t>(count, 1, total);
    constexpr std::int64_t shareOfPiece = 4; // by which a boundary moves at most
    std::vector<std::int64_t> begins{0};
    for (std::int64_t i = 1; i < count; ++i) {
        const std::int64_t ideal = i * total / count;
        begins.push_back(
            std::max(nearestKey(plan.frames, ideal, total / count / shareOfPiece), begins.back() + 1));
    }
    std::vector<PlannedPiece> pieces;
    const auto timeAt = [&](std::int64_t number) {
        return plan.frames[static_cast<std::size_t>(number)].pts;
    };
    for (std::size_t i = 0; i < begins.size(); ++i) {
        const bool isLast = i + 1 == begins.size();
        const std::int64_t begin = begins[i];
        const std::int64_t frames = (isLast ? total : begins[i + 1]) - begin;
        Segment segment{.begin = {},
                        .end = {},
                        .preroll = {},
                        .frames = frames,
                        .firstOfAll = timeAt(0),
                        .origin = plan.origin};
        segment.end = isLast ? plan.after : std::optional(timeAt(begins[i + 1]));
        if (i > 0) {
            segment.begin = timeAt(begin);
        }
        if (i > 0 && plan.framesBefore > 0) {
            segment.preroll = timeAt(std::max<std::int64_t>(begin - plan.framesBefore, 0));
        }
        pieces.push_back({begin, frames, segment});
    }
    return pieces;
}

} // namespace Qx::Program::Farm
