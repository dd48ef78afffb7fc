#include "host/gpu/device/DeviceChoice.h"

#include "host/core/AsciiCase.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

namespace Qx::Host {

namespace {

std::string listed(const std::vector<DeviceDescription>& devices)
{
    std::string text;
    for (const DeviceDescription& device : devices) {
        text += text.empty() ? "" : ", ";
        text += std::to_string(device.index) + ": " + device.name;
    }
    return text;
}

std::size_t rank(const DeviceDescription& device)
{
    static constexpr std::array<std::string_view, 4> order{"discrete GPU", "integrated GPU", "virtual GPU",
                                                           "other"};
    return static_cast<std::size_t>(std::find(order.begin(), order.end(), device.type) - order.begin());
}

DeviceChoice chosen(const DeviceDescription& device)
{
    if (!device.unsupported.empty()) {
        return {std::nullopt,
                "the Vulkan device \"" + device.name + "\" cannot be used: it lacks " + device.unsupported};
    }
    return {device.index, {}};
}

DeviceChoice chooseBest(const std::vector<DeviceDescription>& devices)
{
    const DeviceDescription* best = nullptr;
    for (const DeviceDescription& device : devices) {
        if (device.unsupported.empty() && (best == nullptr || rank(device) < rank(*best))) {
            best = &device;
        }
    }
    return best != nullptr ? chosen(*best) : chosen(devices.front());
}

} // namespace

DeviceChoice chooseDevice(const std::vector<DeviceDescription>& devices, const std::string& wish,
                          const std::string& wishSource)
{
    if (devices.empty()) {
        return {std::nullopt, "this machine has no Vulkan device; install the GPU's driver, or the package "
                              "mesa-vulkan-drivers for a software device"};
    }
    if (wish.empty()) {
        return chooseBest(devices);
    }
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(wish.data(), wish.data() + wish.size(), number);
    if (error == std::errc() && end == wish.data() + wish.size()) {
        const auto found = std::find_if(devices.begin(), devices.end(),
                                        [number](const DeviceDescription& d) { return d.index == number; });
        if (found != devices.end()) {
            return chosen(*found);
        }
    }
    const std::string part = asciiLower(wish);
    std::vector<DeviceDescription> named;
    std::copy_if(devices.begin(), devices.end(), std::back_inserter(named), [&part](const auto& device) {
        return asciiLower(device.name).find(part) != std::string::npos;
    });
    if (named.empty()) {
        return {std::nullopt, "no Vulkan device matches \"" + wish + "\" (from " + wishSource +
                                  "); give an index or part of a name of: " + listed(devices)};
    }
    return chooseBest(named);
}

} // namespace Qx::Host
