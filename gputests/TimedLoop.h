#pragma once

#include "Qx/Ptr.h"
#include "gputests/TestLog.h"
#include "platform/Clock.h"
#include "platform/GPUImage.h"

#include <cstdint>

namespace Qx {

/// The result of one iteration of a timed loop. The images live until the clock has been read.
struct TimedIteration
{
    bool failed = false;
    Ptr<iGPUImage> target;
    Ptr<iGPUImage> source;
};

/// Calls `work()`, which returns a TimedIteration, repeatedly and logs the rate, or "Failed" if the last
/// iteration failed. An iteration that exceeds the time limit is not counted, but its failure is.
template <class Work>
void runTimedLoop(LoggerBase& log, Work work)
{
    constexpr double longest = 5000.0; // milliseconds
    constexpr std::uint16_t most = 2000;

    std::uint16_t iterations = 0;
    bool failed = false;
    const double start = service_get_msecs_precise();
    do {
        const TimedIteration iteration = work();
        failed = iteration.failed;
        if (service_get_msecs_precise() - start > longest) {
            break;
        }
        ++iterations;
    } while (!failed && iterations < most);

    if (failed) {
        log.logLine(L"Failed", GPUTestLog::failure);
    } else {
        GPUTestLog::logRate(log, iterations, service_get_msecs_precise() - start);
    }
}

} // namespace Qx
