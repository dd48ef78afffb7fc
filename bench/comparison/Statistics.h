#pragma once

#include <cstddef>
#include <optional>
#include <vector>

namespace Qx::Bench {

/// Where a number of samples lie.
struct Spread
{
    double median = 0;
    double lowerQuartile = 0;
    double upperQuartile = 0;
    double smallest = 0;
    double largest = 0;
    std::size_t samples = 0;
};

/// Medians and quartiles lie between samples where their number asks for it (linear interpolation of the
/// sorted samples' positions, the smallest at 0 and the largest at 1). Empty without samples, and when one is
/// not a number.
std::optional<Spread> spreadOf(std::vector<double> samples);

/// Two rates that were measured one right after the other.
struct Pair
{
    double ours = 0;
    double theirs = 0;
};

/// The ratios of pairs, ours to theirs. Pairing keeps what disturbs both out of the ratio; the median keeps
/// out what disturbs one. Empty without pairs, and when a rate is not above 0.
std::optional<Spread> ratiosOf(const std::vector<Pair>& pairs);

} // namespace Qx::Bench
