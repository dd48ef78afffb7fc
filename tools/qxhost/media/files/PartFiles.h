#pragma once

#include <csignal>
#include <filesystem>

namespace Qx::Media::PartFiles {

// The unfinished files of this process, kept where a signal handler can reach them. Any thread.

/// Held by a thread while it creates an unfinished file, opens one in a way that creates it if it is missing,
/// or changes what is registered. removeAll() waits for it. Once removeAll() has begun, the constructor
/// blocks until the process ends. Blocks the signals of the thread, since a handler that ran in it would wait
/// for itself.
class Guard
{
public:
    Guard() noexcept;
    ~Guard();
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    sigset_t before_{};
};

/// Registers a file for removeAll(). Call it with a Guard held. A path that is too long, or one beyond a few
/// dozen, is not registered.
void remember(const std::filesystem::path& file) noexcept;

/// The file is finished or removed.
void forget(const std::filesystem::path& file) noexcept;

/// Removes them all. Safe in a signal handler; the process must end right after it. Waits up to a second for
/// threads that are creating one.
void removeAll() noexcept;

} // namespace Qx::Media::PartFiles
