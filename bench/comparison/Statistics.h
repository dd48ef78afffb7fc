#pragma once

#include <cstddef>
#include <optional>
#include <vector>

namespace Qx::Bench {

/// The distribution of a number of samples.
struct Spread
{
    double median = 0;
    double lowerQuartile = 0;
    double upperQuartile = 0;
    double smallest = 0;
    double largest = 0;
    std::size_t samples = 0;
};

/// Computes medians and quartiles by linear interpolation of the sorted samples' positions, the smallest at 0
/// and the largest at 1. Returns an empty value without samples, or if one is NaN.
std::optional<Spread> spreadOf(std::vector<double> samples);

/// Two rates measured one directly after the other.
struct Pair
{
    double ours = 0;
    double theirs = 0;
};

/// Returns the ratios of pairs, ours to theirs. Pairing removes disturbances of both from the ratio; the
/// median removes those of one. Empty without pairs, or if a rate is not above 0.
std::optional<Spread> ratiosOf(const std::vector<Pair>& pairs);

} // namespace Qx::Bench
