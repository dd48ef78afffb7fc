#pragma once

#include "host/gpu/images/Resources.h"

#include <algorithm>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <unordered_set>

namespace Qx::Host::Vulkan {

/// Keeps released resources for reuse by key, and knows all resources in use. Thread-safe.
///
/// Returning a resource makes no Vulkan call, so that a static destructor may release the last handle. What
/// exceeds the limit is destroyed by the next take() or trim().
template <class Resource>
class Pool
{
public:
    using Key = typename Resource::Key;

    Pool(Device& device, DeviceMemory& memory, std::uint64_t idleLimit)
        : device_(device), memory_(memory), idleLimit_(idleLimit)
    {
    }

    /// Takes a released resource of that key. One that the device no longer uses (lastUse is at most
    /// `completed`) is preferred; any other only if `orPending`, and none that is being downloaded. Null if
    /// there is none.
    std::unique_ptr<Resource> take(const Key& key, std::uint64_t completed, bool orPending)
    {
        const std::lock_guard lock(mutex_);
        destroyIdle(idleLimit_, completed);
        auto found = idle_.end();
        for (auto i = idle_.begin(); i != idle_.end(); ++i) {
            const bool mayBePending = orPending && found == idle_.end() && !(*i)->isDownloading(completed);
            if ((*i)->key == key && ((*i)->lastUse <= completed || mayBePending)) {
                found = i;
                if ((*i)->lastUse <= completed) {
                    break;
                }
            }
        }
        if (found == idle_.end()) {
            return nullptr;
        }
        std::unique_ptr<Resource> resource = std::move(*found);
        idle_.erase(found);
        idleBytes_ -= resource->memoryBytes();
        liveBytes_ += resource->memoryBytes();
        return resource;
    }

    VkResult create(const Key& key, std::unique_ptr<Resource>& resource)
    {
        auto fresh = std::make_unique<Resource>();
        const VkResult result = Resource::create(device_, memory_, key, *fresh);
        if (result == VK_SUCCESS) {
            adopt(*fresh);
            resource = std::move(fresh);
        }
        return result;
    }

    /// Knows from now on a resource that was not created here.
    void adopt(Resource& resource)
    {
        const std::lock_guard lock(mutex_);
        all_.insert(&resource);
        liveBytes_ += resource.memoryBytes();
        ++created_;
    }

    /// Returns a resource to the pool. After destroyAll() it is only kept if it survived that.
    void give(std::unique_ptr<Resource> resource)
    {
        const std::lock_guard lock(mutex_);
        liveBytes_ -= resource->memoryBytes();
        if (destroyed_) {
            if (resource->exists()) {
                retired_.push_back(std::move(resource));
            } else {
                all_.erase(resource.get());
            }
            return;
        }
        if (!resource->isReusable()) {
            retired_.push_back(std::move(resource));
            return;
        }
        idleBytes_ += resource->memoryBytes();
        idle_.push_front(std::move(resource));
    }

    /// Destroys resources that the device no longer uses, the longest released first, until `limit` bytes are
    /// left.
    void trim(std::uint64_t limit, std::uint64_t completed)
    {
        const std::lock_guard lock(mutex_);
        destroyIdle(limit, completed);
    }

    /// Destroys the Vulkan objects of every resource; the owners of those in use then hold empty shells.
    /// Resources for which `keep` returns true survive; the next call destroys those that were released
    /// since. Returns their number.
    template <class Keep>
    std::size_t destroyAll(Keep keep)
    {
        const std::lock_guard lock(mutex_);
        std::size_t kept = 0;
        for (auto* list : {&idle_, &retired_}) {
            for (auto& resource : *list) {
                all_.erase(resource.get());
                resource->destroy(device_, memory_);
            }
            list->clear();
        }
        idleBytes_ = 0;
        destroyed_ = true;
        for (Resource* resource : all_) {
            if (keep(*resource)) {
                ++kept;
            } else {
                resource->destroy(device_, memory_);
            }
        }
        return kept;
    }

    std::uint64_t idleBytes() const { return idleBytes_; }
    std::uint64_t liveBytes() const { return liveBytes_; }
    std::uint64_t created() const { return created_; }

private:
    void destroyIdle(std::uint64_t limit, std::uint64_t completed)
    {
        for (auto i = idle_.end(); idleBytes_ > limit && i != idle_.begin();) {
            --i;
            if ((*i)->lastUse <= completed) {
                idleBytes_ -= (*i)->memoryBytes();
                all_.erase(i->get());
                (*i)->destroy(device_, memory_);
                i = idle_.erase(i);
            }
        }
        for (auto i = retired_.begin(); i != retired_.end();) {
            if ((*i)->lastUse > completed || (*i)->isGiven()) {
                ++i;
                continue;
            }
            all_.erase(i->get());
            (*i)->destroy(device_, memory_);
            i = retired_.erase(i);
        }
    }

    Device& device_;
    DeviceMemory& memory_;
    const std::uint64_t idleLimit_;
    std::mutex mutex_;
    std::list<std::unique_ptr<Resource>> idle_;    // the latest released first
    std::list<std::unique_ptr<Resource>> retired_; // released, and not for reuse
    std::unordered_set<Resource*> all_;
    bool destroyed_ = false;
    std::atomic<std::uint64_t> idleBytes_{0};
    std::atomic<std::uint64_t> liveBytes_{0};
    std::atomic<std::uint64_t> created_{0};
};

} // namespace Qx::Host::Vulkan
