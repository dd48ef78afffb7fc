#pragma once

#include "host/cache/FileStore.h"
#include "host/gpu/device/Device.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <span>
#include <string>

namespace Qx::Host::Vulkan {

/// Whether the bytes have the header of this device's pipeline cache data (Vulkan 1.3, 10.7.3, "Retrieving
/// Pipeline Cache Data"). Drivers check it too, but not all of them well.
bool isPipelineDataOf(const VkPhysicalDeviceProperties& properties, std::span<const std::byte> data);

/// Keeps a device's compiled pipelines on disk between runs.
class PipelineCache
{
public:
    /// The device must outlive this object, and be open whenever a member is called.
    PipelineCache(Device& device, std::shared_ptr<Cache::FileStore> store);

    /// Loads the pipelines of earlier runs into the device's cache. Call it before pipelines are created.
    void load();

    /// Merges the device's cache with the file, which other processes may have changed, unless nothing was
    /// added since the last time. Thread-safe.
    void save();

    /// Counts an effect whose pipelines were created; saves after every batch of them. Thread-safe.
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
