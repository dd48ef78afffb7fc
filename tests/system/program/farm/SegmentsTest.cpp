// "qxhost convert --segments": what is joined is what one run makes.

#include "tests/system/program/farm/FarmTest.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <sstream>
#include <thread>

namespace Qx::System {

namespace {

class Segments : public FarmTest
{
protected:
    void SetUp() override
    {
        FarmTest::SetUp();
        makeClip("clip.mov");
    }

    /// Converts in one run and in pieces.
    void convertBoth(const std::string& input, const std::string& extension, Words arguments,
                     const std::string& pieces = "4") const
    {
        convert(input, "one" + extension, arguments);
        arguments.insert(arguments.end(), {"--segments", pieces, "--jobs", "2"});
        convert(input, "many" + extension, arguments);
    }

    /// Each packet, time and tag is the same.
    void expectSamePackets(const std::string& extension, const Words& arguments) const
    {
        SCOPED_TRACE(extension);
        convertBoth("clip.mov", extension, arguments);
        EXPECT_EQ(packets("many" + extension), packets("one" + extension));
        fs::remove(at("one" + extension));
        fs::remove(at("many" + extension));
    }

    void expectRefusal(const Words& arguments, int exitCode, const Words& parts) const
    {
        Words command{"convert", "clip.mov", "out.mov", "--segments", "3"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const Outcome outcome = qxhost(command);
        EXPECT_EQ(outcome.exitCode, exitCode) << outcome.err;
        for (const std::string& part : parts) {
            EXPECT_NE(outcome.err.find(part), std::string::npos) << part << " is not in " << outcome.err;
        }
        EXPECT_FALSE(fs::exists(at("out.mov")));
    }
};

TEST_F(Segments, packets_of_prores_are_those_of_one_run)
{
    expectSamePackets(".mov", {});
    expectSamePackets(".mov", {"--profile", "4444"});
}

TEST_F(Segments, packets_of_dnxhr_are_those_of_one_run)
{
    expectSamePackets(".mxf", {"--profile", "sq", "--resize", "256x144"});
    expectSamePackets(".mov", {"--codec", "dnxhd", "--profile", "hqx", "--resize", "256x144"});
}

TEST_F(Segments, packets_of_frames_that_are_stored_as_they_are_are_those_of_one_run)
{
    expectSamePackets(".mov", {"--format", "v210"});
    expectSamePackets(".mkv", {"--format", "v210"});
    expectSamePackets(".avi", {"--format", "uyvy"});
    convertBoth("clip.mov", ".nut", {"--codec", "ffv1"}); // which learns from frame to frame
    EXPECT_EQ(frameHashes("many.nut", "v"), frameHashes("one.nut", "v"));
    EXPECT_EQ(times("many.nut", "v"), times("one.nut", "v"));
}

TEST_F(Segments, bytes_of_raw_files_are_those_of_one_run)
{
    for (const std::string extension : {".v210", ".uyvy"}) {
        convertBoth("clip.mov", extension, {});
        EXPECT_EQ(read(at("many" + extension)), read(at("one" + extension)));
    }
}

TEST_F(Segments, bytes_of_pictures_are_those_of_one_run)
{
    for (const std::string extension : {".png", ".dpx"}) {
        fs::create_directory(at("one"));
        fs::create_directory(at("many"));
        convert("clip.mov", "one/shot_%04d" + extension, {});
        convert("clip.mov", "many/shot_%04d" + extension, {"--segments", "7", "--jobs", "2"});
        int count = 0;
        for (const auto& entry : fs::directory_iterator(at("one"))) {
            ++count;
            EXPECT_EQ(read(at("many") / entry.path().filename()), read(entry.path())) << entry.path();
        }
        EXPECT_EQ(count, 50);
        EXPECT_EQ(std::distance(fs::directory_iterator(at("many")), {}), 50);
        fs::remove_all(at("one"));
        fs::remove_all(at("many"));
    }
}

TEST_F(Segments, sequences_and_raw_frames_are_split_too)
{
    fs::create_directory(at("in"));
    ffmpeg({"-i", "clip.mov", "-start_number", "1001", "-pix_fmt", "gbrp10be", "in/shot_%04d.dpx"});
    convertBoth("in/shot_%04d.dpx", ".mov", {});
    EXPECT_EQ(packets("many.mov"), packets("one.mov"));
    ffmpeg({"-i", "clip.mov", "-f", "rawvideo", "-pix_fmt", "uyvy422", "clip.uyvy"});
    convertBoth("clip.uyvy", ".mkv", {"--size", "96x64", "--fps", "29.97"});
    EXPECT_EQ(frameHashes("many.mkv", "v"), frameHashes("one.mkv", "v"));
    EXPECT_EQ(times("many.mkv", "v"), times("one.mkv", "v"));
}

TEST_F(Segments, numbers_of_sequences_are_those_of_one_run)
{
    fs::create_directory(at("in"));
    ffmpeg({"-i", "clip.mov", "-frames:v", "10", "-start_number", "86400", "-pix_fmt", "gbrp10be",
            "in/shot_%06d.dpx"});
    const auto numbers = [&](const Words& options) {
        fs::remove_all(at("out"));
        fs::create_directory(at("out"));
        convert("in/shot_%06d.dpx", "out/%06d.png", options);
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(at("out"))) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    };
    const std::vector<std::string> kept = numbers({});
    EXPECT_EQ(kept.front(), "086400.png");
    EXPECT_EQ(numbers({"--segments", "3"}), kept);
    EXPECT_EQ(numbers({"--segments", "3", "--renumber", "7"}), numbers({"--renumber", "7"}));
}

TEST_F(Segments, gaps_are_filled_as_in_one_run_wherever_the_pieces_begin)
{
    fs::create_directory(at("in"));
    ffmpeg({"-i", "clip.mov", "-frames:v", "16", "-start_number", "1001", "-pix_fmt", "gbrp10be",
            "in/shot_%04d.dpx"});
    for (const char* gone : {"1004", "1008", "1009", "1010"}) {
        fs::remove(at("in/shot_" + std::string(gone) + ".dpx"));
    }
    const auto expectSame = [&](const Words& options, int exitCode) {
        Words words{"convert", "in/shot_%04d.dpx", "one.mov", "--force"};
        words.insert(words.end(), options.begin(), options.end());
        const Outcome one = qxhost(words);
        EXPECT_EQ(one.exitCode, exitCode) << one.err;
        words[2] = "many.mov";
        words.insert(words.end(), {"--segments", "5"}); // which begin in gaps and at damaged ones too
        const Outcome many = qxhost(words);
        EXPECT_EQ(many.exitCode, exitCode) << many.err;
        EXPECT_TRUE(packets("many.mov") == packets("one.mov")) << options.back();
    };
    expectSame({"--start-number", "1003", "--missing", "hold"}, 0);
    expectSame({"--missing", "black"}, 0);
    // Damaged ones are replaced too, also where a piece begins with them.
    for (const char* damaged : {"1012", "1013"}) {
        write("in/shot_" + std::string(damaged) + ".dpx", "SDPX");
    }
    expectSame({"--missing", "hold"}, 3);
    expectSame({"--missing", "black"}, 3);
}

TEST_F(Segments, several_texts_and_presets_are_those_of_one_run)
{
    write("ours.toml", "[[burn-in]]\ntext = \"{clip}\"\nposition = \"top-left\"\nfont-size = 14\n"
                       "[[burn-in]]\ntext = \"{frame} {date}\"\n");
    expectSamePackets(".mov", {"--preset", "ours.toml", "--burn-in", "{source}", "--position", "top-right",
                               "--date", "2026-11-23"});
}

TEST_F(Segments, colour_spaces_are_changed_as_in_one_run)
{
    // A table that the configuration opens, from where it lies itself.
    fs::create_directories(at("colours/luts"));
    write("colours/luts/film.cube",
          "LUT_3D_SIZE 2\n0.1 0 0\n1 0 0\n0 0.9 0\n1 1 0\n0 0 1\n1 0 0.8\n0 1 1\n1 1 1\n");
    write("colours/studio.ocio", "ocio_profile_version: 2\nsearch_path: luts\nroles: {default: a}\n"
                                 "file_rules:\n  - !<Rule> {name: Default, colorspace: default}\n"
                                 "displays:\n  M:\n    - !<View> {name: V, colorspace: b}\n"
                                 "colorspaces:\n  - !<ColorSpace> {name: a}\n  - !<ColorSpace>\n    name: b\n"
                                 "    from_scene_reference: !<FileTransform> {src: film.cube}\n");
    const Words change{"--ocio", "colours/studio.ocio", "--from", "a", "--to", "b"};
    convertBoth("clip.mov", ".mov", change);
    EXPECT_EQ(packets("many.mov"), packets("one.mov"));
    convert("clip.mov", "plain.mov", {});
    EXPECT_TRUE(packets("one.mov") != packets("plain.mov"));
    // A job is to hold what it needs, and does not hold what a configuration opens.
    const Outcome job = qxhost({"farm", "make", "clip.mov", "graded.mov", "--job", "film.job", "--ocio",
                                "colours/studio.ocio", "--from", "a", "--display", "M"});
    EXPECT_EQ(job.exitCode, 6) << job.err;
    EXPECT_NE(job.err.find("opens files of its own"), std::string::npos) << job.err;
}

TEST_F(Segments, pipes_are_refused)
{
    const Outcome pipe = qxhost({"convert", "-", "out.mov", "--segments", "2"});
    EXPECT_EQ(pipe.exitCode, 2) << pipe.err;
    EXPECT_NE(pipe.err.find("standard input and output (-) cannot be split"), std::string::npos) << pipe.err;
}

TEST_F(Segments, pieces_of_codecs_with_frames_between_key_frames_begin_with_one)
{
    const Words bFrames{"--video-option", "bf=3", "--video-option", "g=100"};
    struct Case
    {
        std::string extension;
        Words arguments;
    };
    for (const Case& each : {Case{".mp4", bFrames}, Case{".mkv", {"--codec", "libx264"}}, Case{".ts", {}}}) {
        SCOPED_TRACE(each.extension);
        convertBoth("clip.mov", each.extension, each.arguments);
        EXPECT_EQ(times("many" + each.extension, "v"), times("one" + each.extension, "v"));
        EXPECT_EQ(times("many" + each.extension, "a"), times("one" + each.extension, "a"));
        EXPECT_EQ(frameHashes("many" + each.extension, "a"), frameHashes("one" + each.extension, "a"));
        const Outcome keys =
            run({"sh", "-c",
                 "ffprobe -v error -select_streams v -show_entries packet=flags -of csv=p=0 many" +
                     each.extension + " | grep -c K"});
        EXPECT_EQ(keys.out, "4\n");
        const Outcome decoded = run({"ffmpeg", "-nostdin", "-v", "error", "-xerror", "-i",
                                     "many" + each.extension, "-map", "0:v", "-f", "null", "-"});
        EXPECT_EQ(decoded.exitCode, 0);
        EXPECT_EQ(decoded.err, "");
        const auto near = [&] {
            const Outcome compared =
                run({"ffmpeg", "-nostdin", "-i", "one" + each.extension, "-i", "many" + each.extension,
                     "-lavfi", "[0:v][1:v]psnr", "-f", "null", "-"});
            const std::size_t least = compared.err.rfind("min:");
            return least == std::string::npos ? 0.0 : std::stod(compared.err.substr(least + 4));
        };
        EXPECT_GT(near(), 35) << "each frame is in its place: others differ by far more";
    }
}

TEST_F(Segments, a_clip_whose_frames_refer_to_others_is_split_anywhere)
{
    ffmpeg({"-i", "clip.mov", "-c:v", "libx264", "-g", "12", "-x264-params", "open-gop=1:bframes=3", "-c:a",
            "aac", "long.mp4"});
    convertBoth("long.mp4", ".mov", {}, "9");
    EXPECT_EQ(packets("many.mov"), packets("one.mov"));
}

TEST_F(Segments, time_code_and_audio_are_those_of_the_frames_picked)
{
    const Words picked{"--in", "00:00:59;20", "--out", "00:01:00;10", "--burn-in", "{timecode} {frame}"};
    convertBoth("clip.mov", ".mov", picked, "5");
    EXPECT_EQ(packets("many.mov"), packets("one.mov"));
    EXPECT_NE(packets("many.mov").find("timecode=00:00:59;20"), std::string::npos);
    convertBoth("clip.mov", ".mkv", {"--start", "7", "--frames", "30", "--no-audio"}, "4");
    EXPECT_EQ(times("many.mkv", "v"), times("one.mkv", "v"));
    EXPECT_EQ(frameHashes("many.mkv", "v"), frameHashes("one.mkv", "v"));
}

TEST_F(Segments, frames_at_uneven_times_keep_them)
{
    ffmpeg({"-i", "clip.mov", "-an", "-vf", "select='not(eq(mod(n,7),3))'", "-vsync", "vfr", "-c:v", "ffv1",
            "uneven.mkv"});
    convertBoth("uneven.mkv", ".mkv", {}, "4");
    EXPECT_EQ(times("many.mkv", "v"), times("one.mkv", "v"));
    EXPECT_EQ(frameHashes("many.mkv", "v"), frameHashes("one.mkv", "v"));
    convertBoth("uneven.mkv", ".mov", {}, "4");
    EXPECT_EQ(packets("many.mov"), packets("one.mov"));
}

TEST_F(Segments, effects_know_their_place_in_the_clip)
{
    write("clock.fx",
          "texture Input; sampler s = sampler_state { Texture = <Input>; };\nfloat t : TIME;\n"
          "float4 f(float2 uv : TEXCOORD0) : COLOR { return float4(frac(t), tex2D(s, uv).gb, 1); }\n"
          "technique T { pass { PixelShader = compile ps_3_0 f(); } }\n");
    convertBoth("clip.mov", ".mov", {"--effect", "clock.fx", "--burn-in", "{frame} {timecode}"}, "6");
    EXPECT_EQ(packets("many.mov"), packets("one.mov"));
}

TEST_F(Segments, effects_that_read_the_frame_before_get_it_at_the_seams)
{
    write("before.fx",
          "texture Input; sampler s = sampler_state { Texture = <Input>; };\n"
          "texture Before : PREVIOUS; sampler b = sampler_state { Texture = <Before>; };\n"
          "float4 f(float2 uv : TEXCOORD0) : COLOR { return abs(tex2D(s, uv) - tex2D(b, uv)) * 4; }\n"
          "technique T { pass { PixelShader = compile ps_3_0 f(); } }\n");
    fs::copy_file(at("before.fx"), at("again.fx"));
    convertBoth("clip.mov", ".mov", {"--effect", "before.fx", "--effect", "again.fx", "--start", "2"}, "6");
    EXPECT_EQ(packets("many.mov"), packets("one.mov"));
}

TEST_F(Segments, what_needs_all_frames_before_is_refused_by_name)
{
    write("trail.fx", "texture Input; sampler s = sampler_state { Texture = <Input>; };\n"
                      "texture Trail : PREVIOUSRESULT; sampler r = sampler_state { Texture = <Trail>; };\n"
                      "float4 f(float2 uv : TEXCOORD0) : COLOR { return max(tex2D(s, uv), tex2D(r, uv)); }\n"
                      "technique T { pass { PixelShader = compile ps_3_0 f(); } }\n");
    expectRefusal({"--effect", "trail.fx"}, 2,
                  {"--effect ", "trail.fx: draws over its own result", "convert in one run"});
    expectRefusal({"--deinterlace"}, 2, {"the filter bwdif", "cannot be split"});
    expectRefusal({"--before", "hqdn3d"}, 2, {"--before hqdn3d", "cannot be split"});
    expectRefusal({"--before", "crop=w=64:h=64:x=n"}, 2, {"--before crop"});
    expectRefusal({"--before", "hflip=enable='gt(t,1)'"}, 2, {"--before hflip"});
    write("film.cube", "LUT_1D_SIZE 2\n0 0 0\n1 1 1\n");
    expectRefusal({"--before", "lut1d=film.cube"}, 2, {"--before lut1d", "or at files"});
    expectRefusal({"--after", "hflip"}, 2, {"--after"});
    const Outcome gif = qxhost({"convert", "clip.mov", "out.flv", "--segments", "2"});
    EXPECT_EQ(gif.exitCode, 4) << gif.err;
    EXPECT_NE(gif.err.find("pieces of a file of type .flv cannot be joined"), std::string::npos) << gif.err;
    convertBoth("clip.mov", ".mov", {"--crop", "64x48", "--resize", "128x", "--before", "hflip"});
    EXPECT_EQ(packets("many.mov"), packets("one.mov"));
}

TEST_F(Segments, frames_without_times_are_refused_with_what_to_do)
{
    ffmpeg({"-i", "clip.mov", "-an", "-c:v", "libx264", "bare.h264"});
    const Outcome outcome = qxhost({"convert", "bare.h264", "out.mov", "--segments", "3"});
    EXPECT_EQ(outcome.exitCode, 3) << outcome.err;
    EXPECT_NE(
        outcome.err.find("\"bare.h264\" has frames without a time of their own, so the conversion cannot be "
                         "split; copy the clip into a .mov or .mkv first, or convert in one run"),
        std::string::npos)
        << outcome.err;
}

TEST_F(Segments, a_damaged_clip_gives_the_frames_that_one_run_gives)
{
    ffmpeg({"-i", "clip.mov", "-an", "-c:v", "mjpeg", "-q:v", "2", "-pix_fmt", "yuvj422p", "damaged.avi"});
    std::string bytes = read(at("damaged.avi"));
    for (std::size_t i = bytes.size() / 2; i < bytes.size() / 2 + 9000; ++i) {
        bytes[i] = 'x';
    }
    write("damaged.avi", bytes);
    const Outcome one = qxhost({"convert", "damaged.avi", "one.mov"});
    const Outcome many = qxhost({"convert", "damaged.avi", "many.mov", "--segments", "5", "--jobs", "2"});
    EXPECT_EQ(one.exitCode, 3) << one.err;
    EXPECT_EQ(many.exitCode, 3) << many.err;
    EXPECT_NE(many.err.find("damaged.avi: is damaged or incomplete; many.mov holds"), std::string::npos)
        << many.err;
    EXPECT_EQ(times("many.mov", "v"), times("one.mov", "v"));
    const Outcome compared = run({"ffmpeg", "-nostdin", "-v", "error", "-i", "one.mov", "-i", "many.mov",
                                  "-lavfi", "[0:v][1:v]psnr=stats_file=frames.txt", "-f", "null", "-"});
    EXPECT_EQ(compared.exitCode, 0) << compared.err;
    std::istringstream lines(read(at("frames.txt")));
    int others = 0;
    for (std::string line; std::getline(lines, line);) {
        others += line.find("psnr_avg:inf") == std::string::npos ? 1 : 0;
    }
    EXPECT_LE(others, 2) << "what the decoder makes of a damaged frame depends on what it had before";
}

TEST_F(Segments, more_pieces_than_frames_are_one_each)
{
    convertBoth("clip.mov", ".mov", {"--frames", "3"}, "10");
    EXPECT_EQ(packets("many.mov"), packets("one.mov"));
    convertBoth("clip.mov", ".png", {"--frames", "1", "--force"}, "auto");
    EXPECT_EQ(read(at("many.png")), read(at("one.png")));
}

TEST_F(Segments, what_exists_is_refused_before_the_work)
{
    write("out.mov", "precious");
    const Outcome outcome = qxhost({"convert", "clip.mov", "out.mov", "--segments", "2"});
    EXPECT_EQ(outcome.exitCode, 4) << outcome.err;
    EXPECT_EQ(read(at("out.mov")), "precious");
    EXPECT_EQ(qxhost({"convert", "clip.mov", "clip.mov", "--segments", "2", "--force"}).exitCode, 4);
    fs::create_directory(at("in"));
    ffmpeg({"-i", "clip.mov", "-frames:v", "4", "in/shot_%04d.png"});
    const std::string picture = read(at("in/shot_0002.png"));
    const Outcome over = qxhost({"convert", "in/shot_%04d.png", "in/shot_%04d.png", "--segments", "2",
                                 "--force", "--lut", "in/x.cube"});
    EXPECT_NE(over.exitCode, 0);
    const Outcome replacing =
        qxhost({"convert", "in/shot_%04d.png", "in/shot_%04d.png", "--segments", "2", "--force"});
    EXPECT_EQ(replacing.exitCode, 4) << replacing.err;
    EXPECT_EQ(read(at("in/shot_0002.png")), picture);
    EXPECT_EQ(std::distance(fs::directory_iterator(at("in")), {}), 4);
    fs::remove_all(at("in"));
    EXPECT_EQ(qxhost({"convert", "clip.mov", "absent/out.mov", "--segments", "2"}).exitCode, 4);
    EXPECT_EQ(qxhost({"convert", "clip.mov", "--to", "{name}.mkv", "--segments", "2"}).exitCode, 2);
    EXPECT_EQ(qxhost({"convert", "clip.mov", "x.mov", "--segments", "0"}).exitCode, 2);
    EXPECT_EQ(qxhost({"convert", "clip.mov", "out.mov", "--segments", "2", "--force", "--quiet"}).exitCode,
              0);
    EXPECT_EQ(filesBeside({"clip.mov", "out.mov"}), Words());
}

TEST_F(Segments, a_failure_leaves_nothing_behind)
{
    write("bad.fx", "technique T { pass { PixelShader = compile ps_3_0 absent(); } }\n");
    const Outcome outcome =
        qxhost({"convert", "clip.mov", "out.mov", "--segments", "2", "--effect", "bad.fx"});
    EXPECT_EQ(outcome.exitCode, 6) << outcome.err;
    const Outcome full =
        withFilesUpTo32MiB("convert clip.mov out.raw --format b48r --resize 640x --segments 2");
    EXPECT_EQ(full.exitCode, 4) << full.err;
    EXPECT_NE(full.err.find("failed: piece 0 (exit code 4)"), std::string::npos) << full.err;
    EXPECT_EQ(filesBeside({"clip.mov", "bad.fx"}), Words());
}

TEST_F(Segments, an_interruption_leaves_nothing_and_what_a_kill_left_is_removed_by_the_next)
{
    using namespace std::chrono_literals;
    ffmpeg({"-stream_loop", "40", "-i", "clip.mov", "-c", "copy", "-an", "long.mov"});
    const auto isAtWork = [&] {
        const auto beside = filesBeside({"clip.mov", "long.mov"});
        return std::any_of(beside.begin(), beside.end(), [&](const std::string& name) {
            return fs::exists(at(name) / "job" / "job.json");
        });
    };
    for (const int signal : {SIGINT, SIGKILL}) {
        Running running({programPath(), "convert", "long.mov", "out.mov", "--segments", "8", "--jobs", "2"},
                        directory_);
        for (int i = 0; i < 1200 && !isAtWork(); ++i) {
            std::this_thread::sleep_for(50ms);
        }
        running.signal(signal);
        const Outcome outcome = running.wait();
        EXPECT_EQ(outcome.exitCode, signal == SIGINT ? 130 : 128 + SIGKILL) << outcome.err;
        EXPECT_EQ(filesBeside({"clip.mov", "long.mov"}).size(), signal == SIGINT ? 0U : 1U);
    }
    convert("clip.mov", "out.mov", {"--frames", "2"});
    EXPECT_EQ(filesBeside({"clip.mov", "long.mov", "out.mov"}), Words());
}

} // namespace

} // namespace Qx::System
