#pragma once

#include "tools/qxhost/media/Result.h"
#include "tools/qxhost/media/files/FileSet.h"
#include "tools/qxhost/media/files/HeldFile.h"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace Qx::Media {

/// An unfinished output file: written under another name in the destination's directory, held (HeldFile.h),
/// and renamed when complete. The destructor removes it if it is not complete. A symbolic link is followed:
/// the file that it names is written, and the link stays.
///
/// It may also stand for standard output, of which nothing can be taken back.
class OutputFile
{
public:
    /// Writes a small file at once. Fails as create() and commit() do.
    static Status writeWhole(const std::filesystem::path& file, std::string_view text, bool force,
                             std::shared_ptr<const FileSet> kept = nullptr);

    /// Creates the part file, empty. Fails if the file exists and force is off, if its directory does not
    /// exist or is not writable, or if the file exists and is not a regular file or is one of those to keep
    /// (null for none).
    static Result<OutputFile> create(const std::filesystem::path& file, bool force,
                                     std::shared_ptr<const FileSet> kept = nullptr);

    /// Standard output, by its descriptor, which stays the caller's. `kept` bytes of the beginning are kept.
    static OutputFile standardOutput(int descriptor, std::size_t kept);

    /// Removes the unfinished files that earlier runs left where this one's output goes. To be called once
    /// per run, since it reads the directory.
    static void clearAbandoned(const std::filesystem::path& file);

    /// The error if a file to keep would be replaced.
    static Error wouldReplaceInput(const std::filesystem::path& file, const FileSet& kept);

    /// The error of an output that is a pipe with a name.
    static Error isPipe(const std::filesystem::path& file);

    OutputFile(OutputFile&& other) noexcept;
    OutputFile& operator=(OutputFile&& other) noexcept;
    ~OutputFile();

    enum class DirectorySync
    {
        Now,
        Later
    };

    /// Where to write.
    const std::filesystem::path& part() const { return part_; }
    const std::filesystem::path& file() const { return file_; }
    /// For messages: the file in quotes, or "standard output".
    std::string name() const;

    bool isStandardOutput() const { return output_ >= 0; }
    /// What can be read back: part(), or of standard output a file with the beginning; empty if there is
    /// none.
    std::filesystem::path readable() const;

    /// Writes the next bytes. For those who do not write to part() by other means.
    Status write(const void* bytes, std::size_t size);

    /// Syncs the part file to disk and renames it to its final name; without force, a file that has appeared
    /// meanwhile is not replaced. A power cut leaves the old file or the whole new one. The directory is
    /// synced too, unless a later call of syncDirectory() does that for many files.
    Status commit(DirectorySync directory = DirectorySync::Now);

    /// Syncs the directory of a file that has its final name, so that this and all earlier names in it last.
    static Status syncDirectory(const std::filesystem::path& file);

    /// Changes the final name, under the same rules.
    Status retarget(const std::filesystem::path& file);

private:
    OutputFile(std::filesystem::path file, bool force, std::shared_ptr<const FileSet> kept);
    void remove() noexcept;

    std::filesystem::path file_;   // as it was given
    std::filesystem::path target_; // the file that it stands for
    std::filesystem::path part_;   // empty when there is nothing to remove
    HeldFile held_;                // the part file
    int output_ = -1;              // standard output instead
    HeldFile beginning_;           // of what is written there
    std::size_t left_ = 0;         // how much more of it is kept
    bool force_ = false;
    std::shared_ptr<const FileSet> kept_;
};

} // namespace Qx::Media
