#pragma once

#include <filesystem>
#include <utility>

namespace Qx::Media {

// Unfinished files carry a lock (flock(2)) while their run lives. The kernel releases it however the run
// ends, so a file without a lock was left behind, by SIGKILL or a power cut. An unfinished folder holds a
// file of its own for the lock, folderLock.

/// A name for an unfinished file beside `file`, one that no other run chooses: ".NAME.part-SYSTEM-RANDOM",
/// where SYSTEM stands for the running kernel.
std::filesystem::path unfinishedName(const std::filesystem::path& file);

constexpr const char* folderLock = "lock";

/// A descriptor, closed in the end, and with it the lock released.
class HeldFile
{
public:
    HeldFile() = default;
    explicit HeldFile(int descriptor) : descriptor_(descriptor) {}
    HeldFile(HeldFile&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    HeldFile& operator=(HeldFile&& other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~HeldFile();

    int descriptor() const { return descriptor_; }

    /// Takes the lock. Returns false if another process has it, or has removed the file meanwhile. Where the
    /// file system has no locks, the file is kept without.
    bool hold(const std::filesystem::path& file) const;

private:
    int descriptor_ = -1;
};

/// Removes the unfinished files and folders of this directory that runs left behind: those that nobody holds.
/// Locks may not be seen by another machine that shares the directory: a file of another kernel, or of this
/// machine before its restart, must also be a day old, by the clock of the file system.
void clearAbandoned(const std::filesystem::path& directory);

} // namespace Qx::Media
