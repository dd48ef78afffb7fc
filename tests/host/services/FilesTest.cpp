#include "Qx/HostAllocator.h"
#include "host/files/NamePattern.h"
#include "host/files/SystemError.h"
#include "platform/FileManager.h"
#include "platform/OS.h"
#include "platform/Text.h"
#include "tests/host/services/Support.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using namespace Qx::Host::Test;
using Qx::Host::matchesPattern;

namespace {

using Items = Qx::Vector<iFileManager::DirectoryItem>;

Items list(const std::filesystem::path& pattern, iFileManager::eKind kind = iFileManager::FilesOnly)
{
    Items items;
    items.push_back({L"left over"});
    OS().files().listDirectory(wide(pattern), items, kind, 0);
    return items;
}

std::vector<std::string> namesOf(const Items& items)
{
    std::vector<std::string> names;
    for (const auto& item : items) {
        names.push_back(narrow(item.name));
    }
    return names;
}

std::uint64_t stampOf(const std::filesystem::path& file)
{
    const Items items = list(file);
    EXPECT_EQ(items.size(), 1U);
    return items.empty() ? 0 : items[0].stamp;
}

bool copied(const std::filesystem::path& from, const std::filesystem::path& to)
{
    return OS().files().copyFile(wide(from), wide(to), 0);
}

std::size_t entriesIn(const std::filesystem::path& directory)
{
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory)) {
        ++count;
    }
    return count;
}

using Names = std::vector<std::string>;

} // namespace

TEST(NamePattern, StarsAndQuestionMarksMatchWithoutRegardToCase)
{
    EXPECT_TRUE(matchesPattern(L"Colour.FX", L"*.fx"));
    EXPECT_TRUE(matchesPattern(L"\u00c4.fx", L"\u00e4.*"));
    EXPECT_TRUE(matchesPattern(L"abc", L"a?c"));
    EXPECT_TRUE(matchesPattern(L"abcabd", L"*ab?"));
    EXPECT_TRUE(matchesPattern(L"", L"*"));
    EXPECT_TRUE(matchesPattern(L"", L""));
    EXPECT_FALSE(matchesPattern(L"a.fxh", L"*.fx"));
    EXPECT_FALSE(matchesPattern(L"ac", L"a?c"));
    EXPECT_FALSE(matchesPattern(L"a", L""));
    EXPECT_FALSE(matchesPattern(std::wstring(5000, L'a'), L"*a*a*a*a*a*a*b")) << "and does not take for ever";
}

TEST(Files, ADirectoryIsListedByName)
{
    const TemporaryDirectory directory;
    for (const char* name : {"b.fx", "_a.fx", "C.FX", "a.fx", "a.fxh", "readme"}) {
        directory.write(name, name);
    }
    std::filesystem::create_directory(directory / "folder.fx");
    EXPECT_EQ(namesOf(list(directory / "*.fx")), (Names{"C.FX", "_a.fx", "a.fx", "b.fx"}));
    const Items all = list(directory / "*.fx", iFileManager::AllEntries);
    EXPECT_EQ(namesOf(all), (Names{"C.FX", "_a.fx", "a.fx", "b.fx", "folder.fx"}));
    EXPECT_TRUE(all[4].isDirectory);
    EXPECT_FALSE(all[0].isDirectory);
    EXPECT_EQ(all[1].size, 5U);
}

TEST(Files, WhatCannotBeListedIsEmpty)
{
    const TemporaryDirectory directory;
    EXPECT_TRUE(list(directory / "missing/*").empty());
    EXPECT_TRUE(list(directory.write("file", "") / "*").empty());
    EXPECT_TRUE(list("").empty());
}

TEST(Files, LinksStandForTheirTargetsAndBrokenOnesForNothing)
{
    const TemporaryDirectory directory;
    const TemporaryDirectory elsewhere;
    std::filesystem::create_symlink(elsewhere.write("real.fx", "12345"), directory / "link.fx");
    std::filesystem::create_symlink(directory / "nowhere", directory / "broken.fx");
    const Items items = list(directory / "*");
    ASSERT_EQ(namesOf(items), Names{"link.fx"});
    EXPECT_EQ(items[0].size, 5U);
}

TEST(Files, NamesThatAreNotUTF8AreListedAndOpened)
{
    const TemporaryDirectory directory;
    const std::string name = "caf\xE9\xFF.fx";
    directory.write(name, "x");
    const Items items = list(directory / "*.fx");
    ASSERT_EQ(namesOf(items), Names{name});
    const auto path = joinPaths(wide(directory.path()), items[0].name);
    const auto target = joinPaths(wide(directory.path()), fromUTF8("copy \xFE.fx"));
    EXPECT_TRUE(OS().files().copyFile(path, target, 0));
    EXPECT_EQ(contentsOf(directory / "copy \xFE.fx"), "x");
}

TEST(Files, DirectoryContentsAreNamesOrPathsOfFilesOrEverything)
{
    const TemporaryDirectory directory;
    directory.write("b.cube", "");
    directory.write("a", "");
    std::filesystem::create_directory(directory / "folder.d");
    Qx::Vector<LightweightString<wchar_t>> contents;
    const auto get = [&](const wchar_t* pattern, unsigned flags) {
        getDirectoryContents(wide(directory.path()), pattern, contents, flags);
        Names names;
        for (const auto& name : contents) {
            names.push_back(narrow(name));
        }
        return names;
    };
    EXPECT_EQ(get(L"*.*", DirectoryContentsFiles | DirectoryContentsSorted), (Names{"a", "b.cube"}));
    EXPECT_EQ(get(L"*.*", DirectoryContentsSorted), (Names{"a", "b.cube", "a", "b.cube", "folder.d"}))
        << "contents are appended";
    contents.clear();
    EXPECT_EQ(get(L"*.CUBE", DirectoryContentsFullPaths), Names{directory / "b.cube"});
    contents.clear();
    getDirectoryContents(wide(directory / "missing"), L"*.*", contents, 0);
    EXPECT_TRUE(contents.empty());
}

TEST(Stamps, ChangeWithTheEffectAndEverythingThatItIncludes)
{
    const TemporaryDirectory directory;
    const auto effect = directory.write("a.fx", "#include \"one.fxh\"\nfloat x;\n");
    directory.write("one.fxh", "  #  include   \"deep/two.fxh\"\n");
    directory.write("deep/two.fxh", "#include \"three.fxh\"\n");
    directory.write("deep/three.fxh", "float y;\n");
    const std::uint64_t start = stampOf(effect);
    EXPECT_EQ(stampOf(effect), start);
    directory.write("deep/three.fxh", "float z;\n");
    const std::uint64_t deep = stampOf(effect);
    EXPECT_NE(deep, start);
    directory.write("one.fxh", "");
    const std::uint64_t direct = stampOf(effect);
    EXPECT_NE(direct, deep);
    directory.write("a.fx", "#include \"one.fxh\"\nfloat w;\n");
    EXPECT_NE(stampOf(effect), direct);
}

TEST(Stamps, AnIncludeThatAppearsOrGoesIsAChange)
{
    const TemporaryDirectory directory;
    const auto effect = directory.write("a.fx", "#include \"later.fxh\"\n");
    const std::uint64_t without = stampOf(effect);
    const auto included = directory.write("later.fxh", "");
    EXPECT_NE(stampOf(effect), without);
    std::filesystem::remove(included);
    EXPECT_EQ(stampOf(effect), without);
}

TEST(Stamps, IncludesAreAlsoFoundAmongTheShippedEffects)
{
    const TemporaryDirectory shipped;
    const TemporaryDirectory own;
    const Variable shaders("QX_SHADERS_DIR", shipped.path());
    const auto effect = own.write("a.fx", "#include \"common.fxh\"\n");
    shipped.write("common.fxh", "1");
    const std::uint64_t start = stampOf(effect);
    shipped.write("common.fxh", "2");
    EXPECT_NE(stampOf(effect), start);
}

TEST(Stamps, IncludesAreFoundWhereverTheCompilerLooksForThem)
{
    const TemporaryDirectory shipped;
    const TemporaryDirectory machine;
    const TemporaryDirectory own;
    const Variable shaders("QX_SHADERS_DIR", shipped.path());
    const Variable templates("QX_MACHINE_TEMPLATES_DIR", machine.path());
    std::filesystem::create_directory(shipped.path() / "Include");
    const auto effect = own.write("a.fx", "#include \"x.fxh\"\n # include <y.fxh>\n");
    shipped.write("Include/x.fxh", "1");
    machine.write("y.fxh", "1");
    const std::uint64_t start = stampOf(effect);
    shipped.write("Include/x.fxh", "2");
    const std::uint64_t changed = stampOf(effect);
    EXPECT_NE(changed, start);
    machine.write("y.fxh", "2");
    EXPECT_NE(stampOf(effect), changed);
}

TEST(Stamps, CirclesAndSelfInclusionEnd)
{
    const TemporaryDirectory directory;
    const auto effect = directory.write("a.fx", "#include \"a.fx\"\n#include \"b.fxh\"\n");
    directory.write("b.fxh", "#include \"a.fx\"\n");
    EXPECT_EQ(stampOf(effect), stampOf(effect));
}

TEST(Stamps, OtherFilesChangeWhenTheyAreReplaced)
{
    const TemporaryDirectory directory;
    const auto file = directory.write("lut.cube", "12");
    const std::uint64_t start = stampOf(file);
    EXPECT_EQ(stampOf(file), start);
    directory.write("new.cube", "34");
    std::filesystem::rename(directory / "new.cube", file);
    EXPECT_NE(stampOf(file), start);
}

TEST(CopyFile, ReplacesTheDestinationAndLeavesNothingBeside)
{
    const TemporaryDirectory directory;
    const auto from = directory.write("from", std::string(200000, 'x') + "end");
    const auto to = directory.write("to", "old");
    ASSERT_TRUE(copied(from, to));
    EXPECT_EQ(contentsOf(to), contentsOf(from));
    EXPECT_EQ(entriesIn(directory.path()), 2U);
    ASSERT_TRUE(copied(from, from)) << "a file onto itself";
    EXPECT_EQ(contentsOf(from).size(), 200003U);
}

TEST(CopyFile, KeepsThePermissionsOfTheSource)
{
    const TemporaryDirectory directory;
    const auto from = directory.write("from", "x");
    ASSERT_EQ(::chmod(from.c_str(), 0640), 0);
    ASSERT_TRUE(copied(from, directory / "to"));
    struct stat status = {};
    ASSERT_EQ(::stat((directory / "to").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640U);
}

TEST(CopyFile, RefusesWhatIsNoPlainFile)
{
    const TemporaryDirectory directory;
    const auto from = directory.write("from", "x");
    std::filesystem::create_directory(directory / "folder");
    EXPECT_FALSE(copied(directory / "folder", directory / "to"));
    EXPECT_FALSE(copied(from, directory / "folder"));
    EXPECT_FALSE(copied(directory / "missing", directory / "to"));
    EXPECT_FALSE(copied(from, directory / "missing/to"));
    EXPECT_FALSE(copied("/dev/zero", directory / "to")) << "which would never end";
    ASSERT_EQ(::mkfifo((directory / "pipe").c_str(), 0600), 0);
    EXPECT_FALSE(copied(directory / "pipe", directory / "to")) << "which would wait for a writer";
    EXPECT_FALSE(copied(from, directory / "pipe"));
    EXPECT_EQ(entriesIn(directory.path()), 3U);
}

TEST(CopyFile, WithoutANameForTheCopyFailsBeforeItMakesAFile)
{
    const TemporaryDirectory directory;
    const auto from = directory.write("from", "x");
    EXPECT_FALSE(copied(from, {}));
    EXPECT_NE(contentsOf(logFile()).find("there is no name for the copy"), std::string::npos);
}

TEST(SystemErrors, SayWhatToDo)
{
    using Qx::Host::systemProblem;
    EXPECT_EQ(systemProblem(ENOSPC), "No space left on device; free some, or choose another place");
    for (const int error : {EACCES, EROFS, EDQUOT, EFBIG, EMFILE, ENFILE, EIO, ELOOP, ENOENT, ENOTDIR}) {
        EXPECT_NE(systemProblem(error).find("; "), std::string::npos) << systemProblem(error);
    }
    EXPECT_EQ(systemProblem(EINVAL), "Invalid argument");
}

TEST(CopyFile, AFullDiskLeavesTheDestinationAsItWas)
{
    const TemporaryDirectory directory;
    const auto from = directory.write("from", std::string(1 << 20, 'x'));
    const auto to = directory.write("to", "old");
    // A limit on the size of files fails a write in the middle, as a full disk does.
    struct rlimit before = {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    const struct rlimit small = {300000, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const bool success = copied(from, to);
    ::setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, previous);
    EXPECT_FALSE(success);
    EXPECT_EQ(contentsOf(to), "old");
    EXPECT_EQ(entriesIn(directory.path()), 2U);
    EXPECT_NE(contentsOf(logFile()).find("Copying"), std::string::npos);
}

TEST(Files, AnUnsetDirectoryHasNoEntries)
{
    const TemporaryDirectory directory;
    directory.write("effect.fx", "");
    directory.write("table.cube", "");
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(directory.path());
    EXPECT_TRUE(list("*.fx").empty());
    EXPECT_TRUE(list("*", iFileManager::AllEntries).empty());
    Qx::Vector<LightweightString<wchar_t>> contents;
    getDirectoryContents(nullptr, L"*.*", contents, DirectoryContentsFiles | DirectoryContentsFullPaths);
    EXPECT_TRUE(contents.empty());
    EXPECT_EQ(namesOf(list("./*.fx")), Names{"effect.fx"}) << "the working directory can be named";
    std::filesystem::current_path(before);
}
