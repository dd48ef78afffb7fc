#include "host/cache/FileStore.h"
#include "host/files/CopyFile.h"
#include "tests/TemporaryDirectory.h"
#include "tests/faults/FileFaults.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <new>
#include <set>
#include <string>
#include <vector>

namespace {

/// Of this thread: after as many allocations the next one fails; below zero none does.
thread_local int allocationsLeft = -1;

} // namespace

// NOLINTBEGIN(misc-new-delete-overloads): the others call these
void* operator new(std::size_t size)
{
    if (allocationsLeft >= 0 && allocationsLeft-- == 0) {
        throw std::bad_alloc();
    }
    if (void* memory = std::malloc(std::max<std::size_t>(size, 1))) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}
// NOLINTEND(misc-new-delete-overloads)

namespace Qx::Faults {

namespace {

namespace fs = std::filesystem;

using Host::Cache::Digest;
using Host::Cache::FileStore;
using Host::Cache::Kind;

std::vector<std::byte> bytesOf(const std::string& text)
{
    const auto* begin = reinterpret_cast<const std::byte*>(text.data());
    return {begin, begin + text.size()};
}

std::string contentsOf(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::set<std::string> namesIn(const fs::path& directory)
{
    std::set<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

/// Makes each call of these kinds fail in turn. `round` gets the fault's name and whether it is one that the
/// work must overcome; it prepares, calls its argument around the work, and checks.
class Walk : public testing::Test
{
protected:
    using Work = std::function<void()>;

    void walk(const std::function<void(const std::string& fault, bool harmless,
                                       const std::function<void(const Work&)>& failing)>& round)
    {
        int sites = 0;
        for (const std::string call : {"write", "sync", "rename", "open", "size", "map"}) {
            for (const std::string error : {"ENOSPC", "EIO", "EINTR", "SHORT"}) {
                if (error == "SHORT" && call != "write") {
                    continue;
                }
                bool fired = true;
                for (int n = 1; fired; ++n) {
                    const std::string fault = call + ':' + error + ':' + std::to_string(n);
                    round(fault, error == "EINTR" || error == "SHORT", [&](const Work& work) {
                        qxArmFault(fault.c_str(), place().c_str(), nullptr);
                        work();
                        fired = qxDisarmFault() != 0;
                    });
                    sites += fired ? 1 : 0;
                    ASSERT_LT(n, 100) << fault;
                }
            }
        }
        std::printf("%d faults\n", sites);
        EXPECT_GT(sites, 10);
    }

    fs::path place() const { return fs::canonical(directory_.path()); }

    const Qx::Test::TemporaryDirectory directory_;
};

class StoreWalk : public Walk, public testing::WithParamInterface<Kind>
{
};

TEST_P(StoreWalk, AnEntryIsTheOldOneOrTheNewOneWhateverFails)
{
    const Digest key = Host::Cache::digestOf("key");
    const std::vector<std::byte> before = bytesOf("before");
    const std::vector<std::byte> after = bytesOf(std::string(100'000, 'x'));
    walk([&](const std::string& fault, bool harmless, const auto& failing) {
        const fs::path cache = place() / "cache";
        fs::remove_all(cache);
        FileStore(cache, 1 << 20, {}).store(GetParam(), key, before);
        int complaints = 0;
        FileStore store(cache, 1 << 20, [&](const std::string&) { ++complaints; });
        failing([&] { store.store(GetParam(), key, after); });
        const auto found = FileStore(cache, 1 << 20, {}).load(GetParam(), key);
        ASSERT_TRUE(found) << fault;
        EXPECT_TRUE(*found == after || (*found == before && !harmless)) << fault;
        EXPECT_LE(complaints, harmless ? 0 : 1) << fault;
        EXPECT_TRUE(*found == after || complaints == 1) << fault;
        EXPECT_EQ(namesIn(cache).size(), 1U) << fault << ": an unfinished file is left";
    });
}

TEST_P(StoreWalk, AnEntryThatCannotBeReadNowIsNotLost)
{
    const Digest key = Host::Cache::digestOf("key");
    const std::vector<std::byte> content = bytesOf("content");
    const fs::path cache = place() / "cache";
    FileStore(cache, 1 << 20, {}).store(GetParam(), key, content);
    for (const char* error : {"EIO", "EINTR"}) {
        for (int n = 1, fired = 1; fired != 0; ++n) {
            const std::string fault = std::string("open:") + error + ':' + std::to_string(n);
            FileStore store(cache, 1 << 20, {});
            qxArmFault(fault.c_str(), cache.c_str(), nullptr);
            const auto found = store.load(GetParam(), key);
            fired = qxDisarmFault();
            EXPECT_TRUE(!found || *found == content) << fault;
            EXPECT_TRUE(found || error == std::string("EIO")) << fault;
            EXPECT_TRUE(FileStore(cache, 1 << 20, {}).load(GetParam(), key)) << fault;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(, StoreWalk, testing::Values(Kind::Effect, Kind::Pipelines), [](const auto& each) {
    return std::string(each.param == Kind::Effect ? "Effects" : "Pipelines");
});

TEST_F(Walk, ACopiedFileIsTheOldOneOrTheNewOneWhateverFails)
{
    const fs::path from = place() / "from";
    const fs::path to = place() / "to";
    const std::string after(200'000, 'x');
    std::ofstream(from, std::ios::binary) << after;
    walk([&](const std::string& fault, bool harmless, const auto& failing) {
        std::ofstream(to, std::ios::binary) << "before";
        std::string problem;
        failing([&] { problem = Host::copyFileWhole(from, to); });
        const std::string found = contentsOf(to);
        EXPECT_TRUE(found == after || (found == "before" && !harmless && !problem.empty())) << fault;
        EXPECT_TRUE(problem.empty() || !harmless) << fault << ' ' << problem;
        EXPECT_EQ(std::count(problem.begin(), problem.end(), '\n'), 0) << problem;
        EXPECT_EQ(namesIn(place()), (std::set<std::string>{"from", "to"})) << fault;
    });
}

TEST_F(Walk, AFailedCopyLeavesNothingBesideItWhicheverAllocationFails)
{
    const std::string from = place() / ("from" + std::string(100, 'x')); // too long for a string's own room
    const std::string to = place() / ("to" + std::string(100, 'x'));
    std::ofstream(from, std::ios::binary) << "after";
    bool failed = true;
    for (int n = 0; failed; ++n) {
        ASSERT_LT(n, 100);
        failed = false;
        std::ofstream(to, std::ios::binary) << "before";
        qxArmFault("write:ENOSPC:1", place().c_str(), nullptr); // whose message needs memory
        allocationsLeft = n;
        try {
            static_cast<void>(Host::copyFileWhole(from, to));
        } catch (const std::bad_alloc&) {
            failed = true;
        }
        allocationsLeft = -1;
        qxDisarmFault();
        EXPECT_EQ(contentsOf(to), "before") << n;
        EXPECT_EQ(namesIn(place()).size(), 2U) << n;
    }
}

/// What a power cut would undo is on disk before anything refers to it.
TEST_F(Walk, ContentsAreSyncedBeforeTheirNameAndTheDirectoryAfterIt)
{
    const fs::path log = place().string() + ".log";
    const fs::path cache = place() / "cache";
    const fs::path file = place() / "from";
    std::ofstream(file, std::ios::binary) << "text";
    fs::create_directory(cache);
    const std::vector<std::pair<std::string, Work>> works{
        {"cache",
         [&] {
             FileStore(cache, 1 << 20, {}).store(Kind::Effect, Host::Cache::digestOf("a"), bytesOf("x"));
         }},
        {"copy", [&] { EXPECT_EQ(Host::copyFileWhole(file, cache / "copy"), ""); }}};
    for (const auto& [name, work] : works) {
        fs::remove(log);
        qxArmFault("all:EIO:0", cache.c_str(), log.c_str());
        work();
        qxDisarmFault();
        std::vector<std::string> order;
        std::ifstream lines(log);
        for (std::string call, path; lines >> call >> path;) {
            if (call == "write" || call == "sync" || call == "rename") {
                order.push_back(call + (path == cache ? " directory" : ""));
            }
        }
        EXPECT_EQ(order, (std::vector<std::string>{"write", "sync", "rename", "sync directory"})) << name;
    }
    fs::remove(log);
}

} // namespace

} // namespace Qx::Faults
