#pragma once

#include "host/gpu/device/DeviceMemory.h"

namespace Qx::Host::Vulkan {

/// The views of a texture's memory that the device's DrawingPath needs beside the texture's own image. Their
/// uses and those of the image are ordered together, and all of them keep the layout GENERAL.
class CompanionViews
{
public:
    virtual ~CompanionViews() = default;

    /// Binds to the texture's memory and creates the views.
    virtual VkResult bind(Device& device, const Allocation& memory) = 0;

    /// Destroys the Vulkan objects; the memory is the texture's.
    virtual void destroy(Device& device) = 0;

    /// The second image in the texture's memory; null if there is none.
    virtual VkImage image() const = 0;

    /// Bytes from one row of the texture to the next.
    virtual VkDeviceSize rowBytes() const = 0;
};

} // namespace Qx::Host::Vulkan
