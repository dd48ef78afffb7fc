#pragma once

#include "bench/peers/Works.h"

#include <optional>
#include <string>

namespace Qx::Bench {

/// How far two frames of a work's result lie apart, which tells whether the work was the same.
struct Difference
{
    unsigned largest = 0; ///< in codes: of 10 bits in v210, else of the work's depth
    double share = 0;     ///< of components that differ, 0 to 1
};

/// Compares two files of results. Where chroma is filtered, twelve pixels at the left and at the right are
/// left out: how a filter goes on beyond the edge is everyone's own. Empty when a file is not such a frame.
std::optional<Difference> differenceOf(const Work& work, const std::string& ourFile,
                                       const std::string& theirFile);

/// Whether two results are the same as far as rounding goes: one code apart at most, two of 16 bits.
bool isSameResult(const Work& work, const Difference& difference);

} // namespace Qx::Bench
