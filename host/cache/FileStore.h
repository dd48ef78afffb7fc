#pragma once

#include "host/cache/Record.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Qx::Host::Cache {

/// A directory of checksummed files, shared by all processes of a user. Any file may disappear at any time: a
/// caller whose entry is missing, damaged or not trusted gets none, and creates it again.
///
/// - An entry is written to another name, synced to disk and renamed, so that every reader finds it whole or
///   not at all, however many processes write it and even after a power cut.
/// - Its file ends with a SHA-256 of everything before it; a file with a wrong one is removed.
/// - The directory is created for the user alone. A directory or an entry that belongs to another user, or
///   that others may write to, is not used, because its contents go to the GPU's driver.
/// - After each store the least recently used entries are removed until the rest is within the limit. The
///   time of use is the file's modification time.
/// - Files of other names are left alone.
///
/// Thread-safe. Only std::bad_alloc is thrown.
class FileStore
{
public:
    /// Receives one line for the log; called at most once.
    using Complain = std::function<void(const std::string&)>;

    /// The directory is created with the first entry. `mostBytes` limits all entries together.
    FileStore(std::filesystem::path directory, std::uint64_t mostBytes, Complain complain);

    std::optional<std::vector<std::byte>> load(Kind kind, const Digest& key);
    void store(Kind kind, const Digest& key, std::span<const std::byte> content);

    struct Usage
    {
        std::uint64_t entries = 0;
        std::uint64_t bytes = 0; ///< of their files
    };

    /// The entries of that kind.
    Usage usage(Kind kind) const;

    /// The reason why the directory cannot be read or written now, a full disk included; empty if it can. A
    /// directory that does not exist is fine if it can be created.
    std::string problem() const;

    /// Removes every entry, even while others use them, and the remains of interrupted writers. Empty, or the
    /// reason of a failure.
    std::string clear();

    const std::filesystem::path& directory() const { return directory_; }
    std::uint64_t mostBytes() const { return mostBytes_; }

private:
    void complainOnce(const std::string& text);
    std::string write(Kind kind, const Digest& key, std::span<const std::byte> content);
    void shrink();

    const std::filesystem::path directory_;
    const std::uint64_t mostBytes_;
    const Complain complain_;
    std::atomic<bool> complained_{false};
};

} // namespace Qx::Host::Cache
