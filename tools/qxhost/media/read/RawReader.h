#pragma once

#include "tools/qxhost/media/Result.h"
#include "tools/qxhost/media/StoredLayout.h"
#include "tools/qxhost/media/files/FileSet.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Qx::Media {

/// Reads frames from a file that holds nothing else, in any order, or from a pipe, standard input ("-") or
/// one that has a name, one after the other. One thread at a time.
class RawReader
{
public:
    /// Fails if there is no such file, if it cannot be read, or if it does not hold one whole frame. Blocks
    /// until a pipe that has a name is written to.
    static Result<std::unique_ptr<RawReader>> open(const std::filesystem::path& file,
                                                   const StoredLayout& layout, int width, int height);
    ~RawReader();
    RawReader(const RawReader&) = delete;
    RawReader& operator=(const RawReader&) = delete;

    /// Whole frames in the file; 0 for a pipe, which shows how many when it ends.
    std::int64_t frameCount() const { return frames_; }
    bool isPipe() const { return isPipe_; }

    /// The next frame of a pipe, for scatter(); empty at its end, and after a failure. remainder()
    /// and failure() are then complete.
    std::shared_ptr<const std::vector<std::byte>> readNext();

    /// Fills `rows` with a frame that readNext() gave. Any thread.
    void scatter(const std::vector<std::byte>& frame, void* rows, std::ptrdiff_t pitch) const
    {
        layout_.scatter(frame.data(), rows, pitch);
    }

    /// Why a pipe could not be read to its end; empty if it could.
    const std::string& failure() const { return failure_; }

    /// A description of what follows the last whole frame; empty if nothing does.
    const std::string& remainder() const { return remainder_; }

    std::shared_ptr<FileSet> files() const { return files_; }

    /// Fills `rows` with that frame (from 0), each row `pitch` bytes from the last.
    Status read(std::int64_t frame, void* rows, std::ptrdiff_t pitch);

private:
    RawReader(std::filesystem::path file, int descriptor, StoredLayout layout);

    const std::filesystem::path file_;
    const int descriptor_;
    const StoredLayout layout_;
    std::vector<std::byte> frame_;
    std::int64_t frames_ = 0;
    std::string remainder_;
    std::string sizeOfFrame_; // for messages
    std::string failure_;
    bool isPipe_ = false;
    std::shared_ptr<FileSet> files_;
};

} // namespace Qx::Media
