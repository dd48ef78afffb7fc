#include "host/gpu/device/DeviceMemory.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>

namespace Qx::Host::Vulkan {

namespace {

constexpr VkDeviceSize smallestSlot = 1U << 12;
constexpr VkDeviceSize largestSlot = 1U << 18;
constexpr VkDeviceSize sharedBlockBytes = 1U << 21;

std::array<VkMemoryPropertyFlags, 3> preferences(MemoryUse use)
{
    constexpr VkMemoryPropertyFlags mapped =
        VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT | VK_MEMORY_PROPERTY_HOST_COHERENT_BIT;
    switch (use) {
    case MemoryUse::Image:
        return {VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT, 0, 0};
    case MemoryUse::HostRead:
        return {mapped | VK_MEMORY_PROPERTY_HOST_CACHED_BIT, mapped, mapped};
    case MemoryUse::Uniform:
        break;
    }
    return {mapped | VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT, mapped, mapped};
}

/// Whether the end of mapped memory is there. Mesa's software device may keep its memory in a file (25.0
/// does, 22.3 does not), and does not notice when the limit on the size of files (ulimit -f) keeps that from
/// growing: the first touch would end the process. Asking the kernel for the page does not.
bool endIsThere(const void* mapped, VkDeviceSize bytes)
{
    const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    const std::uintptr_t last = (reinterpret_cast<std::uintptr_t>(mapped) + bytes - 1) / page * page;
    return ::madvise(reinterpret_cast<void*>(last), page, MADV_POPULATE_READ) == 0 || errno != EFAULT;
}

} // namespace

bool DeviceMemory::findType(std::uint32_t allowed, MemoryUse use, std::uint32_t& type) const
{
    for (const VkMemoryPropertyFlags wanted : preferences(use)) {
        for (std::uint32_t i = 0; i < device_.memory().memoryTypeCount; ++i) {
            const VkMemoryPropertyFlags flags = device_.memory().memoryTypes[i].propertyFlags;
            if ((allowed & (1U << i)) != 0 && (flags & wanted) == wanted) {
                type = i;
                return true;
            }
        }
    }
    return false;
}

VkResult DeviceMemory::allocateBlock(VkDeviceSize bytes, std::uint32_t type, Allocation& result)
{
    if (device_.faults().takeAllocation()) {
        return VK_ERROR_OUT_OF_DEVICE_MEMORY;
    }
    const VkMemoryType& memoryType = device_.memory().memoryTypes[type];
    if (bytes > device_.memory().memoryHeaps[memoryType.heapIndex].size ||
        bytes > device_.physical().largestAllocation) {
        return VK_ERROR_OUT_OF_DEVICE_MEMORY;
    }
    VkMemoryAllocateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO;
    info.allocationSize = bytes;
    info.memoryTypeIndex = type;
    VkResult status = vkAllocateMemory(device_.handle(), &info, nullptr, &result.memory);
    if (status != VK_SUCCESS) {
        return status;
    }
    if ((memoryType.propertyFlags & VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT) != 0) {
        status = vkMapMemory(device_.handle(), result.memory, 0, VK_WHOLE_SIZE, 0, &result.mapped);
        if (status != VK_SUCCESS) {
            vkFreeMemory(device_.handle(), result.memory, nullptr);
            return status;
        }
        if (!endIsThere(result.mapped, bytes)) {
            vkFreeMemory(device_.handle(), result.memory, nullptr);
            return VK_ERROR_OUT_OF_DEVICE_MEMORY;
        }
    }
    ++allocationCount_;
    return VK_SUCCESS;
}

VkResult DeviceMemory::allocateSlot(const Key& key, Allocation& result)
{
    const auto [type, sizeClass, linear] = key;
    const std::lock_guard lock(mutex_);
    SharedBlocks& shared = shared_[key];
    if (shared.free.empty()) {
        Allocation block;
        const VkResult status = allocateBlock(sharedBlockBytes, type, block);
        if (status != VK_SUCCESS) {
            return status;
        }
        shared.blocks.push_back(block.memory);
        const VkDeviceSize slot = VkDeviceSize{1} << sizeClass;
        for (VkDeviceSize offset = sharedBlockBytes; offset > 0; offset -= slot) {
            Allocation piece = block;
            piece.offset = offset - slot;
            piece.mapped =
                block.mapped != nullptr ? static_cast<std::byte*>(block.mapped) + piece.offset : nullptr;
            piece.type = type;
            piece.sizeClass = sizeClass;
            piece.linear = linear;
            shared.free.push_back(piece);
        }
    }
    result = shared.free.back();
    shared.free.pop_back();
    return VK_SUCCESS;
}

VkResult DeviceMemory::allocate(const VkMemoryRequirements& requirements, MemoryUse use, Allocation& result)
{
    std::uint32_t type = 0;
    if (!findType(requirements.memoryTypeBits, use, type)) {
        return VK_ERROR_FEATURE_NOT_PRESENT;
    }
    const VkDeviceSize slot =
        std::bit_ceil(std::max({requirements.size, requirements.alignment, smallestSlot}));
    if (slot > largestSlot) {
        result.type = type;
        return allocateBlock(requirements.size, type, result);
    }
    const auto sizeClass = static_cast<std::uint32_t>(std::countr_zero(slot));
    return allocateSlot({type, sizeClass, use != MemoryUse::Image}, result);
}

void DeviceMemory::release(const Allocation& allocation)
{
    if (allocation.memory == nullptr) {
        return;
    }
    if (allocation.sizeClass == 0) {
        vkFreeMemory(device_.handle(), allocation.memory, nullptr);
        return;
    }
    const std::lock_guard lock(mutex_);
    shared_[{allocation.type, allocation.sizeClass, allocation.linear}].free.push_back(allocation);
}

void DeviceMemory::destroy()
{
    const std::lock_guard lock(mutex_);
    for (auto& [key, shared] : shared_) {
        for (VkDeviceMemory block : shared.blocks) {
            vkFreeMemory(device_.handle(), block, nullptr);
        }
    }
    shared_.clear();
}

} // namespace Qx::Host::Vulkan
