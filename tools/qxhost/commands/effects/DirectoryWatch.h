#pragma once

#include <filesystem>
#include <vector>

namespace Qx::Program {

/// Reports when files in some directories may have changed, however an editor saves them: written in place,
/// renamed over the old file, the whole directory replaced, or not yet present.
///
/// The report is a hint to look again: changes are noticed at once if the kernel reports them, and wait()
/// also returns periodically, for file systems on which it does not. Changes in subdirectories are noticed
/// only periodically.
class DirectoryWatch
{
public:
    /// Throws Failure if the process is out of file descriptors.
    explicit DirectoryWatch(std::vector<std::filesystem::path> directories);
    ~DirectoryWatch();
    DirectoryWatch(const DirectoryWatch&) = delete;
    DirectoryWatch& operator=(const DirectoryWatch&) = delete;

    /// Blocks until something happened and a moment passed without more, so that a file is not read half
    /// written, or until the period is over. Returns false once stop() was called.
    bool wait();

    /// Ends wait() permanently. Thread-safe.
    void stop();

private:
    void follow() const;
    bool happens(int milliseconds) const;

    std::vector<std::filesystem::path> directories_;
    int events_ = -1;
    int stopped_ = -1;
};

} // namespace Qx::Program
