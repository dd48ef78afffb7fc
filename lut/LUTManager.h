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

/// The process-wide manager of colour look-up tables: the list of LUT files and a small cache of loaded LUTs.
///
/// preLoad(), load() and the reclaiming functions are thread-safe. The list of files is not: buildLUTList(),
/// installLUTs() and readers of the list must not overlap. No function throws.
class QX_API LUTManager : public iReclaimable, public Notifier
{
public:
    /// Returns the manager. The first call creates it and scans the LUT directories; concurrent callers block
    /// until it is ready. It lives until process exit.
    static LUTManager& instance() noexcept;

    /// Empties the list of files, creating the manager if necessary. Cached LUTs are kept.
    static void shutdown() noexcept;

    /// Appends the file extensions of LUTs that the host can read.
    static void getSupportedFileTypes(Qx::Vector<LightweightString<wchar_t>>& types) noexcept;

    /// Rescans the LUT directories: the user's, then the machine's unless both have the same path. Keeps the
    /// host's order, including duplicates, and only files with a supported extension; the comparison is
    /// case-sensitive. Holders of the list see the change.
    void buildLUTList() noexcept;

    /// Copies files into the user's LUT directory. The result has one entry per file: the path of the copy,
    /// or an empty string for a file that counts as installed because its path begins with the text of one of
    /// the LUT directories, ignoring case. An unset directory is a prefix of every path. Failed copies are
    /// not detected. If at least one file was to be copied, the list is rebuilt and the listeners receive one
    /// message of type lutListChanged.
    LightweightVector<LightweightString<wchar_t>>
    installLUTs(const LightweightVector<LightweightString<wchar_t>>& files) noexcept;

    /// Returns the list of LUT files. All holders share one list.
    LightweightVector<LightweightString<wchar_t>> getLUTs() const noexcept { return luts_; }

    /// Reads a LUT file into host memory unless it is cached. Blocks for the duration of the file access.
    /// Failures are cached.
    void preLoad(const LightweightString<wchar_t>& path) noexcept;

    /// Returns a LUT as a 3D image on the GPU, or an empty pointer if the file cannot be read or the upload
    /// fails. Blocks for the duration of the file access unless the LUT is cached. Failures are cached until
    /// the cache is emptied. The key is the path as written. At most `cacheLimit` LUTs are cached: adding
    /// another empties the cache first.
    Qx::Ptr<iGPUImage3D> load(const LightweightString<wchar_t>& path) noexcept;

    static constexpr std::size_t cacheLimit = 5; ///< entries from which on a new one evicts one

    /// Empties the cache. LUTs in use remain valid.
    void purge() noexcept override;
    /// As purge(): the cache cannot be reduced partially.
    void limitUsage() noexcept override;
    /// Writes the number of cached LUTs to the host's log.
    void reportUsage() noexcept override;

    LUTManager(const LUTManager&) = delete;
    LUTManager& operator=(const LUTManager&) = delete;

private:
    struct CacheRec
    {
        Qx::Ptr<iGPUImage3D> gpuImage;   ///< empty until the first upload
        Qx::Ptr<iHostImage3D> hostImage; ///< empty if the file could not be read
    };

    QX_LOCAL LUTManager() noexcept;
    QX_LOCAL ~LUTManager() override;

    QX_LOCAL void add(const LightweightString<wchar_t>& path, const CacheRec& record);
    QX_LOCAL void countCached();

    CriticalSection cacheLock_;
    LightweightVector<LightweightString<wchar_t>> luts_;
    std::map<LightweightString<wchar_t>, CacheRec> cache_; ///< guarded by cacheLock_
    std::atomic<int> cached_{0};                           ///< the size of cache_, readable without the lock
};
