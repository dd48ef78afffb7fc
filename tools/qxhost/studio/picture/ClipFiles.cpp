#include "tools/qxhost/studio/picture/ClipFiles.h"

#include "tools/qxhost/media/read/Sequence.h"
#include "tools/qxhost/studio/picture/FileStamp.h"

#include <algorithm>
#include <cerrno>
#include <fmt/format.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Qx::Program::Studio {

namespace fs = std::filesystem;

namespace {

/// Files that one look goes through, so that it takes little time.
constexpr std::size_t mostAtOnce = 1000;

/// What is wrong with a file, for people; empty if it can be read.
std::string faultOf(const fs::path& file)
{
    struct stat status = {};
    if (::stat(file.c_str(), &status) != 0) {
        return errno == ENOENT || errno == ENOTDIR
                   ? "is gone"
                   : "cannot be read: " + std::generic_category().message(errno);
    }
    if (!S_ISREG(status.st_mode)) {
        return "is no file any more";
    }
    if (status.st_size == 0) {
        return "is empty";
    }
    if (::access(file.c_str(), R_OK) != 0) {
        return "cannot be read: " + std::generic_category().message(errno);
    }
    return {};
}

} // namespace

ClipFiles::ClipFiles(const fs::path& clip) : clip_(clip), names_(clip)
{
    std::size_t count = 0;
    std::error_code error;
    if (fs::is_regular_file(clip, error)) {
        count = 1;
    } else if (const auto sequence = Media::sequenceOf(clip, {}, Media::MissingPictures::end);
               sequence && sequence.value()) {
        first_ = sequence.value()->first();
        count = static_cast<std::size_t>(sequence.value()->last() - sequence.value()->first() + 1);
    }
    files_.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t now = stampOf(fileOf(static_cast<std::int64_t>(i)));
        files_[i] = {now, now, now};
    }
}

fs::path ClipFiles::fileOf(std::int64_t index) const
{
    return first_ ? names_.name(static_cast<long>(*first_ + index)) : clip_;
}

/// Of a file, all frames have the same.
std::size_t ClipFiles::placeOf(std::int64_t index) const
{
    return first_ ? static_cast<std::size_t>(index) : 0;
}

bool ClipFiles::isLost(std::int64_t index)
{
    const std::size_t place = placeOf(index);
    if (place >= files_.size() || faultOf(fileOf(index)).empty()) {
        return false;
    }
    if (lost_.insert(place).second) {
        files_[place].seen = 0;
    }
    return true;
}

bool ClipFiles::isOther(std::int64_t index) const
{
    const std::size_t place = placeOf(index);
    return place < files_.size() && stampOf(fileOf(index)) != files_[place].opened;
}

bool ClipFiles::lookAt(std::size_t place)
{
    File& file = files_[place];
    const auto index = static_cast<std::int64_t>(place);
    if (isLost(index)) {
        return false;
    }
    const std::uint64_t now = stampOf(fileOf(index));
    if (std::exchange(file.seen, now) != now) {
        return false; // it is being written, perhaps
    }
    const bool hasReturned = lost_.erase(place) != 0;
    return std::exchange(file.read, now) != now || hasReturned;
}

bool ClipFiles::look()
{
    std::set<std::size_t> places;
    for (auto lost = lost_.begin(); lost != lost_.end() && places.size() < mostAtOnce; ++lost) {
        places.insert(*lost);
    }
    for (std::size_t i = 0; i < std::min(mostAtOnce, files_.size()); ++i) {
        next_ = next_ < files_.size() ? next_ : 0;
        places.insert(next_++);
    }
    bool isOther = false;
    for (const std::size_t place : places) {
        isOther = lookAt(place) || isOther;
    }
    return isOther;
}

std::string ClipFiles::losses() const
{
    if (lost_.empty()) {
        return {};
    }
    const fs::path first = fileOf(static_cast<std::int64_t>(*lost_.begin()));
    const std::string fault = faultOf(first);
    const std::size_t others = lost_.size() - 1;
    return fmt::format("{}: {}{}; put {}, and the studio goes on", first.string(),
                       fault.empty() ? "is being written" : fault,
                       others == 0   ? ""
                       : others == 1 ? " (and 1 more picture)"
                                     : fmt::format(" (and {} more pictures)", others),
                       others == 0 ? "it back as it was" : "them back as they were");
}

} // namespace Qx::Program::Studio
