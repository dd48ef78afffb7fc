#pragma once

#include "host/gpu/device/Device.h"

namespace Qx::Host::Vulkan {

/// A command buffer with a pool of its own, recorded again and again.
class CommandList
{
public:
    explicit CommandList(Device& device, Lane lane) : device_(device), lane_(lane) {}
    CommandList(const CommandList&) = delete;
    CommandList& operator=(const CommandList&) = delete;

    /// Starts recording. The device must have finished what was recorded before. Returns false on failure.
    bool begin();
    bool end();
    void destroy();

    Lane lane() const { return lane_; }
    VkCommandBuffer handle() const { return commands_; }

private:
    Device& device_;
    const Lane lane_;
    VkCommandPool pool_ = nullptr;
    VkCommandBuffer commands_ = nullptr;
};

} // namespace Qx::Host::Vulkan
