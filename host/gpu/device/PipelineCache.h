#pragma once

#include "host/cache/FileStore.h"
#include "host/gpu/device/Device.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <span>
#include <string>

namespace Qx::Host::Vulkan {

/// Whether the bytes begin as data of this device's pipeline cache do (Vulkan 1.3, 10.7.3, "Retrieving
/// Pipeline Cache Data"). Drivers check too, but not all of them well.
bool isPipelineDataOf(const VkPhysicalDeviceProperties& properties, std::span<const std::byte> data);

/// Keeps a device's compiled pipelines between runs.
class PipelineCache
{
public:
    /// The device lives longer than this object, and is open whenever a member is called.
    PipelineCache(Device& device, std::shared_ptr<Cache::FileStore> store);

    /// Takes what earlier runs kept into the device's cache. Before anybody makes pipelines.
    void load();

    /// Keeps what the device's cache holds together with what other processes have kept meanwhile, unless
    /// nothing was added since the last time. Any thread.
    void save();

    /// Counts an effect whose pipelines were made; saves after a batch of them. Any thread.
    void countEffect();

private:
    std::size_t heldBytes() const;

    Device& device_;
    const std::shared_ptr<Cache::FileStore> store_;
    const Cache::Digest key_;
    std::mutex mutex_; // guards all below
    std::size_t savedBytes_ = 0;
    unsigned effectsSinceSave_ = 0;
};

} // namespace Qx::Host::Vulkan
