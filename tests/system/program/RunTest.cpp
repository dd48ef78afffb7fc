#include "tests/system/program/Program.h"

#include <chrono>
#include <csignal>
#include <nlohmann/json.hpp>
#include <thread>

namespace Qx::System {

namespace {

class Runs : public ProgramTest
{
protected:
    void makeClip(int frames) const
    {
        ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=640x360:rate=25", "-frames", std::to_string(frames),
                "-pix_fmt", "yuv422p", "-c:v", "mpeg2video", "-q:v", "2", "-colorspace", "bt709",
                "-color_range", "tv", "clip.mkv"});
    }

    /// Waits until a file whose name begins so is there, while the program runs.
    bool waitForFile(Running& program, const std::string& beginning) const
    {
        using namespace std::chrono_literals;
        while (program.isRunning()) {
            for (const std::string& name : filesBeside({"clip.mkv"})) {
                if (name.starts_with(beginning)) {
                    return true;
                }
            }
            std::this_thread::sleep_for(2ms);
        }
        return false;
    }

    void expectCleanEnd(int signal) const
    {
        makeClip(2000);
        Running program({programPath(), "convert", "clip.mkv", "out.mkv"}, directory_);
        ASSERT_TRUE(waitForFile(program, ".out.mkv.part"));
        program.signal(signal);
        const Outcome outcome = program.wait();
        EXPECT_EQ(outcome.exitCode, 130);
        EXPECT_NE(outcome.err.find("interrupted"), std::string::npos) << outcome.err;
        EXPECT_EQ(filesBeside({"clip.mkv"}), std::vector<std::string>());
    }
};

TEST_F(Runs, an_interrupt_leaves_no_part_of_a_file)
{
    expectCleanEnd(SIGINT);
}

TEST_F(Runs, a_termination_leaves_no_part_of_a_file)
{
    expectCleanEnd(SIGTERM);
}

TEST_F(Runs, a_quit_leaves_no_part_of_a_file)
{
    expectCleanEnd(SIGQUIT);
}

TEST_F(Runs, a_second_interrupt_leaves_no_part_of_a_file_either)
{
    makeClip(2000);
    Running program({programPath(), "convert", "clip.mkv", "out.mkv"}, directory_);
    ASSERT_TRUE(waitForFile(program, ".out.mkv.part"));
    program.signal(SIGTERM); // two of a kind could be taken for one
    program.signal(SIGINT);
    EXPECT_EQ(program.wait().exitCode, 130);
    EXPECT_EQ(filesBeside({"clip.mkv"}), std::vector<std::string>());
}

TEST_F(Runs, what_a_killed_run_left_is_removed_by_the_next)
{
    makeClip(2000);
    Running program({programPath(), "convert", "clip.mkv", "out.mkv"}, directory_);
    ASSERT_TRUE(waitForFile(program, ".out.mkv.part"));
    program.signal(SIGKILL);
    EXPECT_EQ(program.wait().exitCode, 128 + SIGKILL);
    ASSERT_EQ(filesBeside({"clip.mkv"}).size(), 1U);
    const Outcome next = qxhost({"convert", "clip.mkv", "next.mkv", "--frames", "1"});
    EXPECT_EQ(next.exitCode, 0) << next.err;
    EXPECT_EQ(filesBeside({"clip.mkv"}), std::vector<std::string>{"next.mkv"});
}

TEST_F(Runs, an_interrupt_is_told_in_json_too)
{
    makeClip(2000);
    Running program({programPath(), "convert", "--json", "clip.mkv", "out.mkv"}, directory_);
    ASSERT_TRUE(waitForFile(program, ".out.mkv.part"));
    program.signal(SIGINT);
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.exitCode, 130);
    EXPECT_NE(outcome.out.find("\"exitCode\": 130"), std::string::npos) << outcome.out;
}

TEST_F(Runs, an_interrupt_leaves_complete_pictures_only)
{
    makeClip(500);
    Running program({programPath(), "convert", "clip.mkv", "out_%03d.png"}, directory_);
    ASSERT_TRUE(waitForFile(program, "out_001.png"));
    program.signal(SIGINT);
    EXPECT_EQ(program.wait().exitCode, 130);
    for (const std::string& name : filesBeside({"clip.mkv"})) {
        EXPECT_TRUE(name.starts_with("out_")) << name;
        EXPECT_EQ(decoded(name, "rgb24").size(), 640U * 360U * 3U) << name;
    }
}

TEST_F(Runs, two_at_once_do_not_disturb_each_other)
{
    makeClip(20);
    Running one({programPath(), "convert", "clip.mkv", "one.mkv"}, directory_);
    Running two({programPath(), "convert", "clip.mkv", "two.mkv"}, directory_);
    const Outcome first = one.wait();
    const Outcome second = two.wait();
    EXPECT_EQ(first.exitCode, 0) << first.err;
    EXPECT_EQ(second.exitCode, 0) << second.err;
    EXPECT_EQ(decoded("one.mkv", "rgb24"), decoded("two.mkv", "rgb24"));
}

TEST_F(Runs, a_terminal_gets_a_bar_and_a_file_gets_lines)
{
    makeClip(100);
    const Outcome plain = qxhost({"convert", "clip.mkv", "a.mkv"});
    EXPECT_EQ(plain.err.find('\r'), std::string::npos) << plain.err;
    const Outcome terminal =
        run({"env", "TERM=xterm", "script", "-qec", programPath() + " convert clip.mkv b.mkv", "/dev/null"});
    EXPECT_EQ(terminal.exitCode, 0);
    EXPECT_NE(terminal.out.find("frames/s"), std::string::npos) << terminal.out;
    EXPECT_NE(terminal.out.find("[###"), std::string::npos) << terminal.out;
    EXPECT_NE(terminal.out.find(" left"), std::string::npos) << terminal.out;
}

TEST_F(Runs, frames_keep_their_order)
{
    // Each frame has a brightness of its own.
    ffmpeg({"-f", "lavfi", "-i", "color=black:size=32x32:rate=25", "-frames", "200", "-vf",
            "format=yuv422p,geq=lum='16+N':cb=128:cr=128", "-c:v", "ffv1", "-colorspace", "bt709",
            "-color_range", "tv", "clip.mkv"});
    const Outcome outcome = qxhost({"convert", "clip.mkv", "out.mkv", "--output-range", "video"});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    const std::vector<std::uint8_t> frames = decoded("out.mkv", "rgb24");
    constexpr std::size_t frameBytes = 32 * 32 * 3;
    ASSERT_EQ(frames.size(), 200 * frameBytes);
    for (std::size_t n = 0; n < 200; ++n) {
        EXPECT_EQ(frames[n * frameBytes], 16 + n);
    }
}

} // namespace

} // namespace Qx::System
