#pragma once

#include "host/gpu/device/Device.h"

#include <map>
#include <mutex>
#include <tuple>
#include <vector>

namespace Qx::Host::Vulkan {

/// A piece of device memory. Plain data: pass it to DeviceMemory::release().
struct Allocation
{
    VkDeviceMemory memory = nullptr;
    VkDeviceSize offset = 0;
    void* mapped = nullptr;      ///< its address for the host; null if the host cannot access it
    std::uint32_t type = 0;      ///< index of the memory type
    std::uint32_t sizeClass = 0; ///< log2 of the slot in a shared block; 0: a block of its own
    bool linear = false;         ///< buffers and images never share a block
};

/// The use of memory, which decides its memory type.
enum class MemoryUse
{
    Image,    ///< for the device alone
    HostRead, ///< mapped, coherent and preferably cached: the host reads and writes it
    Uniform,  ///< mapped, coherent and preferably near the device: the host writes it once
};

/// Allocates device memory. Large pieces get blocks of their own, as drivers prefer for images; small ones
/// share blocks, because drivers limit the number of blocks. Thread-safe.
class DeviceMemory
{
public:
    explicit DeviceMemory(Device& device) : device_(device) {}

    VkResult allocate(const VkMemoryRequirements& requirements, MemoryUse use, Allocation& result);
    void release(const Allocation& allocation);

    /// Frees every shared block. No allocation may be in use.
    void destroy();

    std::uint64_t allocationCount() const { return allocationCount_; }

private:
    struct SharedBlocks
    {
        std::vector<Allocation> free;
        std::vector<VkDeviceMemory> blocks;
    };
    using Key = std::tuple<std::uint32_t, std::uint32_t, bool>; // type, size class, linear

    VkResult allocateBlock(VkDeviceSize bytes, std::uint32_t type, Allocation& result);
    VkResult allocateSlot(const Key& key, Allocation& result);
    bool findType(std::uint32_t allowed, MemoryUse use, std::uint32_t& type) const;

    Device& device_;
    std::mutex mutex_;
    std::map<Key, SharedBlocks> shared_;
    std::atomic<std::uint64_t> allocationCount_{0};
};

} // namespace Qx::Host::Vulkan
