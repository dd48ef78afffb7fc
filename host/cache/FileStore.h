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

/// A directory of checksummed files, shared by all processes of a user, that may lose any of them at any
/// time: whoever asks for an entry that is not there, not whole or not to be trusted gets none and makes it
/// anew.
///
/// - An entry is written aside and renamed, so that it is whole or absent for every reader, however many
///   processes write it.
/// - Its file ends with a SHA-256 of everything before; one that does not fit is removed.
/// - The directory is made for the user alone. A directory or an entry of another user's, or one that others
///   may write to, is not used: its contents go to the GPU's driver.
/// - After each store the entries that were not used for the longest time are removed until the rest fits
///   the bound. The time of use is the file's time of modification.
/// - Files of other names are left alone.
///
/// Any thread, several at once. Only std::bad_alloc is thrown.
class FileStore
{
public:
    /// Takes one line for the log; called once at most.
    using Complain = std::function<void(const std::string&)>;

    /// The directory is made with the first entry. `mostBytes` bounds all entries together.
    FileStore(std::filesystem::path directory, std::uint64_t mostBytes, Complain complain);

    std::optional<std::vector<std::byte>> load(Kind kind, const Digest& key);
    void store(Kind kind, const Digest& key, std::span<const std::byte> content);

    struct Usage
    {
        std::uint64_t entries = 0;
        std::uint64_t bytes = 0; ///< of their files
    };

    /// What of that kind is there.
    Usage usage(Kind kind) const;

    /// Why nothing is taken from it or put into it as it is now, a full disk among the reasons; empty when it
    /// works. One that is not there works when it can be made.
    std::string problem() const;

    /// Removes every entry, also while others use them, and what interrupted writers left. Empty, or why it
    /// could not.
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
