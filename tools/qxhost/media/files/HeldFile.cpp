#include "tools/qxhost/media/files/HeldFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Qx::Media {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view partMark = ".part-";
constexpr std::size_t systemDigits = 8;
constexpr std::size_t randomDigits = 16;

bool isHexDigit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}

/// The running kernel, the same in all its containers, in hexadecimal digits.
const std::string& systemWord()
{
    static const std::string word = [] {
        std::string id;
        std::ifstream("/proc/sys/kernel/random/boot_id") >> id;
        id.erase(std::remove_if(id.begin(), id.end(), [](char c) { return !isHexDigit(c); }), id.end());
        id.resize(systemDigits, '0');
        return id;
    }();
    return word;
}

std::string randomWord()
{
    std::random_device source;
    const std::uint64_t number = (std::uint64_t{source()} << 32U) | source();
    std::array<char, randomDigits + 1> digits{};
    std::snprintf(digits.data(), digits.size(), "%016llx", static_cast<unsigned long long>(number));
    return digits.data();
}

/// The SYSTEM of an unfinished file's name; empty for other files.
std::string systemOf(const std::string& name)
{
    constexpr std::size_t tail = partMark.size() + systemDigits + 1 + randomDigits;
    if (name.size() <= tail || name.front() != '.') {
        return {};
    }
    const std::string_view end = std::string_view(name).substr(name.size() - tail);
    const std::string_view system = end.substr(partMark.size(), systemDigits);
    const std::string_view random = end.substr(tail - randomDigits);
    const bool matches = end.substr(0, partMark.size()) == partMark &&
                         end[partMark.size() + systemDigits] == '-' &&
                         std::all_of(system.begin(), system.end(), isHexDigit) &&
                         std::all_of(random.begin(), random.end(), isHexDigit);
    return matches ? std::string(system) : std::string();
}

/// Now, by the clock that gives files their times: on shared storage it is not this machine's. Empty if
/// nothing can be written.
std::optional<std::time_t> timeOfNewFile(const fs::path& directory)
{
    const fs::path name = unfinishedName(directory / "time");
    constexpr int mode = 0600;
    const HeldFile file(::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    struct stat status = {};
    const bool isKnown = file.descriptor() >= 0 && ::fstat(file.descriptor(), &status) == 0;
    ::unlink(name.c_str());
    return isKnown ? std::optional(status.st_mtime) : std::nullopt;
}

bool isDayOld(const fs::path& file, const struct stat& status)
{
    constexpr std::time_t day = 24 * 60 * 60;
    const auto now = timeOfNewFile(file.parent_path());
    return now && status.st_mtime <= *now - day;
}

void clearIfAbandoned(const fs::path& file, const std::string& system)
{
    std::error_code ignored;
    const bool isFolder = fs::is_directory(fs::symlink_status(file, ignored));
    const fs::path locked = isFolder ? file / folderLock : file;
    // Open for writing: network file systems lock exclusively only such files.
    const HeldFile part(::open(locked.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status = {};
    if (part.descriptor() < 0 || ::fstat(part.descriptor(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return;
    }
    if (system != systemWord() && !isDayOld(file, status)) {
        return;
    }
    if (::flock(part.descriptor(), LOCK_EX | LOCK_NB) == 0) {
        fs::remove_all(file, ignored);
    }
}

} // namespace

fs::path unfinishedName(const fs::path& file)
{
    // Room for the affixes within the 255 bytes that a name may have.
    constexpr std::size_t longestName = 220;
    std::string name(1, '.');
    name += file.filename().native().substr(0, longestName);
    name += partMark;
    name += systemWord() + '-' + randomWord();
    return file.parent_path() / name;
}

HeldFile::~HeldFile()
{
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
}

bool HeldFile::hold(const fs::path& file) const
{
    if (::flock(descriptor_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        return false;
    }
    // Another run may have removed it between its creation and the lock.
    struct stat ours = {};
    struct stat named = {};
    return ::fstat(descriptor_, &ours) == 0 && ::stat(file.c_str(), &named) == 0 &&
           ours.st_dev == named.st_dev && ours.st_ino == named.st_ino;
}

void clearAbandoned(const fs::path& directory)
{
    std::error_code error;
    for (fs::directory_iterator entry(directory.empty() ? "." : directory, error), end;
         !error && entry != end; entry.increment(error)) {
        if (const std::string system = systemOf(entry->path().filename().native()); !system.empty()) {
            clearIfAbandoned(entry->path(), system);
        }
    }
}

} // namespace Qx::Media
