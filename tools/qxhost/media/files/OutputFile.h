#pragma once

#include "tools/qxhost/media/Result.h"
#include "tools/qxhost/media/files/FileSet.h"

#include <cstddef>
#include <filesystem>
#include <memory>

namespace Qx::Media {

/// A file in the making: written as ".NAME.part-PID" beside its place, moved there when complete. Destroyed
/// before that, it leaves nothing behind.
class OutputFile
{
public:
    /// Makes the part file, empty. Fails when the file exists and force is off, when the place is no
    /// directory or may not be written to, or when the file exists and is no regular file or one of those
    /// to keep (null for none).
    static Result<OutputFile> create(const std::filesystem::path& file, bool force,
                                     std::shared_ptr<const FileSet> kept = nullptr);

    /// What is said when a file to keep would be replaced.
    static Error wouldReplaceInput(const std::filesystem::path& file);

    OutputFile(OutputFile&& other) noexcept;
    OutputFile& operator=(OutputFile&& other) noexcept;
    ~OutputFile();

    /// Where to write.
    const std::filesystem::path& part() const { return part_; }
    const std::filesystem::path& file() const { return file_; }

    /// Writes the whole content at once.
    Status write(const void* bytes, std::size_t size);

    /// Moves the part to its place; with force off it still replaces nothing that has appeared since.
    Status commit();

    /// The place is to be another one, under the same rules.
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
