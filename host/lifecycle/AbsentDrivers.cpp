#include "host/lifecycle/AbsentDrivers.h"

#include <cstdlib>
#include <system_error>

namespace Qx::Host {

void leaveOutAbsentDrivers(const std::filesystem::path& nodes)
{
    // The names of their manifests (Vulkan-Loader, LoaderInterfaceArchitecture.md, "Driver Filtering").
    constexpr const char* mesas = "intel_icd*,intel_hasvk_icd*,radeon_icd*,nouveau_icd*";
    constexpr const char* variable = "VK_LOADER_DRIVERS_DISABLE";
    std::error_code error;
    if (!std::filesystem::exists(nodes, error) && !error) {
        ::setenv(variable, mesas, 0); // NOLINT(concurrency-mt-unsafe): there is one thread
    }
}

} // namespace Qx::Host
