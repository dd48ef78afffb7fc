#include "tools/qxhost/media/read/RawReader.h"
#include "host/files/SystemError.h"

#include "tools/qxhost/media/files/Names.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Qx::Media {

namespace {

Error cannotRead(const std::filesystem::path& file, const std::string& why)
{
    return Error{"cannot read " + quotedInput(file) + ": " + why};
}

std::string frameText(const StoredLayout& layout, int width, int height)
{
    return "a frame of " + std::to_string(width) + "x" + std::to_string(height) + " " + layout.name +
           " has " + std::to_string(layout.frameBytes());
}

} // namespace

RawReader::RawReader(std::filesystem::path file, int descriptor, StoredLayout layout)
    : file_(std::move(file)),
      descriptor_(descriptor),
      layout_(std::move(layout)),
      files_(std::make_shared<FileSet>())
{
    files_->add(file_);
}

RawReader::~RawReader()
{
    if (descriptor_ != STDIN_FILENO) {
        ::close(descriptor_);
    }
}

Result<std::unique_ptr<RawReader>> RawReader::open(const std::filesystem::path& file,
                                                   const StoredLayout& layout, int width, int height)
{
    const bool isStandard = file == standardName;
    if (isStandard && ::isatty(STDIN_FILENO) == 1) {
        return cannotRead(file, "it is a terminal");
    }
    struct stat status = {};
    if (!isStandard && ::stat(file.c_str(), &status) != 0) {
        return cannotRead(file, errno == ENOENT ? "there is no such file" : Host::systemProblem(errno));
    }
    const bool isNamedPipe = S_ISFIFO(status.st_mode);
    // Only a pipe is waited for, as every reader of one waits for its writer.
    const int flags = O_RDONLY | O_CLOEXEC | (isNamedPipe ? 0 : O_NONBLOCK);
    const int descriptor = isStandard ? STDIN_FILENO : ::open(file.c_str(), flags);
    if (descriptor < 0) {
        return cannotRead(file, Host::systemProblem(errno));
    }
    std::unique_ptr<RawReader> reader(new RawReader(file, descriptor, layout));
    if (isStandard || isNamedPipe) {
        reader->isPipe_ = true;
        reader->sizeOfFrame_ = frameText(layout, width, height);
        if (isStandard) {
            reader->files_->add("/proc/self/fd/0");
        }
        reader->frame_.resize(layout.frameBytes());
        return reader;
    }
    if (::fstat(descriptor, &status) != 0) {
        return cannotRead(file, Host::systemProblem(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        return cannotRead(file, S_ISDIR(status.st_mode) ? "it is a directory" : "it is not a regular file");
    }
    const auto size = static_cast<std::int64_t>(status.st_size);
    const auto frameBytes = static_cast<std::int64_t>(layout.frameBytes());
    if (size < frameBytes) {
        return cannotRead(file, "the file has " + std::to_string(size) + " bytes, " +
                                    frameText(layout, width, height) +
                                    "; check --raw, --size and --row-bytes");
    }
    reader->frame_.resize(layout.frameBytes());
    reader->frames_ = size / frameBytes;
    if (size % frameBytes != 0) {
        reader->remainder_ =
            quoted(file) + ": the file has " + std::to_string(size) + " bytes, " +
            frameText(layout, width, height) + "; the last " + std::to_string(size % frameBytes) +
            " bytes are not a whole frame (cut short, or --raw, --size or --row-bytes is wrong)";
    }
    return reader;
}

std::shared_ptr<const std::vector<std::byte>> RawReader::readNext()
{
    auto frame = std::make_shared<std::vector<std::byte>>(frame_.size());
    std::size_t done = 0;
    while (done < frame->size()) {
        const ssize_t count = ::read(descriptor_, frame->data() + done, frame->size() - done);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            failure_ = cannotRead(file_, Host::systemProblem(errno)).text;
            return nullptr;
        }
        if (count == 0) {
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    if (done < frame->size()) {
        if (done > 0) {
            remainder_ = quotedInput(file_) + ": ends within a frame; " + sizeOfFrame_ +
                         " bytes, and the last one has " + std::to_string(done) +
                         " (cut short, or --raw, --size or --row-bytes is wrong)";
        }
        return nullptr;
    }
    return frame;
}

Status RawReader::read(std::int64_t frame, void* rows, std::ptrdiff_t pitch)
{
    std::size_t done = 0;
    const auto start = frame * static_cast<std::int64_t>(frame_.size());
    while (done < frame_.size()) {
        const ssize_t count = ::pread(descriptor_, frame_.data() + done, frame_.size() - done,
                                      start + static_cast<std::int64_t>(done));
        if (count == 0 || (count < 0 && errno != EINTR)) {
            return cannotRead(file_, count == 0 ? "it has become shorter" : Host::systemProblem(errno));
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    layout_.scatter(frame_.data(), rows, pitch);
    return {};
}

} // namespace Qx::Media
