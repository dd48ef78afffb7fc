#pragma once

#include "tools/qxhost/console/Console.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace Qx::Program {

/// Shows the progress of a conversion: a bar on a terminal, a line every few seconds elsewhere, nothing when
/// the console is quiet. Use from one thread.
class ProgressDisplay
{
public:
    /// `total`: frames expected; 0 if unknown.
    ProgressDisplay(Console& console, std::int64_t total);
    ~ProgressDisplay();
    ProgressDisplay(const ProgressDisplay&) = delete;
    ProgressDisplay& operator=(const ProgressDisplay&) = delete;

    /// `done`: frames finished so far.
    void update(std::int64_t done);

private:
    using Clock = std::chrono::steady_clock;

    struct Sample
    {
        Clock::time_point when;
        std::int64_t done;
    };

    double framesPerSecond() const;
    std::string figures(std::int64_t done) const;
    std::string bar(std::int64_t done) const;

    Console& console_;
    std::int64_t total_;
    Clock::time_point lastShown_;
    std::deque<Sample> recent_;
};

/// As many of the text's fields, separated by ", ", as fit into that many columns.
std::string fieldsThatFit(std::string_view text, std::size_t columns);

/// "0:05", "12:34", "1:02:03".
std::string clockText(double seconds);

} // namespace Qx::Program
