#include "tests/system/program/Installation.h"

#include <chrono>
#include <thread>

namespace Qx::System {

namespace {

constexpr int width = 160;
constexpr int height = 96;
constexpr std::size_t frameBytes = std::size_t{width} * height * 3;

/// The example examples/window, as its readers build it, on a display of the size of the clip: the window
/// covers it.
class WindowExample : public Installation
{
protected:
    void SetUp() override
    {
        Installation::SetUp();
        configure("window", {}, examples());
        build("window");
        program_ = at("window/window").string();
        ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=160x96:r=25:d=0.4", "-vf",
                "format=yuv422p,setparams=colorspace=bt709:range=tv", "-colorspace", "bt709", "-color_range",
                "tv", "-c:v", "ffv1", "clip.mkv"});
        write("negative.fx",
              read(std::string(QX_SOURCE_FOLDER) + "/examples/own-services/effects/" + "negative.fx"));
    }

    /// Starts a display and returns its name, ":" and a number.
    std::string startDisplay()
    {
        display_ = std::make_unique<Running>(std::vector<std::string>{QX_XVFB, "-displayfd", "1", "-nolisten",
                                                                      "tcp", "-screen", "0", "160x96x24"},
                                             temporary_.path());
        for (int i = 0; i < 600; ++i) {
            const std::string number = display_->outputSoFar();
            if (number.ends_with("\n")) {
                return ":" + number.substr(0, number.size() - 1);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        ADD_FAILURE() << "Xvfb does not start: " << display_->errorSoFar();
        return {};
    }

    void TearDown() override
    {
        if (display_ != nullptr) {
            display_->signal(SIGTERM);
            display_->wait();
        }
        Installation::TearDown();
    }

    /// What the program is started with on that display.
    std::vector<std::string> command(const std::string& display, std::vector<std::string> arguments) const
    {
        std::vector<std::string> whole{"env", "DISPLAY=" + display, "SDL_VIDEODRIVER=x11",
                                       "VK_INSTANCE_LAYERS=VK_LAYER_KHRONOS_validation", program_};
        whole.insert(whole.end(), arguments.begin(), arguments.end());
        return whole;
    }

    /// R G B of everything that is on the display.
    std::vector<std::uint8_t> screenshot(const std::string& display) const
    {
        ffmpeg({"-y", "-f", "x11grab", "-draw_mouse", "0", "-video_size", "160x96", "-i", display,
                "-frames:v", "1", "shot.png"});
        return decoded("shot.png", "rgb24");
    }

    std::string program_;

private:
    std::unique_ptr<Running> display_;
};

/// Nothing of Vulkan's validation layer, which writes to standard output.
void expectNoMessages(const Outcome& outcome)
{
    EXPECT_EQ(outcome.out.find("Validation"), std::string::npos) << outcome.out;
    EXPECT_EQ(outcome.out.find("VUID"), std::string::npos) << outcome.out;
}

} // namespace

TEST_F(WindowExample, shows_the_frame_that_convert_gives)
{
    const std::string display = startDisplay();
    convert({"clip.mkv", "wanted.mkv", "--effect", "negative.fx", "--depth", "8", "--codec", "ffv1",
             "--pixel-format", "bgr0"});
    const std::vector<std::uint8_t> frames = decoded("wanted.mkv", "rgb24");
    ASSERT_EQ(frames.size(), 10 * frameBytes);
    const std::vector<std::uint8_t> third(frames.begin() + 2 * frameBytes, frames.begin() + 3 * frameBytes);

    Running program(command(display, {"clip.mkv", "negative.fx", "--frames", "3", "--hold"}),
                    temporary_.path());
    for (int i = 0; i < 6000 && program.isRunning() && program.outputSoFar().empty(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_EQ(program.outputSoFar(), "3 frames shown, 160 x 96\n") << program.errorSoFar();
    // The display may draw it later than the program hands it over.
    std::vector<std::uint8_t> shown;
    for (int i = 0; i < 50 && shown != third; ++i) {
        shown = screenshot(display);
    }
    EXPECT_EQ(shown == third, true) << "the window shows another picture: " << at("shot.png");
    program.signal(SIGTERM);
    const Outcome outcome = program.wait();
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    expectNoMessages(outcome);
}

TEST_F(WindowExample, plays_a_clip_to_its_end)
{
    const Outcome outcome = run(command(startDisplay(), {"clip.mkv"}));
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("10 frames shown, 160 x 96\n"), std::string::npos) << outcome.out;
    expectNoMessages(outcome);
}

TEST_F(WindowExample, says_what_is_wrong)
{
    const auto failureOf = [&](const std::vector<std::string>& whole, int exitCode) {
        const Outcome outcome = run(whole);
        EXPECT_EQ(outcome.exitCode, exitCode) << outcome.out;
        return outcome.err;
    };
    const std::string display = startDisplay();
    EXPECT_EQ(failureOf(command(display, {"none.mkv"}), 1),
              "window: none.mkv: No such file or directory; expected a clip that FFmpeg decodes\n");
    EXPECT_NE(failureOf(command(display, {"negative.fx"}), 1).find("expected a clip that FFmpeg decodes"),
              std::string::npos);
    EXPECT_EQ(failureOf(command(display, {}), 2), "usage: window CLIP [EFFECT.fx] [--frames N] [--hold]\n");
    EXPECT_EQ(failureOf(command(display, {"clip.mkv", "--frames", "many"}), 2),
              "window: --frames expects a number of at least 1\n");
    write("broken.fx", "technique T { pass { PixelShader = compile ps_3_0 nowhere(); } }\n");
    EXPECT_NE(failureOf(command(display, {"clip.mkv", "broken.fx"}), 1).find("broken.fx:1:"),
              std::string::npos);
    ffmpeg(
        {"-f", "lavfi", "-i", "testsrc=s=161x96:r=25:d=0.1", "-pix_fmt", "bgr0", "-c:v", "ffv1", "odd.mkv"});
    EXPECT_EQ(failureOf(command(display, {"odd.mkv"}), 1),
              "window: odd.mkv: the picture is 161 x 96 pixels; expected an even width\n");
    const std::string without = failureOf(
        {"env", "-u", "DISPLAY", "-u", "WAYLAND_DISPLAY", "SDL_VIDEODRIVER=x11", program_, "clip.mkv"}, 1);
    EXPECT_NE(without.find("window: there is no display: "), std::string::npos) << without;
    // A driver of SDL without windows of Vulkan's.
    const std::string dummy = failureOf({"env", "SDL_VIDEODRIVER=dummy", program_, "clip.mkv"}, 1);
    EXPECT_NE(dummy.find("window: no window could be opened for Vulkan: "), std::string::npos) << dummy;
}

} // namespace Qx::System
