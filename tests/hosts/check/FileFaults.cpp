#include "tests/hosts/check/Faults.h"
#include "tests/hosts/check/WrappedOS.h"

#include <platform/FileManager.h>
#include <platform/Text.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace Qx::HostTests {

namespace {

using PathText = LightweightString<wchar_t>;
using FileItems = Vector<iFileManager::DirectoryItem>;
using FileNames = Vector<LightweightString<wchar_t>>;

class GoodFiles : public iFileManager
{
public:
    virtual ~GoodFiles() = default;
    void listDirectory(const PathText& pattern, FileItems& items, eKind kind, int flags) override
    {
        OS().files().listDirectory(pattern, items, kind, flags);
    }
    bool copyFile(const PathText& source, const PathText& destination, int options) override
    {
        return OS().files().copyFile(source, destination, options);
    }
};

template <class Files>
class OSWithFiles final : public WrappedOS
{
public:
    iFileManager& files() override { return files_; }

private:
    Files files_;
};

struct KeepsItemsIfNothingIsFound final : GoodFiles
{
    void listDirectory(const PathText& pattern, FileItems& items, eKind kind, int flags) override
    {
        FileItems found;
        GoodFiles::listDirectory(pattern, found, kind, flags);
        const bool inADirectory = pattern.view().find(L'/') != std::wstring_view::npos;
        if (!found.empty() || !inADirectory) {
            items = found;
        }
    }
};

struct AppendsItems final : GoodFiles
{
    void listDirectory(const PathText& pattern, FileItems& items, eKind kind, int flags) override
    {
        FileItems found;
        GoodFiles::listDirectory(pattern, found, kind, flags);
        if (found.empty()) {
            items.clear();
        }
        items.insert(items.end(), found.begin(), found.end());
    }
};

struct ListsTheWorkingDirectory final : GoodFiles
{
    void listDirectory(const PathText& pattern, FileItems& items, eKind kind, int flags) override
    {
        const bool bare = pattern.view().find(L'/') == std::wstring_view::npos;
        GoodFiles::listDirectory(bare ? PathText(L"./") + pattern : pattern, items, kind, flags);
    }
};

struct DoesNotSort final : GoodFiles
{
    void listDirectory(const PathText& pattern, FileItems& items, eKind kind, int flags) override
    {
        GoodFiles::listDirectory(pattern, items, kind, flags);
        if (items.size() == 5) { // others see a list of another length
            std::reverse(items.begin(), items.end());
        }
    }
};

struct MindsCase final : GoodFiles
{
    void listDirectory(const PathText& pattern, FileItems& items, eKind kind, int flags) override
    {
        GoodFiles::listDirectory(pattern, items, kind, flags);
        std::erase_if(items, [](const DirectoryItem& item) {
            return item.name.view().find_first_of(L"ABCDEFGHIJKLMNOPQRSTUVWXYZ") != std::wstring_view::npos;
        });
    }
};

struct ListsDirectoriesAsFiles final : GoodFiles
{
    void listDirectory(const PathText& pattern, FileItems& items, eKind, int flags) override
    {
        GoodFiles::listDirectory(pattern, items, AllEntries, flags);
    }
};

struct HasNoSizes final : GoodFiles
{
    void listDirectory(const PathText& pattern, FileItems& items, eKind kind, int flags) override
    {
        GoodFiles::listDirectory(pattern, items, kind, flags);
        for (DirectoryItem& item : items) {
            item.size = 0;
        }
    }
};

struct StampsStay final : GoodFiles
{
    void listDirectory(const PathText& pattern, FileItems& items, eKind kind, int flags) override
    {
        GoodFiles::listDirectory(pattern, items, kind, flags);
        for (DirectoryItem& item : items) {
            item.stamp = item.size == 3 ? 1 : item.stamp; // of files of three bytes
        }
    }
};

/// The stamp is the time of the file itself.
struct StampsAreTimes final : GoodFiles
{
    void listDirectory(const PathText& pattern, FileItems& items, eKind kind, int flags) override
    {
        GoodFiles::listDirectory(pattern, items, kind, flags);
        const std::filesystem::path folder = std::filesystem::path(toUTF8(pattern).c_str()).parent_path();
        for (DirectoryItem& item : items) {
            std::error_code ignored;
            const auto time = std::filesystem::last_write_time(folder / toUTF8(item.name).c_str(), ignored);
            item.stamp = static_cast<std::uint64_t>(time.time_since_epoch().count());
        }
    }
};

struct LeavesOutOddNames final : GoodFiles
{
    void listDirectory(const PathText& pattern, FileItems& items, eKind kind, int flags) override
    {
        GoodFiles::listDirectory(pattern, items, kind, flags);
        std::erase_if(items, [](const DirectoryItem& item) {
            return std::any_of(item.name.view().begin(), item.name.view().end(),
                               [](wchar_t character) { return character >= 0xdc80 && character <= 0xdcff; });
        });
    }
};

struct DoesNotReplaceFiles final : GoodFiles
{
    bool copyFile(const PathText& source, const PathText& destination, int options) override
    {
        std::error_code ignored;
        return !std::filesystem::exists(toUTF8(destination).c_str(), ignored) &&
               GoodFiles::copyFile(source, destination, options);
    }
};

/// Opens the destination before it knows that there is a source.
struct EmptiesTheDestination final : GoodFiles
{
    bool copyFile(const PathText& source, const PathText& destination, int options) override
    {
        std::error_code ignored;
        if (!source.empty() && !std::filesystem::exists(toUTF8(source).c_str(), ignored)) {
            const std::ofstream opened(toUTF8(destination).c_str());
        }
        return GoodFiles::copyFile(source, destination, options);
    }
};

struct LeavesTemporaryFiles final : GoodFiles
{
    bool copyFile(const PathText& source, const PathText& destination, int options) override
    {
        if (!destination.empty()) {
            const std::ofstream opened((toUTF8(destination) + ".part").c_str());
        }
        return GoodFiles::copyFile(source, destination, options);
    }
};

struct CopiesNothingGladly final : GoodFiles
{
    bool copyFile(const PathText& source, const PathText& destination, int options) override
    {
        return source.empty() || GoodFiles::copyFile(source, destination, options);
    }
};

struct ReplacesContents final : Services
{
    void getDirectoryContents(const PathText& directory, const PathText& pattern, FileNames& contents,
                              unsigned flags) override
    {
        contents.clear();
        Services::getDirectoryContents(directory, pattern, contents, flags);
    }
};

struct StarDotStarNeedsADot final : Services
{
    void getDirectoryContents(const PathText& directory, const PathText& pattern, FileNames& contents,
                              unsigned flags) override
    {
        const std::size_t before = contents.size();
        Services::getDirectoryContents(directory, pattern, contents, flags);
        if (pattern == L"*.*" && (flags & DirectoryContentsFiles) != 0) {
            contents.erase(std::remove_if(contents.begin() + static_cast<std::ptrdiff_t>(before),
                                          contents.end(),
                                          [](const PathText& name) {
                                              return name.view().find(L'.') == std::wstring_view::npos;
                                          }),
                           contents.end());
        }
    }
};

struct NeverSaysFullPaths final : Services
{
    void getDirectoryContents(const PathText& directory, const PathText& pattern, FileNames& contents,
                              unsigned flags) override
    {
        Services::getDirectoryContents(directory, pattern, contents,
                                       flags & ~unsigned{DirectoryContentsFullPaths});
    }
};

struct NoTextIsTheRoot final : Services
{
    void getDirectoryContents(const PathText& directory, const PathText& pattern, FileNames& contents,
                              unsigned flags) override
    {
        Services::getDirectoryContents(directory.empty() ? PathText(L"/") : directory, pattern, contents,
                                       flags);
    }
};

} // namespace

Faults fileFaults()
{
    return {
        {"items-stay-if-nothing-is-found", "Files.ListingReplacesItems",
         servicesOf<OSWithFiles<KeepsItemsIfNothingIsFound>>},
        {"items-are-appended", "Files.ListingReplacesItemsByOthers", servicesOf<OSWithFiles<AppendsItems>>},
        {"no-directory-is-the-working-directory", "Files.NoDirectoryIsNotTheWorkingDirectory",
         servicesOf<OSWithFiles<ListsTheWorkingDirectory>>},
        {"items-are-not-sorted", "Files.ListingIsSorted", servicesOf<OSWithFiles<DoesNotSort>>},
        {"patterns-mind-case", "Files.PatternsIgnoreCase", servicesOf<OSWithFiles<MindsCase>>},
        {"directories-are-files", "Files.FilesOnlyLeavesOutDirectories",
         servicesOf<OSWithFiles<ListsDirectoriesAsFiles>>},
        {"items-have-no-size", "Files.ItemsHaveSizes", servicesOf<OSWithFiles<HasNoSizes>>},
        {"stamps-stay", "Files.StampsChangeWithContents", servicesOf<OSWithFiles<StampsStay>>},
        {"stamps-are-times-of-one-file", "Files.StampsCoverIncludes",
         servicesOf<OSWithFiles<StampsAreTimes>>},
        {"odd-names-are-left-out", "Files.NamesSurvive", servicesOf<OSWithFiles<LeavesOutOddNames>>},
        {"copies-replace-nothing", "Files.CopiesReplaceFiles", servicesOf<OSWithFiles<DoesNotReplaceFiles>>},
        {"failed-copies-empty-the-destination", "Files.FailedCopiesChangeNothing",
         servicesOf<OSWithFiles<EmptiesTheDestination>>},
        {"copies-leave-temporary-files", "Files.CopiesLeaveNothingElse",
         servicesOf<OSWithFiles<LeavesTemporaryFiles>>},
        {"nothing-is-copied-gladly", "Files.EmptyPathsAreNoFiles",
         servicesOf<OSWithFiles<CopiesNothingGladly>>},
        {"contents-are-replaced", "Directories.ContentsAreAppended", overriding<ReplacesContents>},
        {"star-dot-star-needs-a-dot", "Directories.StarDotStarIsEveryName", overriding<StarDotStarNeedsADot>},
        {"no-full-paths", "Directories.ContentsAreAsTheFlagsSay", overriding<NeverSaysFullPaths>},
        {"no-text-is-the-root", "Directories.NoTextIsNoDirectory", overriding<NoTextIsTheRoot>},
    };
}

} // namespace Qx::HostTests
