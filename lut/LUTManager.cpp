#include "lut/LUTManager.h"

#include "platform/CubeLUT.h"
#include "platform/GPUService.h"
#include "platform/Log.h"
#include "platform/OS.h"

LUTManager::LUTManager() noexcept
{
    buildLUTList();
}

LUTManager::~LUTManager() = default;

LUTManager& LUTManager::instance() noexcept
{
    static LUTManager manager;
    return manager;
}

void LUTManager::shutdown() noexcept
{
    instance().luts_.clear();
}

/// The caller must hold the lock.
void LUTManager::add(const LightweightString<wchar_t>& path, const CacheRec& record)
{
    if (cache_.size() == cacheLimit) {
        cache_.clear();
    }
    cache_.emplace(path, record);
    countCached();
}

void LUTManager::countCached()
{
    cached_.store(static_cast<int>(cache_.size()), std::memory_order_relaxed);
}

void LUTManager::preLoad(const LightweightString<wchar_t>& path) noexcept
{
    {
        const CriticalSectionScope inside(cacheLock_);
        if (cache_.contains(path)) {
            return;
        }
    }
    const Qx::Ptr<iHostImage3D> image = CubeLUT::load(path);
    const CriticalSectionScope inside(cacheLock_);
    add(path, {{}, image});
}

Qx::Ptr<iGPUImage3D> LUTManager::load(const LightweightString<wchar_t>& path) noexcept
{
    {
        const CriticalSectionScope inside(cacheLock_);
        if (const auto found = cache_.find(path); found != cache_.end()) {
            CacheRec& record = found->second;
            if (!record.gpuImage && record.hostImage) {
                record.gpuImage = OS().gpu().upload3DImage(record.hostImage);
            }
            return record.gpuImage;
        }
    }
    // Other threads may read the same file concurrently; the first to finish is cached.
    CacheRec record;
    record.hostImage = CubeLUT::load(path);
    record.gpuImage = OS().gpu().upload3DImage(record.hostImage);
    const CriticalSectionScope inside(cacheLock_);
    add(path, record);
    return record.gpuImage;
}

void LUTManager::purge() noexcept
{
    const CriticalSectionScope inside(cacheLock_);
    cache_.clear();
    countCached();
}

void LUTManager::limitUsage() noexcept
{
    iReclaimable& reclaimable = *this;
    reclaimable.purge();
}

void LUTManager::reportUsage() noexcept
{
    Log("LUTManager : %d luts cached\n", cached_.load(std::memory_order_relaxed));
}
