#pragma once

#include "bench/peers/Works.h"

#include <optional>
#include <string>

namespace Qx::Bench {

/// The difference between two frames of a work's result, which shows whether the work was the same.
struct Difference
{
    unsigned largest = 0; ///< in codes: of 10 bits in v210, else of the work's depth
    double share = 0;     ///< fraction of components that differ, 0 to 1
};

/// Compares two files of results. If chroma is filtered, twelve pixels at the left and right are ignored:
/// implementations extend the edge differently. Returns an empty value if a file is not such a frame.
std::optional<Difference> differenceOf(const Work& work, const std::string& ourFile,
                                       const std::string& theirFile);

/// Returns whether two results are the same except for rounding: at most one code apart, two at 16 bits.
bool isSameResult(const Work& work, const Difference& difference);

} // namespace Qx::Bench
