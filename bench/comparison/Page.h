#pragma once

#include "bench/comparison/Results.h"

#include <string>
#include <vector>

namespace Qx::Bench {

/// A participant that could not take part.
struct Absence
{
    std::string name;
    std::string why;
    std::string packages; ///< what to install; empty when that does not help
};

/// Everything that docs/performance.md tells.
struct Page
{
    std::string machine;
    std::string device;
    std::vector<std::string> participants; ///< with versions and devices
    std::vector<Absence> absences;
    int rounds = 0;
    double seconds = 0;             ///< of each turn
    std::optional<Spread> pingPong; ///< nanoseconds
    std::vector<Bar> bars;
    std::vector<Result> peers;  ///< against others
    std::vector<Result> limits; ///< against what the device and memory can do at all
    std::vector<Result> costs;  ///< of ours against ours
    std::vector<Cost> absolutes;
    std::string start;    ///< the table of the catalogue; empty when it was not measured
    std::string figures;  ///< sections of absolute figures; empty likewise
    std::string plotName; ///< the plot's file beside the page; empty when there is none
};

/// The page in Markdown. Parts that were not measured are left out.
std::string markdownOf(const Page& page);

/// A plot of the ratios against others and against the limits, as SVG: a row each, on a logarithmic axis, the
/// median with quartiles and extremes. The same results give the same bytes.
std::string plotOf(const Page& page);

} // namespace Qx::Bench
