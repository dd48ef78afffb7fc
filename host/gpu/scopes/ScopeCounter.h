#pragma once

#include "host/gpu/device/DeviceMemory.h"
#include "host/gpu/scopes/Scopes.h"

#include <mutex>
#include <optional>

namespace Qx::Host::Vulkan {

class Batch;
class Context;
class GPUImage;

/// Counts the codes of pictures on the device. Its pipeline and its memory are made for the first picture
/// that is counted. Thread-safe.
class ScopeCounter
{
public:
    ScopeCounter(Device& device, DeviceMemory& memory) : device_(device), memory_(memory) {}
    ScopeCounter(const ScopeCounter&) = delete;
    ScopeCounter& operator=(const ScopeCounter&) = delete;

    /// See GPUService::countScopes(). Inside an Operation.
    std::optional<ScopeCounts> count(Context& context, GPUImage& picture, const ScopeRequest& request);

    void destroy();

private:
    struct Counts
    {
        VkBuffer buffer = nullptr;
        Allocation memory;
        VkDeviceSize bytes = 0;
    };
    struct Work;

    bool createPipeline();
    bool createLayouts();
    bool makeRoom(Context& context, VkDeviceSize bytes);
    bool record(Context& context, Batch& batch, Work& work) const;
    VkDescriptorSet describe(Context& context, Batch& batch, const Work& work) const;

    Device& device_;
    DeviceMemory& memory_;
    std::mutex mutex_; // guards all below
    VkDescriptorSetLayout setLayout_ = nullptr;
    VkPipelineLayout layout_ = nullptr;
    VkPipeline pipeline_ = nullptr;
    Counts counts_;
};

} // namespace Qx::Host::Vulkan
