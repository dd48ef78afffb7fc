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
    std::string packages; ///< packages to install; empty if that does not help
};

/// The contents of docs/performance.md.
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
    std::vector<Result> limits; ///< against the limits of the device and memory
    std::vector<Result> costs;  ///< ours against ours
    std::vector<Cost> absolutes;
    std::string start;    ///< the table of the catalogue; empty if not measured
    std::string figures;  ///< sections of absolute figures; empty if not measured
    std::string plotName; ///< the plot's file beside the page; empty if there is none
};

/// Returns the page in Markdown. Parts that were not measured are omitted.
std::string markdownOf(const Page& page);

/// Returns an SVG plot of the ratios against others and against the limits: one row each, on a logarithmic
/// axis, the median with quartiles and extremes. The same results yield the same bytes.
std::string plotOf(const Page& page);

} // namespace Qx::Bench
