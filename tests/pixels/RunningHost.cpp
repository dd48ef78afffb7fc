#include "tests/pixels/RunningHost.h"

#include "host/Host.h"
#include "host/gpu/GPUService.h"

#include <array>
#include <cstdlib>

namespace Qx::Pixels {

RunningHost::RunningHost(bool validated)
{
    ::setenv("QX_SHADERS_DIR", QX_SHADERS_FOLDER, 1);
    for (const char* variable : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME", "XDG_CACHE_HOME"})
        ::setenv(variable, QX_HOME_FOLDER, 1);
    if (validated)
        ::setenv("QX_VULKAN_VALIDATION", "1", 1);
    // With this argument effects are compiled when they are wanted, not all of them beforehand.
    static constexpr std::array arguments{"pixels", "-transcode"};
    Host::start({.argc = static_cast<int>(arguments.size()), .argv = arguments.data(), .quiet = true});
}

RunningHost::~RunningHost()
{
    Host::stop();
}

std::string RunningHost::device() const
{
    if (!Host::gpuService().start())
        return {};
    for (const auto& device : Host::gpuService().listDevices()) {
        if (device.chosen)
            return device.name + " (" + device.type + ", " + device.driver + ")";
    }
    return {};
}

std::string RunningHost::failure() const
{
    return Host::gpuService().failure();
}

std::uint64_t RunningHost::validationMessages() const
{
    return Host::gpuService().statistics().validationMessages;
}

} // namespace Qx::Pixels
