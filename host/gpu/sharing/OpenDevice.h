#pragma once

#include "host/gpu/DeviceSharing.h"
#include "host/gpu/GPUOptions.h"
#include "host/gpu/device/Device.h"
#include "host/gpu/device/Instance.h"

#include <memory>
#include <string>
#include <vector>

namespace Qx::Host::Vulkan {

/// An instance with the device that the service uses.
struct OpenedDevice
{
    std::unique_ptr<Instance> instance;
    std::unique_ptr<Device> device;           ///< null on failure
    std::vector<DeviceDescription> devices{}; ///< those of the instance
    std::size_t chosen = 0;                   ///< of `devices`
};

/// Takes the application's device, or makes the one that the options choose. The device is null, with the
/// reason in `failure`, if there is none.
OpenedDevice openDevice(const GPUOptions& options, std::string& failure);

} // namespace Qx::Host::Vulkan
