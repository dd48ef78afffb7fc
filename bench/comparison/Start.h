#pragma once

#include "bench/comparison/Statistics.h"

#include <optional>
#include <string>

namespace Qx::Bench {

/// The time to start with a catalogue of 50 effects.
struct Starts
{
    std::string table;                ///< Markdown, medians
    std::optional<Spread> warmShare;  ///< the next start as a percentage of the first
    std::optional<Spread> secondCore; ///< first start on one core relative to two; empty with one core
};

/// Starts `program`, which is qx_bench, repeatedly, each time with its own caches. Returns an empty value,
/// with the reason in `why`, if one of them fails.
std::optional<Starts> measureStarts(const std::string& program, int rounds, std::string& why);

} // namespace Qx::Bench
