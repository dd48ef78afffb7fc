#pragma once

#include "host/Host.h"
#include "tools/qxhost/console/Console.h"

#include <string>
#include <thread>

namespace Qx::Program {

/// Why effects are compiled before the first picture.
std::string slowStartReason(const Host::CacheInfo& cache);

/// Shows on a terminal why a run has no picture yet, if that takes longer than two seconds: without their
/// caches, effects are compiled, and by the driver once more.
class SlowStart
{
public:
    explicit SlowStart(Console& console);

    /// To be called with the first picture, from any one thread. Later calls cost nothing.
    void end();

private:
    std::jthread thread_; ///< none where nothing is to be shown
};

} // namespace Qx::Program
