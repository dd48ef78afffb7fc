#pragma once

#include <filesystem>
#include <mutex>
#include <set>
#include <sys/stat.h>
#include <utility>

namespace Qx::Media {

/// The files of an input, by identity: a file with several names, or reached through links, counts once. Any
/// thread.
class FileSet
{
public:
    /// Returns false if there is no such file, or if the set has it already.
    bool add(const std::filesystem::path& file)
    {
        struct stat status = {};
        if (::stat(file.c_str(), &status) != 0) {
            return false;
        }
        const std::lock_guard lock(mutex_);
        return files_.emplace(status.st_dev, status.st_ino).second;
    }

    /// Not all files of the input can be known: from now on any file may be one.
    void addUnknown()
    {
        const std::lock_guard lock(mutex_);
        hasUnknown_ = true;
    }
    bool hasUnknown() const
    {
        const std::lock_guard lock(mutex_);
        return hasUnknown_;
    }

    /// Whether there is such a file and it is, or may be, one of the set.
    bool contains(const std::filesystem::path& file) const
    {
        struct stat status = {};
        if (::stat(file.c_str(), &status) != 0) {
            return false;
        }
        const std::lock_guard lock(mutex_);
        return hasUnknown_ || files_.count({status.st_dev, status.st_ino}) != 0;
    }

    bool empty() const
    {
        const std::lock_guard lock(mutex_);
        return files_.empty() && !hasUnknown_;
    }

private:
    mutable std::mutex mutex_;
    std::set<std::pair<dev_t, ino_t>> files_;
    bool hasUnknown_ = false;
};

} // namespace Qx::Media
