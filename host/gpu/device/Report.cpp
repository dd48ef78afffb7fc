#include "host/gpu/device/Report.h"

#include "platform/Log.h"

namespace Qx::Host::Vulkan {

void report(const std::string& line)
{
    ::Log("%s\n", line.c_str());
}

} // namespace Qx::Host::Vulkan
