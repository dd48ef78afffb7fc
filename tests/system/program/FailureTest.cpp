#include "tests/system/program/Program.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace Qx::System {

namespace {

class Failures : public ProgramTest
{
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=320x240", "-frames", "10", "-pix_fmt", "yuv422p", "-c:v",
                "ffv1", "-colorspace", "bt709", "-color_range", "tv", "clip.mkv"});
    }

    /// A clip of more than 32 MiB at 16 bits, which the software device's memory is not.
    void makeLongClip() const { ffmpeg({"-stream_loop", "8", "-i", "clip.mkv", "-c", "copy", "long.mkv"}); }

    /// Converts under a limit on the size of files, in KiB.
    Outcome withFilesUpTo(int kibibytes, const std::string& arguments) const
    {
        constexpr int blocks = 2; // of 512 bytes
        return run({"sh", "-c",
                    "ulimit -f " + std::to_string(kibibytes * blocks) + "; exec " + programPath() +
                        " convert " + arguments});
    }

    /// Fails with this exit code and one line that has all these words, and leaves nothing behind.
    void expectFailure(const Outcome& outcome, int exitCode, const std::vector<std::string>& words,
                       std::vector<std::string> files = {}) const
    {
        EXPECT_EQ(outcome.exitCode, exitCode) << outcome.err;
        EXPECT_EQ(outcome.out, "");
        const std::size_t last = outcome.err.rfind("qxhost: ");
        ASSERT_NE(last, std::string::npos) << outcome.err;
        for (const std::string& word : words) {
            EXPECT_NE(outcome.err.find(word, last), std::string::npos)
                << word << " is not in: " << outcome.err;
        }
        files.emplace_back("clip.mkv");
        EXPECT_EQ(filesBeside(files), std::vector<std::string>());
    }
};

TEST_F(Failures, a_missing_input_is_named)
{
    expectFailure(qxhost({"convert", "absent.mov", "out.png"}), 3, {"absent.mov"});
}

TEST_F(Failures, an_input_that_is_no_media_is_named)
{
    write("noise.mov", std::string(5000, 'x'));
    expectFailure(qxhost({"convert", "noise.mov", "out.png"}), 3, {"noise.mov"}, {"noise.mov"});
    write("empty.mov", "");
    expectFailure(qxhost({"convert", "empty.mov", "out.png"}), 3, {"empty.mov"}, {"noise.mov", "empty.mov"});
    expectFailure(qxhost({"convert", ".", "out.png"}), 3, {"."}, {"noise.mov", "empty.mov"});
}

TEST_F(Failures, audio_alone_is_no_input)
{
    ffmpeg({"-f", "lavfi", "-i", "sine", "-t", "0.1", "tone.wav"});
    expectFailure(qxhost({"convert", "tone.wav", "out.png"}), 3, {"tone.wav", "video"}, {"tone.wav"});
}

TEST_F(Failures, starting_behind_the_end_is_an_input_failure)
{
    expectFailure(qxhost({"convert", "clip.mkv", "out.mov", "--start", "10"}), 3, {"clip.mkv", "--start 10"});
}

TEST_F(Failures, frames_that_the_clip_does_not_have_are_an_input_failure)
{
    expectFailure(qxhost({"convert", "clip.mkv", "out.mov", "--start", "5s"}), 3, {"clip.mkv", "--start 5s"});
    expectFailure(qxhost({"convert", "clip.mkv", "out.mov", "--in", "10:00:00:00"}), 3,
                  {"--in 10:00:00:00: clip.mkv has no time code; give --start"});
    ffmpeg({"-i", "clip.mkv", "-c:v", "mjpeg", "-timecode", "10:00:00:20", "coded.mov"});
    for (const char* option : {"--in", "--out"}) {
        for (const char* label : {"10:00:00:19", "10:00:01:05", "09:00:00:00"}) {
            expectFailure(qxhost({"convert", "coded.mov", "out.mov", option, label}), 3,
                          {std::string(option) + " " + label + ": coded.mov has no such frame",
                           "from 10:00:00:20 to 10:00:01:04"},
                          {"coded.mov"});
        }
    }
    expectFailure(qxhost({"convert", "coded.mov", "out.mov", "--in", "10:00:00;22"}), 3,
                  {"no such label: it counts 25 frames a second, non-drop (written with ':')"},
                  {"coded.mov"});
    expectFailure(qxhost({"convert", "coded.mov", "out.mov", "--in", "10:00:01:02", "--out", "10:00:00:22"}),
                  2, {"--out 10:00:00:22: is before the first frame (--in 10:00:01:02)"}, {"coded.mov"});
    expectFailure(qxhost({"convert", "coded.mov", "out.mov", "--start", "3", "--out", "10:00:00:22"}), 2,
                  {"--out 10:00:00:22: is before the first frame (--start 3)"}, {"coded.mov"});
}

TEST_F(Failures, a_last_frame_that_turns_out_to_be_missing_is_reported)
{
    ffmpeg({"-i", "clip.mkv", "-c", "copy", "-metadata", "timecode=10:00:00:00", "coded.mkv"});
    const Outcome outcome = qxhost({"convert", "coded.mkv", "out.mkv", "--out", "10:00:00:20"});
    EXPECT_EQ(outcome.exitCode, 3);
    EXPECT_NE(outcome.err.find("--out 10:00:00:20: coded.mkv ends before it; out.mkv holds what there is"),
              std::string::npos)
        << outcome.err;
    EXPECT_TRUE(fs::exists(at("out.mkv")));
    EXPECT_EQ(qxhost({"convert", "coded.mkv", "out.mkv", "--force", "--out", "10:00:00:09"}).exitCode, 0);
}

TEST_F(Failures, an_existing_file_is_only_replaced_by_force)
{
    write("out.png", "precious");
    expectFailure(qxhost({"convert", "clip.mkv", "out.png", "--frames", "1"}), 4, {"out.png", "--force"},
                  {"out.png"});
    EXPECT_EQ(read(at("out.png")), "precious");
    write("out.mov", "precious");
    expectFailure(qxhost({"convert", "clip.mkv", "out.mov"}), 4, {"out.mov", "--force"},
                  {"out.png", "out.mov"});
    EXPECT_EQ(read(at("out.mov")), "precious");
    EXPECT_EQ(qxhost({"convert", "clip.mkv", "out.mov", "--force"}).exitCode, 0);
    EXPECT_NE(read(at("out.mov")), "precious");
}

TEST_F(Failures, the_input_is_never_overwritten)
{
    const std::string before = read(at("clip.mkv"));
    expectFailure(qxhost({"convert", "clip.mkv", "./clip.mkv", "--force"}), 4, {"clip.mkv", "input"});
    EXPECT_EQ(read(at("clip.mkv")), before);
}

TEST_F(Failures, pictures_of_the_input_are_never_overwritten)
{
    const std::vector<std::string> pictures{"f_1.png", "f_2.png", "f_3.png", "f_4.png", "link_2.png"};
    ffmpeg({"-i", "clip.mkv", "-frames", "4", "f_%d.png"});
    fs::create_symlink("f_3.png", at("link_2.png"));
    std::vector<std::string> before;
    for (const std::string& picture : pictures) {
        before.push_back(read(at(picture)));
    }
    const std::vector<std::vector<std::string>> commands{
        {"f_1.png", "f_%d.png"},     {"f_1.png", "./f_1.png"},
        {"f_%d.png", "f_%d.png"},    {"f_%d.png", "f_3.png", "--frames", "1"},
        {"f_%d.png", "link_%d.png"}, {"f_%d.png", "f_%d.png", "--start", "1", "--no-audio"},
        {"f_%d.png", "f_%01d.png"},
    };
    for (std::vector<std::string> command : commands) {
        command.insert(command.begin(), "convert");
        command.emplace_back("--force");
        const bool isInput = command[2] == "./" + command[1];
        expectFailure(qxhost(command), 4,
                      {isInput ? "is the input itself" : "this run reads it", "choose another name"},
                      pictures);
        for (std::size_t i = 0; i < pictures.size(); ++i) {
            EXPECT_EQ(read(at(pictures[i])), before[i]) << pictures[i];
        }
    }
}

TEST_F(Failures, clips_that_a_list_names_are_never_overwritten)
{
    fs::copy(at("clip.mkv"), at("second.mkv"));
    write("list.mkv", "ffconcat version 1.0\nfile clip.mkv\nfile second.mkv\n");
    const std::string before = read(at("second.mkv"));
    expectFailure(qxhost({"convert", "list.mkv", "second.mkv", "--frames", "1", "--force"}), 4,
                  {"second.mkv", "this run reads it"}, {"second.mkv", "list.mkv"});
    EXPECT_EQ(read(at("second.mkv")), before);
}

TEST_F(Failures, effects_luts_and_fonts_of_a_run_are_never_overwritten)
{
    write("my.fx", "texture Input; sampler S = sampler_state { Texture = <Input>; };\n"
                   "float4 f(float2 uv : TEXCOORD1) : COLOR { return tex2D(S, uv); }\n"
                   "technique T { pass P { PixelShader = compile ps_3_0 f(); } }\n");
    write("my.cube", "LUT_1D_SIZE 2\n0 0 0\n1 1 1\n");
    ASSERT_EQ(run({"sh", "-c", "cp \"$(fc-match -f '%{file}' monospace)\" my.ttf"}).exitCode, 0);
    std::vector<std::string> mine;
    for (const auto& [name, link] :
         {std::pair("my.fx", "fx.png"), std::pair("my.cube", "lut.png"), std::pair("my.ttf", "font.png")}) {
        fs::create_symlink(name, at(link));
        mine.insert(mine.end(), {name, link});
    }
    const auto expectKept = [&](const std::vector<std::string>& arguments, const std::string& file) {
        const std::string before = read(at(file));
        expectFailure(qxhost(arguments), 4, {"this run reads it"}, mine);
        EXPECT_EQ(read(at(file)), before);
    };
    expectKept({"convert", "clip.mkv", "fx.png", "--frames", "1", "--effect", "./my.fx", "--force"}, "my.fx");
    expectKept({"convert", "clip.mkv", "lut.png", "--frames", "1", "--lut", "my.cube", "--force"}, "my.cube");
    expectKept({"convert", "clip.mkv", "font.png", "--frames", "1", "--burn-in", "x", "--font", "./my.ttf",
                "--force"},
               "my.ttf");
    expectKept({"lut", "preview", "my.cube", "lut.png", "--force"}, "my.cube");
}

TEST_F(Failures, an_output_that_cannot_be_made_is_named)
{
    expectFailure(qxhost({"convert", "clip.mkv", "absent/out.png"}), 4, {"absent/"});
    expectFailure(qxhost({"convert", "clip.mkv", "out"}), 4, {"out"});
    expectFailure(qxhost({"convert", "clip.mkv", "out.xyz"}), 4, {"out.xyz"});
    expectFailure(qxhost({"convert", "clip.mkv", "out.mov", "--codec", "nonsense"}), 4, {"nonsense"});
    expectFailure(qxhost({"convert", "clip.mkv", "out.mov", "--pixel-format", "nonsense"}), 4, {"nonsense"});
}

TEST_F(Failures, a_failed_run_leaves_an_existing_file_alone)
{
    makeLongClip();
    write("out.raw", "precious");
    expectFailure(withFilesUpTo(32 << 10, "long.mkv out.raw --format b48r --force"), 4, {"out.raw"},
                  {"long.mkv", "out.raw"});
    EXPECT_EQ(read(at("out.raw")), "precious");
}

TEST_F(Failures, no_room_for_the_output_is_an_output_failure)
{
    makeLongClip();
    expectFailure(withFilesUpTo(32 << 10, "long.mkv out.raw --format b48r"), 4,
                  {"out.raw", "File too large; raise the limit on the size of files (ulimit -f)"},
                  {"long.mkv"});
}

TEST_F(Failures, a_device_without_memory_under_a_limit_on_files_says_which_limit_to_raise)
{
    // Of the output, or of a device that keeps its memory in a file.
    if (chosenDevice().at("driver").get<std::string>().starts_with("SwiftShader")) {
        GTEST_SKIP()
            << "SwiftShader keeps the code that it compiles in a file, and dies of one that may not grow";
    }
    const Outcome outcome = withFilesUpTo(4, "clip.mkv out.mkv");
    EXPECT_TRUE(outcome.exitCode == 4 || outcome.exitCode == 5) << outcome.exitCode << outcome.err;
    expectFailure(outcome, outcome.exitCode, {"raise the limit on the size of files (ulimit -f)"});
}

TEST_F(Failures, a_device_that_is_not_there_is_answered_with_those_that_are)
{
    expectFailure(qxhost({"convert", "clip.mkv", "out.png", "--device", "nonesuch"}), 5,
                  {"--device nonesuch", "0: "});
    expectFailure(qxhost({"effects", "list", "--device", "99"}), 5, {"--device 99"});
}

TEST_F(Failures, without_any_device_the_program_says_what_to_install)
{
    expectFailure(run({"env", "VK_ICD_FILENAMES=/nonexistent.json", "VK_DRIVER_FILES=/nonexistent.json",
                       programPath(), "convert", "clip.mkv", "out.png"}),
                  5, {"no Vulkan driver was found", "mesa-vulkan-drivers"});
}

TEST_F(Failures, a_damaged_picture_of_a_sequence_is_converted_around_and_told_by_exit_code_and_json)
{
    ffmpeg({"-i", "clip.mkv", "-frames", "3", "-pix_fmt", "rgb24", "in_%d.png"});
    const std::string second = read(at("in_2.png"));
    write("in_2.png", second.substr(0, second.size() / 4));
    const Outcome damaged = qxhost({"convert", "in_%d.png", "out.mkv", "--json"});
    EXPECT_EQ(damaged.exitCode, 3) << damaged.err;
    EXPECT_NE(damaged.err.find("in_%d.png: is damaged or incomplete"), std::string::npos) << damaged.err;
    const auto report = nlohmann::json::parse(damaged.out);
    EXPECT_EQ(report["complete"], false);
    EXPECT_FALSE(report["warnings"].empty());
    EXPECT_TRUE(fs::exists(at("out.mkv")));
    write("in_2.png", second);
    const Outcome whole = qxhost({"convert", "in_%d.png", "whole.mkv", "--json"});
    EXPECT_EQ(whole.exitCode, 0) << whole.err;
    EXPECT_EQ(nlohmann::json::parse(whole.out)["complete"], true);
}

TEST_F(Failures, what_explains_the_exit_code_is_told_even_when_quiet)
{
    ffmpeg({"-i", "clip.mkv", "-frames", "4", "-pix_fmt", "rgb24", "in_%d.png"});
    write("in_2.png", read(at("in_2.png")).substr(0, 1000));
    fs::remove(at("in_4.png"));
    write("in_5.png", "x");
    const Outcome outcome = qxhost({"convert", "in_%d.png", "quiet.mkv", "--quiet"});
    EXPECT_EQ(outcome.exitCode, 3) << outcome.err;
    for (const char* words : {"in_2.png\") is damaged", "picture 4 is missing", "is damaged or incomplete"}) {
        EXPECT_NE(outcome.err.find(words), std::string::npos) << words << " is not in " << outcome.err;
    }
    EXPECT_EQ(outcome.err.find("software device"), std::string::npos) << outcome.err;
}

TEST_F(Failures, nothing_behind_the_frames_asked_for_counts)
{
    ffmpeg({"-i", "clip.mkv", "-frames", "6", "-pix_fmt", "rgb24", "in_%d.png"});
    write("in_4.png", read(at("in_4.png")).substr(0, 1000));
    fs::remove(at("in_6.png"));
    const Outcome pictures = qxhost({"convert", "in_%d.png", "three.mkv", "--frames", "3"});
    EXPECT_EQ(pictures.exitCode, 0) << pictures.err;
    EXPECT_EQ(qxhost({"convert", "in_%d.png", "four.mkv", "--frames", "4"}).exitCode, 3);

    write("raw.uyvy", std::string(64 * 16 * 2 * 2 + 7, 'x')); // two frames and a part of one
    const std::vector<std::string> raw{"convert", "raw.uyvy", "raw.mkv", "--size", "64x16", "--force"};
    EXPECT_EQ(qxhost(raw).exitCode, 3);
    std::vector<std::string> two = raw;
    two.insert(two.end(), {"--frames", "2"});
    const Outcome frames = qxhost(two);
    EXPECT_EQ(frames.exitCode, 0) << frames.err;
}

TEST_F(Failures, pictures_before_a_change_of_size_are_kept_and_the_way_on_is_told)
{
    ffmpeg({"-i", "clip.mkv", "-frames", "5", "-pix_fmt", "rgb24", "in_%d.png"});
    ffmpeg({"-f", "lavfi", "-i", "color=red:size=64x48", "-frames", "1", "in_4.png"});
    const std::vector<std::string> pictures{"in_1.png", "in_2.png", "in_3.png", "in_4.png", "in_5.png"};
    std::vector<std::string> kept = pictures;
    kept.insert(kept.end(), {"out_1.png", "out_2.png", "out_3.png"});
    expectFailure(qxhost({"convert", "in_%d.png", "out_%d.png"}), 3,
                  {"from 320x240 to 64x48 at picture 4 (\"in_4.png\")",
                   "--frames 3 converts what is before it and is written: out_1.png to out_3.png"},
                  kept);
    EXPECT_TRUE(fs::exists(at("out_3.png")));
    expectFailure(qxhost({"convert", "in_%d.png", "clip.mov"}), 3, {"--frames 3 converts what is before it"},
                  kept);
    expectFailure(qxhost({"convert", "in_%d.png", "clip.mov", "--start", "3"}), 3,
                  {"it has 3 frames before that, choose a smaller --start"}, kept);
    EXPECT_EQ(qxhost({"convert", "in_%d.png", "clip.mov", "--frames", "3"}).exitCode, 0);
}

TEST_F(Failures, pictures_of_video_range_and_rgb_without_a_tag_are_reported)
{
    const auto says = [&](std::vector<std::string> arguments, const char* words) {
        arguments.insert(arguments.begin(), "convert");
        const Outcome outcome = qxhost(arguments);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return outcome.err.find(words) != std::string::npos;
    };
    const char* lost =
        "colour tags (range video) are left out: png, rgb24 does not hold them, and readers assume "
        "full range; read it with --range video";
    EXPECT_TRUE(says({"clip.mkv", "video.png", "--frames", "1", "--output-range", "video"}, lost));
    EXPECT_FALSE(says({"clip.mkv", "full.png", "--frames", "1"}, "colour tags (range"));
    EXPECT_FALSE(
        says({"clip.mkv", "video.jpg", "--frames", "1", "--output-range", "video"}, "colour tags (range"))
        << "a JPEG is YCbCr of full range";

    // A container that has no place for the tag; FFmpeg 7 writes it for RGB wherever there is one.
    ffmpeg({"-i", "clip.mkv", "-frames", "2", "-pix_fmt", "bgr24", "-c:v", "rawvideo", "rgb.avi"});
    const char* guess = "rgb.avi: has no tag for its range; assuming full range; --range overrides";
    EXPECT_TRUE(says({"rgb.avi", "a.mkv"}, guess));
    EXPECT_FALSE(says({"rgb.avi", "b.mkv", "--range", "video"}, "assuming"));
    const Outcome json = qxhost({"convert", "rgb.avi", "c.mkv", "--json"});
    EXPECT_EQ(nlohmann::json::parse(json.out)["source"]["rangeGuessed"], true);
}

TEST_F(Failures, a_wrong_directory_of_effects_is_one_line_of_the_programs)
{
    const auto without = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"env", "QX_SHADERS_DIR=/nonexistent", programPath()});
        return run(arguments);
    };
    const Outcome convert = without({"convert", "clip.mkv", "out.png", "--quiet"});
    expectFailure(convert, 6, {"ColourConvert.fx", "shaders_dir"});
    EXPECT_EQ(std::count(convert.err.begin(), convert.err.end(), '\n'), 1) << convert.err;
    const Outcome list = without({"effects", "list"});
    EXPECT_EQ(list.err, "qxhost: Effects: warning: No .fx files found in /nonexistent/Shaders\n");
}

TEST_F(Failures, a_clip_that_is_cut_short_is_converted_as_far_as_it_goes_and_told_by_exit_code)
{
    ffmpeg({"-i", "clip.mkv", "-c:v", "mjpeg", "-pix_fmt", "yuvj422p", "-movflags", "+faststart", "cut.mov"});
    const std::string whole = read(at("cut.mov"));
    write("cut.mov", whole.substr(0, whole.size() / 2));
    const Outcome outcome = qxhost({"convert", "cut.mov", "out_%02d.png"});
    EXPECT_EQ(outcome.exitCode, 3) << outcome.err;
    EXPECT_NE(outcome.err.find("cut.mov: is damaged or incomplete"), std::string::npos) << outcome.err;
    EXPECT_TRUE(fs::exists(at("out_01.png")));
    EXPECT_FALSE(fs::exists(at("out_10.png")));
}

TEST_F(Failures, a_picture_beyond_the_devices_limit_is_refused_with_the_limit)
{
    int largest = 0;
    for (const auto& device : nlohmann::json::parse(qxhost({"devices", "--json"}).out)) {
        largest = device["chosen"] == true ? device["largestImage"].get<int>() : largest;
    }
    ASSERT_GT(largest, 0);
    constexpr int largestRead = 32768;
    if (largest >= largestRead) {
        GTEST_SKIP() << "this device takes every picture that can be read";
    }
    const std::string size = std::to_string(largest + 2) + "x4";
    ffmpeg({"-f", "lavfi", "-i", "color=red:size=" + size, "-frames", "1", "-pix_fmt", "rgb24", "wide.png"});
    expectFailure(qxhost({"convert", "wide.png", "out.png"}), 5,
                  {"at most " + std::to_string(largest) + " x ", std::to_string(largest + 2) + " x 4"},
                  {"wide.png"});
}

TEST_F(Failures, a_log_that_cannot_be_written_is_a_note_and_no_failure)
{
    write(".state", "no directory");
    const Outcome outcome = qxhost({"convert", "clip.mkv", "out.mkv"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(outcome.err.find("qxhost: the log "), std::string::npos) << outcome.err;
    EXPECT_EQ(outcome.err.find("filesystem error"), std::string::npos) << outcome.err;
    EXPECT_EQ(qxhost({"convert", "clip.mkv", "quiet.mkv", "--quiet"}).err, "");
}

TEST_F(Failures, mistakes_in_the_settings_are_told_once_with_their_lines)
{
    fs::create_directories(at(".config/qxhost"));
    write(".config/qxhost/settings.toml", "devise = \"x\"\ntiming_lines = \"often\"\n");
    const std::string err = qxhost({"devices"}).err;
    for (const char* words :
         {"settings.toml:1: there is no setting devise", "settings.toml:2: timing_lines"}) {
        EXPECT_NE(err.find(words), std::string::npos) << err;
        EXPECT_EQ(err.find(words), err.rfind(words)) << err;
    }
    EXPECT_TRUE(err.starts_with("qxhost: ")) << err;
}

TEST_F(Failures, a_log_that_is_a_pipe_hangs_nothing_and_is_named)
{
    const fs::path log = at("state/qxhost/qxhost.log");
    fs::create_directories(log.parent_path());
    ASSERT_EQ(::mkfifo(log.c_str(), 0600), 0);
    const Outcome outcome =
        run({"timeout", "60", "env", "QX_LOG_FILE=1", "XDG_STATE_HOME=" + at("state").native(), programPath(),
             "convert", "clip.mkv", "out.png", "--frames", "1"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(outcome.err.find("qxhost.log cannot be written: it is not a regular file"), std::string::npos)
        << outcome.err;
}

TEST_F(Failures, a_log_that_is_a_link_is_written_where_it_leads)
{
    const fs::path log = at("state/qxhost/qxhost.log");
    fs::create_directories(log.parent_path());
    write("elsewhere.txt", "");
    fs::create_symlink(at("elsewhere.txt"), log);
    const Outcome outcome = run({"env", "QX_LOG_FILE=1", "XDG_STATE_HOME=" + at("state").native(),
                                 programPath(), "convert", "clip.mkv", "out.png", "--lut", "absent.cube"});
    EXPECT_EQ(outcome.exitCode, 6) << outcome.err;
    EXPECT_TRUE(fs::is_symlink(log));
    EXPECT_NE(read(at("elsewhere.txt")).find("absent.cube: there is no such file"), std::string::npos);
}

TEST_F(Failures, too_little_address_space_is_told_before_the_driver_gets_it)
{
    const auto limited = [this](const std::string& kibibytes, const std::string& output) {
        return run({"sh", "-c",
                    "ulimit -v " + kibibytes + "; exec " + programPath() + " convert clip.mkv " + output +
                        " --frames 1"});
    };
    const Outcome crashing = limited("600000", "a.png");
    EXPECT_EQ(crashing.exitCode, 5);
    EXPECT_NE(crashing.err.find("limited to 585 MiB (ulimit -v)"), std::string::npos) << crashing.err;
    const Outcome narrow = limited("3000000", "b.png");
    EXPECT_EQ(narrow.exitCode, 0) << narrow.err;
    EXPECT_NE(narrow.err.find("limited to 2929 MiB (ulimit -v)"), std::string::npos) << narrow.err;
}

TEST_F(Failures, a_relative_cache_directory_is_ignored_by_the_driver_too)
{
    const Outcome outcome = run({"env", "-u", "MESA_SHADER_CACHE_DISABLE", "XDG_CACHE_HOME=relative",
                                 programPath(), "convert", "clip.mkv", "out.png", "--frames", "1"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_FALSE(fs::exists(at("relative")));
}

TEST_F(Failures, an_encoder_says_nothing_of_its_own)
{
    for (const std::string encoder : {"libx265", "libsvtav1"}) {
        const Outcome outcome =
            qxhost({"convert", "clip.mkv", encoder + ".mkv", "--codec", encoder, "--frames", "2", "--quiet"});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        EXPECT_EQ(outcome.err, "") << encoder;
    }
}

TEST_F(Failures, warnings_about_a_lut_go_to_the_log)
{
    write("odd.clf", R"(<?xml version="1.0" encoding="UTF-8"?>
<ProcessList id="a" compCLFversion="3.0"><Range inBitDepth="32f" outBitDepth="32f" surprise="yes">
<minInValue>0</minInValue><maxInValue>1</maxInValue><minOutValue>0</minOutValue><maxOutValue>1</maxOutValue>
</Range></ProcessList>)");
    const Outcome outcome =
        run({"env", "QX_LOG_FILE=1", "XDG_STATE_HOME=" + at("state").native(), programPath(), "convert",
             "clip.mkv", "out.png", "--frames", "1", "--lut", "odd.clf", "--quiet"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "");
    EXPECT_NE(read(at("state/qxhost/qxhost.log")).find("surprise"), std::string::npos);
}

TEST_F(Failures, json_tells_of_failures_too)
{
    const Outcome outcome = qxhost({"convert", "absent.mov", "out.png", "--json"});
    EXPECT_EQ(outcome.exitCode, 3);
    const auto report = nlohmann::json::parse(outcome.out);
    EXPECT_EQ(report["error"]["exitCode"], 3);
    EXPECT_NE(report["error"]["message"].get<std::string>().find("absent.mov"), std::string::npos);
}

} // namespace

} // namespace Qx::System
