#pragma once

#include "tools/qxhost/media/Result.h"
#include "tools/qxhost/media/files/FileSet.h"

#include <cstddef>
#include <filesystem>
#include <memory>

namespace Qx::Media {

/// An unfinished output file: written as ".NAME.part-PID" in the destination's directory and renamed when
/// complete. The destructor removes it if it is not complete.
class OutputFile
{
public:
    /// Creates the part file, empty. Fails if the file exists and force is off, if its directory does not
    /// exist or is not writable, or if the file exists and is not a regular file or is one of those to keep
    /// (null for none).
    static Result<OutputFile> create(const std::filesystem::path& file, bool force,
                                     std::shared_ptr<const FileSet> kept = nullptr);

    /// The error if a file to keep would be replaced.
    static Error wouldReplaceInput(const std::filesystem::path& file);

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

    /// Writes the whole content at once.
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
    OutputFile(std::filesystem::path file, std::filesystem::path part, bool force,
               std::shared_ptr<const FileSet> kept);
    Status checkPlace(const std::filesystem::path& file) const;
    void remove() noexcept;

    std::filesystem::path file_;
    std::filesystem::path part_; // empty when there is nothing to remove
    bool force_ = false;
    std::shared_ptr<const FileSet> kept_;
};

} // namespace Qx::Media
