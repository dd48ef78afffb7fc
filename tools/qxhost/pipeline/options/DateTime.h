#pragma once

#include <cstdint>
#include <string>

namespace Qx::Program {

/// A local date and time.
struct DateTime
{
    std::int64_t day = 0; ///< days since 1970-01-01
    double seconds = 0;   ///< of the day

    /// "2026-11-22".
    std::string date() const;

    /// "2026-11-22T18:30:15", as the option --date takes it.
    std::string dateAndTime() const;
};

/// Now, by the clock and the time zone of this machine.
DateTime localTime();

} // namespace Qx::Program
