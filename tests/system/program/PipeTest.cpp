// Clips through pipes, between ffmpeg on both sides.

#include "tests/system/program/Program.h"

#include <cmath>
#include <cstring>
#include <tuple>

namespace Qx::System {

namespace {

class Pipes : public ProgramTest
{
protected:
    /// Runs a line of the shell, in which "qxhost" is the program; exit codes of all its commands are at the
    /// end of what it prints to standard error.
    Outcome shell(const std::string& line) const
    {
        return run({"bash", "-c",
                    "qxhost() { '" + programPath() + "' \"$@\"; }\n" + line +
                        "\necho \"codes ${PIPESTATUS[@]}\" >&2"});
    }

    /// Frames of noise. YCbCr is tagged as BT.709 of video range.
    void makeClip(const std::string& name, const std::string& format, const std::vector<std::string>& more,
                  const std::string& filters = "") const
    {
        std::vector<std::string> arguments{"-f",
                                           "lavfi",
                                           "-i",
                                           "testsrc2=size=64x48:rate=25",
                                           "-t",
                                           "0.4",
                                           "-vf",
                                           "noise=alls=30:allf=t:all_seed=3,format=" + format +
                                               ",setparams=colorspace=bt709:color_primaries=bt709:"
                                               "color_trc=bt709:range=tv" +
                                               filters};
        arguments.insert(arguments.end(), more.begin(), more.end());
        arguments.insert(arguments.end(), {"-colorspace", "bt709", "-color_primaries", "bt709", "-color_trc",
                                           "bt709", "-color_range", "tv", name});
        ffmpeg(arguments);
    }

    std::string times(const std::string& file) const
    {
        return run({"ffprobe", "-v", "error", "-select_streams", "v", "-show_entries", "packet=pts_time",
                    "-of", "csv=p=0", file})
            .out;
    }

    std::string frameSums(const std::string& file) const
    {
        return run({"ffmpeg", "-nostdin", "-v", "error", "-i", file, "-f", "framemd5", "-"}).out;
    }

    static void expectHas(const std::string& text, const std::string& part)
    {
        EXPECT_NE(text.find(part), std::string::npos) << text << "\nlacks " << part;
    }
};

const std::vector<std::string> ffv1{"-c:v", "ffv1"};

/// Codes of 16 bits of words in memory.
std::vector<unsigned> wordsOf(const std::vector<std::uint8_t>& bytes)
{
    std::vector<unsigned> words;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        words.push_back(static_cast<unsigned>(bytes[i] | bytes[i + 1] << 8));
    }
    return words;
}

TEST_F(Pipes, rgb_of_every_depth_comes_through)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48:rate=25", "-t", "0.12", "-vf",
            "format=gbrp16le,geq=r='mod(X*1021+Y*77+N*9\\,65536)':"
            "g='mod(X*33+Y*1999\\,65536)':b='65535-mod(X*7+Y*1365\\,65536)'",
            "-c:v", "ffv1", "deep.mkv"});
    for (const int bits : {8, 10, 12, 16}) {
        const std::string format = bits == 8 ? "gbrp" : "gbrp" + std::to_string(bits) + "le";
        ffmpeg({"-i", "deep.mkv", "-pix_fmt", format, "-c:v", "ffv1", "-color_range", "pc", "in.mkv"});
        const std::string made = bits == 8 ? "rgb24" : "rgb48le";
        const Outcome piped = shell(
            "ffmpeg -nostdin -v error -i in.mkv -f nut -c:v rawvideo -color_range pc - | qxhost convert - - "
            "--range full | ffmpeg -v error -i - -f rawvideo -pix_fmt " +
            made + " out.raw");
        expectHas(piped.err, "codes 0 0 0");
        const std::string bytes = read(at("out.raw"));
        const std::vector<std::uint8_t> got(bytes.begin(), bytes.end());
        fs::remove(at("out.raw"));
        // What was put in, in the order of memory.
        const std::vector<std::uint8_t> planes = decoded("in.mkv", format);
        const std::vector<unsigned> codes =
            bits == 8 ? std::vector<unsigned>(planes.begin(), planes.end()) : wordsOf(planes);
        const std::vector<unsigned> pixels =
            bits == 8 ? std::vector<unsigned>(got.begin(), got.end()) : wordsOf(got);
        ASSERT_EQ(pixels.size(), codes.size()) << piped.err;
        constexpr std::size_t plane = 64 * 48;
        const double scale = bits == 8 ? 1 : 65535.0 / ((1 << bits) - 1);
        std::size_t wrong = 0;
        for (std::size_t i = 0; i < codes.size(); ++i) {
            const std::size_t frame = i / (3 * plane);
            const std::size_t component = i / plane % 3; // green, blue, red
            const std::size_t place = frame * 3 * plane + (i % plane) * 3 + (component + 1) % 3;
            wrong += pixels[place] == std::lround(codes[i] * scale) ? 0U : 1U;
        }
        EXPECT_EQ(wrong, 0U) << bits << " bits";
    }
}

TEST_F(Pipes, what_a_file_becomes_a_pipe_becomes_too)
{
    for (const std::string format : {"yuv422p", "yuv422p10le", "yuv422p12le", "yuv422p16le"}) {
        makeClip("clip.nut", format, {"-c:v", "rawvideo"});
        const std::string options = " --matrix bt709 --range video --codec ffv1 ";
        const Outcome piped =
            shell("cat clip.nut | qxhost convert - - --container mkv" + options + "> piped.mkv");
        expectHas(piped.err, "codes 0 0");
        shell("qxhost convert clip.nut file.mkv --force" + options);
        EXPECT_EQ(frameSums("piped.mkv"), frameSums("file.mkv")) << format;
        EXPECT_EQ(probe("piped.mkv", "pix_fmt,color_primaries,color_transfer"),
                  probe("file.mkv", "pix_fmt,color_primaries,color_transfer"));
    }
    makeClip("clip.mkv", "yuv422p12le", ffv1);
    shell("ffmpeg -nostdin -v error -i clip.mkv -strict -1 -f yuv4mpegpipe - | qxhost convert - - "
          "--container y4m "
          "--matrix bt709 --pixel-format yuv422p12le > piped.y4m");
    expectHas(probe("piped.y4m", "pix_fmt,nb_read_frames"), "pix_fmt=yuv422p12le\nnb_read_frames=10\n");
    shell("qxhost convert clip.mkv file.mkv --codec ffv1 --pixel-format yuv422p12le --force");
    EXPECT_EQ(decoded("piped.y4m", "yuv422p12le"), decoded("file.mkv", "yuv422p12le"));
}

TEST_F(Pipes, times_and_tags_come_through)
{
    makeClip("clip.mkv", "yuv422p10le", ffv1);
    ffmpeg({"-i", "clip.mkv", "-vf", "settb=1/12800,setpts=N*512+mod(N\\,3)*100", "-fps_mode", "passthrough",
            "-enc_time_base", "1/12800", "-c:v", "ffv1", "uneven.nut"});
    ASSERT_NE(times("uneven.nut").find("0.047813"), std::string::npos) << times("uneven.nut");
    for (const std::string container : {"nut", "mov"}) {
        shell("cat uneven.nut | qxhost convert - - --container " + container + " > out." + container);
        EXPECT_EQ(times("out." + container), times("uneven.nut")) << container;
    }
    ffmpeg({"-i", "clip.mkv", "-c:v", "prores_ks", "-timecode", "10:00:00:05", "-movflags", "+write_colr",
            "-colorspace", "bt709", "-color_primaries", "bt709", "-color_trc", "bt709", "tagged.mov"});
    const std::string tags = "color_range,color_space,color_primaries,color_transfer";
    const Outcome mov = shell("qxhost convert tagged.mov - --container mov > out.mov");
    expectHas(mov.err, "codes 0");
    EXPECT_EQ(probe("out.mov", tags), probe("tagged.mov", tags));
    expectHas(run({"ffprobe", "-v", "error", "-show_entries", "stream_tags=timecode", "out.mov"}).out,
              "10:00:00:05");
    EXPECT_EQ(mov.err.find("left out"), std::string::npos) << mov.err;
    // QuickTime's time code lies where a pipe has been already.
    expectHas(shell("cat tagged.mov | qxhost convert - - > out.nut").err,
              "standard input: its time code cannot be read from a pipe");
    // What a container cannot hold is said.
    expectHas(
        shell("qxhost convert tagged.mov - --container y4m > out.y4m").err,
        "time code 10:00:00:05 is left out: y4m (wrapped_avframe) does not hold it; --container mkv does");
    expectHas(shell("qxhost convert tagged.mov - > out.nut").err,
              "primaries bt709, transfer bt709) are left out");
}

TEST_F(Pipes, audio_comes_through)
{
    makeClip("clip.mkv", "yuv422p10le", ffv1);
    ffmpeg({"-i", "clip.mkv", "-f", "lavfi", "-i", "sine=d=0.4:r=48000", "-map", "0:v", "-map", "1:a", "-c:v",
            "rawvideo", "-c:a", "pcm_s16le", "sound.nut"});
    for (const std::string container : {"nut", "mkv", "mov"}) {
        shell("cat sound.nut | qxhost convert - - --container " + container + " > out." + container);
        const auto samples = [&](const std::string& file) {
            return run({"ffmpeg", "-nostdin", "-v", "error", "-i", file, "-map", "0:a", "-f", "md5", "-"})
                .out;
        };
        EXPECT_EQ(samples("out." + container), samples("sound.nut")) << container;
    }
}

TEST_F(Pipes, raw_frames_come_through)
{
    makeClip("clip.mkv", "yuv422p", ffv1);
    ffmpeg({"-i", "clip.mkv", "-f", "rawvideo", "-pix_fmt", "uyvy422", "frames.uyvy"});
    const std::string input = "cat frames.uyvy | qxhost convert - - --raw uyvy --size 64x48 --format uyvy";
    expectHas(shell(input + " --container raw > out.uyvy").err, "codes 0 0");
    EXPECT_EQ(read(at("out.uyvy")), read(at("frames.uyvy")));
    shell(input + " | ffmpeg -v error -i - -f rawvideo out.raw");
    EXPECT_EQ(read(at("out.raw")), read(at("frames.uyvy")));
    constexpr std::size_t frame = 64 * 48 * 2;
    shell(input + " --container raw --start 3 --frames 2 > part.uyvy");
    EXPECT_EQ(read(at("part.uyvy")), read(at("frames.uyvy")).substr(3 * frame, 2 * frame));
    const Outcome cut =
        shell("head -c 20000 frames.uyvy | qxhost convert - - --raw uyvy --size 64x48 --format uyvy "
              "--container raw > cut.uyvy");
    expectHas(cut.err, "codes 0 3");
    expectHas(cut.err, "standard input: ends within a frame; a frame of 64x48 uyvy has 6144 bytes");
    EXPECT_EQ(read(at("cut.uyvy")), read(at("frames.uyvy")).substr(0, 3 * frame));
    EXPECT_EQ(shell("qxhost convert - out.mov --raw uyvy --size 64x48 < /dev/null").err.find("codes 0"),
              std::string::npos);
}

TEST_F(Pipes, a_reader_that_has_ended_is_said)
{
    makeClip("clip.mkv", "yuv422p10le", ffv1);
    const Outcome outcome = shell("qxhost convert clip.mkv - | head -c 100 > /dev/null");
    expectHas(outcome.err, "codes 4 0");
    expectHas(outcome.err, "cannot write standard output: the program that reads it has ended, or closed it");
    const Outcome full = shell("qxhost convert clip.mkv - > /dev/full");
    expectHas(full.err, "codes 4");
    expectHas(full.err, "No space left on device");
    expectHas(shell("qxhost convert clip.mkv - >&-").err, "standard output: cannot be written: it is closed");
}

TEST_F(Pipes, an_input_that_ends_in_the_middle_is_said)
{
    makeClip("clip.mkv", "yuv422p10le", ffv1);
    ffmpeg({"-i", "clip.mkv", "-c:v", "rawvideo", "whole.nut"});
    ffmpeg({"-i", "clip.mkv", "-strict", "-1", "whole.y4m"});
    ffmpeg({"-i", "clip.mkv", "-c:v", "prores_ks", "-movflags", "frag_keyframe+empty_moov", "whole.mov"});
    fs::copy(at("clip.mkv"), at("whole.mkv"));
    for (const std::string container : {"nut", "y4m", "mkv", "mov"}) {
        const std::string size = std::to_string(fs::file_size(at("whole." + container)) * 55 / 100);
        const Outcome outcome =
            shell("head -c " + size + " whole." + container + " | qxhost convert - - > out.nut");
        expectHas(outcome.err, "codes 0 3");
        expectHas(outcome.err, "standard input: is damaged or incomplete");
        // Some decoders patch the frame that is cut, others refuse it.
        const std::string frames = probe("out.nut", "nb_read_frames");
        EXPECT_TRUE(frames == "nb_read_frames=5\n" || frames == "nb_read_frames=6\n") << container << frames;
    }
    EXPECT_EQ(qxhost({"convert", "whole.y4m", "out.mov"}).exitCode, 0);
    const Outcome empty = shell("true | qxhost convert - out.mov --force");
    expectHas(empty.err, "codes 0 3");
    expectHas(empty.err, "cannot read standard input: it is empty");
}

TEST_F(Pipes, ranges_of_a_pipe_are_decoded_from_its_beginning)
{
    makeClip("clip.mkv", "yuv422p10le", {"-c:v", "libx264", "-g", "4", "-bf", "2"});
    const Outcome piped = shell("cat clip.mkv | qxhost convert - piped.mkv --start 6 --frames 3");
    expectHas(piped.err,
              "standard input cannot be searched: it is decoded from its beginning up to --start 6");
    shell("qxhost convert clip.mkv file.mkv --start 6 --frames 3");
    EXPECT_EQ(frameSums("piped.mkv"), frameSums("file.mkv"));
    // A file at standard input is read like one: its index may come last.
    ffmpeg({"-i", "clip.mkv", "-c", "copy", "late.mov"});
    expectHas(shell("qxhost convert - late.mkv --start 6 --frames 3 < late.mov").err, "codes 0");
    expectHas(probe("late.mkv", "nb_read_frames"), "=3");
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=320x240", "-t", "2", "-qp", "1", "-c:v", "libx264",
            "large.mov"});
    const Outcome lost = shell("cat large.mov | qxhost convert - lost.mkv");
    expectHas(lost.err, "MOV and MP4 are read from a pipe only in fragments, or with their index first");
    expectHas(lost.err, " 3\n");
}

TEST_F(Pipes, pipes_that_have_names_are_read_once)
{
    makeClip("clip.mkv", "yuv422p10le", {"-c:v", "libx264", "-g", "4", "-bf", "2"});
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=320x240", "-t", "2", "-qp", "1", "-c:v", "libx264",
            "large.mov"});
    const auto named = [&](const std::string& clip, const std::string& arguments) {
        return shell("rm -f named; mkfifo named; (cat " + clip + " > named &); timeout 60 bash -c 'exec \"" +
                     programPath() + "\" convert named " + arguments + "'");
    };
    expectHas(named("clip.mkv", "piped.mkv --start 6 --frames 3").err, "codes 0");
    shell("qxhost convert clip.mkv file.mkv --start 6 --frames 3");
    EXPECT_EQ(frameSums("piped.mkv"), frameSums("file.mkv"));
    const Outcome lost = named("large.mov", "lost.mkv");
    expectHas(lost.err, "MOV and MP4 are read from a pipe only in fragments, or with their index first");
    expectHas(lost.err, "codes 3");
}

TEST_F(Pipes, raw_frames_come_through_pipes_that_have_names)
{
    makeClip("clip.mkv", "yuv422p", ffv1);
    ffmpeg({"-i", "clip.mkv", "-f", "rawvideo", "-pix_fmt", "uyvy422", "in.raw"});
    const auto named = [&](const std::string& feeder, const std::string& arguments) {
        return shell("rm -f named; mkfifo named; (" + feeder + " > named &); timeout 60 bash -c 'exec \"" +
                     programPath() + "\" convert " + arguments + "'");
    };
    expectHas(named("cat in.raw", "named out.raw --raw uyvy --size 64x48 --format uyvy").err, "codes 0");
    EXPECT_EQ(read(at("out.raw")), read(at("in.raw")));
    const Outcome cut =
        named("head -c 10000 in.raw", "named out.raw --force --raw uyvy --size 64x48 --format uyvy");
    expectHas(cut.err, "\"named\": ends within a frame; a frame of 64x48 uyvy has 6144 bytes, and the last "
                       "one has 3856");
    expectHas(cut.err, "codes 3");
    EXPECT_EQ(read(at("out.raw")), read(at("in.raw")).substr(0, 6144));
}

TEST_F(Pipes, raw_frames_that_nothing_describes_are_told_from_a_clip)
{
    // Grey, which FFmpeg takes for nothing, and noise, which it may take for something.
    shell("head -c 200000 /dev/zero | tr '\\0' '\\200' > grey.raw");
    ffmpeg({"-f", "lavfi", "-i", "nullsrc=size=320x240,format=uyvy422,geq=random(1)*255:128:128", "-frames:v",
            "3", "-f", "rawvideo", "noise.raw"});
    for (const std::string file : {"grey.raw", "noise.raw"}) {
        for (const std::string& reading :
             {"cat " + file + " | qxhost convert - out.mov",
              "rm -f named; mkfifo named; (cat " + file + " > named &); qxhost convert named out.mov"}) {
            const Outcome outcome = shell(reading);
            expectHas(outcome.err,
                      "raw frames need --raw FORMAT and --size WxH, as in --raw uyvy --size 1920x1080");
            EXPECT_TRUE(outcome.err.ends_with(" 3\n")) << outcome.err;
            EXPECT_FALSE(fs::exists(at("out.mov")));
        }
    }
    expectHas(shell("cat grey.raw | qxhost thumbnail - out.png --size 64x48").err, "and --raw-size WxH");
    const Outcome empty = shell("true | qxhost convert - out.mov");
    expectHas(empty.err, "it is empty; the program that should write it may have failed");
    EXPECT_EQ(empty.err.find("--raw"), std::string::npos) << empty.err;
}

TEST_F(Pipes, an_output_that_is_a_pipe_is_refused_with_what_to_do)
{
    makeClip("clip.mkv", "yuv422p", ffv1);
    for (const std::string name : {"out.mov", "out.raw", "out_1.png", "out.fifo", "out"}) {
        ASSERT_EQ(::mkfifo(at(name).c_str(), 0600), 0);
        const std::string format = name == "out.raw" ? " --format uyvy" : "";
        const Outcome outcome = shell("qxhost convert clip.mkv " + name + format + " --force");
        expectHas(outcome.err, "cannot write \"" + name +
                                   "\": it is a pipe, and files are written aside and renamed; give - as the "
                                   "output and send standard output there (> " +
                                   name + ")");
        expectHas(outcome.err, "codes 4");
    }
    const Outcome sent =
        shell("(cat out.fifo > got.raw &); qxhost convert clip.mkv - --format uyvy --container "
              "raw > out.fifo; sleep 1; md5sum < got.raw; qxhost convert clip.mkv - --format "
              "uyvy --container raw | md5sum");
    EXPECT_EQ(sent.out.substr(0, 32), sent.out.substr(36, 32)) << sent.out << sent.err;
}

TEST_F(Pipes, what_cannot_be_piped_is_refused)
{
    makeClip("clip.mkv", "yuv422p10le", ffv1);
    const auto expect = [&](const std::string& arguments, const std::string& code, const std::string& part) {
        const Outcome outcome = shell("qxhost convert " + arguments + " > refused.out");
        expectHas(outcome.err, "codes " + code);
        expectHas(outcome.err, part);
        EXPECT_EQ(read(at("refused.out")), "");
    };
    expect("clip.mkv - --container mp4", "2", "mov is written in fragments");
    expect("clip.mkv - --container avi", "2", "expected nut, mkv, mov, webm, ts, y4m, raw, png, tif,");
    expect("clip.mkv out.mov --container mov", "2", "--container is for standard output");
    expect("clip.mkv - --container raw", "2", "add --format NAME");
    expect("clip.mkv - --json", "2", "both go to standard output");
    fs::create_directory(at("made"));
    expect("--to 'made/{name}.mov' clip.mkv -", "2", "cannot be one of several inputs");
    const Outcome black = qxhost({"black", "-", "--size", "64x48"});
    EXPECT_EQ(black.exitCode, 4);
    expectHas(black.err, "cannot write to standard output here");
    const Outcome terminal = run({"script", "-qec", programPath() + " convert clip.mkv -", "/dev/null"});
    expectHas(terminal.out, "standard output: is a terminal, which cannot show a clip");
    const Outcome keyboard = run({"script", "-qec", programPath() + " convert - out.mov", "/dev/null"});
    expectHas(keyboard.out, "cannot read standard input: it is a terminal");
}

TEST_F(Pipes, messages_stay_out_of_the_data)
{
    makeClip("clip.mkv", "yuv422p10le", ffv1);
    shell("qxhost convert clip.mkv - > loud.nut");
    shell("qxhost convert clip.mkv - --quiet > quiet.nut");
    EXPECT_EQ(read(at("loud.nut")), read(at("quiet.nut")));
    EXPECT_EQ(read(at("loud.nut")).find("qxhost"), std::string::npos);
    // An encoder that prints by itself.
    shell("qxhost convert clip.mkv - --container mkv --codec libx265 > x265.mkv");
    expectHas(probe("x265.mkv", "nb_read_frames"), "=10");
}

TEST_F(Pipes, info_reads_standard_input)
{
    makeClip("clip.mkv", "yuv422p10le", ffv1);
    const Outcome outcome = shell("cat clip.mkv | qxhost info - --json");
    expectHas(outcome.err, "codes 0 0");
    const nlohmann::json info = nlohmann::json::parse(outcome.out);
    EXPECT_EQ(info["input"], std::string("-"));
    EXPECT_EQ(info["video"]["pixelFormat"], std::string("yuv422p10le"));
}

TEST_F(Pipes, pictures_come_one_after_the_other)
{
    makeClip("clip.mkv", "yuv422p10le", ffv1);
    for (const auto& [container, decoder, format] :
         {std::tuple<std::string, std::string, std::string>{"png", "png_pipe", "rgb48be"},
          {"ppm", "ppm_pipe", "rgb48be"},
          {"dpx", "dpx_pipe", "gbrp16be"},
          {"jpg", "jpeg_pipe", "yuvj420p"}}) {
        const Outcome outcome = shell("qxhost convert clip.mkv - --container " + container + " | tee piped." +
                                      container + " | ffmpeg -nostdin -v error -y -f " + decoder +
                                      " -i - -pix_fmt " + format + " -f rawvideo piped.raw");
        expectHas(outcome.err, "codes 0 0 0");
        expectHas(outcome.err, "standard output: 10 frames");
        convert({"clip.mkv", "file_%02d." + container});
        ffmpeg({"-y", "-start_number", "1", "-i", "file_%02d." + container, "-pix_fmt", format, "-f",
                "rawvideo", "files.raw"});
        EXPECT_TRUE(read(at("piped.raw")) == read(at("files.raw"))) << container;
        EXPECT_FALSE(read(at("piped.raw")).empty());
        // And to the byte, what the files hold.
        std::string all;
        for (int i = 1; i <= 10; ++i) {
            all += read(at("file_" + std::string(i < 10 ? "0" : "") + std::to_string(i) + "." + container));
        }
        EXPECT_TRUE(read(at("piped." + container)) == all) << container;
    }
}

TEST_F(Pipes, a_picture_has_the_bytes_of_its_file)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48", "-frames:v", "1", "-vf",
            "format=rgba64le,colorchannelmixer=aa=0.5", "in.png"});
    for (const std::string kind : {"png", "tif", "bmp", "dpx", "exr", "tga", "webp"}) {
        shell("qxhost convert in.png - --quiet --container " + kind + " > piped." + kind);
        convert({"in.png", "file." + kind});
        EXPECT_TRUE(read(at("piped." + kind)) == read(at("file." + kind))) << kind;
        EXPECT_FALSE(read(at("piped." + kind)).empty()) << kind;
    }
}

TEST_F(Pipes, a_thumbnail_comes_as_a_picture)
{
    makeClip("clip.mkv", "yuv422p10le", ffv1);
    expectHas(shell("qxhost thumbnail clip.mkv - --size 32x32 --container png > small.png").err, "codes 0");
    EXPECT_EQ(qxhost({"thumbnail", "clip.mkv", "file.png", "--size", "32x32"}).exitCode, 0);
    EXPECT_TRUE(read(at("small.png")) == read(at("file.png")));
    const Outcome none = shell("qxhost thumbnail clip.mkv - --size 32x32 | cat");
    expectHas(none.err, "codes 2 0");
    expectHas(none.err, "--container png");
    expectHas(shell("qxhost convert clip.mkv - --container png | head -c 100 >/dev/null").err, "codes 4 0");
    expectHas(shell("qxhost convert clip.mkv - --container gif | cat").err, "codes 2 0");
}

} // namespace

} // namespace Qx::System
