#include "host/gpu/device/Withheld.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

namespace Qx::Host::Vulkan {

namespace {

constexpr std::array<std::pair<std::string_view, bool Withheld::*>, 7> names{
    {{"timer", &Withheld::timer},
     {"rows", &Withheld::rows},
     {"shared-memory", &Withheld::sharedMemory},
     {"large-limits", &Withheld::largeLimits},
     {"conversions", &Withheld::conversions},
     {"conformance", &Withheld::conformance},
     {"transfer-queue", &Withheld::transferQueue}}};

} // namespace

Withheld withheldBy(std::string_view list, std::string& failure)
{
    Withheld withheld;
    while (!list.empty()) {
        const std::string_view name = list.substr(0, list.find(','));
        list.remove_prefix(std::min(name.size() + 1, list.size()));
        const auto found =
            std::find_if(names.begin(), names.end(), [&](const auto& each) { return each.first == name; });
        if (found == names.end()) {
            failure = "QX_DEVICE_WITHOUT has \"" + std::string(name) + "\"; it takes";
            for (const auto& [known, member] : names) {
                failure += (known == names.front().first ? " " : ", ") + std::string(known);
            }
            return {};
        }
        withheld.*found->second = true;
    }
    return withheld;
}

Withheld withheldByEnvironment(std::string& failure)
{
    const char* list =
        std::getenv("QX_DEVICE_WITHOUT"); // NOLINT(concurrency-mt-unsafe): no thread sets variables
    return withheldBy(list != nullptr ? list : "", failure);
}

} // namespace Qx::Host::Vulkan
