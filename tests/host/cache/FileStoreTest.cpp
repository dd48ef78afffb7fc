// The store of checksummed files: whatever happens to its files, an entry is whole or absent.

#include "host/cache/FileStore.h"
#include "host/files/SystemError.h"
#include "tests/TemporaryDirectory.h"
#include "tests/host/cache/Files.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Qx::CacheTests {
namespace {

using Host::Cache::Digest;
using Host::Cache::digestOf;
using Host::Cache::FileStore;
using Host::Cache::hexadecimal;
using Host::Cache::Kind;
namespace fs = std::filesystem;

constexpr std::uint64_t plenty = 64U << 20U;

std::vector<std::byte> bytesOf(std::string_view text)
{
    const auto bytes = std::as_bytes(std::span(text));
    return {bytes.begin(), bytes.end()};
}

void setAge(const fs::path& file, std::chrono::seconds age)
{
    fs::last_write_time(file, fs::file_time_type::clock::now() - age);
}

class FileStoreTest : public testing::Test
{
protected:
    FileStore open(std::uint64_t mostBytes = plenty)
    {
        return FileStore(directory(), mostBytes, [this](const std::string& line) { lines_.push_back(line); });
    }

    fs::path directory() const { return temporary_.path() / "store"; }
    fs::path fileOf(std::string_view key) const
    {
        return directory() / (hexadecimal(digestOf(key)) + ".effect");
    }
    std::size_t filesThere() const
    {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(directory()), fs::directory_iterator()));
    }
    std::uint64_t bytesThere() const
    {
        std::uint64_t bytes = 0;
        for (const fs::directory_entry& entry : fs::directory_iterator(directory())) {
            bytes += entry.file_size();
        }
        return bytes;
    }
    const std::vector<std::string>& lines() const { return lines_; }

    const Qx::Test::TemporaryDirectory temporary_;

private:
    std::vector<std::string> lines_;
};

TEST_F(FileStoreTest, GivesBackWhatItWasGiven)
{
    FileStore store = open();
    store.store(Kind::Effect, digestOf("a"), bytesOf("content of a"));
    store.store(Kind::Effect, digestOf("empty"), {});
    EXPECT_EQ(store.load(Kind::Effect, digestOf("a")), bytesOf("content of a"));
    EXPECT_EQ(store.load(Kind::Effect, digestOf("empty")), bytesOf(""));
    EXPECT_FALSE(store.load(Kind::Effect, digestOf("b")));
    EXPECT_FALSE(store.load(Kind::Pipelines, digestOf("a")));
    store.store(Kind::Effect, digestOf("a"), bytesOf("another"));
    EXPECT_EQ(open().load(Kind::Effect, digestOf("a")), bytesOf("another"));
    EXPECT_TRUE(lines().empty());
}

TEST_F(FileStoreTest, CountsEachKind)
{
    FileStore store = open();
    EXPECT_EQ(store.usage(Kind::Effect).entries, 0U);
    store.store(Kind::Effect, digestOf("a"), bytesOf("1"));
    store.store(Kind::Effect, digestOf("b"), bytesOf("2"));
    store.store(Kind::Pipelines, digestOf("a"), bytesOf("3"));
    EXPECT_EQ(store.usage(Kind::Effect).entries, 2U);
    EXPECT_EQ(store.usage(Kind::Pipelines).entries, 1U);
    EXPECT_EQ(store.usage(Kind::Effect).bytes + store.usage(Kind::Pipelines).bytes, bytesThere());
}

TEST_F(FileStoreTest, IsMadeForItsUserAlone)
{
    const mode_t before = umask(0);
    open().store(Kind::Effect, digestOf("a"), bytesOf("1"));
    umask(before);
    EXPECT_EQ(fs::status(directory()).permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::status(fileOf("a")).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(FileStoreTest, AnEntryCutAtAnyLengthIsAbsentAndOneMessage)
{
    FileStore store = open();
    store.store(Kind::Effect, digestOf("a"), bytesOf("some content"));
    const std::string whole = readFile(fileOf("a"));
    for (std::size_t length = 0; length < whole.size(); ++length) {
        writeFile(fileOf("a"), std::string_view(whole).substr(0, length));
        ASSERT_FALSE(store.load(Kind::Effect, digestOf("a"))) << length;
        ASSERT_FALSE(fs::exists(fileOf("a"))) << length;
    }
    ASSERT_EQ(lines().size(), 1U);
    EXPECT_NE(lines()[0].find("damaged"), std::string::npos) << lines()[0];
    EXPECT_NE(lines()[0].find(directory().string()), std::string::npos) << lines()[0];
    store.store(Kind::Effect, digestOf("a"), bytesOf("some content"));
    EXPECT_EQ(store.load(Kind::Effect, digestOf("a")), bytesOf("some content"));
}

TEST_F(FileStoreTest, AnEntryWithAnyByteChangedIsAbsentAndOneMessage)
{
    FileStore store = open();
    store.store(Kind::Effect, digestOf("a"), bytesOf("some content"));
    const std::string whole = readFile(fileOf("a"));
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (const int bits : {0x01, 0x80, 0xFF}) {
            std::string changed = whole;
            changed[at] = static_cast<char>(changed[at] ^ bits);
            writeFile(fileOf("a"), changed);
            ASSERT_FALSE(store.load(Kind::Effect, digestOf("a"))) << at;
        }
    }
    EXPECT_EQ(lines().size(), 1U);
    writeFile(fileOf("a"), whole + "x");
    EXPECT_FALSE(store.load(Kind::Effect, digestOf("a")));
}

TEST_F(FileStoreTest, AnEntryUnderTheNameOfAnotherIsAbsent)
{
    FileStore store = open();
    store.store(Kind::Effect, digestOf("a"), bytesOf("content of a"));
    fs::copy_file(fileOf("a"), fileOf("b"));
    EXPECT_FALSE(store.load(Kind::Effect, digestOf("b")));
    const fs::path pipelines = directory() / (hexadecimal(digestOf("a")) + ".pipelines");
    fs::copy_file(fileOf("a"), pipelines);
    EXPECT_FALSE(store.load(Kind::Pipelines, digestOf("a")));
    EXPECT_TRUE(store.load(Kind::Effect, digestOf("a")));
}

TEST_F(FileStoreTest, AnEntryOfAnotherFormatIsMadeAnewWithoutAWord)
{
    FileStore store = open();
    writeFile(fileOf("a"), "QXCACHE2" + std::string(200, 'x'));
    fs::permissions(directory(), fs::perms::owner_all);
    EXPECT_FALSE(store.load(Kind::Effect, digestOf("a")));
    EXPECT_TRUE(lines().empty());
}

TEST_F(FileStoreTest, TheLongestUnusedEntriesGoWhenTheBoundIsReached)
{
    const std::vector<std::byte> content(1000);
    FileStore store = open();
    for (const char* key : {"a", "b", "c"}) {
        store.store(Kind::Effect, digestOf(key), content);
    }
    const std::uint64_t entry = bytesThere() / 3;
    setAge(fileOf("a"), std::chrono::hours(3));
    setAge(fileOf("b"), std::chrono::hours(2));
    setAge(fileOf("c"), std::chrono::hours(1));
    FileStore bounded = open(3 * entry);
    EXPECT_TRUE(bounded.load(Kind::Effect, digestOf("a"))); // the most recently used from now on
    bounded.store(Kind::Effect, digestOf("d"), content);
    EXPECT_TRUE(fs::exists(fileOf("a")));
    EXPECT_FALSE(fs::exists(fileOf("b")));
    EXPECT_TRUE(fs::exists(fileOf("c")));
    EXPECT_TRUE(fs::exists(fileOf("d")));
    EXPECT_LE(bytesThere(), 3 * entry);
    EXPECT_TRUE(lines().empty());
}

TEST_F(FileStoreTest, ABoundThatShrinksIsKeptFromTheNextEntryOn)
{
    FileStore store = open();
    for (int i = 0; i < 20; ++i) {
        store.store(Kind::Effect, digestOf(std::to_string(i)), std::vector<std::byte>(1000));
    }
    open(5000).store(Kind::Pipelines, digestOf("p"), std::vector<std::byte>(1000));
    EXPECT_LE(bytesThere(), 5000U);
    EXPECT_EQ(store.usage(Kind::Pipelines).entries, 1U);
}

TEST_F(FileStoreTest, AnEntryBeyondTheBoundIsNotKeptAndCostsNoOther)
{
    FileStore store = open(2000);
    store.store(Kind::Effect, digestOf("small"), std::vector<std::byte>(100));
    store.store(Kind::Effect, digestOf("large"), std::vector<std::byte>(2000));
    EXPECT_FALSE(store.load(Kind::Effect, digestOf("large")));
    EXPECT_TRUE(store.load(Kind::Effect, digestOf("small")));
}

TEST_F(FileStoreTest, FilesOfOthersStayWhereTheyAre)
{
    FileStore store = open(1500);
    store.store(Kind::Effect, digestOf("a"), std::vector<std::byte>(1000));
    const std::vector<std::string> foreign{"notes.txt", "0.effect", std::string(64, 'G') + ".effect",
                                           std::string(64, '0') + ".effect.bak", "x.part"};
    for (const std::string& name : foreign) {
        writeFile(directory() / name, std::string(3000, 'x'));
    }
    fs::create_directory(directory() / (std::string(64, '0') + ".effect"));
    store.store(Kind::Effect, digestOf("b"), std::vector<std::byte>(1000));
    EXPECT_EQ(store.clear(), "");
    EXPECT_EQ(filesThere(), foreign.size() + 1);
}

TEST_F(FileStoreTest, WhatADeadWriterLeftGoesAfterAWhile)
{
    FileStore store = open();
    store.store(Kind::Effect, digestOf("a"), bytesOf("1"));
    const fs::path old = fileOf("b").string() + ".17.part";
    const fs::path recent = fileOf("b").string() + ".18.part";
    writeFile(old, "half");
    writeFile(recent, "half");
    setAge(old, std::chrono::hours(2));
    store.store(Kind::Effect, digestOf("c"), bytesOf("1"));
    EXPECT_FALSE(fs::exists(old));
    EXPECT_TRUE(fs::exists(recent));
    EXPECT_EQ(store.clear(), "");
    EXPECT_EQ(filesThere(), 0U);
}

TEST_F(FileStoreTest, AFileInTheDirectorysPlaceIsOneMessage)
{
    writeFile(directory(), "no directory");
    FileStore store = open();
    for (int i = 0; i < 3; ++i) {
        store.store(Kind::Effect, digestOf("a"), bytesOf("1"));
        EXPECT_FALSE(store.load(Kind::Effect, digestOf("a")));
    }
    EXPECT_EQ(lines().size(), 1U);
    EXPECT_EQ(readFile(directory()), "no directory");
    EXPECT_NE(store.clear(), "");
    EXPECT_EQ(store.usage(Kind::Effect).entries, 0U);
}

TEST_F(FileStoreTest, NoPlaceForTheDirectoryIsOneMessage)
{
    writeFile(temporary_.path() / "file", "x");
    std::vector<std::string> said;
    FileStore store(temporary_.path() / "file/below/it", plenty,
                    [&](const std::string& line) { said.push_back(line); });
    store.store(Kind::Effect, digestOf("a"), bytesOf("1"));
    store.store(Kind::Effect, digestOf("b"), bytesOf("1"));
    EXPECT_FALSE(store.load(Kind::Effect, digestOf("a")));
    ASSERT_EQ(said.size(), 1U);
    EXPECT_NE(said[0].find("cannot be written"), std::string::npos) << said[0];
}

TEST_F(FileStoreTest, ADirectoryThatIsALinkIsUsed)
{
    fs::create_directory(temporary_.path() / "elsewhere");
    fs::permissions(temporary_.path() / "elsewhere", fs::perms::owner_all);
    fs::create_directory_symlink(temporary_.path() / "elsewhere", directory());
    open().store(Kind::Effect, digestOf("a"), bytesOf("1"));
    EXPECT_TRUE(open().load(Kind::Effect, digestOf("a")));
    EXPECT_TRUE(lines().empty());
}

TEST_F(FileStoreTest, ALinkToNothingIsOneMessage)
{
    fs::create_directory_symlink(temporary_.path() / "nowhere", directory());
    FileStore store = open();
    store.store(Kind::Effect, digestOf("a"), bytesOf("1"));
    store.store(Kind::Effect, digestOf("a"), bytesOf("1"));
    EXPECT_FALSE(store.load(Kind::Effect, digestOf("a")));
    EXPECT_EQ(lines().size(), 1U);
}

TEST_F(FileStoreTest, ADirectoryThatOthersMayWriteToIsNotUsed)
{
    open().store(Kind::Effect, digestOf("a"), bytesOf("1"));
    fs::permissions(directory(), fs::perms::owner_all | fs::perms::group_write);
    FileStore store = open();
    EXPECT_FALSE(store.load(Kind::Effect, digestOf("a")));
    store.store(Kind::Effect, digestOf("b"), bytesOf("1"));
    EXPECT_EQ(filesThere(), 1U);
    EXPECT_EQ(lines().size(), 1U);
}

TEST_F(FileStoreTest, AnEntryThatOthersMayWriteToIsNotUsed)
{
    FileStore store = open();
    store.store(Kind::Effect, digestOf("a"), bytesOf("1"));
    fs::permissions(fileOf("a"), fs::perms::others_write, fs::perm_options::add);
    EXPECT_FALSE(store.load(Kind::Effect, digestOf("a")));
    store.store(Kind::Effect, digestOf("a"), bytesOf("2"));
    EXPECT_EQ(store.load(Kind::Effect, digestOf("a")), bytesOf("2"));
    EXPECT_EQ(lines().size(), 1U);
}

TEST_F(FileStoreTest, WhatBelongsToAnotherUserIsNotUsed)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only the superuser can give files away";
    }
    constexpr uid_t nobody = 65534;
    FileStore store = open();
    store.store(Kind::Effect, digestOf("a"), bytesOf("1"));
    ASSERT_EQ(chown(fileOf("a").c_str(), nobody, nobody), 0);
    EXPECT_FALSE(store.load(Kind::Effect, digestOf("a")));
    ASSERT_EQ(chown(fileOf("a").c_str(), 0, 0), 0);
    EXPECT_TRUE(store.load(Kind::Effect, digestOf("a")));
    ASSERT_EQ(chown(directory().c_str(), nobody, nobody), 0);
    EXPECT_FALSE(store.load(Kind::Effect, digestOf("a")));
}

/// Runs `work` in a process without superuser rights, for which files can be read-only, in a directory of its
/// own. Returns false if `work` does or if the process cannot run.
bool asOrdinaryUser(const fs::path& place, const std::function<bool()>& work)
{
    constexpr uid_t nobody = 65534;
    const bool superuser = geteuid() == 0;
    if (superuser && chown(place.c_str(), nobody, nobody) != 0) {
        return false;
    }
    const pid_t child = fork();
    if (child == 0) {
        const bool changed = !superuser || (setgid(nobody) == 0 && setuid(nobody) == 0);
        _exit(changed && work() ? 0 : 1);
    }
    int status = 1;
    return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

TEST_F(FileStoreTest, AReadOnlyDirectoryStillGivesAndIsOneMessage)
{
    EXPECT_TRUE(asOrdinaryUser(temporary_.path(), [this] {
        FileStore store = open();
        store.store(Kind::Effect, digestOf("a"), bytesOf("1"));
        fs::permissions(directory(), fs::perms::owner_read | fs::perms::owner_exec);
        for (const char* key : {"a", "b", "c"}) {
            store.store(Kind::Effect, digestOf(key), bytesOf("2"));
        }
        const bool gives = store.load(Kind::Effect, digestOf("a")) == bytesOf("1");
        const std::string reason = Host::systemProblem(EACCES);
        const bool complains = lines().size() == 1 && lines()[0].ends_with(reason);
        const bool tells = store.problem() == "it cannot be written: " + reason;
        fs::permissions(directory(), fs::perms::owner_all);
        return gives && complains && tells && filesThere() == 1;
    }));
}

TEST_F(FileStoreTest, LinksPipesAndDirectoriesAreNoEntries)
{
    FileStore store = open();
    store.store(Kind::Effect, digestOf("a"), bytesOf("1"));
    fs::rename(fileOf("a"), directory() / "moved");
    fs::create_symlink(directory() / "moved", fileOf("a"));
    ASSERT_EQ(mkfifo(fileOf("pipe").c_str(), 0600), 0);
    fs::create_directory(fileOf("directory"));
    for (const char* key : {"a", "pipe", "directory"}) {
        EXPECT_FALSE(store.load(Kind::Effect, digestOf(key))) << key;
    }
    store.store(Kind::Effect, digestOf("a"), bytesOf("2"));
    EXPECT_EQ(store.load(Kind::Effect, digestOf("a")), bytesOf("2"));
    EXPECT_FALSE(fs::is_symlink(fileOf("a")));
    store.store(Kind::Effect, digestOf("pipe"), bytesOf("3"));
    EXPECT_EQ(store.load(Kind::Effect, digestOf("pipe")), bytesOf("3"));
}

/// During its lifetime, files cannot grow beyond so many bytes, as on a full disk.
class FullDisk
{
public:
    explicit FullDisk(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN))
    {
        EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &before_), 0);
        rlimit limited = before_;
        limited.rlim_cur = bytes;
        EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    }
    ~FullDisk()
    {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    void (*handler_)(int);
    rlimit before_{};
};

TEST_F(FileStoreTest, ADiskThatIsFullKeepsTheOldEntryAndIsOneMessage)
{
    FileStore store = open();
    store.store(Kind::Effect, digestOf("a"), bytesOf("old"));
    {
        const FullDisk full(300);
        store.store(Kind::Effect, digestOf("a"), std::vector<std::byte>(1000));
        store.store(Kind::Effect, digestOf("b"), std::vector<std::byte>(1000));
        EXPECT_TRUE(store.problem().starts_with("it cannot be written: ")) << store.problem();
    }
    EXPECT_EQ(store.problem(), "");
    EXPECT_EQ(store.load(Kind::Effect, digestOf("a")), bytesOf("old"));
    EXPECT_FALSE(store.load(Kind::Effect, digestOf("b")));
    EXPECT_EQ(filesThere(), 1U);
    EXPECT_EQ(lines().size(), 1U);
}

TEST_F(FileStoreTest, ClearingEmptiesItForEverybodyAndItFillsAgain)
{
    FileStore store = open();
    EXPECT_EQ(store.clear(), "");
    store.store(Kind::Effect, digestOf("a"), bytesOf("1"));
    store.store(Kind::Pipelines, digestOf("a"), bytesOf("1"));
    EXPECT_EQ(open().clear(), "");
    EXPECT_FALSE(store.load(Kind::Effect, digestOf("a")));
    fs::remove_all(directory());
    store.store(Kind::Effect, digestOf("a"), bytesOf("2"));
    EXPECT_EQ(store.load(Kind::Effect, digestOf("a")), bytesOf("2"));
    EXPECT_TRUE(lines().empty());
}

/// The work of each process that fills a store. An entry is absent, or has the content of its key.
bool fillAndCheck(const fs::path& directory, int rounds)
{
    bool right = true;
    FileStore store(directory, 40'000, [&](const std::string&) { right = false; });
    for (int round = 0; round < rounds; ++round) {
        const std::string key = std::to_string(round % 13);
        const std::vector<std::byte> content(1000 + static_cast<std::size_t>(round % 13) * 777,
                                             static_cast<std::byte>(round % 13));
        if (const auto found = store.load(Kind::Effect, digestOf(key)); found && *found != content) {
            return false;
        }
        store.store(Kind::Effect, digestOf(key), content);
        if (round % 50 == 49 && !store.clear().empty()) {
            return false;
        }
    }
    return right;
}

TEST_F(FileStoreTest, SeveralProcessesFillAndClearOneStoreAtOnce)
{
    std::vector<pid_t> children;
    for (int i = 0; i < 3; ++i) {
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            _exit(fillAndCheck(directory(), 300) ? 0 : 1);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    FileStore store = open(40'000);
    store.store(Kind::Effect, digestOf("last"), bytesOf("1"));
    EXPECT_LE(bytesThere(), 40'000U);
    EXPECT_TRUE(store.load(Kind::Effect, digestOf("last")));
    for (const fs::directory_entry& entry : fs::directory_iterator(directory())) {
        EXPECT_EQ(entry.path().extension(), ".effect") << entry.path();
    }
}

} // namespace
} // namespace Qx::CacheTests
