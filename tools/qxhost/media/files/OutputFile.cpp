#include "tools/qxhost/media/files/OutputFile.h"

#include "host/files/ReadFile.h"
#include "host/files/WriteFile.h"
#include "tools/qxhost/media/files/Names.h"
#include "tools/qxhost/media/files/PartFiles.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Qx::Media {

namespace {

namespace fs = std::filesystem;

constexpr const char* existsText = "it already exists; give --force to replace it";

std::string systemText(int error)
{
    return std::generic_category().message(error);
}

Error cannotWrite(const fs::path& file, const std::string& why)
{
    return Error{"cannot write " + quoted(file) + ": " + why};
}

Status checkPlace(const fs::path& file, bool force, const FileSet* kept)
{
    std::error_code error;
    if (!file.has_filename()) {
        return cannotWrite(file, "it names a directory, not a file");
    }
    const fs::path directory = file.has_parent_path() ? file.parent_path() : fs::path(".");
    if (!fs::is_directory(directory, error)) {
        return cannotWrite(file, "there is no directory " + quoted(directory));
    }
    const fs::file_status status = fs::symlink_status(file, error);
    if (!fs::exists(status)) {
        return {};
    }
    if (fs::is_directory(file, error)) {
        return cannotWrite(file, "it is a directory");
    }
    if (!fs::is_regular_file(status) && !fs::is_symlink(status)) {
        return cannotWrite(file, "it is not a regular file");
    }
    if (kept && kept->contains(file)) {
        return OutputFile::wouldReplaceInput(file);
    }
    if (!force) {
        return cannotWrite(file, existsText);
    }
    return {};
}

fs::path partName(const fs::path& file, int attempt)
{
    // Room for the affixes within the 255 bytes that a name may have.
    constexpr std::size_t longestName = 220;
    std::string name(1, '.');
    name += file.filename().native().substr(0, longestName);
    name += ".part-";
    name += std::to_string(::getpid());
    if (attempt > 1) {
        name += '-';
        name += std::to_string(attempt);
    }
    return file.parent_path() / name;
}

} // namespace

Error OutputFile::wouldReplaceInput(const fs::path& file)
{
    return cannotWrite(file, "it belongs to the input itself; choose another name");
}

Result<OutputFile> OutputFile::create(const fs::path& file, bool force, std::shared_ptr<const FileSet> kept)
{
    if (const Status status = Media::checkPlace(file, force, kept.get()); !status) {
        return Error{status.text()};
    }
    constexpr int attempts = 100;
    for (int attempt = 1; attempt <= attempts; ++attempt) {
        const fs::path part = partName(file, attempt);
        const PartFiles::Guard guard;
        const int descriptor = Host::uninterrupted(
            [&] { return ::open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666); });
        if (descriptor >= 0) {
            PartFiles::remember(part);
            ::close(descriptor);
            return OutputFile(file, part, force, std::move(kept));
        }
        if (errno != EEXIST) {
            return cannotWrite(file, systemText(errno));
        }
    }
    return cannotWrite(file, "too many unfinished files beside it (" + quoted(partName(file, 1)) + " ...)");
}

OutputFile::OutputFile(fs::path file, fs::path part, bool force, std::shared_ptr<const FileSet> kept)
    : file_(std::move(file)), part_(std::move(part)), force_(force), kept_(std::move(kept))
{
}

OutputFile::OutputFile(OutputFile&& other) noexcept
    : file_(std::move(other.file_)),
      part_(std::exchange(other.part_, {})),
      force_(other.force_),
      kept_(std::move(other.kept_))
{
}

OutputFile& OutputFile::operator=(OutputFile&& other) noexcept
{
    if (this != &other) {
        remove();
        file_ = std::move(other.file_);
        part_ = std::exchange(other.part_, {});
        force_ = other.force_;
        kept_ = std::move(other.kept_);
    }
    return *this;
}

Status OutputFile::checkPlace(const fs::path& file) const
{
    return Media::checkPlace(file, force_, kept_.get());
}

OutputFile::~OutputFile()
{
    remove();
}

void OutputFile::remove() noexcept
{
    if (!part_.empty()) {
        ::unlink(part_.c_str());
        PartFiles::forget(part_);
    }
}

Status OutputFile::write(const void* bytes, std::size_t size)
{
    const Host::Descriptor descriptor(
        Host::uninterrupted([&] { return ::open(part_.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC); }));
    const int error = descriptor ? Host::writeAll(descriptor.number(), bytes, size) : errno;
    return error == 0 ? Status() : cannotWrite(file_, systemText(error));
}

Status OutputFile::commit(DirectorySync directory)
{
    const Host::Descriptor part(
        Host::uninterrupted([&] { return ::open(part_.c_str(), O_RDONLY | O_CLOEXEC); }));
    if (!part) {
        return cannotWrite(file_, systemText(errno));
    }
    const auto rename = [&](unsigned flags) {
        return Host::syncAndRename(part.number(), AT_FDCWD, part_.c_str(), file_.c_str(), flags);
    };
    int error = force_ ? EINVAL : rename(RENAME_NOREPLACE);
    if (error == EEXIST) {
        return cannotWrite(file_, existsText);
    }
    // With force, or where the file system cannot refuse to replace.
    if (error == EINVAL || error == ENOSYS) {
        if (Status status = checkPlace(file_); !status) {
            return status;
        }
        error = rename(0);
    }
    if (error != 0) {
        return cannotWrite(file_, systemText(error));
    }
    PartFiles::forget(part_);
    part_.clear();
    return directory == DirectorySync::Now ? syncDirectory(file_) : Status();
}

Status OutputFile::syncDirectory(const fs::path& file)
{
    const int error = Host::syncDirectoryOf(file);
    return error == 0
               ? Status()
               : cannotWrite(file, systemText(error) + " while its directory was synced; the file is whole");
}

Status OutputFile::retarget(const fs::path& file)
{
    if (Status status = checkPlace(file); !status) {
        return status;
    }
    file_ = file;
    return {};
}

} // namespace Qx::Media
