#include "host/native/Periods.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <numeric>
#include <string>
#include <time.h>

namespace Qx::Host::Native {
namespace {

constexpr std::uint32_t longestPeriod = 32;
constexpr double mostForOne = 2000; // milliseconds to make one code, if it takes as long for each texel
constexpr double mostForAll = 600;  // milliseconds after which no other is begun
constexpr std::size_t mostBytes = std::size_t{128} << 10U;
constexpr double clearlyFaster = 0.9;
constexpr int fewestRounds = 3;
constexpr int mostRounds = 9;
constexpr double trialMilliseconds = 60;

/// Of processor time of this thread, which what others do changes least.
double millisecondsUsed()
{
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return 1e3 * static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_nsec);
}

struct Trial
{
    FastestCode code;
    std::unique_ptr<Code> loaded;
};

/// The shortest time of each, measured in turn.
std::vector<double> timesOf(const std::vector<Trial>& trials, const Frame& frame, std::uint32_t rows)
{
    std::vector<double> times(trials.size(), std::numeric_limits<double>::max());
    const double begin = millisecondsUsed();
    for (int round = 0; round < mostRounds; ++round) {
        for (std::size_t k = 0; k < trials.size(); ++k) {
            const double before = millisecondsUsed();
            trials[k].loaded->draw(frame, 0, rows);
            times[k] = std::min(times[k], millisecondsUsed() - before);
        }
        if (round + 1 >= fewestRounds && millisecondsUsed() - begin > trialMilliseconds) {
            break;
        }
    }
    return times;
}

} // namespace

std::vector<std::uint32_t> periodsToTry(std::span<const std::uint32_t> repetitions, double oneMilliseconds)
{
    std::vector<std::uint32_t> periods{1};
    std::uint32_t all = 1;
    for (const std::uint32_t one : repetitions) {
        periods.push_back(one);
        all = all <= longestPeriod ? std::lcm(all, one) : all;
    }
    periods.push_back(all);
    std::sort(periods.begin(), periods.end());
    periods.erase(std::unique(periods.begin(), periods.end()), periods.end());
    std::erase_if(periods, [&](std::uint32_t period) {
        return period != 1 && (period > longestPeriod || period * oneMilliseconds > mostForOne);
    });
    return periods;
}

std::size_t fastestOf(std::span<const double> times)
{
    std::size_t fastest = 0;
    for (std::size_t k = 1; k < times.size(); ++k) {
        fastest = times[k] < clearlyFaster * times[fastest] ? k : fastest;
    }
    return fastest;
}

FastestCode makeFastest(const Library& library, const Shader& shader, Options options, const Frame& frame,
                        std::uint32_t rows)
{
    options.period = 1;
    FastestCode one{library.make(shader, options)};
    double spent = one.made.cost.milliseconds();
    const std::vector<std::uint32_t> periods = periodsToTry(one.made.repetitions, spent);
    if (!one.made.problem.empty() || periods.size() == 1) {
        return one;
    }
    std::vector<Trial> trials;
    for (const std::uint32_t period : periods) {
        if (spent > mostForAll) {
            break;
        }
        options.period = period;
        Trial trial{period == 1 ? one : FastestCode{library.make(shader, options), period}, nullptr};
        spent += period == 1 ? 0 : trial.code.made.cost.milliseconds();
        std::string problem = trial.code.made.problem;
        if (problem.empty() && trial.code.made.object.size() <= mostBytes) {
            trial.loaded = library.load(trial.code.made.object, problem);
        }
        if (trial.loaded != nullptr) {
            trials.push_back(std::move(trial));
        }
    }
    if (trials.empty() || !trials.front().loaded->draws(frame.uniforms)) {
        return one; // as it is not made for such a frame
    }
    const std::vector<double> times = timesOf(trials, frame, rows);
    return std::move(trials[fastestOf(times)].code);
}

} // namespace Qx::Host::Native
