#include "tools/qxhost/pipeline/device/Drawing.h"

#include "host/gpu/GPUService.h"

#include <cstdint>

namespace Qx::Program {

Drawing tryDrawing(const std::function<bool()>& draw)
{
    const std::uint64_t before = Host::gpuService().statistics().draws;
    if (!draw()) {
        return Drawing::refused;
    }
    return Host::gpuService().statistics().draws != before ? Drawing::recorded : Drawing::notRecorded;
}

} // namespace Qx::Program
