#include "tools/qxhost/diagnose/Scratch.h"

#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Qx::Diagnosis {

namespace fs = std::filesystem;

namespace {

constexpr const char* beginning = "qxhost-diagnose-";

/// The directory's descriptor with the lock on it; -1 when somebody else has it, or it is not ours.
int lockOf(const fs::path& directory)
{
    const int file = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat status
    {
    };
    if (file >= 0 && ::fstat(file, &status) == 0 && status.st_uid == ::geteuid() &&
        ::flock(file, LOCK_EX | LOCK_NB) == 0) {
        return file;
    }
    if (file >= 0) {
        ::close(file);
    }
    return -1;
}

/// Between making a directory and locking it its owner has none.
bool isNew(const fs::path& directory)
{
    std::error_code error;
    const auto changed = fs::last_write_time(directory, error);
    return error || fs::file_time_type::clock::now() - changed < std::chrono::minutes(1);
}

void removeLeftOnes(const fs::path& place)
{
    std::error_code error;
    for (fs::directory_iterator entry(place, error), end; !error && entry != end; entry.increment(error)) {
        const fs::path& directory = entry->path();
        if (!directory.filename().native().starts_with(beginning) || isNew(directory)) {
            continue;
        }
        if (const int lock = lockOf(directory); lock >= 0) {
            std::error_code ignored;
            fs::remove_all(directory, ignored);
            ::close(lock);
        }
    }
}

} // namespace

Scratch::Scratch()
{
    std::error_code error;
    const fs::path place = fs::temp_directory_path(error);
    if (error) {
        return;
    }
    removeLeftOnes(place);
    std::string name = (place / beginning).string() + "XXXXXX";
    if (::mkdtemp(name.data()) != nullptr) {
        path_ = name;
        lock_ = lockOf(path_);
    }
}

Scratch::~Scratch()
{
    if (!path_.empty()) {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    if (lock_ >= 0) {
        ::close(lock_);
    }
}

} // namespace Qx::Diagnosis
