#include "bench/comparison/Statistics.h"

#include <algorithm>
#include <cmath>

namespace Qx::Bench {
namespace {

double quantile(const std::vector<double>& sorted, double share)
{
    const double place = share * static_cast<double>(sorted.size() - 1);
    const auto before = static_cast<std::size_t>(place);
    const std::size_t after = std::min(before + 1, sorted.size() - 1);
    return std::lerp(sorted[before], sorted[after], place - static_cast<double>(before));
}

} // namespace

std::optional<Spread> spreadOf(std::vector<double> samples)
{
    if (samples.empty() ||
        std::any_of(samples.begin(), samples.end(), [](double sample) { return !std::isfinite(sample); })) {
        return std::nullopt;
    }
    std::sort(samples.begin(), samples.end());
    return Spread{quantile(samples, 0.5), quantile(samples, 0.25), quantile(samples, 0.75),
                  samples.front(),        samples.back(),          samples.size()};
}

std::optional<Spread> ratiosOf(const std::vector<Pair>& pairs)
{
    std::vector<double> ratios;
    for (const Pair& pair : pairs) {
        if (!(pair.ours > 0) || !(pair.theirs > 0)) {
            return std::nullopt;
        }
        ratios.push_back(pair.ours / pair.theirs);
    }
    return spreadOf(std::move(ratios));
}

} // namespace Qx::Bench
