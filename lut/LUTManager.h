#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/LightweightString.h"
#include "Qx/LightweightVector.h"
#include "Qx/Ptr.h"
#include "platform/Api.h"
#include "platform/CriticalSection.h"
#include "platform/GPUImage.h"
#include "platform/Notifications.h"
#include "platform/Reclaimable.h"

#include <atomic>
#include <cstddef>
#include <map>

/// The process's keeper of colour look-up tables: which LUT files there are, and a small cache of those in
/// use.
///
/// The list of files belongs to one thread at a time: building it, installing files and reading it must not
/// overlap. Loading is for any thread.
class QX_API LUTManager : public iReclaimable, public Notifier
{
public:
    /// The manager, made by whoever asks first, which scans the LUT directories; others wait meanwhile. It
    /// lives until the process exits.
    static LUTManager& instance() noexcept;

    /// Empties the list of files; makes the manager when there is none. Cached LUTs stay.
    static void shutdown() noexcept;

    /// Appends the file extensions of LUTs that the host can read.
    static void getSupportedFileTypes(Qx::Vector<LightweightString<wchar_t>>& types) noexcept;

    /// Scans the LUT directories again: the user's, then the machine's unless it has the same name. What the
    /// host lists is kept in that order, repeats too, as far as its extension is a supported one, letter case
    /// included. Holders of the list see the change.
    void buildLUTList() noexcept;

    /// Copies files into the user's LUT directory. The answer has an entry for each: the path of the copy, or
    /// nothing for a file whose path begins with one of the LUT directories' texts in any letter case, which
    /// counts as installed (an unset directory begins every path). Whether a copy succeeded is not
    /// looked at. When anything was to be copied, the list is built again and the listeners get one message,
    /// lutListChanged.
    LightweightVector<LightweightString<wchar_t>>
    installLUTs(const LightweightVector<LightweightString<wchar_t>>& files) noexcept;

    /// The LUT files; all holders share one list.
    LightweightVector<LightweightString<wchar_t>> getLUTs() const noexcept { return luts_; }

    /// Reads a LUT file into host memory unless it is cached.
    void preLoad(const LightweightString<wchar_t>& path) noexcept;

    /// The LUT of a file as a 3D image on the GPU; empty when the file cannot be read or the GPU cannot hold
    /// it. Failures are cached too. Paths are keys as they are written. At most `cacheLimit` LUTs are cached:
    /// another one empties the cache first.
    Qx::Ptr<iGPUImage3D> load(const LightweightString<wchar_t>& path) noexcept;

    static constexpr std::size_t cacheLimit = 5;

    /// Empties the cache. LUTs in use live on.
    void purge() noexcept override;
    /// The same: the cache has no smaller step.
    void limitUsage() noexcept override;
    /// Logs how many LUTs are cached.
    void reportUsage() noexcept override;

    LUTManager(const LUTManager&) = delete;
    LUTManager& operator=(const LUTManager&) = delete;

private:
    struct CacheRec
    {
        Qx::Ptr<iGPUImage3D> gpuImage;   ///< empty until made
        Qx::Ptr<iHostImage3D> hostImage; ///< empty when the file could not be read
    };

    QX_LOCAL LUTManager() noexcept;
    QX_LOCAL ~LUTManager() override;

    QX_LOCAL void add(const LightweightString<wchar_t>& path, const CacheRec& record);
    QX_LOCAL void countCached();

    CriticalSection cacheLock_;
    LightweightVector<LightweightString<wchar_t>> luts_;
    std::map<LightweightString<wchar_t>, CacheRec> cache_; ///< guarded by cacheLock_
    std::atomic<int> cached_{0};                           ///< its size, for who does not take the lock
};
