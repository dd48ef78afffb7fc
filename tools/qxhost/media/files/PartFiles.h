#pragma once

#include <filesystem>

namespace Qx::Media::PartFiles {

// The unfinished files of this process, kept where a signal handler can reach them. Any thread.

/// Registers a file for removeAll(). A path that is too long, or one beyond a few dozen, is not registered.
void remember(const std::filesystem::path& file) noexcept;

/// The file is finished or removed.
void forget(const std::filesystem::path& file) noexcept;

/// Removes them all. Safe in a signal handler; the process must end right after it.
void removeAll() noexcept;

} // namespace Qx::Media::PartFiles
