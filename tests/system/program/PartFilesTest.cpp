#include "tools/qxhost/media/files/PartFiles.h"
#include "tests/TemporaryDirectory.h"
#include "tools/qxhost/media/files/HeldFile.h"
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
#include <vector>

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

fs::path leftBehind(const fs::path& file)
{
    fs::path part = Media::unfinishedName(file);
    std::ofstream(part) << "part";
    return part;
}

/// The same file as if written by another machine, or before a restart.
fs::path ofAnotherSystem(const fs::path& part)
{
    std::string name = part.native();
    const std::size_t digit = name.rfind('-') - 1;
    name[digit] = name[digit] == '0' ? '1' : '0';
    fs::rename(part, name);
    return name;
}

TEST_F(PartFiles, of_one_output_have_names_of_their_own)
{
    const fs::path file = directory_ / "clip.mkv";
    EXPECT_NE(Media::unfinishedName(file), Media::unfinishedName(file));
    EXPECT_EQ(Media::unfinishedName(file).parent_path(), directory_);
}

TEST_F(PartFiles, that_nobody_holds_are_cleared_and_those_of_a_living_run_stay)
{
    const auto living = OutputFile::create(directory_ / "clip.mkv", false);
    ASSERT_TRUE(living);
    const fs::path left = leftBehind(directory_ / "clip.mkv");
    const fs::path leftOfAnother = leftBehind(directory_ / "another.png");
    OutputFile::clearAbandoned(directory_ / "clip.mkv");
    EXPECT_FALSE(fs::exists(left));
    EXPECT_FALSE(fs::exists(leftOfAnother));
    EXPECT_TRUE(fs::exists(living.value().part()));
}

TEST_F(PartFiles, of_another_machine_stay_for_a_day)
{
    const fs::path recent = ofAnotherSystem(leftBehind(directory_ / "recent.mkv"));
    const fs::path old = ofAnotherSystem(leftBehind(directory_ / "old.mkv"));
    fs::last_write_time(old, fs::file_time_type::clock::now() - std::chrono::hours(25));
    OutputFile::clearAbandoned(directory_ / "clip.mkv");
    EXPECT_TRUE(fs::exists(recent));
    EXPECT_FALSE(fs::exists(old));
}

TEST_F(PartFiles, that_only_look_alike_stay)
{
    const std::string part = leftBehind(directory_ / "clip.mkv").filename().native();
    fs::remove(directory_ / part);
    const std::vector<std::string> others{"." + part.substr(1) + "0", part.substr(1), ".clip.mkv.part-123",
                                          part.substr(part.find(".part-"))};
    for (const std::string& name : others) {
        std::ofstream(directory_ / name) << "of somebody else";
    }
    fs::create_symlink(directory_ / others[0], directory_ / part);
    OutputFile::clearAbandoned(directory_ / "clip.mkv");
    for (const std::string& name : others) {
        EXPECT_TRUE(fs::exists(directory_ / name)) << name;
    }
    EXPECT_TRUE(fs::is_symlink(directory_ / part));
}

TEST_F(PartFiles, are_completed_while_another_run_clears)
{
    std::atomic<bool> done = false;
    std::thread another([&] {
        while (!done) {
            OutputFile::clearAbandoned(directory_ / "clip.mkv");
        }
    });
    for (int i = 0; i < 300; ++i) {
        auto output = OutputFile::create(directory_ / "clip.mkv", true);
        ASSERT_TRUE(output) << output.text();
        const Media::Status status = output.value().commit();
        EXPECT_TRUE(status) << status.text();
    }
    done = true;
    another.join();
}

TEST_F(PartFiles, go_where_a_link_leads)
{
    fs::create_directory(directory_ / "far");
    std::ofstream(directory_ / "far" / "target.mkv") << "old";
    fs::create_symlink("far/target.mkv", directory_ / "near.mkv");
    fs::create_symlink("near.mkv", directory_ / "nearer.mkv");
    EXPECT_FALSE(OutputFile::create(directory_ / "nearer.mkv", false));
    auto output = OutputFile::create(directory_ / "nearer.mkv", true);
    ASSERT_TRUE(output) << output.text();
    EXPECT_EQ(output.value().part().parent_path(), directory_ / "far");
    ASSERT_TRUE(output.value().write("new", 3));
    ASSERT_TRUE(output.value().commit());
    EXPECT_TRUE(fs::is_symlink(directory_ / "nearer.mkv"));
    EXPECT_TRUE(fs::is_symlink(directory_ / "near.mkv"));
    std::string text;
    std::ifstream(directory_ / "far" / "target.mkv") >> text;
    EXPECT_EQ(text, "new");
    EXPECT_EQ(output.value().file(), directory_ / "nearer.mkv");
}

TEST_F(PartFiles, go_where_a_link_to_nothing_leads)
{
    fs::create_symlink("later.mkv", directory_ / "link.mkv");
    auto output = OutputFile::create(directory_ / "link.mkv", false);
    ASSERT_TRUE(output) << output.text();
    ASSERT_TRUE(output.value().commit());
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(directory_ / "later.mkv")));
    EXPECT_TRUE(fs::is_symlink(directory_ / "link.mkv"));
}

TEST_F(PartFiles, of_links_that_lead_in_a_circle_are_refused)
{
    fs::create_symlink("b.mkv", directory_ / "a.mkv");
    fs::create_symlink("a.mkv", directory_ / "b.mkv");
    const auto output = OutputFile::create(directory_ / "a.mkv", true);
    ASSERT_FALSE(output);
    EXPECT_NE(output.text().find("a.mkv"), std::string::npos) << output.text();
}

} // namespace

} // namespace Qx::Program
