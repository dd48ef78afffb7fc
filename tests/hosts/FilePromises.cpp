#include "Promise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <system_error>
#include <vector>

namespace Qx::HostTests {

namespace {

using Items = Vector<iFileManager::DirectoryItem>;
using Texts = Vector<LightweightString<wchar_t>>;

Items listed(const Kit& kit, const std::filesystem::path& directory, std::string_view pattern,
             iFileManager::eKind kind = iFileManager::FilesOnly)
{
    Items items;
    kit.services.os().files().listDirectory(asText(kit, directory.string() + "/" + std::string(pattern)),
                                            items, kind, 0);
    return items;
}

std::vector<std::string> namesOf(const Items& items)
{
    std::vector<std::string> names;
    for (const iFileManager::DirectoryItem& item : items) {
        names.push_back(narrow(item.name));
    }
    return names;
}

std::vector<std::string> contentsOf(const Kit& kit, const std::filesystem::path& directory,
                                    const wchar_t* pattern, unsigned flags)
{
    Texts contents;
    kit.services.getDirectoryContents(asText(kit, directory), pattern, contents, flags);
    std::vector<std::string> names;
    for (const LightweightString<wchar_t>& text : contents) {
        names.push_back(narrow(text));
    }
    return names;
}

using Names = std::vector<std::string>;

/// Sorted here: where capitals are among small letters is the host's choice.
Names inAnyOrder(const Items& items)
{
    Names names = namesOf(items);
    std::sort(names.begin(), names.end());
    return names;
}

/// Items as a call before has left them.
Items leftovers()
{
    Items items(1);
    items[0].name = L"left-over.fx";
    return items;
}

void listingReplacesItems(const Kit& kit)
{
    Items items = leftovers();
    const std::filesystem::path missing = kit.directory / "there-is-no-such-directory";
    kit.services.os().files().listDirectory(asText(kit, missing.string() + "/*.fx"), items,
                                            iFileManager::FilesOnly, 0);
    EXPECT_EQ(namesOf(items), Names()) << "items that were there before are gone, also if nothing is found";
}

void listingReplacesItemsThatAreFound(const Kit& kit)
{
    const std::filesystem::path directory = makeDirectory(kit, "replaced");
    writeFile(directory / "new.fx", "");
    Items items = leftovers();
    kit.services.os().files().listDirectory(asText(kit, directory.string() + "/*.fx"), items,
                                            iFileManager::FilesOnly, 0);
    EXPECT_EQ(namesOf(items), Names({"new.fx"}));
}

/// Files with names of this test, in the working directory, must not be found by patterns without one.
void noDirectoryIsNotTheWorkingDirectory(const Kit& kit)
{
    const std::filesystem::path before = std::filesystem::current_path();
    const std::filesystem::path directory = makeDirectory(kit, "working");
    writeFile(directory / "here.fx", "");
    std::error_code error;
    std::filesystem::current_path(directory, error);
    ASSERT_FALSE(error) << error.message();
    for (const wchar_t* const pattern : {L"", L"*.fx", L"*", L"here.fx"}) {
        Items items = leftovers();
        kit.services.os().files().listDirectory(pattern, items, iFileManager::AllEntries, 0);
        EXPECT_EQ(namesOf(items), Names()) << "pattern \"" << narrow(pattern) << '"';
    }
    std::filesystem::current_path(before, error);
}

void listingIsSorted(const Kit& kit)
{
    const std::filesystem::path directory = makeDirectory(kit, "sorted");
    for (const char* const name : {"c.fx", "a.fx", "d.fx", "b.fx", "e.fx"}) {
        writeFile(directory / name, "");
    }
    EXPECT_EQ(namesOf(listed(kit, directory, "*.fx")), Names({"a.fx", "b.fx", "c.fx", "d.fx", "e.fx"}));
}

void patternsIgnoreCase(const Kit& kit)
{
    const std::filesystem::path directory = makeDirectory(kit, "patterns");
    for (const char* const name : {"blur.fx", "Glow.FX", "note.txt", "fx"}) {
        writeFile(directory / name, "");
    }
    EXPECT_EQ(inAnyOrder(listed(kit, directory, "*.fx")), Names({"Glow.FX", "blur.fx"}));
    EXPECT_EQ(inAnyOrder(listed(kit, directory, "?LUR.*")), Names({"blur.fx"}));
    EXPECT_EQ(inAnyOrder(listed(kit, directory, "????.fx")), Names({"Glow.FX", "blur.fx"}));
}

void filesOnlyLeavesOutDirectories(const Kit& kit)
{
    const std::filesystem::path directory = makeDirectory(kit, "kinds");
    makeDirectory(kit, "kinds/folder.fx");
    writeFile(directory / "file.fx", "");
    EXPECT_EQ(namesOf(listed(kit, directory, "*.fx", iFileManager::FilesOnly)), Names({"file.fx"}));
    const Items all = listed(kit, directory, "*.fx", iFileManager::AllEntries);
    ASSERT_EQ(namesOf(all), Names({"file.fx", "folder.fx"}));
    EXPECT_FALSE(all[0].isDirectory);
    EXPECT_TRUE(all[1].isDirectory);
}

void itemsHaveSizes(const Kit& kit)
{
    const std::filesystem::path directory = makeDirectory(kit, "sizes");
    writeFile(directory / "a.fx", std::string(1234, 'x'));
    writeFile(directory / "b.fx", "");
    const Items items = listed(kit, directory, "*.fx");
    ASSERT_EQ(items.size(), 2U);
    EXPECT_EQ(items[0].size, 1234U);
    EXPECT_EQ(items[1].size, 0U);
}

std::uint64_t stampOf(const Kit& kit, const std::filesystem::path& directory, const char* name)
{
    const Items items = listed(kit, directory, name);
    EXPECT_EQ(items.size(), 1U) << name;
    return items.empty() ? 0 : items[0].stamp;
}

/// Writes other contents of the same size, and sees to it that the time of the file is another one.
void change(const std::filesystem::path& path, std::string_view contents)
{
    const auto before = std::filesystem::last_write_time(path);
    writeFile(path, contents);
    std::filesystem::last_write_time(path, before + std::chrono::seconds(2));
}

void stampsChangeWithContents(const Kit& kit)
{
    const std::filesystem::path directory = makeDirectory(kit, "stamps");
    writeFile(directory / "a.fx", "one");
    const std::uint64_t first = stampOf(kit, directory, "a.fx");
    EXPECT_EQ(stampOf(kit, directory, "a.fx"), first) << "nothing has changed";
    change(directory / "a.fx", "two");
    EXPECT_NE(stampOf(kit, directory, "a.fx"), first) << "the contents have changed";
}

void stampsCoverIncludes(const Kit& kit)
{
    const std::filesystem::path directory = makeDirectory(kit, "includes");
    writeFile(directory / "shared.fxh", "float a;");
    writeFile(directory / "a.fx", "#include \"shared.fxh\"\n");
    const std::uint64_t first = stampOf(kit, directory, "a.fx");
    change(directory / "shared.fxh", "float b;");
    EXPECT_NE(stampOf(kit, directory, "a.fx"), first) << "a file that the effect includes has changed";
}

void namesSurvive(const Kit& kit)
{
    const std::filesystem::path directory = makeDirectory(kit, "names");
    const std::array<std::string, 3> names{"a b'c.fx", "\xc3\xbc\xe2\x82\xac.fx", "z\xff.fx"};
    for (const std::string& name : names) {
        writeFile(directory / name, "");
    }
    const Items items = listed(kit, directory, "*.fx");
    ASSERT_EQ(items.size(), names.size());
    for (const std::string& name : names) {
        EXPECT_TRUE(std::any_of(items.begin(), items.end(), [&](const auto& item) {
            return kit.services.toUTF8(item.name) == name.c_str();
        })) << name;
    }
}

void copiesReplaceFiles(const Kit& kit)
{
    const std::filesystem::path directory = makeDirectory(kit, "copies");
    const std::string contents = std::string(100'000, 'x') + '\0' + "end";
    writeFile(directory / "from", contents);
    writeFile(directory / "to", "old");
    iFileManager& files = kit.services.os().files();
    EXPECT_TRUE(files.copyFile(asText(kit, directory / "from"), asText(kit, directory / "to"), 0));
    EXPECT_EQ(readFile(directory / "to"), contents);
    EXPECT_TRUE(files.copyFile(asText(kit, directory / "from"), asText(kit, directory / "new"), 0));
    EXPECT_EQ(readFile(directory / "new"), contents);
    EXPECT_EQ(readFile(directory / "from"), contents);
}

void failedCopiesChangeNothing(const Kit& kit)
{
    const std::filesystem::path directory = makeDirectory(kit, "failed-copies");
    writeFile(directory / "to", "old");
    iFileManager& files = kit.services.os().files();
    EXPECT_FALSE(files.copyFile(asText(kit, directory / "missing"), asText(kit, directory / "to"), 0));
    EXPECT_EQ(readFile(directory / "to"), "old");
    EXPECT_FALSE(files.copyFile(asText(kit, directory), asText(kit, directory / "to"), 0)) << "a directory";
    EXPECT_EQ(readFile(directory / "to"), "old");
    EXPECT_FALSE(files.copyFile(asText(kit, directory / "to"), asText(kit, directory / "no" / "where"), 0));
}

void copiesLeaveNothingElse(const Kit& kit)
{
    const std::filesystem::path directory = makeDirectory(kit, "tidy-copies");
    writeFile(directory / "from", "contents");
    iFileManager& files = kit.services.os().files();
    EXPECT_TRUE(files.copyFile(asText(kit, directory / "from"), asText(kit, directory / "to"), 0));
    EXPECT_FALSE(files.copyFile(asText(kit, directory / "missing"), asText(kit, directory / "to"), 0));
    Names names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, Names({"from", "to"}));
}

void emptyPathsAreNoFiles(const Kit& kit)
{
    const std::filesystem::path directory = makeDirectory(kit, "empty-paths");
    writeFile(directory / "to", "old");
    iFileManager& files = kit.services.os().files();
    EXPECT_FALSE(files.copyFile({}, asText(kit, directory / "to"), 0));
    EXPECT_FALSE(files.copyFile(asText(kit, directory / "to"), {}, 0));
    EXPECT_EQ(readFile(directory / "to"), "old");
}

void contentsAreAppended(const Kit& kit)
{
    const std::filesystem::path directory = makeDirectory(kit, "contents");
    writeFile(directory / "a.cube", "");
    Texts contents;
    contents.emplace_back(L"before");
    kit.services.getDirectoryContents(asText(kit, directory), L"*.*", contents, DirectoryContentsFiles);
    ASSERT_EQ(contents.size(), 2U);
    EXPECT_EQ(narrow(contents[0]), "before");
    EXPECT_EQ(narrow(contents[1]), "a.cube");
}

void starDotStarIsEveryName(const Kit& kit)
{
    const std::filesystem::path directory = makeDirectory(kit, "every-name");
    writeFile(directory / "a.cube", "");
    writeFile(directory / "without", "");
    EXPECT_EQ(contentsOf(kit, directory, L"*.*", DirectoryContentsFiles | DirectoryContentsSorted),
              Names({"a.cube", "without"}));
}

void contentsAreAsTheFlagsSay(const Kit& kit)
{
    const std::filesystem::path directory = makeDirectory(kit, "flags");
    makeDirectory(kit, "flags/folder");
    writeFile(directory / "folder" / "inside.cube", "");
    for (const char* const name : {"c.cube", "a.cube", "b.cube"}) {
        writeFile(directory / name, "");
    }
    constexpr unsigned sortedFiles = DirectoryContentsFiles | DirectoryContentsSorted;
    EXPECT_EQ(contentsOf(kit, directory, L"*.*", sortedFiles), Names({"a.cube", "b.cube", "c.cube"}));
    EXPECT_EQ(contentsOf(kit, directory, L"*.*", DirectoryContentsSorted),
              Names({"a.cube", "b.cube", "c.cube", "folder"}));
    EXPECT_EQ(contentsOf(kit, directory, L"a*", sortedFiles | DirectoryContentsFullPaths),
              Names({narrow(asText(kit, directory / "a.cube"))}));
}

void noTextIsNoDirectory(const Kit& kit)
{
    Texts contents;
    for (const LightweightString<wchar_t>& directory :
         {LightweightString<wchar_t>(), asText(kit, kit.directory / "there-is-no-such-directory")}) {
        kit.services.getDirectoryContents(directory, L"*.*", contents, 0);
    }
    EXPECT_EQ(contents.size(), 0U);
}

} // namespace

Promises filePromises()
{
    return {
        {"Files",
         "ListingReplacesItems",
         listingReplacesItems,
         "platform/FileManager.h: listDirectory() replaces the contents of `items`, also by nothing",
         {}},
        {"Files",
         "NoDirectoryIsNotTheWorkingDirectory",
         noDirectoryIsNotTheWorkingDirectory,
         "platform/FileManager.h: listDirectory() returns no items if `pattern` names no directory",
         {}},
        {"Files", "ListingReplacesItemsByOthers", listingReplacesItemsThatAreFound,
         "platform/FileManager.h: listDirectory() replaces the contents of `items`", Feature::Files},
        {"Files", "ListingIsSorted", listingIsSorted, "platform/FileManager.h: sorted by name",
         Feature::Files},
        {"Files", "PatternsIgnoreCase", patternsIgnoreCase,
         "platform/FileManager.h: '*' matches any characters and '?' one; the comparison ignores case",
         Feature::Files},
        {"Files", "FilesOnlyLeavesOutDirectories", filesOnlyLeavesOutDirectories,
         "platform/FileManager.h: eKind; isDirectory", Feature::Files},
        {"Files", "ItemsHaveSizes", itemsHaveSizes, "platform/FileManager.h: size in bytes", Feature::Files},
        {"Files", "StampsChangeWithContents", stampsChangeWithContents,
         "platform/FileManager.h: a different stamp whenever the contents may have changed", Feature::Files},
        {"Files", "StampsCoverIncludes", stampsCoverIncludes,
         "platform/FileManager.h: for an effect file the stamp covers the files that it includes",
         Feature::Files},
        {"Files", "NamesSurvive", namesSurvive, "platform/Text.h: every file name survives the round trip",
         Feature::Files},
        {"Files", "EmptyPathsAreNoFiles", emptyPathsAreNoFiles,
         "platform/FileManager.h: copyFile() returns false on failure; \"\" names no file",
         Feature::FileCopies},
        {"Files", "CopiesReplaceFiles", copiesReplaceFiles,
         "platform/FileManager.h: copyFile() replaces an existing destination", Feature::FileCopies},
        {"Files", "FailedCopiesChangeNothing", failedCopiesChangeNothing,
         "platform/FileManager.h: false on failure; the destination is then unchanged", Feature::FileCopies},
        {"Files", "CopiesLeaveNothingElse", copiesLeaveNothingElse,
         "platform/FileManager.h: the copy appears complete or not at all", Feature::FileCopies},
        {"Directories",
         "NoTextIsNoDirectory",
         noTextIsNoDirectory,
         "platform/FileManager.h: getDirectoryContents() appends nothing if the directory is empty text",
         {}},
        {"Directories", "ContentsAreAppended", contentsAreAppended,
         "platform/FileManager.h: getDirectoryContents() appends", Feature::Files},
        {"Directories", "StarDotStarIsEveryName", starDotStarIsEveryName,
         "platform/FileManager.h: \"*.*\" matches every name", Feature::Files},
        {"Directories", "ContentsAreAsTheFlagsSay", contentsAreAsTheFlagsSay,
         "platform/FileManager.h: DirectoryContentsFlags; no search of sub-directories", Feature::Files},
    };
}

} // namespace Qx::HostTests
