// The studio when it is killed while it plays.

#include "tests/system/program/studio/StudioTest.h"

#include <csignal>
#include <cstdlib>
#include <set>

namespace Qx::System {

namespace {

class StudioKilled : public StudioTest
{
protected:
    StudioKilled()
    {
        fs::create_directory(at("temporary"));
        ::setenv("TMPDIR", at("temporary").c_str(), 1);
        ::setenv("QXHOST_STUDIO_TOKEN", token_.c_str(), 1);
    }
    ~StudioKilled() override
    {
        ::unsetenv("TMPDIR");
        ::unsetenv("QXHOST_STUDIO_TOKEN");
    }

    /// The processes that run in the test's directory.
    std::set<std::string> processes() const
    {
        std::set<std::string> found;
        for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
            std::error_code error;
            const fs::path directory = fs::read_symlink(entry.path() / "cwd", error);
            if (!error && directory == fs::canonical(directory_)) {
                found.insert(entry.path().filename().string());
            }
        }
        return found;
    }

    const std::string token_ = std::string(60, '5') + "cafe";
};

} // namespace

TEST_F(StudioKilled, leaves_nothing_behind_and_starts_again_at_the_same_address)
{
    makeClip();
    write("dim.fx", dimming());
    start({"clip.mp4", "dim.fx"});
    const std::string address = address_;
    for (int round = 0; round < 3; ++round) {
        Browser browser = window();
        browser.send({{"do", "view"}, {"width", 320}, {"height", 180}});
        browser.ask({{"do", "scopes"}, {"kinds", {"waveform"}}});
        browser.ask({{"do", "play"}});
        browser.picture([](const Json& header) { return header["frame"] > 5; });
        EXPECT_TRUE(browser.lastState()["playing"]);
        EXPECT_EQ(processes(), std::set<std::string>{std::to_string(program_->id())});
        program_->signal(SIGKILL);
        EXPECT_EQ(browser.readToEnd(), 0) << "a program that is killed says nothing";
        EXPECT_EQ(program_->wait().exitCode, 128 + SIGKILL);
        EXPECT_EQ(processes(), std::set<std::string>());
        EXPECT_EQ(filesBeside({"clip.mp4", "dim.fx", "temporary"}), std::vector<std::string>());
        EXPECT_TRUE(fs::is_empty(at("temporary")));
        EXPECT_THROW(window(), std::exception);
        start({"clip.mp4", "dim.fx", "--port", std::to_string(parts_.port)});
        EXPECT_EQ(address_, address);
    }
    // The one that was started last knows nothing of those before.
    Browser browser = window();
    browser.send({{"do", "view"}, {"width", 320}, {"height", 180}});
    EXPECT_EQ(browser.picture().header["frame"], 0);
    EXPECT_EQ(browser.state([](const Json&) { return true; })["playing"], false);
    stop();
}

} // namespace Qx::System
