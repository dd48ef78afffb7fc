#pragma once

#include "host/native/NativeCode.h"

#include <cstdint>
#include <span>
#include <vector>

namespace Qx::Host::Native {

/// The periods to try, ascending, 1 first: those after which something of the shader repeats itself, and that
/// after which all does. Those that would take long to make are left out. `oneMilliseconds` is what it took
/// to make the code with period 1.
std::vector<std::uint32_t> periodsToTry(std::span<const std::uint32_t> repetitions, double oneMilliseconds);

/// Which of several codes is used, by their times and in the order of their periods: the first, unless a
/// later one is clearly faster.
std::size_t fastestOf(std::span<const double> times);

/// Code, and how many texels a lane of it computes.
struct FastestCode
{
    Made made;
    std::uint32_t period = 1;
};

/// Makes code with the period that draws the frame's first rows fastest; `options.period` is not used. Each
/// is run several times, some ten milliseconds in all. The frame has to be a usual one: else a period of 1
/// may be found fastest that is not. Throws std::bad_alloc only.
FastestCode makeFastest(const Library& library, const Shader& shader, Options options, const Frame& frame,
                        std::uint32_t rows);

} // namespace Qx::Host::Native
