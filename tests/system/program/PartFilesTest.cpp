#include "tools/qxhost/media/files/PartFiles.h"
#include "tests/TemporaryDirectory.h"
#include "tools/qxhost/media/files/OutputFile.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>

namespace Qx::Program {

namespace {

namespace fs = std::filesystem;
using Media::OutputFile;

class PartFiles : public testing::Test
{
protected:
    const Qx::Test::TemporaryDirectory temporary_;
    const fs::path directory_ = temporary_.path();

    /// What a signal handler does, in a process that ends after it.
    static void removeAllAndExit()
    {
        EXPECT_EXIT((Media::PartFiles::removeAll(), std::_Exit(0)), testing::ExitedWithCode(0), "");
    }
};

TEST_F(PartFiles, a_handler_removes_what_is_unfinished_and_nothing_else)
{
    auto unfinished = OutputFile::create(directory_ / "unfinished.mkv", false);
    auto finished = OutputFile::create(directory_ / "finished.mkv", false);
    ASSERT_TRUE(unfinished);
    ASSERT_TRUE(finished);
    const fs::path finishedPart = finished.value().part();
    ASSERT_TRUE(finished.value().commit());
    fs::copy(directory_ / "finished.mkv", finishedPart); // no file of ours any more
    removeAllAndExit();
    EXPECT_FALSE(fs::exists(unfinished.value().part()));
    EXPECT_TRUE(fs::exists(directory_ / "finished.mkv"));
    EXPECT_TRUE(fs::exists(finishedPart));
}

TEST_F(PartFiles, places_are_used_again)
{
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(OutputFile::create(directory_ / "picture.png", false));
    }
    auto last = OutputFile::create(directory_ / "picture.png", false);
    ASSERT_TRUE(last);
    removeAllAndExit();
    EXPECT_FALSE(fs::exists(last.value().part()));
}

/// Creates the file a while after the thread has said that it is about to.
void createSlowly(const fs::path& file, std::atomic<bool>& begun)
{
    const Media::PartFiles::Guard guard;
    begun = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    std::ofstream(file) << "part";
    Media::PartFiles::remember(file);
}

TEST_F(PartFiles, one_that_is_being_created_is_waited_for_and_removed)
{
    const fs::path file = directory_ / "late.mkv";
    const auto handler = [&] {
        std::atomic<bool> begun = false;
        std::thread(createSlowly, file, std::ref(begun)).detach();
        while (!begun) {
        }
        Media::PartFiles::removeAll();
        std::this_thread::sleep_for(std::chrono::milliseconds(100)); // for what is not waited for to happen
        std::_Exit(fs::exists(file) ? 1 : 0);
    };
    EXPECT_EXIT(handler(), testing::ExitedWithCode(0), "");
    EXPECT_FALSE(fs::exists(file));
}

TEST_F(PartFiles, none_is_created_once_they_are_being_removed)
{
    const auto handler = [&] {
        Media::PartFiles::removeAll();
        std::thread([&] {
            const auto late = OutputFile::create(directory_ / "late.mkv", false);
            ::pause();
        }).detach();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        std::_Exit(fs::is_empty(directory_) ? 0 : 1);
    };
    EXPECT_EXIT(handler(), testing::ExitedWithCode(0), "");
}

} // namespace

} // namespace Qx::Program
