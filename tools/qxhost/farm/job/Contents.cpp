#include "tools/qxhost/farm/job/Contents.h"

#include "host/files/ReadFile.h"
#include "host/files/SystemError.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/media/files/Names.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <fstream>
#include <nettle/sha2.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Qx::Program::Farm {

namespace {

namespace fs = std::filesystem;

/// Files of up to this many bytes are always read.
constexpr std::uintmax_t smallFile = std::uintmax_t{16} << 20U;

fs::path stampFile(const Job& job)
{
    return job.folder / "stamps.json";
}

/// What changes with a file's content, unless somebody takes pains; empty if there is no such file. All
/// machines see the same, whatever their clocks say.
std::string stampOf(const fs::path& file)
{
    struct stat status = {};
    if (::stat(file.c_str(), &status) != 0) {
        return {};
    }
    return fmt::format("{} {}.{:09} {}.{:09}", status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec,
                       status.st_ctim.tv_sec, status.st_ctim.tv_nsec);
}

Json readStamps(const Job& job)
{
    std::ifstream stream(stampFile(job), std::ios::binary);
    Json stamps = Json::parse(stream, nullptr, false);
    return stamps.is_object() ? stamps : Json::object();
}

bool hasStamp(const Json& stamps, const HeldFile& file, const std::string& stamp)
{
    const auto found = stamps.find(file.path.native());
    return found != stamps.end() && found->is_string() &&
           found->get<std::string>() == file.digest + " " + stamp;
}

[[noreturn]] void refuseContent(const Job& job, const HeldFile& file, const std::string& problem)
{
    const std::string origin = file.from.empty() ? "" : " (from " + file.from + ")";
    throw Failure(ExitCode::input,
                  fmt::format("{}: the {} {}{} {}; bring back what the job was made with, or make the job "
                              "anew with 'qxhost farm make'",
                              job.manifest().string(), file.kind, Media::quoted(file.path), origin, problem));
}

} // namespace

std::string digestOf(const fs::path& file, const std::atomic<bool>* stopped)
{
    struct stat status = {};
    const Host::Descriptor opened = Host::openPlainFile(AT_FDCWD, file.c_str(), O_CLOEXEC, status);
    if (!opened) {
        throw Failure(ExitCode::input,
                      "cannot read " + Media::quoted(file) + ": " + Host::systemProblem(errno));
    }
    sha256_ctx context;
    sha256_init(&context);
    std::vector<std::uint8_t> part(std::size_t{1} << 20U);
    for (;;) {
        const ssize_t count = ::read(opened.number(), part.data(), part.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            throw Failure(ExitCode::input,
                          "cannot read " + Media::quoted(file) + ": " + Host::systemProblem(errno));
        }
        if (count == 0) {
            break;
        }
        if (stopped != nullptr && *stopped) {
            throw Failure(ExitCode::interrupted, "interrupted while " + Media::quoted(file) + " was read");
        }
        sha256_update(&context, static_cast<std::size_t>(count), part.data());
    }
    std::array<std::uint8_t, SHA256_DIGEST_SIZE> digest{};
    sha256_digest(&context, digest.size(), digest.data());
    std::string text;
    for (const std::uint8_t byte : digest) {
        text += fmt::format("{:02x}", byte);
    }
    return text;
}

void checkContents(const Job& job, Reading reading, const std::atomic<bool>* stopped)
{
    const Json stamps = reading == Reading::whatChanged ? readStamps(job) : Json::object();
    bool hasRead = false;
    for (const HeldFile& file : job.files) {
        const fs::path path = job.folder / file.path;
        const std::string stamp = stampOf(path);
        std::error_code error;
        if (stamp.empty()) {
            refuseContent(job, file, "is missing");
        }
        if (fs::file_size(path, error) != file.bytes || error) {
            refuseContent(job, file, "has changed: its size is another");
        }
        if (file.digest.empty() || (file.bytes > smallFile && hasStamp(stamps, file, stamp))) {
            continue;
        }
        if (digestOf(path, stopped) != file.digest) {
            refuseContent(job, file, "has changed: its digest is another");
        }
        hasRead = hasRead || file.bytes > smallFile;
    }
    if (hasRead) {
        noteContents(job);
    }
}

void noteContents(const Job& job)
{
    Json stamps = Json::object();
    for (const HeldFile& file : job.files) {
        if (file.bytes > smallFile) {
            stamps[file.path.native()] = file.digest + " " + stampOf(job.folder / file.path);
        }
    }
    try {
        if (!stamps.empty()) {
            writeWhole(stampFile(job), jsonText(stamps));
        }
    } catch (const Failure&) {
        // The files are read once more, by the next one.
    }
}

} // namespace Qx::Program::Farm
