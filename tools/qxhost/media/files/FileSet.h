#pragma once

#include <filesystem>
#include <set>
#include <sys/stat.h>
#include <utility>

namespace Qx::Media {

/// A set of files by identity: a file with several names, or reached through links, counts once.
class FileSet
{
public:
    /// Does nothing if there is no such file.
    void add(const std::filesystem::path& file)
    {
        struct stat status = {};
        if (::stat(file.c_str(), &status) == 0) {
            files_.emplace(status.st_dev, status.st_ino);
        }
    }

    bool contains(const std::filesystem::path& file) const
    {
        struct stat status = {};
        return ::stat(file.c_str(), &status) == 0 && files_.count({status.st_dev, status.st_ino}) != 0;
    }

    bool empty() const { return files_.empty(); }

private:
    std::set<std::pair<dev_t, ino_t>> files_;
};

} // namespace Qx::Media
