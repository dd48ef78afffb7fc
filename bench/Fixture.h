#pragma once

#include "bench/Frames.h"

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

/// Counting of frames for the benchmarks.
namespace Qx::Bench {

/// Measures the frames per second of a pass into that target, as the counter "fps"; the counter "bytes" is
/// the size of the target. `draw` records the pass and returns false on failure.
void measureOnDevice(benchmark::State& state, const Image::Surface& target,
                     const std::function<bool()>& draw);

/// Measures the frames per second of a round trip, as the counter "fps", with three frames in flight. `start`
/// begins the next one and returns the memory that it will be read back to.
void measureThereAndBack(benchmark::State& state, const std::function<Qx::Ptr<iHostImage>()>& start);

/// Registers a benchmark that is measured by the clock, in milliseconds.
template <class Function, class... Args>
void add(const std::string& name, Function function, Args... args)
{
    benchmark::RegisterBenchmark(name.c_str(), function, args...)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

} // namespace Qx::Bench
