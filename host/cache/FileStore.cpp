#include "host/cache/FileStore.h"
#include "host/files/SystemError.h"

#include "host/files/ReadFile.h"
#include "host/files/WriteFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/random.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Qx::Host::Cache {
namespace {

constexpr std::size_t mostEntryBytes = 256U << 20U;

/// The age at which a file being written counts as abandoned.
constexpr std::string_view unfinishedEnding = ".part";
constexpr std::int64_t abandonedAfterSeconds = 3600;

constexpr std::array<std::string_view, 2> endings{".effect", ".pipelines"};

std::string_view endingOf(Kind kind)
{
    return endings.at(static_cast<std::size_t>(kind));
}

std::string nameOf(Kind kind, const Digest& key)
{
    return hexadecimal(key) + std::string(endingOf(kind));
}

bool isEntry(std::string_view name, Kind kind)
{
    constexpr std::size_t digits = 2 * std::tuple_size_v<Digest>;
    return name.size() == digits + endingOf(kind).size() && name.ends_with(endingOf(kind)) &&
           name.find_first_not_of("0123456789abcdef") >= digits;
}

bool isEntry(std::string_view name)
{
    return isEntry(name, Kind::Effect) || isEntry(name, Kind::Pipelines);
}

/// "ENTRY.RANDOM.part".
bool isUnfinished(std::string_view name)
{
    if (!name.ends_with(unfinishedEnding)) {
        return false;
    }
    name.remove_suffix(unfinishedEnding.size());
    return isEntry(name.substr(0, name.rfind('.')));
}

std::string systemError(int number)
{
    return systemProblem(number);
}

/// Whether only this user can have created or changed it.
bool isOurs(const struct stat& status)
{
    return status.st_uid == geteuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// Opens the store's directory. Not good, with the reason in `problem`, if it cannot be used; without a
/// reason if it does not exist.
Descriptor openDirectory(const std::filesystem::path& path, std::string& problem)
{
    Descriptor directory(
        uninterrupted([&] { return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (!directory) {
        problem = errno == ENOENT ? std::string() : systemError(errno);
        return directory;
    }
    struct stat status
    {
    };
    if (fstat(directory.number(), &status) != 0) {
        problem = systemError(errno);
        return Descriptor(-1);
    }
    if (!isOurs(status)) {
        problem = "it belongs to another user, or others may write to it";
        return Descriptor(-1);
    }
    return directory;
}

/// The error number of writing a file in the directory, 0 if that works: a full disk shows only on writing.
int writingError(const std::filesystem::path& directory)
{
    if (euidaccess(directory.c_str(), W_OK | X_OK) != 0) {
        return errno;
    }
    const Descriptor file(uninterrupted(
        [&] { return open(directory.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, S_IRUSR | S_IWUSR); }));
    if (!file) {
        // Some file systems do not support unnamed files.
        return errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL ? 0 : errno;
    }
    constexpr std::array<std::byte, 4096> block{};
    return writeAll(file.number(), block.data(), block.size());
}

struct Listed
{
    std::string name;
    std::uint64_t bytes = 0;
    timespec used{};
};

/// The regular files of the directory whose names `wanted` accepts.
template <class Wanted>
std::vector<Listed> list(const Descriptor& directory, Wanted&& wanted)
{
    std::vector<Listed> found;
    // The stream closes its descriptor.
    const int own =
        uninterrupted([&] { return openat(directory.number(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    DIR* const stream = own >= 0 ? fdopendir(own) : nullptr;
    if (stream == nullptr) {
        Descriptor(own).close();
        return found;
    }
    const auto close = [](DIR* open) { closedir(open); };
    const std::unique_ptr<DIR, decltype(close)> closer(stream, close);
    while (const dirent* entry = readdir(stream)) { // NOLINT(concurrency-mt-unsafe): a stream of its own
        struct stat status
        {
        };
        if (wanted(std::string_view(entry->d_name)) &&
            fstatat(directory.number(), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            !S_ISDIR(status.st_mode)) {
            found.push_back({entry->d_name, static_cast<std::uint64_t>(status.st_size), status.st_mtim});
        }
    }
    return found;
}

} // namespace

FileStore::FileStore(std::filesystem::path directory, std::uint64_t mostBytes, Complain complain)
    : directory_(std::move(directory)), mostBytes_(mostBytes), complain_(std::move(complain))
{
}

void FileStore::complainOnce(const std::string& text)
{
    if (complain_ && !complained_.exchange(true)) {
        complain_("The cache in " + directory_.string() + " cannot be used fully: " + text);
    }
}

std::optional<std::vector<std::byte>> FileStore::load(Kind kind, const Digest& key)
{
    std::string problem;
    const Descriptor directory = openDirectory(directory_, problem);
    if (!directory) {
        if (!problem.empty()) {
            complainOnce(problem);
        }
        return std::nullopt;
    }
    const std::string name = nameOf(kind, key);
    struct stat status
    {
    };
    const Descriptor file = openPlainFile(directory.number(), name.c_str(), O_NOFOLLOW, status);
    if (!file) {
        return std::nullopt;
    }
    if (!isOurs(status)) {
        complainOnce("the entry " + name + " belongs to another user, or others may write to it");
        return std::nullopt;
    }
    std::optional<std::vector<std::byte>> bytes = readFile(file, mostEntryBytes);
    const Condition condition = bytes ? unwrapRecord(*bytes, kind, key) : Condition::Damaged;
    if (condition == Condition::Whole) {
        // Marks it as used. Without permission entries are removed in the order of their creation.
        static_cast<void>(futimens(file.number(), nullptr));
        return bytes;
    }
    static_cast<void>(unlinkat(directory.number(), name.c_str(), 0));
    if (condition == Condition::Damaged) {
        complainOnce("the entry " + name + " is damaged; it is created again");
    }
    return std::nullopt;
}

std::string FileStore::write(Kind kind, const Digest& key, std::span<const std::byte> content)
{
    if (const int error = makePrivateDirectories(directory_); error != 0) {
        return systemError(error);
    }
    std::string problem;
    const Descriptor directory = openDirectory(directory_, problem);
    if (!directory) {
        return problem.empty() ? systemError(ENOENT) : problem;
    }
    const std::string name = nameOf(kind, key);
    const std::vector<std::byte> record = writeRecord(kind, key, content); // first: it may throw
    // Not the process id: containers that share the directory have the same ones.
    std::uint64_t random = 0;
    if (getrandom(&random, sizeof random, GRND_NONBLOCK) < 0) {
        return systemError(errno);
    }
    const std::string unfinished = name + '.' + std::to_string(random) + std::string(unfinishedEnding);
    const Descriptor file(uninterrupted([&] {
        return openat(directory.number(), unfinished.c_str(),
                      O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
    }));
    if (!file) {
        return systemError(errno);
    }
    int error = writeAll(file.number(), record.data(), record.size());
    if (error == 0) {
        error = syncAndRename(file.number(), directory.number(), unfinished.c_str(), name.c_str());
    }
    if (error != 0) {
        static_cast<void>(unlinkat(directory.number(), unfinished.c_str(), 0));
    } else {
        error = sync(directory.number());
    }
    // A missing entry is no fault: another process has cleared the store.
    return error == 0 || error == ENOENT ? std::string() : systemError(error);
}

void FileStore::store(Kind kind, const Digest& key, std::span<const std::byte> content)
{
    const std::size_t bytes = content.size() + recordOverhead();
    if (bytes > std::min<std::uint64_t>(mostBytes_, mostEntryBytes)) {
        return;
    }
    if (const std::string problem = write(kind, key, content); !problem.empty()) {
        complainOnce("it cannot be written: " + problem);
        return;
    }
    shrink();
}

void FileStore::shrink()
{
    std::string problem;
    const Descriptor directory = openDirectory(directory_, problem);
    if (!directory) {
        return;
    }
    std::vector<Listed> files =
        list(directory, [](std::string_view name) { return isEntry(name) || isUnfinished(name); });
    const auto older = [](const Listed& a, const Listed& b) {
        return std::pair(a.used.tv_sec, a.used.tv_nsec) < std::pair(b.used.tv_sec, b.used.tv_nsec);
    };
    std::sort(files.begin(), files.end(), older);
    std::uint64_t bytes = 0;
    for (const Listed& file : files) {
        bytes += file.bytes;
    }
    const std::int64_t now =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    for (const Listed& file : files) {
        const bool unfinished = isUnfinished(file.name);
        const bool abandoned = unfinished && file.used.tv_sec < now - abandonedAfterSeconds;
        if ((abandoned || (bytes > mostBytes_ && !unfinished)) &&
            unlinkat(directory.number(), file.name.c_str(), 0) == 0) {
            bytes -= file.bytes;
        }
    }
}

FileStore::Usage FileStore::usage(Kind kind) const
{
    std::string problem;
    const Descriptor directory = openDirectory(directory_, problem);
    Usage usage;
    if (directory) {
        for (const Listed& file :
             list(directory, [kind](std::string_view name) { return isEntry(name, kind); })) {
            ++usage.entries;
            usage.bytes += file.bytes;
        }
    }
    return usage;
}

std::string FileStore::problem() const
{
    std::string problem;
    const Descriptor directory = openDirectory(directory_, problem);
    if (!problem.empty()) {
        return problem;
    }
    std::filesystem::path nearest = directory_;
    std::error_code error;
    while (nearest.has_relative_path() && !std::filesystem::exists(nearest, error)) {
        nearest = nearest.parent_path();
    }
    const int failure = writingError(nearest);
    return failure == 0 ? std::string() : "it cannot be written: " + systemError(failure);
}

std::string FileStore::clear()
{
    std::string problem;
    const Descriptor directory = openDirectory(directory_, problem);
    if (!directory) {
        return problem;
    }
    for (const Listed& file :
         list(directory, [](std::string_view name) { return isEntry(name) || isUnfinished(name); })) {
        if (unlinkat(directory.number(), file.name.c_str(), 0) != 0 && errno != ENOENT) {
            problem = file.name + ": " + systemError(errno);
        }
    }
    return problem;
}

} // namespace Qx::Host::Cache
