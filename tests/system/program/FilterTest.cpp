// FFmpeg's filters before and after the conversion, judged by what ffmpeg itself makes of the same graphs.

#include "tests/system/program/Program.h"

namespace Qx::System {

namespace {

using Bytes = std::vector<std::uint8_t>;

class Filters : public ProgramTest
{
protected:
    /// Tagged as BT.709 of video range.
    void makeClip(const std::string& name, const std::string& format, const std::string& size, double seconds,
                  const std::vector<std::string>& more = {}) const
    {
        std::vector<std::string> arguments{"-f",
                                           "lavfi",
                                           "-i",
                                           "testsrc2=size=" + size + ":rate=25",
                                           "-t",
                                           std::to_string(seconds),
                                           "-vf",
                                           "noise=alls=20:allf=t:all_seed=3,format=" + format +
                                               ",setparams=colorspace=bt709:color_primaries=bt709:"
                                               "color_trc=bt709:range=tv"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        arguments.insert(arguments.end(), {"-colorspace", "bt709", "-color_range", "tv", name});
        ffmpeg(arguments);
    }

    /// A clip through ffmpeg's own filters, losslessly.
    void filter(const std::string& from, const std::string& to, const std::string& graph) const
    {
        ffmpeg({"-i", from, "-vf", graph, "-c:v", "ffv1", "-colorspace", "bt709", "-color_range", "tv", to});
    }

    std::string times(const std::string& file) const
    {
        return run({"ffprobe", "-v", "error", "-select_streams", "v", "-show_entries", "packet=pts_time",
                    "-of", "csv=p=0", file})
            .out;
    }

    static void expectHas(const std::string& text, const std::string& part)
    {
        EXPECT_NE(text.find(part), std::string::npos) << text << "\nlacks " << part;
    }
};

const std::vector<std::string> lossless{"-c:v", "ffv1"};

TEST_F(Filters, frames_are_filtered_before_the_conversion_at_full_depth)
{
    makeClip("clip.mkv", "yuv422p10le", "64x48", 0.12, lossless);
    filter("clip.mkv", "judge.mkv", "hflip,crop=40:32:8:4");
    // 4:2:2 codes go through unchanged, so that the filters alone are seen.
    convert({"clip.mkv", "out.mov", "--before", "hflip,crop=40:32:8:4", "--format", "v210"});
    EXPECT_EQ(decoded("out.mov", "yuv422p10le"), decoded("judge.mkv", "yuv422p10le"));
    expectHas(probe("out.mov", "width,height"), "width=40\nheight=32\n");
}

TEST_F(Filters, times_rates_and_shapes_flow_through)
{
    makeClip("clip.mkv", "yuv422p10le", "64x48", 0.2, lossless);
    convert({"clip.mkv", "out.mkv", "--codec", "ffv1", "--before", "fps=50,setsar=2"});
    expectHas(probe("out.mkv", "r_frame_rate,sample_aspect_ratio"),
              "sample_aspect_ratio=2:1\nr_frame_rate=50/1\n");
    filter("clip.mkv", "judge.mkv", "fps=50");
    EXPECT_EQ(times("out.mkv"), times("judge.mkv"));
    convert({"clip.mkv", "slow.mkv", "--codec", "ffv1", "--before", "setpts=2*PTS"});
    EXPECT_EQ(times("slow.mkv"), "0.000000\n0.080000\n0.160000\n0.240000\n0.320000\n");
    // The frames that are picked are the clip's.
    convert(
        {"clip.mkv", "part.mkv", "--codec", "ffv1", "--before", "fps=50", "--start", "1", "--frames", "2"});
    EXPECT_EQ(times("part.mkv"), "0.000000\n0.020000\n0.040000\n0.060000\n");
}

TEST_F(Filters, frames_are_filtered_after_the_conversion_at_full_depth)
{
    makeClip("clip.mkv", "yuv422p10le", "64x48", 0.08, lossless);
    convert({"clip.mkv", "whole.mkv"});
    convert({"clip.mkv", "out.mkv", "--after", "hflip,pad=80:64:8:8"});
    ffmpeg({"-i", "whole.mkv", "-vf", "hflip,pad=80:64:8:8", "-c:v", "ffv1", "judge.mkv"});
    EXPECT_EQ(decoded("out.mkv", "gbrp16le"), decoded("judge.mkv", "gbrp16le"));
    expectHas(probe("out.mkv", "width,height"), "width=80\nheight=64\n");
    convert({"clip.mkv", "fast.mkv", "--after", "fps=50"});
    expectHas(probe("fast.mkv", "nb_read_frames"), "nb_read_frames=4\n");
    const Outcome json = convert({"clip.mkv", "json.mkv", "--after", "crop=16:8", "--json"});
    EXPECT_EQ(nlohmann::json::parse(json.out)["width"].dump(), "16");
    // To YCbCr and back at full depth: zscale is put in, and the pictures stay.
    const Outcome there = convert({"clip.mkv", "there.mkv", "--after", "format=yuv444p16"});
    expectHas(there.err, "zscale is put in before format, gbrp16le becomes yuv444p16le");
    expectHas(there.err, "zscale is put in before the output, yuv444p16le becomes gbrp16le");
    const Bytes before = decoded("whole.mkv", "gbrp16le");
    const Bytes after = decoded("there.mkv", "gbrp16le");
    ASSERT_EQ(before.size(), after.size());
    int farthest = 0;
    for (std::size_t i = 0; i + 1 < before.size(); i += 2) {
        const int a = before[i] | before[i + 1] << 8;
        const int b = after[i] | after[i + 1] << 8;
        farthest = std::max(farthest, std::abs(a - b));
    }
    EXPECT_LE(farthest, 4) << "codes of 16 bits";
}

TEST_F(Filters, formats_that_do_not_meet_are_joined_aloud_or_refused)
{
    makeClip("clip.mkv", "yuv422p10le", "64x48", 0.04, lossless);
    const Outcome asked =
        convert({"clip.mkv", "out.mkv", "--codec", "ffv1", "--before", "format=yuv444p10le"});
    expectHas(asked.err, "--before: zscale is put in before format, yuv422p10le becomes yuv444p10le");
    const Outcome eight = convert({"clip.mkv", "eight.mkv", "--codec", "ffv1", "--before", "format=yuv422p"});
    expectHas(eight.err, "yuv422p10le becomes yuv422p");
    // elbg takes packed RGB of 8 bits alone.
    const Outcome refused = convert({"clip.mkv", "none.mkv", "--before", "hflip,elbg"}, 2);
    expectHas(refused.err, "filter elbg does not take yuv422p10le; it takes ");
    expectHas(refused.err, "rgb24");
    expectHas(refused.err, "format=NAME");
    EXPECT_FALSE(fs::exists(at("none.mkv")));
    const Outcome warned = convert({"clip.mkv", "scaled.mkv", "--codec", "ffv1", "--before", "scale=32:24"});
    expectHas(warned.err, "scale rounds more than need be");
    expectHas(probe("scaled.mkv", "width,height"), "width=32\nheight=24\n");
}

TEST_F(Filters, graphs_are_checked_before_anything_is_opened)
{
    const auto expect = [&](const std::string& option, const std::string& graph, const std::string& part) {
        const Outcome outcome = convert({"missing.mov", "out.mov", option, graph}, 2);
        expectHas(outcome.err, part);
        expectHas(outcome.err, option + " \"" + graph + "\": ");
    };
    expect("--before", "hflp", "No such filter: 'hflp'; near it are hflip");
    expect("--after", "crop=ww=3", "ww");
    expect("--before", "crop=10:10,", "");
    expect("--before", "split", "one open input");
    expect("--before", "anullsink", "");
    expect("--before", "volume=2", "only the picture can be filtered");
    const Outcome stored =
        qxhost({"convert", "missing.mov", "out.mov", "--format", "v210", "--after", "hflip"});
    EXPECT_EQ(stored.exitCode, 2);
    expectHas(stored.err, "cannot be combined with --format");
}

TEST_F(Filters, short_forms_are_graphs_and_say_so)
{
    makeClip("clip.mkv", "yuv422p10le", "64x48", 0.04, lossless);
    const auto expectSame = [&](const std::vector<std::string>& options, const std::string& graph) {
        std::vector<std::string> arguments{"clip.mkv", "out.mov", "--format", "v210", "--force"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Outcome outcome = convert(arguments);
        expectHas(outcome.err, "frames are filtered by " + graph);
        filter("clip.mkv", "judge.mkv", graph);
        EXPECT_EQ(decoded("out.mov", "yuv422p10le"), decoded("judge.mkv", "yuv422p10le")) << graph;
    };
    expectSame({"--crop", "32x24+16+8"}, "crop=32:24:16:8:exact=1");
    expectSame({"--resize", "32x24"}, "zscale=w=32:h=24:f=spline36,setsar=1");
    expectSame({"--pad", "80x60"}, "pad=80:60:(ow-iw)/2:(oh-ih)/2");
    expectSame({"--deinterlace", "--crop", "48x48"},
               "bwdif=mode=send_frame:parity=auto:deint=all,crop=48:48:(iw-ow)/2:(ih-oh)/2:exact=1");
    const Outcome wrong = convert({"clip.mkv", "out.mov", "--resize", "x"}, 2);
    expectHas(wrong.err, "WxH, Wx or xH");
    EXPECT_EQ(convert({"clip.mkv", "out.mov", "--crop", "0x10"}, 2).out, "");
    EXPECT_EQ(convert({"clip.mkv", "out.mov", "--pad", "10x10+2+2"}, 2).out, "");
}

TEST_F(Filters, a_crop_that_reaches_out_of_the_picture_is_refused)
{
    makeClip("clip.mkv", "yuv422p10le", "64x48", 0.04, lossless);
    const auto expectOut = [&](const std::vector<std::string>& options, const std::string& what) {
        std::vector<std::string> arguments{"clip.mkv", "out.mov"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        expectHas(convert(arguments, 2).err, what);
        EXPECT_FALSE(fs::exists(at("out.mov")));
    };
    expectOut({"--crop", "10x10+1000+0"},
              "crop: 10x10 pixels at 1000 across, 0 down, reach out of the picture of "
              "64x48; the largest place is 54 across, 38 down");
    expectOut({"--crop", "32x24+33+0"}, "crop: 32x24 pixels at 33 across, 0 down, reach out");
    expectOut({"--crop", "32x24+0+25"}, "crop: 32x24 pixels at 0 across, 25 down, reach out");
    expectOut({"--crop", "500x10"}, "'500'");
    expectOut({"--before", "crop=10:10:60:(ih-oh)/2"}, "at 60 across, a formula down, reach out");
    convert({"clip.mkv", "out.mov", "--crop", "32x24+32+24"});
}

TEST_F(Filters, a_size_that_cuts_a_chroma_sample_is_refused_with_the_sizes_beside_it)
{
    makeClip("clip.mkv", "yuv422p10le", "64x48", 0.04, lossless);
    const Outcome odd = convert({"clip.mkv", "out.mov", "--resize", "33x25"}, 2);
    expectHas(odd.err,
              "zscale: yuv422p10le has one chroma sample for 2 pixels across and 1 down, so it cannot be "
              "33x25; use a width of 32 or 34 and a height of 25");
    EXPECT_EQ(odd.err.find("1027"), std::string::npos) << odd.err;
    EXPECT_FALSE(fs::exists(at("out.mov")));
    convert({"clip.mkv", "out.png", "--resize", "34x25"});
    expectHas(probe("out.png", "width,height"), "width=34\nheight=25\n");
    const Outcome cut = convert({"clip.mkv", "out.mov", "--crop", "33x24+0+0", "--resize", "32x24"}, 2);
    expectHas(cut.err, "so it cannot take 33x24; use a width of 32 or 34 and a height of 24");
    makeClip("half.mkv", "yuv420p", "64x48", 0.04, lossless);
    expectHas(convert({"half.mkv", "out.mkv", "--resize", "1x25"}, 2).err,
              "use a width of 2 and a height of 24 or 26");
}

TEST_F(Filters, resizing_keeps_the_displayed_shape)
{
    makeClip("wide.mkv", "yuv422p10le", "72x58", 0.04, {"-aspect", "16:9", "-c:v", "ffv1"});
    convert({"wide.mkv", "a.mkv", "--codec", "ffv1", "--resize", "64x"});
    expectHas(probe("a.mkv", "width,height,sample_aspect_ratio"),
              "width=64\nheight=36\nsample_aspect_ratio=1:1\n");
    convert({"wide.mkv", "b.mkv", "--codec", "ffv1", "--resize", "x72"});
    expectHas(probe("b.mkv", "width,height,sample_aspect_ratio"),
              "width=128\nheight=72\nsample_aspect_ratio=1:1\n");
}

TEST_F(Filters, a_time_code_that_a_new_rate_ends_is_said)
{
    makeClip("clip.mov", "yuv422p10le", "64x48", 0.2, {"-c:v", "prores_ks", "-timecode", "10:00:00:00"});
    for (const std::string option : {"--before", "--after"}) {
        expectHas(convert({"clip.mov", "out.mov", option, "fps=50", "--force"}).err,
                  "time code 10:00:00:00 is left out: " + option + " changes the frame rate");
    }
    EXPECT_EQ(convert({"clip.mov", "kept.mov", "--after", "hflip"}).err.find("left out"), std::string::npos);
}

TEST_F(Filters, colour_tags_stay)
{
    makeClip("clip.mkv", "yuv422p10le", "64x48", 0.04, lossless);
    const std::string entries = "color_range,color_space,color_transfer,color_primaries";
    convert({"clip.mkv", "out.mov", "--resize", "32x24"});
    EXPECT_EQ(probe("out.mov", entries), probe("clip.mkv", entries));
}

TEST_F(Filters, packed_rgb_is_laid_out_in_planes_for_filters_that_want_them)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48", "-frames:v", "1", "-pix_fmt", "rgb24", "in.png"});
    const Outcome told = convert({"in.png", "out.png", "--resize", "32x24"});
    expectHas(told.err, "frames of rgb24 are laid out as gbrp");
    ffmpeg({"-i", "in.png", "-vf", "format=gbrp,zscale=w=32:h=24:f=spline36", "judge.png"});
    EXPECT_EQ(decoded("out.png", "rgb24"), decoded("judge.png", "rgb24"));
}

TEST_F(Filters, deep_clips_with_alpha_are_filtered_at_16_bits)
{
    // What ProRes 4444 with alpha is decoded as, which zscale does not take.
    ffmpeg({"-f", "lavfi", "-i",
            "testsrc2=size=64x48:rate=25,format=yuva444p10le,geq=lum='lum(X,Y)':cb='cb(X,Y)':cr='cr(X,Y)':a="
            "16*X,"
            "setparams=colorspace=bt709:range=tv",
            "-frames:v", "2", "-c:v", "prores_ks", "-profile:v", "4444", "clip.mov"});
    const Outcome told = convert(
        {"clip.mov", "out.mkv", "--resize", "32x24", "--codec", "ffv1", "--pixel-format", "yuva444p16le"});
    expectHas(told.err,
              "frames of yuva444p12le are laid out as yuva444p16le for the filters, with the same levels");
    ffmpeg({"-i", "clip.mov", "-vf", "format=yuva444p16le,zscale=w=32:h=24:f=spline36", "-c:v", "ffv1",
            "judge.mkv"});
    const std::vector<std::uint8_t> ours = decoded("out.mkv", "yuva444p16le");
    const std::vector<std::uint8_t> judged = decoded("judge.mkv", "yuva444p16le");
    constexpr std::size_t plane = 32UL * 24 * 2;
    ASSERT_EQ(ours.size(), 2 * 4 * plane);
    ASSERT_EQ(judged.size(), ours.size());
    for (std::size_t i = 0; i < ours.size(); i += 2) {
        const int a = ours[i] | ours[i + 1] << 8;
        const int b = judged[i] | judged[i + 1] << 8;
        const bool isAlpha = i / plane % 4 == 3; // swscale repeats the digits of 12 bits, and does not divide
        ASSERT_LE(std::abs(a - b), isAlpha ? 1 : 0) << i;
    }
    convert({"clip.mov", "out.mov", "--deinterlace", "--crop", "32x24", "--pad", "64x48"});
    expectHas(probe("out.mov", "pix_fmt"), "yuva444p12le");
}

TEST_F(Filters, grey_pictures_are_filtered_as_rgb)
{
    for (const auto& [grey, rgb, same] : {std::tuple("gray", "gbrp", "codes"),
                                          {"gray16be", "gbrp16le", "codes"},
                                          {"ya8", "gbrap", "codes"},
                                          {"monob", "gbrp", "codes"}}) {
        ffmpeg(
            {"-y", "-f", "lavfi", "-i", "testsrc2=size=64x48", "-frames:v", "1", "-pix_fmt", grey, "in.png"});
        const Outcome told = convert({"in.png", "out.png", "--resize", "32x24", "--force"});
        expectHas(told.err, "frames of " + std::string(grey) + " are laid out as " + rgb +
                                " for the filters, with the same " + same);
        ffmpeg({"-y", "-i", "in.png", "-vf", "format=" + std::string(rgb) + ",zscale=w=32:h=24:f=spline36",
                "judge.png"});
        EXPECT_EQ(decoded("out.png", "rgb48le"), decoded("judge.png", "rgb48le")) << grey;
    }
}

TEST_F(Filters, sound_stays_with_the_picture)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48:rate=25", "-f", "lavfi", "-i",
            "anoisesrc=sample_rate=48000:seed=1", "-t", "1", "-c:v", "mjpeg", "-pix_fmt", "yuvj422p", "-c:a",
            "pcm_s16le", "clip.mov"});
    convert({"clip.mov", "out.mov", "--before", "fps=50", "--start", "10", "--frames", "5"});
    expectHas(probe("out.mov", "nb_read_frames"), "nb_read_frames=10\n");
    ffmpeg({"-i", "clip.mov", "-map", "0:a", "-f", "s16le", "whole.raw"});
    ffmpeg({"-i", "out.mov", "-map", "0:a", "-f", "s16le", "part.raw"});
    const std::string part = read(at("part.raw"));
    EXPECT_EQ(part.size(), std::size_t{2 * 48000 / 5});
    EXPECT_EQ(read(at("whole.raw")).find(part), std::size_t{2 * 48000 * 4 / 10});
}

} // namespace

} // namespace Qx::System
