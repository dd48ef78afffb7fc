#include "bench/peers/DrawingJob.h"

#include "bench/Frames.h"
#include "host/gpu/GPUService.h"

namespace Qx::Bench {
namespace {

constexpr double longest = 4; ///< seconds, for fifty pictures and what the worker then takes to make the code

} // namespace

bool DrawingJob::warmUp()
{
    if (!Job::warmUp()) {
        return false;
    }
    if (!chosenDevice().software) {
        return true;
    }
    const std::uint64_t before = Host::gpuService().statistics().nativeDraws;
    for (double passed = 0; passed < longest && Host::gpuService().statistics().nativeDraws == before;) {
        const Measurement turn = run(0.1);
        if (!(turn.amount > 0)) {
            return false;
        }
        passed += turn.seconds;
    }
    return true;
}

} // namespace Qx::Bench
