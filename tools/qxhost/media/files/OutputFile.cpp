#include "tools/qxhost/media/files/OutputFile.h"
#include "host/files/SystemError.h"

#include "host/files/WriteFile.h"
#include "tools/qxhost/media/files/Names.h"
#include "tools/qxhost/media/files/PartFiles.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Qx::Media {

namespace {

namespace fs = std::filesystem;

constexpr const char* existsText = "it already exists; give --force to replace it";

Error cannotWrite(const fs::path& file, const std::string& why)
{
    return Error{"cannot write " + quotedOutput(file) + ": " + why};
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
    const fs::file_status status = fs::status(file, error);
    if (!fs::exists(status)) {
        return {};
    }
    if (fs::is_directory(file, error)) {
        return cannotWrite(file, "it is a directory");
    }
    if (fs::is_fifo(status)) {
        return OutputFile::isPipe(file);
    }
    if (!fs::is_regular_file(status)) {
        return cannotWrite(file, "it is not a regular file; choose another name");
    }
    if (kept && kept->contains(file)) {
        return OutputFile::wouldReplaceInput(file, *kept);
    }
    if (!force) {
        return cannotWrite(file, existsText);
    }
    return {};
}

/// The file that a name stands for, which a symbolic link names; it need not exist.
Result<fs::path> followed(const fs::path& file)
{
    constexpr int mostLinks = 40; // as many as the kernel follows
    fs::path target = file;
    for (int links = 0; links <= mostLinks; ++links) {
        std::error_code error;
        if (!fs::is_symlink(target, error)) {
            return target;
        }
        const fs::path named = fs::read_symlink(target, error);
        if (error) {
            return cannotWrite(file, Host::systemProblem(error.value()));
        }
        target = target.parent_path() / named; // an absolute one replaces the whole path
    }
    return cannotWrite(file, Host::systemProblem(ELOOP));
}

} // namespace

Status OutputFile::writeWhole(const std::filesystem::path& file, std::string_view text, bool force,
                              std::shared_ptr<const FileSet> kept)
{
    auto out = create(file, force, std::move(kept));
    const Status written = out ? out.value().write(text.data(), text.size()) : Status(out.error());
    return written ? out.value().commit() : written;
}

OutputFile OutputFile::standardOutput(int descriptor, std::size_t kept)
{
    OutputFile output(standardName, false, nullptr);
    output.output_ = descriptor;
    output.beginning_ = HeldFile(::memfd_create("qxhost-beginning", MFD_CLOEXEC));
    output.left_ = output.beginning_.descriptor() >= 0 ? kept : 0;
    return output;
}

std::string OutputFile::name() const
{
    return isStandardOutput() ? quotedOutput(file_) : quoted(file_);
}

fs::path OutputFile::readable() const
{
    if (!isStandardOutput()) {
        return part_;
    }
    const int beginning = beginning_.descriptor();
    return beginning >= 0 ? "/proc/self/fd/" + std::to_string(beginning) : std::string();
}

void OutputFile::clearAbandoned(const fs::path& file)
{
    if (const auto target = followed(file)) {
        Media::clearAbandoned(target.value().parent_path());
    }
}

Error OutputFile::wouldReplaceInput(const fs::path& file, const FileSet& kept)
{
    return cannotWrite(file, kept.hasUnknown()
                                 ? "this run may read it: the input is a DASH manifest, which does not "
                                   "name its files; choose a name that does not exist"
                                 : "this run reads it; choose another name");
}

Error OutputFile::isPipe(const fs::path& file)
{
    return cannotWrite(file, "it is a pipe, and files are written aside and renamed; give - as the output "
                             "and send standard output there (> " +
                                 Host::printable(file.native()) + ")");
}

Result<OutputFile> OutputFile::create(const fs::path& file, bool force, std::shared_ptr<const FileSet> kept)
{
    auto target = followed(file);
    if (!target) {
        return target.error();
    }
    if (const Status status = Media::checkPlace(target.value(), force, kept.get()); !status) {
        return Error{status.text()};
    }
    constexpr int attempts = 100;
    for (int attempt = 1; attempt <= attempts; ++attempt) {
        fs::path part = unfinishedName(target.value());
        const PartFiles::Guard guard;
        // Not for writing only: network file systems would not lock it.
        HeldFile held(Host::uninterrupted(
            [&] { return ::open(part.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666); }));
        if (held.descriptor() < 0 && errno != EEXIST) {
            return cannotWrite(file, Host::systemProblem(errno));
        }
        if (held.descriptor() >= 0 && held.hold(part)) {
            PartFiles::remember(part);
            OutputFile output(file, force, std::move(kept));
            output.target_ = std::move(target.value());
            output.part_ = std::move(part);
            output.held_ = std::move(held);
            return output;
        }
    }
    return cannotWrite(file, "no unfinished file can be kept beside it; another program removes them");
}

OutputFile::OutputFile(fs::path file, bool force, std::shared_ptr<const FileSet> kept)
    : file_(std::move(file)), force_(force), kept_(std::move(kept))
{
}

OutputFile::OutputFile(OutputFile&& other) noexcept
    : file_(std::move(other.file_)),
      target_(std::move(other.target_)),
      part_(std::exchange(other.part_, {})),
      held_(std::move(other.held_)),
      output_(other.output_),
      beginning_(std::move(other.beginning_)),
      left_(other.left_),
      force_(other.force_),
      kept_(std::move(other.kept_))
{
}

OutputFile& OutputFile::operator=(OutputFile&& other) noexcept
{
    if (this != &other) {
        remove();
        file_ = std::move(other.file_);
        target_ = std::move(other.target_);
        part_ = std::exchange(other.part_, {});
        held_ = std::move(other.held_);
        output_ = other.output_;
        beginning_ = std::move(other.beginning_);
        left_ = other.left_;
        force_ = other.force_;
        kept_ = std::move(other.kept_);
    }
    return *this;
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
    const int error = Host::writeAll(isStandardOutput() ? output_ : held_.descriptor(), bytes, size);
    if (error == EPIPE && isStandardOutput()) {
        return cannotWrite(file_, "the program that reads it has ended, or closed it");
    }
    if (error != 0) {
        return cannotWrite(file_, Host::systemProblem(error));
    }
    if (const std::size_t part = std::min(size, left_); part > 0) {
        // Without it, what the container does not hold stays unsaid.
        left_ = Host::writeAll(beginning_.descriptor(), bytes, part) == 0 ? left_ - part : 0;
    }
    return {};
}

Status OutputFile::commit(DirectorySync directory)
{
    if (isStandardOutput()) {
        return {};
    }
    const auto rename = [&](unsigned flags) {
        return Host::syncAndRename(held_.descriptor(), AT_FDCWD, part_.c_str(), target_.c_str(), flags);
    };
    int error = force_ ? EINVAL : rename(RENAME_NOREPLACE);
    if (error == EEXIST) {
        return cannotWrite(file_, existsText);
    }
    // With force, or where the file system cannot refuse to replace.
    if (error == EINVAL || error == ENOSYS) {
        if (Status status = checkPlace(target_, force_, kept_.get()); !status) {
            return status;
        }
        error = rename(0);
    }
    if (error != 0) {
        return cannotWrite(file_, Host::systemProblem(error));
    }
    PartFiles::forget(part_);
    part_.clear();
    held_ = HeldFile(); // no earlier: another run would remove the file
    return directory == DirectorySync::Now ? syncDirectory(file_) : Status();
}

Status OutputFile::syncDirectory(const fs::path& file)
{
    const auto target = followed(file);
    const int error = target ? Host::syncDirectoryOf(target.value()) : 0; // a link that changed meanwhile
    return error == 0 ? Status()
                      : cannotWrite(file, "the file is whole, but its directory could not be synced: " +
                                              Host::systemProblem(error));
}

Status OutputFile::retarget(const fs::path& file)
{
    auto target = followed(file);
    if (!target) {
        return target.error();
    }
    if (Status status = checkPlace(target.value(), force_, kept_.get()); !status) {
        return status;
    }
    file_ = file;
    target_ = std::move(target.value());
    return {};
}

} // namespace Qx::Media
