#pragma once

#include "bench/Frames.h"

#include <benchmark/benchmark.h>

#include <functional>

/// How the benchmarks count frames.
namespace Qx::Bench {

/// Frames a second of a pass into that target, as the counter "fps"; the counter "bytes" has the target's
/// bytes. `draw` records the pass, and is false when it cannot.
void measureOnDevice(benchmark::State& state, const Image::Surface& target,
                     const std::function<bool()>& draw);

/// Frames a second there and back, as the counter "fps", with three under way at a time. `start` begins with
/// the next one and gives the memory that it will come back to.
void measureThereAndBack(benchmark::State& state, const std::function<Qx::Ptr<iHostImage>()>& start);

} // namespace Qx::Bench
