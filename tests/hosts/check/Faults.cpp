#include "tests/hosts/check/Faults.h"

#include <algorithm>
#include <array>

namespace Qx::HostTests {

Faults allFaults()
{
    constexpr std::array groups{memoryFaults, textFaults,    fileFaults, systemFaults,
                                gpuFaults,    surfaceFaults, taskFaults};
    Faults all;
    for (const auto group : groups) {
        const Faults faults = group();
        all.insert(all.end(), faults.begin(), faults.end());
    }
    return all;
}

std::unique_ptr<Services> servicesWithFault(std::string_view name, HostUnderTest& host)
{
    const Faults faults = allFaults();
    const auto found =
        std::find_if(faults.begin(), faults.end(), [&](const Fault& fault) { return fault.name == name; });
    return found != faults.end() ? found->make(host) : nullptr;
}

} // namespace Qx::HostTests
