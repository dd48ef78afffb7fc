#include "tools/qxhost/studio/session/TextFiles.h"

#include "host/cache/Sha256.h"
#include "host/files/ReadFile.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/media/files/OutputFile.h"

#include <algorithm>
#include <fmt/format.h>
#include <unistd.h>

namespace Qx::Program::Studio {

namespace {

/// Of file systems, less what a file that is written aside has behind its name.
constexpr std::size_t longestName = 200;

bool isUtf8(const std::string& text)
{
    try {
        static_cast<void>(Json(text).dump());
        return true;
    } catch (const Json::exception&) {
        return false;
    }
}

void require(const Media::Status& status)
{
    if (!status) {
        throw Failure(ExitCode::output, status.text());
    }
}

/// Whether the file is not to be written, which renaming another over it would not ask. The user root may
/// write every file; here the mode counts.
bool isProtected(const std::filesystem::path& file)
{
    using std::filesystem::perms;
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(file, error);
    if (error || !std::filesystem::exists(status)) {
        return false;
    }
    constexpr perms writing = perms::owner_write | perms::group_write | perms::others_write;
    return (status.permissions() & writing) == perms::none || ::access(file.c_str(), W_OK) != 0;
}

/// Whether the path leads to the folder or into it, through whatever links there are.
bool isBeneath(const std::filesystem::path& path, const std::filesystem::path& folder)
{
    std::error_code error;
    const std::filesystem::path whole = std::filesystem::weakly_canonical(path, error);
    const std::filesystem::path root = std::filesystem::canonical(folder, error);
    const auto [end, rest] = std::mismatch(root.begin(), root.end(), whole.begin(), whole.end());
    return !error && end == root.end();
}

} // namespace

std::string digestOfText(const std::string& text)
{
    return Host::Cache::hexadecimal(Host::Cache::digestOf(std::string_view(text)));
}

TextFile readText(const std::filesystem::path& file)
{
    std::optional<std::string> text = Host::readFile(file, largestText);
    if (!text) {
        throw Failure(ExitCode::input, fmt::format("{}: cannot be read, or is larger than {} bytes",
                                                   file.string(), largestText));
    }
    if (!isUtf8(*text)) {
        throw Failure(ExitCode::input, file.string() + ": is not UTF-8; change it with an editor");
    }
    const std::string digest = digestOfText(*text);
    return {std::move(*text), digest};
}

std::string writeText(const std::filesystem::path& file, const std::string& text)
{
    if (text.size() > largestText) {
        throw Failure(ExitCode::usage, fmt::format("\"text\": expected at most {} bytes", largestText));
    }
    if (isProtected(file)) {
        throw Failure(ExitCode::output,
                      file.string() +
                          ": is protected from writing; allow it (chmod u+w), or choose another name");
    }
    auto output = Media::OutputFile::create(file, true);
    if (!output) {
        throw Failure(ExitCode::output, output.text());
    }
    std::error_code error;
    const std::filesystem::file_status before = std::filesystem::status(file, error);
    const std::filesystem::perms mode = before.permissions();
    if (before.type() == std::filesystem::file_type::not_found) {
        error.clear(); // a file that is gone has left no mode
    } else if (!error) {
        std::filesystem::permissions(output.value().part(), mode, error);
    }
    if (error) {
        throw Failure(ExitCode::output,
                      fmt::format("{}: cannot be written with its mode: {}", file.string(), error.message()));
    }
    require(output.value().write(text.data(), text.size()));
    require(output.value().commit());
    return digestOfText(text);
}

std::filesystem::path beneath(const std::filesystem::path& folder, const std::string& name,
                              const std::string& ending)
{
    const std::filesystem::path path(name);
    const bool isHidden = std::any_of(path.begin(), path.end(),
                                      [](const auto& part) { return part.native().starts_with('.'); });
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error)) {
        throw Failure(ExitCode::output,
                      folder.string() + ": the folder of looks is gone; make it again, or start the studio "
                                        "with another --looks");
    }
    const bool isNamed =
        name.size() > ending.size() && name.ends_with(ending) &&
        std::none_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; });
    if (!isNamed) {
        throw Failure(ExitCode::usage, fmt::format("\"file\": expected a name that ends in {}", ending));
    }
    const bool isLong = std::any_of(path.begin(), path.end(),
                                    [](const auto& part) { return part.native().size() > longestName; });
    if (isLong) {
        throw Failure(ExitCode::usage, fmt::format("\"{}\": is too long; expected a name of at most {} bytes",
                                                   name, longestName));
    }
    std::filesystem::path file = folder / path;
    if (path.is_absolute() || isHidden || !isBeneath(file, folder)) {
        throw Failure(ExitCode::usage,
                      fmt::format("\"{}\": leads out of the folder of looks, {}, or is hidden; "
                                  "give a name in it",
                                  name, folder.string()));
    }
    return file;
}

} // namespace Qx::Program::Studio
