#pragma once

#include "bench/comparison/Statistics.h"

#include <optional>
#include <string>

namespace Qx::Bench {

/// What it takes to start with a catalogue of 50 effects.
struct Starts
{
    std::string table;                ///< Markdown, medians
    std::optional<Spread> warmShare;  ///< the next start in percent of the first one
    std::optional<Spread> secondCore; ///< the first start on one core to that on two; empty with one core
};

/// Starts `program`, which is qx_bench, over and over, each time with caches that are its own. Empty, and
/// `why` says why, when one of them fails.
std::optional<Starts> measureStarts(const std::string& program, int rounds, std::string& why);

} // namespace Qx::Bench
