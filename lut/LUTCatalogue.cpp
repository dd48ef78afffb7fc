#include "lut/LUTManager.h"
#include "platform/CubeLUT.h"
#include "platform/FileManager.h"
#include "platform/OS.h"
#include "platform/Settings.h"

#include <algorithm>
#include <cstdint>

using Path = LightweightString<wchar_t>;

namespace {

void listDirectory(const Path& directory, Qx::Vector<Path>& paths)
{
    getDirectoryContents(directory, L"*.*", paths,
                         DirectoryContentsFiles | DirectoryContentsFullPaths | DirectoryContentsSorted);
}

/// Compares the texts only: no separator has to follow.
bool startsWith(const Path& path, const Path& directory)
{
    return directory.length() <= path.length() &&
           std::equal(directory.view().begin(), directory.view().end(), path.view().begin(),
                      [](wchar_t a, wchar_t b) { return Qx::foldCase(a) == Qx::foldCase(b); });
}

} // namespace

void LUTManager::getSupportedFileTypes(Qx::Vector<Path>& types) noexcept
{
    CubeLUT::getSupportedFileTypes(types);
}

void LUTManager::buildLUTList() noexcept
{
    luts_.clear();
    Qx::Vector<Path> paths;
    listDirectory(getLUTDirectory(iSettings::User), paths);
    const Path machine = getLUTDirectory(iSettings::Machine);
    if (machine != getLUTDirectory(iSettings::User)) {
        listDirectory(machine, paths);
    }
    Qx::Vector<Path> types;
    getSupportedFileTypes(types);
    for (const Path& path : paths) {
        if (std::find(types.begin(), types.end(), getExtension(path)) != types.end()) {
            luts_.push_back(path);
        }
    }
}

LightweightVector<Path> LUTManager::installLUTs(const LightweightVector<Path>& files) noexcept
{
    LightweightVector<Path> installed;
    std::uint16_t copied = 0;
    const Path user = getLUTDirectory(iSettings::User);
    const Path machine = getLUTDirectory(iSettings::Machine);
    for (const Path& file : files) {
        if (!file.empty() && (startsWith(file, user) || startsWith(file, machine))) {
            installed.push_back({});
            continue;
        }
        const Path copy = joinPaths(user, stripPath(file));
        OS().files().copyFile(file, copy, 0);
        installed.push_back(copy);
        ++copied;
    }
    if (copied != 0) {
        buildLUTList();
        NotifyMsg message;
        message.type = NotifyMsgTypeDictionary::instance().lutListChanged();
        issueNotification(message, 0);
    }
    return installed;
}
