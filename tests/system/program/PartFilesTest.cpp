#include "tools/qxhost/media/files/PartFiles.h"
#include "tests/TemporaryDirectory.h"
#include "tools/qxhost/media/files/OutputFile.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
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
    Media::PartFiles::removeAll();
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
    Media::PartFiles::removeAll();
    EXPECT_FALSE(fs::exists(last.value().part()));
}

} // namespace

} // namespace Qx::Program
