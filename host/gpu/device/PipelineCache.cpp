#include "host/gpu/device/PipelineCache.h"

#include "host/cache/Bytes.h"

#include <algorithm>
#include <vector>

namespace Qx::Host::Vulkan {

namespace {

constexpr std::size_t headerBytes = 16 + VK_UUID_SIZE;
constexpr unsigned batch = 32; // effects, whose pipelines a crash can cost

/// A pipeline cache for the duration of a scope.
class TemporaryCache
{
public:
    TemporaryCache(VkDevice device, std::span<const std::byte> data) : device_(device)
    {
        VkPipelineCacheCreateInfo info{};
        info.sType = VK_STRUCTURE_TYPE_PIPELINE_CACHE_CREATE_INFO;
        info.initialDataSize = data.size();
        info.pInitialData = data.data();
        if (vkCreatePipelineCache(device, &info, nullptr, &cache_) != VK_SUCCESS) {
            cache_ = nullptr;
        }
    }
    ~TemporaryCache() { vkDestroyPipelineCache(device_, cache_, nullptr); }
    TemporaryCache(const TemporaryCache&) = delete;
    TemporaryCache& operator=(const TemporaryCache&) = delete;

    VkPipelineCache handle() const { return cache_; }

private:
    VkDevice device_;
    VkPipelineCache cache_ = nullptr;
};

/// Empty on failure, or if the data grew meanwhile: the next save will do.
std::vector<std::byte> dataOf(VkDevice device, VkPipelineCache cache)
{
    std::size_t bytes = 0;
    if (vkGetPipelineCacheData(device, cache, &bytes, nullptr) != VK_SUCCESS) {
        return {};
    }
    std::vector<std::byte> data(bytes);
    if (vkGetPipelineCacheData(device, cache, &bytes, data.data()) != VK_SUCCESS) {
        return {};
    }
    data.resize(bytes);
    return data;
}

} // namespace

bool isPipelineDataOf(const VkPhysicalDeviceProperties& properties, std::span<const std::byte> data)
{
    Cache::ByteReader from(data);
    const auto length = from.number<std::uint32_t>();
    const auto version = from.number<std::uint32_t>();
    const auto vendor = from.number<std::uint32_t>();
    const auto device = from.number<std::uint32_t>();
    const std::span<const std::byte> uuid = from.raw(VK_UUID_SIZE);
    const std::span<const std::byte> wanted = std::as_bytes(std::span(properties.pipelineCacheUUID));
    return !from.failed() && length >= headerBytes && length <= data.size() &&
           version == VK_PIPELINE_CACHE_HEADER_VERSION_ONE && vendor == properties.vendorID &&
           device == properties.deviceID &&
           std::equal(uuid.begin(), uuid.end(), wanted.begin(), wanted.end());
}

PipelineCache::PipelineCache(Device& device, std::shared_ptr<Cache::FileStore> store)
    : device_(device), store_(std::move(store)), key_(Cache::digestOf(driverIdentity(device.physical())))
{
}

std::size_t PipelineCache::heldBytes() const
{
    std::size_t bytes = 0;
    return vkGetPipelineCacheData(device_.handle(), device_.pipelineCache(), &bytes, nullptr) == VK_SUCCESS
               ? bytes
               : 0;
}

void PipelineCache::load()
{
    const std::lock_guard lock(mutex_);
    const auto kept = store_->load(Cache::Kind::Pipelines, key_);
    if (device_.pipelineCache() == nullptr || !kept ||
        !isPipelineDataOf(device_.physical().properties, *kept)) {
        return;
    }
    const TemporaryCache earlier(device_.handle(), *kept);
    const VkPipelineCache source = earlier.handle();
    if (source != nullptr &&
        vkMergePipelineCaches(device_.handle(), device_.pipelineCache(), 1, &source) == VK_SUCCESS) {
        savedBytes_ = heldBytes();
    }
}

void PipelineCache::save()
{
    const std::lock_guard lock(mutex_);
    effectsSinceSave_ = 0;
    const VkPipelineCache held = device_.pipelineCache();
    const std::size_t bytes = held != nullptr ? heldBytes() : 0;
    if (bytes <= savedBytes_) {
        return;
    }
    // Merged into a cache of its own: the device's may be in use, which forbids merging into it.
    auto kept = store_->load(Cache::Kind::Pipelines, key_);
    const bool fits = kept && isPipelineDataOf(device_.physical().properties, *kept);
    const TemporaryCache merged(device_.handle(),
                                fits ? std::span<const std::byte>(*kept) : std::span<const std::byte>());
    if (merged.handle() == nullptr ||
        vkMergePipelineCaches(device_.handle(), merged.handle(), 1, &held) != VK_SUCCESS) {
        return;
    }
    const std::vector<std::byte> data = dataOf(device_.handle(), merged.handle());
    if (isPipelineDataOf(device_.physical().properties, data)) {
        store_->store(Cache::Kind::Pipelines, key_, data);
        savedBytes_ = bytes;
    }
}

void PipelineCache::countEffect()
{
    bool due = false;
    {
        const std::lock_guard lock(mutex_);
        due = ++effectsSinceSave_ >= batch;
    }
    if (due) {
        save();
    }
}

} // namespace Qx::Host::Vulkan
