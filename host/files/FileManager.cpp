#include "host/files/FileManager.h"

#include "host/core/Immortal.h"
#include "host/files/CopyFile.h"
#include "host/files/NamePattern.h"
#include "host/files/Stamp.h"
#include "platform/Log.h"
#include "platform/Text.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <vector>

namespace Qx::Host {

namespace {

using WideString = LightweightString<wchar_t>;

std::string pathOf(const WideString& path)
{
    return std::string(toUTF8(path).view());
}

struct Entry
{
    WideString name;
    std::filesystem::path path;
    struct stat status;
};

/// The entries of a directory whose names match, sorted by name. Links are followed; dangling
/// ones are left out.
std::vector<Entry> matchingEntries(const WideString& directory, std::wstring_view pattern, bool filesOnly)
{
    std::vector<Entry> entries;
    std::error_code error; // set for an empty path too, which is no directory
    std::filesystem::directory_iterator item(pathOf(directory), error);
    for (; !error && item != std::filesystem::directory_iterator(); item.increment(error)) {
        const std::string bytes = item->path().filename().string();
        Entry entry{fromUTF8(LightweightString<char>(std::string_view(bytes))), item->path(), {}};
        if (matchesPattern(entry.name.view(), pattern) && ::stat(entry.path.c_str(), &entry.status) == 0 &&
            (!filesOnly || S_ISREG(entry.status.st_mode))) {
            entries.push_back(std::move(entry));
        }
    }
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.name < b.name; });
    return entries;
}

class FileManager final : public iFileManager
{
public:
    void listDirectory(const WideString& pattern, Qx::Vector<DirectoryItem>& items, eKind kind, int) override
    {
        items.clear();
        const std::size_t name = pattern.view().rfind(L'/') + 1; // npos + 1 is 0
        const WideString directory(pattern.view().substr(0, name));
        for (const Entry& entry :
             matchingEntries(directory, pattern.view().substr(name), kind == FilesOnly)) {
            items.push_back({entry.name, static_cast<std::uint64_t>(entry.status.st_size),
                             S_ISDIR(entry.status.st_mode), fileStamp(entry.path, entry.status)});
        }
    }

    bool copyFile(const WideString& source, const WideString& destination, int) override
    {
        const std::string failure = copyFileWhole(pathOf(source), pathOf(destination));
        if (!failure.empty()) {
            Log("Copying %s failed: %s\n", toUTF8(source).c_str(), failure.c_str());
        }
        return failure.empty();
    }
};

} // namespace

iFileManager& hostFiles()
{
    return immortal<FileManager>();
}

} // namespace Qx::Host

void getDirectoryContents(const LightweightString<wchar_t>& directory,
                          const LightweightString<wchar_t>& pattern,
                          Qx::Vector<LightweightString<wchar_t>>& contents, unsigned flags)
{
    const std::wstring_view wanted = pattern.view() == L"*.*" ? std::wstring_view(L"*") : pattern.view();
    const bool filesOnly = (flags & DirectoryContentsFiles) != 0;
    for (const auto& entry : Qx::Host::matchingEntries(directory, wanted, filesOnly)) {
        contents.push_back((flags & DirectoryContentsFullPaths) != 0 ? joinPaths(directory, entry.name)
                                                                     : entry.name);
    }
}
