#pragma once

#include "tools/qxhost/media/files/NumberedNames.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Qx::Program::Studio {

/// The files that a clip is read from: one, or the pictures of a numbered sequence. Tells when they have
/// changed, are gone or cannot be read. None are watched of a clip that is no file, such as a pipe. One
/// thread at a time.
class ClipFiles
{
public:
    /// Takes them as they are now.
    explicit ClipFiles(const std::filesystem::path& clip);

    bool isSequence() const { return first_.has_value(); }
    /// The number in the name of a sequence's first picture; empty for a file.
    std::optional<std::int64_t> firstNumber() const { return first_; }
    /// Pictures of the sequence, or 1 for a file, or 0 if none are watched.
    std::int64_t count() const { return static_cast<std::int64_t>(files_.size()); }

    /// The file of the frame of that index.
    std::filesystem::path fileOf(std::int64_t index) const;

    /// Whether that file cannot be read. It is one of losses() then, until look() says that it has returned.
    bool isLost(std::int64_t index);

    /// Whether that file is another than when the clip was opened, or was written since.
    bool isOther(std::int64_t index) const;

    /// Looks at the files, at some of them if there are many. Returns whether any has been replaced or
    /// written, or has returned, since the last look; while it is being written it has not. To be asked now
    /// and then.
    bool look();

    /// What cannot be read of what was looked at, and what to do, for people; empty if everything can.
    std::string losses() const;

private:
    struct File
    {
        std::uint64_t opened = 0; ///< its stamp when the clip was opened
        std::uint64_t read = 0;   ///< that it had when its frames were read last
        std::uint64_t seen = 0;   ///< that it had when it was looked at last
    };

    std::size_t placeOf(std::int64_t index) const;
    bool lookAt(std::size_t place);

    std::filesystem::path clip_;
    Media::NumberedNames names_;
    std::optional<std::int64_t> first_;
    std::vector<File> files_;
    std::set<std::size_t> lost_;
    std::size_t next_ = 0; ///< to be looked at next
};

} // namespace Qx::Program::Studio
