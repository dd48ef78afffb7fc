#pragma once

#include "bench/comparison/Results.h"

namespace Qx::Bench {

inline Work pointDecoding()
{
    return {WorkKind::Decode, 8, ChromaFilter::Point, Place::Device};
}

/// A result of that ratio in three rounds: a little less, it, a little more.
inline Result resultOf(double ratio, const std::string& method = "hand-written pass",
                       const std::string& remark = "")
{
    Result result;
    result.comparison = {"placebo",
                         "4:2:2 to RGB",
                         "Peer 1.0, " + method,
                         {"ours", pointDecoding().key(), "ours"},
                         {"placebo", pointDecoding().key(), method},
                         1,
                         1,
                         remark,
                         pointDecoding()};
    result.pairs = {{95 * ratio, 100}, {100 * ratio, 100}, {105 * ratio, 100}};
    result.ratio = ratiosOf(result.pairs);
    result.difference = Difference{0, 0};
    return result;
}

} // namespace Qx::Bench
