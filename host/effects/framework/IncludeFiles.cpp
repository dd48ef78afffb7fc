#include "host/effects/framework/IncludeFiles.h"
#include "host/files/SystemError.h"

#include "host/core/Suggestion.h"
#include "host/effects/framework/FileKind.h"
#include "host/effects/framework/Limits.h"

#include <algorithm>
#include <fstream>
#include <optional>
#include <system_error>

namespace Qx::Host::Effects {
namespace {

/// Adds the names of files and directories.
void addEntriesOf(const std::filesystem::path& directory, std::vector<std::string>& names)
{
    constexpr int most = 1000; // of a directory
    std::error_code error;
    std::filesystem::directory_iterator entry(directory.empty() ? "." : directory, error);
    for (int i = 0; i < most && !error && entry != std::filesystem::directory_iterator(); ++i) {
        names.push_back(entry->path().filename().string());
        entry.increment(error);
    }
    std::sort(names.begin(), names.end()); // directories have no defined order
}

/// The only file in or below the directory whose path differs at most in the case of letters. Empty if there
/// is none, or more than one.
std::filesystem::path inOtherCase(const std::filesystem::path& directory, const std::filesystem::path& name)
{
    std::filesystem::path found = directory;
    for (const std::filesystem::path& part : name.lexically_normal()) {
        std::error_code error;
        if (part == ".." || std::filesystem::exists(found / part, error)) {
            found /= part;
            continue;
        }
        std::vector<std::string> names;
        addEntriesOf(found, names);
        const auto same = [&](const std::string& entry) { return equalIgnoringCase(entry, part.native()); };
        const auto match = std::find_if(names.begin(), names.end(), same);
        if (match == names.end() || std::count_if(names.begin(), names.end(), same) > 1) {
            return {};
        }
        found /= *match;
    }
    std::error_code error;
    found = found.lexically_normal();
    return std::filesystem::is_regular_file(found, error) ? found : std::filesystem::path();
}

} // namespace

std::uint32_t IncludeFiles::openEffect(const std::filesystem::path& effect)
{
    effectDirectory_ = effect.parent_path();
    return open(effect, {});
}

std::uint32_t IncludeFiles::open(const std::filesystem::path& path, Location from)
{
    if (const auto known = files_.find(path)) {
        return *known;
    }
    std::error_code error;
    // Devices and pipes never end; only regular files are read.
    const bool regular = std::filesystem::is_regular_file(path, error);
    const std::uintmax_t bytes = regular ? std::filesystem::file_size(path, error) : 0;
    const std::uint32_t file = files_.add({path, path.string(), {}, false, from});
    if (from.line == 0) {
        from.file = file;
    }
    if (!regular || error) {
        files_.noteInput(path, std::nullopt);
        throw CompileError(from,
                           "cannot read " + inQuotes(path.string()) +
                               (error ? ": " + systemProblem(error.value()) : ": it is not a regular file"));
    }
    if (bytes > Limits::fileBytes) {
        throw CompileError(from, inQuotes(path.string()) + " has " + std::to_string(bytes) +
                                     " bytes; an effect file has " + std::to_string(Limits::fileBytes) +
                                     " at most");
    }
    std::string text(static_cast<std::size_t>(bytes), '\0');
    std::ifstream stream(path, std::ios::binary);
    stream.read(text.data(), static_cast<std::streamsize>(bytes));
    files_.noteInput(path, stream ? std::optional(Cache::digestOf(text)) : std::nullopt);
    if (!stream) {
        throw CompileError(from, "cannot read " + inQuotes(path.string()) + " to its end");
    }
    if (const std::string why = whyNoEffect(text); !why.empty()) {
        throw CompileError({file, 0, 0, 0}, why);
    }
    files_[file].text = files_.keep(std::move(text));
    return file;
}

// Messages quote the text that they are about; an effect must not reveal files that are not effects.
bool IncludeFiles::mayInclude(const std::filesystem::path& file) const
{
    const auto holds = [&](const std::filesystem::path& directory) {
        std::error_code error;
        const auto inside =
            std::filesystem::absolute(file, error)
                .lexically_normal()
                .lexically_relative(
                    std::filesystem::absolute(directory.empty() ? "." : directory, error).lexically_normal());
        return !error && !inside.empty() && *inside.begin() != "..";
    };
    return holds(effectDirectory_) ||
           std::any_of(includeDirectories_.begin(), includeDirectories_.end(), holds);
}

/// The directory of the including file comes first; each is listed once.
std::vector<std::filesystem::path> IncludeFiles::searchedDirectories(std::uint32_t includer) const
{
    std::vector<std::filesystem::path> directories{files_[includer].path.parent_path()};
    for (const std::filesystem::path& directory : includeDirectories_) {
        if (std::find(directories.begin(), directories.end(), directory) == directories.end()) {
            directories.push_back(directory);
        }
    }
    return directories;
}

std::filesystem::path IncludeFiles::find(const std::string& written, const Token& at,
                                         std::uint32_t includer) const
{
    std::string name = written;
    std::replace(name.begin(), name.end(), '\\', '/');
    std::string searched;
    std::vector<std::string> neighbours;
    bool refused = false;
    for (const std::filesystem::path& directory : searchedDirectories(includer)) {
        std::filesystem::path candidate = (directory / name).lexically_normal();
        std::error_code error;
        searched += (searched.empty() ? "" : ", ") + (directory.empty() ? "." : directory.string());
        if (!mayInclude(candidate)) {
            refused = true;
            files_.noteInput(candidate, std::nullopt); // with other directories it might be included
            continue;
        }
        if (files_.find(candidate) || std::filesystem::is_regular_file(candidate, error)) {
            return candidate;
        }
        files_.noteInput(candidate, std::nullopt);
        addEntriesOf(candidate.parent_path(), neighbours);
    }
    for (const std::filesystem::path& directory : searchedDirectories(includer)) {
        std::filesystem::path candidate = inOtherCase(directory, name);
        if (!candidate.empty() && mayInclude(candidate)) {
            return candidate;
        }
    }
    if (refused) {
        throw CompileError(at.at,
                           "the include file " + inQuotes(written) +
                               " lies outside the directories of effects; an effect includes what lies "
                               "in or below " +
                               searched);
    }
    throw CompileError(at.at, "cannot find the include file " + inQuotes(written) +
                                  didYouMean(std::filesystem::path(name).filename().string(), neighbours) +
                                  "; searched in " + searched);
}

} // namespace Qx::Host::Effects
