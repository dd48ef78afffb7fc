#include "tests/system/program/Program.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <regex>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace Qx::System {

namespace {

/// An author at work on fx/glow.fx, which multiplies a picture of one grey by what fx/look.fxh says.
class Watching : public ProgramTest
{
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        fs::create_directory(at("fx"));
        write("fx/look.fxh", "static const float gain = 0.5;\n");
        write("fx/glow.fx", glow("gain"));
        ffmpeg({"-f", "lavfi", "-i", "color=0xC8C8C8:size=16x16,format=rgb24", "-frames:v", "1", "in.png"});
    }

    static std::string glow(const std::string& factor)
    {
        return "#include \"look.fxh\"\n"
               "texture Input;\n"
               "sampler S = sampler_state { Texture = <Input>; };\n"
               "float4 f(float2 uv : TEXCOORD0) : COLOR { return float4(tex2D(S, uv).rgb * " +
               factor +
               ", 1); }\n"
               "technique Look { pass P { PixelShader = compile ps_3_0 f(); } }\n";
    }

    void startWatching(const std::string& output = "look.png", const std::vector<std::string>& more = {})
    {
        std::vector<std::string> line{programPath(), "effects", "watch",    "fx/glow.fx",
                                      "--input",     "in.png",  "--output", output};
        line.insert(line.end(), more.begin(), more.end());
        program_ = std::make_unique<Running>(line, directory_);
        ASSERT_TRUE(becomes([&] {
            return lines().ends_with("qxhost: watching N effects; Ctrl-C ends it\n");
        })) << lines();
    }

    /// What was printed, without what differs from run to run.
    std::string lines() const
    {
        std::string text = program_->errorSoFar();
        text = std::regex_replace(text, std::regex("in [0-9]+ ms"), "in T ms");
        text = std::regex_replace(text, std::regex("watching [0-9]+ effects?"), "watching N effects");
        text = std::regex_replace(text, std::regex(at("fx").string()), "FX");
        const std::size_t start =
            std::min(text.find("qxhost: look.png"), text.find("qxhost: shown/look.png"));
        return start == std::string::npos ? text : text.substr(start);
    }

    bool becomes(const std::function<bool()>& condition) const
    {
        using namespace std::chrono_literals;
        const auto limit = std::chrono::steady_clock::now() + 60s; // far beyond what it takes
        while (!condition()) {
            if (std::chrono::steady_clock::now() > limit || !program_->isRunning()) {
                return false;
            }
            std::this_thread::sleep_for(10ms);
        }
        return true;
    }

    /// Waits for these lines to follow those that were there.
    void expectNext(const std::string& more)
    {
        told_ += more;
        EXPECT_TRUE(becomes([&] { return lines().size() >= told_.size(); }));
        EXPECT_EQ(lines(), told_);
    }

    int shownGrey() const { return decoded("look.png", "gray").at(0); }

    static constexpr const char* otherTexture =
        "texture Other;\nsampler O = sampler_state { Texture = <Other>; };\n";
    static constexpr const char* drawn = "qxhost: look.png: drawn with FX/glow.fx in T ms\n";

    std::unique_ptr<Running> program_;
    std::string told_ = std::string(drawn) + "qxhost: watching N effects; Ctrl-C ends it\n";
};

TEST_F(Watching, shows_the_warnings_of_what_compiles)
{
    startWatching();
    const std::string warning =
        "FX/glow.fx:6:9: warning: no technique reads the texture 'Idle'\n    texture Idle;\n"
        "            ^\n";
    write("fx/glow.fx", glow("gain") + "texture Idle;\n");
    expectNext("Recompiled glow.fx\nqxhost: FX/glow.fx: compiles, with warnings\n" + warning + drawn);
    write("fx/glow.fx", glow("gain * 0.5"));
    expectNext(std::string("Recompiled glow.fx\n") + drawn);
}

TEST_F(Watching, shows_each_save_and_keeps_the_last_good_look)
{
    startWatching();
    EXPECT_NEAR(shownGrey(), 100, 1);

    write("fx/look.fxh", "static const float gain = 0.25;\n"); // an include, written in place
    expectNext(std::string("Recompiled glow.fx\n") + drawn);
    EXPECT_NEAR(shownGrey(), 50, 1);

    write("fx/.glow.swp", glow("bluff")); // an editor that renames
    fs::rename(at("fx/.glow.swp"), at("fx/glow.fx"));
    ASSERT_TRUE(becomes([&] { return lines().find("bluff") != std::string::npos; })) << lines();
    EXPECT_EQ(lines().find(told_ + "Failed to recompile glow.fx\n   FX/glow.fx:4:"), 0U) << lines();
    EXPECT_NEAR(shownGrey(), 50, 1);
    told_ = lines();

    fs::rename(at("fx"), at("old")); // a directory that is replaced
    fs::create_directory(at("fx"));
    write("fx/look.fxh", "static const float gain = 0.25;\n");
    write("fx/glow.fx", glow("gain * 3"));
    expectNext(std::string("Recompiled glow.fx\n") + drawn);
    EXPECT_NEAR(shownGrey(), 150, 1);

    program_->signal(SIGINT);
    EXPECT_EQ(program_->wait().exitCode, 0);
}

TEST_F(Watching, draws_with_the_pictures_that_its_options_give)
{
    write("fx/glow.fx", otherTexture + glow("tex2D(O, uv).r"));
    startWatching("look.png", {"--texture", "Other=in.png"});
    EXPECT_NEAR(shownGrey(), 157, 1); // 200 * 200 / 255
    program_->signal(SIGINT);
    EXPECT_EQ(program_->wait().exitCode, 0);
}

TEST_F(Watching, draws_again_when_a_picture_is_saved)
{
    const auto grey = [&](const std::string& name, const std::string& colour) {
        ffmpeg({"-y", "-f", "lavfi", "-i", "color=" + colour + ":size=16x16,format=rgb24", "-frames:v", "1",
                name});
    };
    grey("other.png", "0xFFFFFF");
    write("fx/glow.fx", otherTexture + glow("tex2D(O, uv).r"));
    startWatching("look.png", {"--texture", "Other=other.png"});
    EXPECT_NEAR(shownGrey(), 200, 1);
    grey("other.png", "0x333333");
    expectNext(drawn);
    EXPECT_NEAR(shownGrey(), 40, 1);
    grey("in.png", "0x646464");
    expectNext(drawn);
    EXPECT_NEAR(shownGrey(), 20, 1);
    program_->signal(SIGINT);
    EXPECT_EQ(program_->wait().exitCode, 0);
}

TEST_F(Watching, draws_once_the_file_that_an_annotation_names_is_there)
{
    startWatching();
    const std::string annotated = "texture Other < string ResourceName = \"Maps/Other.png\"; >;\n"
                                  "sampler O = sampler_state { Texture = <Other>; };\n";
    write("fx/glow.fx", annotated + glow("tex2D(O, uv).r"));
    expectNext(
        "Recompiled glow.fx\n"
        "qxhost: FX/glow.fx: technique \"Look\" reads the texture \"Other\", whose file Maps/Other.png "
        "is not beside the effect; put it there, or add --texture Other=FILE\n");
    fs::create_directory(at("fx/maps"));
    fs::copy(at("in.png"), at("fx/maps/other.PNG"));
    expectNext(drawn);
    EXPECT_NEAR(shownGrey(), 157, 1); // 200 * 200 / 255
    program_->signal(SIGINT);
    EXPECT_EQ(program_->wait().exitCode, 0);
}

TEST_F(Watching, what_is_wrong_with_others_of_the_directory_is_not_told_of_the_one_that_is_named)
{
    write("fx/broken.fx", glow("nothing"));
    startWatching();
    EXPECT_EQ(program_->errorSoFar().find("broken.fx"), std::string::npos) << program_->errorSoFar();
    program_->signal(SIGINT);
    EXPECT_EQ(program_->wait().exitCode, 0);
}

TEST_F(Watching, answers_a_mistake_that_is_undone_and_a_file_that_goes)
{
    startWatching();
    write("fx/.glow.swp", glow("bluff"));
    fs::rename(at("fx/.glow.swp"), at("fx/glow.fx"));
    ASSERT_TRUE(becomes([&] { return lines().find("  in technique") != std::string::npos; })) << lines();
    write("fx/.glow.swp", glow("gain"));
    fs::rename(at("fx/.glow.swp"), at("fx/glow.fx"));
    ASSERT_TRUE(becomes([&] {
        return lines().find("qxhost: FX/glow.fx is again as it was when last compiled\n") !=
               std::string::npos;
    })) << lines();
    fs::remove(at("fx/glow.fx"));
    ASSERT_TRUE(becomes([&] {
        return lines().find("qxhost: FX/glow.fx is gone; its compiled effect stays in use\n") !=
               std::string::npos;
    })) << lines();
}

TEST_F(Watching, picks_up_new_effects_and_tells_of_those_that_do_not_compile)
{
    startWatching();
    write("fx/second.fx", glow("gain * 2")); // which the manager adds without a word
    write("fx/third.fx", glow("nothing"));
    expectNext("Failed to compile third.fx\n");
    write("fx/second.fx", glow("gain * 4"));
    expectNext("Recompiled second.fx\nFailed to compile third.fx\n");
    program_->signal(SIGTERM);
    EXPECT_EQ(program_->wait().exitCode, 0);
}

TEST_F(Watching, a_technique_that_goes_missing_is_told_and_the_picture_stays)
{
    startWatching();
    write("fx/glow.fx", otherTexture + glow("gain * tex2D(O, uv).r"));
    expectNext("Recompiled glow.fx\n"
               "qxhost: FX/glow.fx: technique \"Look\" reads the texture \"Other\", which nothing gives a "
               "picture; add --texture Other=FILE\n");
    EXPECT_NEAR(shownGrey(), 100, 1);
    program_->signal(SIGINT);
    EXPECT_EQ(program_->wait().exitCode, 0);
}

TEST_F(Watching, a_worker_that_is_killed_meanwhile_costs_nothing)
{
    startWatching();
    EXPECT_GT(program_->signalChildren(SIGKILL), 0);
    write("fx/glow.fx", glow("gain * 2"));
    ASSERT_TRUE(becomes([&] { return lines().size() > told_.size() && lines().ends_with(drawn); }))
        << lines();
    EXPECT_EQ(lines(), told_ + "Recompiled glow.fx\n" + drawn);
    EXPECT_NEAR(shownGrey(), 200, 1);
    EXPECT_EQ(filesBeside({"fx", "in.png", "look.png"}), std::vector<std::string>());
    program_->signal(SIGINT);
    EXPECT_EQ(program_->wait().exitCode, 0);
}

TEST_F(Watching, an_effect_that_kills_its_workers_is_told_and_the_mended_one_is_drawn)
{
    ::setenv("QXFXC_TEST", "compiling:kill:glow.fx", 1);
    program_ = std::make_unique<Running>(
        std::vector<std::string>{programPath(), "effects", "watch", "fx", "--device", "0"}, directory_);
    ::unsetenv("QXFXC_TEST");
    ASSERT_TRUE(becomes([&] { return lines().ends_with("Ctrl-C ends it\n"); })) << lines();
    EXPECT_NE(lines().find("error: the worker process was killed from outside (SIGKILL) while compiling, "
                           "twice"),
              std::string::npos)
        << lines();
    write("fx/other.fx", glow("gain * 2"));
    write("fx/third.fx", glow("nothing"));
    EXPECT_TRUE(becomes([&] { return lines().find("Failed to compile third.fx\n") != std::string::npos; }))
        << lines();
    EXPECT_EQ(lines().find("Failed to compile other.fx"), std::string::npos) << lines();
    program_->signal(SIGINT);
    EXPECT_EQ(program_->wait().exitCode, 0);
}

TEST_F(Watching, a_place_for_the_picture_that_goes_is_told_until_it_is_there_again)
{
    fs::create_directory(at("shown"));
    startWatching("shown/look.png");
    fs::remove_all(at("shown"));
    write("fx/glow.fx", glow("gain * 2"));
    ASSERT_TRUE(becomes([&] { return lines().find("cannot write") != std::string::npos; })) << lines();
    fs::create_directory(at("shown"));
    ASSERT_TRUE(becomes([&] { return fs::exists(at("shown/look.png")); })) << lines();
    ASSERT_TRUE(becomes([&] { return lines().ends_with("in T ms\n"); })) << lines();
    EXPECT_EQ(std::distance(fs::directory_iterator(at("shown")), {}), 1) << "nothing is left beside it";
    program_->signal(SIGINT);
    EXPECT_EQ(program_->wait().exitCode, 0);
}

TEST_F(Watching, draws_again_when_its_picture_is_removed)
{
    startWatching();
    fs::remove(at("look.png"));
    expectNext(drawn);
    EXPECT_NEAR(shownGrey(), 100, 1);
    program_->signal(SIGINT);
    EXPECT_EQ(program_->wait().exitCode, 0);
}

TEST_F(Watching, counts_what_it_watches)
{
    write("fx/second.fx", glow("gain * 2"));
    startWatching();
    EXPECT_NE(program_->errorSoFar().find("watching 1 effect; Ctrl-C"), std::string::npos)
        << program_->errorSoFar();
    program_->signal(SIGINT);
    EXPECT_EQ(program_->wait().exitCode, 0);
    program_ = std::make_unique<Running>(std::vector<std::string>{programPath(), "effects", "watch", "fx"},
                                         directory_);
    EXPECT_TRUE(becomes([&] {
        return program_->errorSoFar().find("watching 2 effects; Ctrl-C") != std::string::npos;
    })) << program_->errorSoFar();
    program_->signal(SIGINT);
    EXPECT_EQ(program_->wait().exitCode, 0);
}

TEST_F(Watching, ends_while_it_waits_for_a_pipe_that_nobody_fills)
{
    startWatching();
    fs::remove(at("in.png"));
    ASSERT_EQ(::mkfifo(at("in.png").c_str(), 0600), 0);
    int writer = -1; // opened elsewhere as soon as the program opens it
    ASSERT_TRUE(becomes([&] {
        writer = ::open(at("in.png").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        return writer >= 0;
    })) << lines();
    program_->signal(SIGINT);
    EXPECT_EQ(program_->wait().exitCode, 130);
    ::close(writer);
    EXPECT_NE(lines().find("interrupted while a file was read"), std::string::npos) << lines();
}

TEST_F(Watching, options_that_the_effect_has_not_end_it)
{
    const auto refusal = [&](const std::vector<std::string>& options) {
        std::vector<std::string> command{"effects", "watch",    "fx/glow.fx", "--input",
                                         "in.png",  "--output", "look.png"};
        command.insert(command.end(), options.begin(), options.end());
        const Outcome outcome = qxhost(command);
        EXPECT_EQ(outcome.exitCode, 6);
        return outcome.err.substr(std::min(outcome.err.find("qxhost: "), outcome.err.size()));
    };
    EXPECT_EQ(refusal({"--technique", "Lok"}),
              "qxhost: " + at("fx/glow.fx").string() +
                  ": has no technique \"Lok\" (did you mean Look?); it has Look\n");
    EXPECT_EQ(refusal({"--set", "gain=1"}),
              "qxhost: " + at("fx/glow.fx").string() + ": has no parameter \"gain\"; it has none\n");
    EXPECT_EQ(refusal({"--texture", "Other=in.png"}),
              "qxhost: " + at("fx/glow.fx").string() + ": has no texture \"Other\"; it has Input\n");
    EXPECT_NE(refusal({"--texture", "Input=none.png"}).find("there is no such file"), std::string::npos);
    EXPECT_FALSE(fs::exists(at("look.png")));
}

TEST_F(Watching, what_it_cannot_watch_it_refuses)
{
    const auto refusal = [&](const std::vector<std::string>& arguments, int code) {
        std::vector<std::string> command{"effects", "watch"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const Outcome outcome = qxhost(command);
        EXPECT_EQ(outcome.exitCode, code);
        return outcome.err;
    };
    EXPECT_EQ(refusal({"fx/none.fx"}, 3),
              "qxhost: fx/none.fx: there is no file and no directory of this name\n");
    EXPECT_EQ(refusal({"fx/look.fxh"}, 3),
              "qxhost: fx/look.fxh: is not an effect of the catalogue; their names end in .fx and do not "
              "begin with an "
              "underscore. Name the effect that includes it, or the directory\n");
    EXPECT_NE(refusal({"fx/glow.fx", "--input", "in.png", "--output", "look.mp4"}, 4)
                  .find("look.mp4: what is shown is a picture"),
              std::string::npos);
    EXPECT_EQ(refusal({"fx", "--input", "in.png", "--output", "look.png"}, 2),
              "qxhost: --output shows one effect: name its file, not a directory\n");
    EXPECT_EQ(refusal({"fx/glow.fx", "--input", "in.png"}, 2),
              "qxhost: --input and --output need each other: the picture, and where to show it; see 'qxhost "
              "effects watch --help'\n");
    EXPECT_EQ(refusal({"fx/glow.fx", "--input", "in.png", "--output", "in.png"}, 4),
              "qxhost: in.png: exists already; choose another name or add --force\n");
    const auto showing = [&](const std::string& input, const std::string& output, int code) {
        const std::string text = refusal({"fx/glow.fx", "--input", input, "--output", output}, code);
        const std::size_t start = text.find("qxhost: ");
        return start == std::string::npos ? text : text.substr(start);
    };
    EXPECT_EQ(showing("in.png", "nowhere/look.png", 4),
              "qxhost: cannot write \"nowhere/look.png\": there is no directory \"nowhere\"\n");
    EXPECT_EQ(showing("none.png", "look.png", 3),
              "qxhost: cannot read \"none.png\": there is no such file\n");
}

} // namespace

} // namespace Qx::System
