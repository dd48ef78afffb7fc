#pragma once

#include <filesystem>
#include <vector>

namespace Qx::Program {

/// Tells when files in some directories may have changed, however an editor saves them: written in place,
/// renamed over the old one, the whole directory replaced, or not there yet.
///
/// It is a hint to look again, not the truth: changes are noticed at once where the kernel tells of them, and
/// wait() returns now and then anyway, for the file systems where it does not. Subdirectories are noticed
/// that way alone.
class DirectoryWatch
{
public:
    /// Throws Failure when the process has no more descriptors.
    explicit DirectoryWatch(std::vector<std::filesystem::path> directories);
    ~DirectoryWatch();
    DirectoryWatch(const DirectoryWatch&) = delete;
    DirectoryWatch& operator=(const DirectoryWatch&) = delete;

    /// Waits until something happened and then nothing more for a moment, so that a file is not looked at
    /// half written; or until it is time to look anyway. False once stop() was called.
    bool wait();

    /// Ends wait(), now and for good. Any thread.
    void stop();

private:
    void follow() const;
    bool happens(int milliseconds) const;

    std::vector<std::filesystem::path> directories_;
    int events_ = -1;
    int stopped_ = -1;
};

} // namespace Qx::Program
