#include "host/gpu/sharing/OpenDevice.h"

#include "host/gpu/device/DeviceChoice.h"
#include "host/gpu/sharing/Features.h"

#include <algorithm>
#include <cstdlib>

namespace Qx::Host::Vulkan {

namespace {

constexpr const char* ofApplication = "the application's Vulkan device cannot be used: ";

std::string environment(const char* name)
{
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): no thread sets variables
    return value != nullptr ? value : "";
}

std::string versionText(std::uint32_t version)
{
    return std::to_string(VK_API_VERSION_MAJOR(version)) + "." +
           std::to_string(VK_API_VERSION_MINOR(version));
}

/// What ApplicationDevice lacks without a look at the device; empty if nothing.
std::string missingMember(const ApplicationDevice& application)
{
    if (application.instance == nullptr) {
        return "ApplicationDevice::instance is null";
    }
    if (application.apiVersion < VK_API_VERSION_1_3) {
        return "ApplicationDevice::apiVersion is " + versionText(application.apiVersion) +
               ", expected at least 1.3: create the instance with VK_API_VERSION_1_3";
    }
    if (application.physicalDevice == nullptr) {
        return "ApplicationDevice::physicalDevice is null";
    }
    if (application.device == nullptr) {
        return "ApplicationDevice::device is null";
    }
    if (!application.lockQueue != !application.unlockQueue) {
        return "ApplicationDevice has only one of lockQueue and unlockQueue, expected both or none";
    }
    return {};
}

std::string missingQueue(const ApplicationDevice& application, const PhysicalDevice& physical)
{
    const std::string queue = "queue " + std::to_string(application.queueIndex) + " of family " +
                              std::to_string(application.queueFamily);
    const std::vector<DeviceAbilities::Queues>& queues = application.abilities.queues;
    if (std::none_of(queues.begin(), queues.end(), [&](const DeviceAbilities::Queues& each) {
            return each.family == application.queueFamily && application.queueIndex < each.count;
        })) {
        return queue + " is not among the queues that the device was created with";
    }
    return physical.withFamily(application.queueFamily).graphics
               ? std::string()
               : queue + " does not draw, expected a family with VK_QUEUE_GRAPHICS_BIT";
}

/// The required features that are not enabled, separated by commas.
std::string disabledFeatures(const ApplicationDevice& application, const PhysicalDevice& physical)
{
    const std::vector<std::string>& enabled = application.abilities.features;
    std::string names;
    for (const Feature& feature : usedFeatures()) {
        if (isNeeded(feature, physical) &&
            std::find(enabled.begin(), enabled.end(), feature.name) == enabled.end()) {
            names += (names.empty() ? "" : ", ") + std::string(feature.name);
        }
    }
    return names;
}

/// Why the service cannot use the device; empty if it can.
std::string obstacleTo(const ApplicationDevice& application, const PhysicalDevice& physical)
{
    if (const std::string missing = physical.missingFeatures(); !missing.empty()) {
        return std::string("\"") + physical.properties.deviceName + "\" has no " + missing;
    }
    if (const std::string missing = missingQueue(application, physical); !missing.empty()) {
        return missing;
    }
    const std::string disabled = disabledFeatures(application, physical);
    return disabled.empty() ? std::string()
                            : "it was created without " + disabled +
                                  "; see enableRequiredFeatures() in host/gpu/DeviceSharing.h";
}

void take(const ApplicationDevice& application, const std::vector<PhysicalDevice>& listed,
          OpenedDevice& opened, std::string& failure)
{
    const auto found = std::find_if(listed.begin(), listed.end(), [&](const PhysicalDevice& each) {
        return each.handle == application.physicalDevice;
    });
    const std::string obstacle = found == listed.end() ? "its physical device is not one of the instance's"
                                                       : obstacleTo(application, *found);
    if (!obstacle.empty()) {
        failure = ofApplication + obstacle;
        return;
    }
    opened.chosen = static_cast<std::size_t>(found - listed.begin());
    opened.device = Device::take(found->withFamily(application.queueFamily), application);
}

void choose(const GPUOptions& options, const std::vector<PhysicalDevice>& listed, OpenedDevice& opened,
            std::string& failure)
{
    const DeviceChoice choice = options.device.empty()
                                    ? chooseDevice(opened.devices, environment("QX_DEVICE"), "QX_DEVICE")
                                    : chooseDevice(opened.devices, options.device, options.deviceSource);
    if (!choice.index) {
        failure = choice.failure;
        return;
    }
    opened.chosen = *choice.index;
    opened.device = Device::create(listed[opened.chosen], failure);
}

} // namespace

OpenedDevice openDevice(const GPUOptions& options, std::string& failure)
{
    OpenedDevice opened;
    const std::shared_ptr<const ApplicationDevice>& application = options.sharedDevice;
    if (application != nullptr) {
        if (const std::string missing = missingMember(*application); !missing.empty()) {
            failure = ofApplication + missing;
            return opened;
        }
        opened.instance = Instance::take(application->instance);
    } else {
        const bool validation = options.validation || environment("QX_VULKAN_VALIDATION") == "1";
        opened.instance = Instance::create(validation, failure);
    }
    if (opened.instance == nullptr) {
        return opened;
    }
    const std::vector<PhysicalDevice> listed = opened.instance->physicalDevices(failure);
    if (!failure.empty()) {
        return opened;
    }
    for (std::uint32_t i = 0; i < listed.size(); ++i) {
        opened.devices.push_back(describe(listed[i], i));
    }
    if (application != nullptr) {
        take(*application, listed, opened, failure);
    } else {
        choose(options, listed, opened, failure);
    }
    return opened;
}

} // namespace Qx::Host::Vulkan
