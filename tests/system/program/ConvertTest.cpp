#include "tests/pixels/Reference.h"
#include "tests/system/program/Program.h"

#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>

namespace Qx::System {

namespace {

using Bytes = std::vector<std::uint8_t>;
using Pixels::Matrix;
using Pixels::Picture;
using Pixels::Range;

/// Planar 4:2:2 as ffmpeg writes it, as the pairs that the library takes: n-bit codes at the top of their
/// words.
Picture packed(const Bytes& planar, int width, int height, int bits)
{
    const int depth = bits == 8 ? 8 : 16;
    Picture picture = Picture::blank("frame", Pixels::Layout::Packed422, width, height, depth);
    const auto sample = [&](std::size_t index) {
        if (bits == 8) {
            return std::uint16_t{planar[index]};
        }
        std::uint16_t word = 0;
        std::memcpy(&word, &planar[index * 2], 2);
        return static_cast<std::uint16_t>(word << (16 - bits));
    };
    const auto chromaWidth = static_cast<std::size_t>((width + 1) / 2);
    const auto w = static_cast<std::size_t>(width);
    const auto lumaSize = w * static_cast<std::size_t>(height);
    const std::size_t chromaSize = chromaWidth * static_cast<std::size_t>(height);
    for (int y = 0; y < height; ++y) {
        for (int pair = 0; pair < (width + 1) / 2; ++pair) {
            const auto row = static_cast<std::size_t>(y);
            const auto p = static_cast<std::size_t>(pair);
            picture.at(pair, y, 0) = sample(row * w + 2 * p);
            picture.at(pair, y, 1) = sample(lumaSize + row * chromaWidth + p);
            picture.at(pair, y, 2) = sample(row * w + std::min(2 * p + 1, w - 1));
            picture.at(pair, y, 3) = sample(lumaSize + chromaSize + row * chromaWidth + p);
        }
    }
    return picture;
}

/// Compares RGB codes with exact values, within one code of 8 bits or two of 16.
void expectNear(const Bytes& rgb, const std::vector<double>& exact, int depth)
{
    const std::size_t texels = exact.size() / 4;
    ASSERT_EQ(rgb.size(), texels * 3 * (depth == 8 ? 1 : 2));
    double worst = 0;
    std::size_t where = 0;
    for (std::size_t i = 0; i < texels * 3; ++i) {
        std::uint16_t code = rgb[depth == 8 ? i : i * 2];
        if (depth == 16) {
            std::memcpy(&code, &rgb[i * 2], 2);
        }
        const double away = std::abs(code - std::round(exact[i / 3 * 4 + i % 3]));
        if (away > worst) {
            worst = away;
            where = i;
        }
    }
    EXPECT_LE(worst, depth == 8 ? 1.0 : 2.0) << "at pixel " << where / 3 << ", component " << where % 3;
}

/// A clip as it comes, and what its codes mean.
struct Clip
{
    const char* name;
    const char* pixelFormat;
    int width;
    int height;
    int bits;
    Matrix matrix;
    Range range;
    std::vector<std::string> tags;
    std::vector<std::string> options;
    const char* lastFilter = "null";
};

void PrintTo(const Clip& clip, std::ostream* out)
{
    *out << clip.name;
}

class Convert : public ProgramTest
{
protected:
    /// A clip of ffmpeg's moving test picture with noise in it, losslessly coded. The test picture itself
    /// comes in even sizes only.
    void makeClip(const std::string& name, const std::string& pixelFormat, int width, int height, int frames,
                  const std::vector<std::string>& tags, const std::string& lastFilter = "null") const
    {
        const std::string size = std::to_string(width) + ":" + std::to_string(height);
        std::vector<std::string> arguments{
            "-f",      "lavfi",
            "-i",      "testsrc2=size=320x240:rate=25",
            "-vf",     "scale=" + size + ",noise=alls=40:allf=t,format=" + pixelFormat + "," + lastFilter,
            "-frames", std::to_string(frames),
            "-c:v",    "ffv1"};
        arguments.insert(arguments.end(), tags.begin(), tags.end());
        arguments.push_back(name);
        ffmpeg(arguments);
    }

    /// Converts, and must succeed.
    static std::vector<double> expected(const Picture& picture, Matrix matrix, Range range,
                                        Range target = Range::Full)
    {
        return Pixels::exactConversion({.direction = Pixels::Direction::Decode,
                                        .source = range,
                                        .target = target,
                                        .matrix = matrix,
                                        .filter = Pixels::Filter::CatmullRom},
                                       picture, picture.depth);
    }
};

class ConvertClip : public Convert, public testing::WithParamInterface<Clip>
{
};

TEST_P(ConvertClip, pictures_hold_the_exact_conversion)
{
    const Clip& clip = GetParam();
    makeClip("clip.mkv", clip.pixelFormat, clip.width, clip.height, 3, clip.tags, clip.lastFilter);
    std::vector<std::string> arguments{"clip.mkv", "out_%02d.png"};
    arguments.insert(arguments.end(), clip.options.begin(), clip.options.end());
    convert(arguments);

    const Bytes source = decoded("clip.mkv", clip.pixelFormat);
    const std::size_t frameBytes = source.size() / 3;
    const int depth = clip.bits == 8 ? 8 : 16;
    for (std::size_t n = 0; n < 3; ++n) {
        const Bytes frame(source.begin() + static_cast<std::ptrdiff_t>(n * frameBytes),
                          source.begin() + static_cast<std::ptrdiff_t>((n + 1) * frameBytes));
        const Picture picture = packed(frame, clip.width, clip.height, clip.bits);
        expectNear(decoded("out_0" + std::to_string(n + 1) + ".png", depth == 8 ? "rgb24" : "rgb48le"),
                   expected(picture, clip.matrix, clip.range), depth);
    }
    EXPECT_EQ(filesBeside({"clip.mkv", "out_01.png", "out_02.png", "out_03.png"}),
              std::vector<std::string>());
}

INSTANTIATE_TEST_SUITE_P(
    Clips, ConvertClip,
    testing::Values(Clip{"tagged_bt709_8_bits",
                         "yuv422p",
                         64,
                         48,
                         8,
                         Matrix::Bt709,
                         Range::Video,
                         {"-colorspace", "bt709", "-color_range", "tv"},
                         {}},
                    Clip{"tagged_bt601_10_bits",
                         "yuv422p10le",
                         64,
                         48,
                         10,
                         Matrix::Bt601,
                         Range::Video,
                         {"-colorspace", "smpte170m", "-color_range", "tv"},
                         {}},
                    Clip{"odd_size",
                         "yuv422p",
                         53,
                         37,
                         8,
                         Matrix::Bt709,
                         Range::Video,
                         {"-colorspace", "bt709", "-color_range", "tv"},
                         {}},
                    Clip{"odd_size_10_bits",
                         "yuv422p10le",
                         51,
                         33,
                         10,
                         Matrix::Bt709,
                         Range::Video,
                         {"-colorspace", "bt709", "-color_range", "tv"},
                         {}},
                    Clip{"full_range",
                         "yuv422p",
                         64,
                         48,
                         8,
                         Matrix::Bt601,
                         Range::Full,
                         {"-colorspace", "bt470bg", "-color_range", "pc"},
                         {}},
                    Clip{"untagged_narrow", "yuv422p", 64, 48, 8, Matrix::Bt601, Range::Video, {}, {}},
                    Clip{"untagged_wide", "yuv422p", 738, 16, 8, Matrix::Bt709, Range::Video, {}, {}},
                    Clip{"told_otherwise",
                         "yuv422p",
                         64,
                         48,
                         8,
                         Matrix::Bt709,
                         Range::Full,
                         {"-colorspace", "smpte170m", "-color_range", "tv"},
                         {"--matrix", "bt709", "--range", "full"}},
                    Clip{"interlaced",
                         "yuv422p",
                         64,
                         48,
                         8,
                         Matrix::Bt601,
                         Range::Video,
                         {"-colorspace", "smpte170m", "-color_range", "tv"},
                         {},
                         "setfield=tff"},
                    Clip{"bt2020_insisted_on",
                         "yuv422p10le",
                         64,
                         48,
                         10,
                         Matrix::Bt709,
                         Range::Video,
                         {"-colorspace", "bt2020nc", "-color_range", "tv"},
                         {"--matrix", "bt709"}}),
    [](const auto& each) { return std::string(each.param.name); });

TEST_F(Convert, chroma_of_420_is_brought_to_every_line)
{
    // Chroma that does not change from line to line has one right answer whatever the vertical filter.
    constexpr int width = 48;
    constexpr int height = 32;
    std::mt19937 random(7);
    Bytes raw;
    for (int i = 0; i < width * height; ++i) {
        raw.push_back(static_cast<std::uint8_t>(16 + random() % 220));
    }
    Bytes chroma;
    for (int plane = 0; plane < 2; ++plane) {
        Bytes row;
        for (int x = 0; x < width / 2; ++x) {
            row.push_back(static_cast<std::uint8_t>(16 + random() % 225));
        }
        for (int y = 0; y < height; ++y) {
            chroma.insert(chroma.end(), row.begin(), row.end());
            if (y % 2 == 0) {
                raw.insert(raw.end(), row.begin(), row.end());
            }
        }
    }
    write("raw.yuv", std::string(raw.begin(), raw.end()));
    ffmpeg({"-f", "rawvideo", "-pix_fmt", "yuv420p", "-s", "48x32", "-i", "raw.yuv", "-vf",
            "setparams=colorspace=bt709:range=tv", "-c:v", "ffv1", "clip.mkv"});
    convert({"clip.mkv", "out.png"});
    Bytes as422(raw.begin(), raw.begin() + std::ptrdiff_t{width} * height);
    as422.insert(as422.end(), chroma.begin(), chroma.end());
    expectNear(decoded("out.png", "rgb24"),
               expected(packed(as422, width, height, 8), Matrix::Bt709, Range::Video), 8);
}

TEST_F(Convert, rgb_comes_out_as_it_went_in)
{
    ffmpeg({"-f", "lavfi", "-i", "color=0x3a7fd1:size=40x30", "-frames", "1", "-pix_fmt", "rgb24", "in.png"});
    const Bytes in = decoded("in.png", "rgb24");
    convert({"in.png", "out.png", "--depth", "16"});
    const Bytes out = decoded("out.png", "rgb24");
    ASSERT_EQ(out.size(), in.size());
    for (std::size_t i = 0; i < in.size(); ++i) {
        ASSERT_NEAR(out[i], in[i], 1) << "at byte " << i;
    }
}

TEST_F(Convert, pictures_that_it_has_written_come_out_of_it_as_they_went_in)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=40x30", "-frames", "1", "-pix_fmt", "rgb24", "in.png"});
    for (const std::string name : {"once.dpx", "once.tif", "once.png"}) {
        convert({"in.png", name});
        convert({name, "twice.png", "--force"});
        EXPECT_EQ(decoded("twice.png", "rgb24"), decoded("in.png", "rgb24")) << name;
    }
    // FFmpeg's own, which carries its tags.
    ffmpeg({"-i", "in.png", "-pix_fmt", "rgb48be", "theirs.dpx"});
    convert({"theirs.dpx", "ours.dpx", "--depth", "16"});
    convert({"ours.dpx", "out.png", "--depth", "16"});
    EXPECT_EQ(decoded("out.png", "rgb48le"), decoded("theirs.dpx", "rgb48le"));
}

TEST_F(Convert, frames_can_be_picked)
{
    makeClip("clip.mkv", "yuv422p", 32, 24, 6, {"-colorspace", "bt709", "-color_range", "tv"});
    convert({"clip.mkv", "all_%d.png"});
    convert({"clip.mkv", "some_%d.png", "--start", "2", "--frames", "3"});
    EXPECT_EQ(read(at("some_1.png")), read(at("all_3.png")));
    EXPECT_EQ(read(at("some_3.png")), read(at("all_5.png")));
    EXPECT_FALSE(fs::exists(at("some_4.png")));
    EXPECT_NE(read(at("all_3.png")), read(at("all_4.png")));
}

TEST_F(Convert, frames_can_be_picked_by_time_and_by_time_code)
{
    const std::vector<std::string> tags{"-colorspace", "bt709", "-color_range", "tv"};
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=32x24:rate=30000/1001,noise=alls=40:allf=t", "-frames", "40",
            "-pix_fmt", "yuv422p10le", "-c:v", "prores_ks", "-timecode", "00:00:59;20", "clip.mov"});
    convert({"clip.mov", "all_%d.png"});
    const auto picked = [&](std::vector<std::string> options) {
        for (const std::string& file : filesBeside({})) {
            if (file.starts_with("some_")) {
                fs::remove(at(file));
            }
        }
        options.insert(options.begin(), {"clip.mov", "some_%d.png"});
        convert(options);
        std::vector<int> frames;
        for (int i = 1; fs::exists(at("some_" + std::to_string(i) + ".png")); ++i) {
            for (int k = 1; k <= 40; ++k) {
                if (read(at("some_" + std::to_string(i) + ".png")) ==
                    read(at("all_" + std::to_string(k) + ".png"))) {
                    frames.push_back(k - 1);
                }
            }
        }
        return frames;
    };
    // 00:00:59;29 is followed by 00:01:00;02.
    EXPECT_EQ(picked({"--in", "00:00:59;28", "--out", "00:01:00;03"}), (std::vector<int>{8, 9, 10, 11}));
    EXPECT_EQ(picked({"--out", "00:00:59;21"}), (std::vector<int>{0, 1}));
    EXPECT_EQ(picked({"--in", "00:01:01;01"}), (std::vector<int>{39}));
    EXPECT_EQ(picked({"--start", "1s", "--frames", "2"}), (std::vector<int>{30, 31}))
        << "frame 29 is at 0.9676 s";
    EXPECT_EQ(picked({"--start", "0.967s", "--duration", "0.1s"}), (std::vector<int>{29, 30, 31}));
    EXPECT_EQ(picked({"--start", "37", "--duration", "0:05"}), (std::vector<int>{37, 38, 39}));
    EXPECT_EQ(picked({"--duration", "0.0667s"}), (std::vector<int>{0, 1}));
}

TEST_F(Convert, sound_and_time_code_follow_the_frames_that_are_picked)
{
    for (const std::string extension : {"mov", "mkv"}) {
        const std::string clip = "clip." + extension;
        ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=32x24:rate=25", "-f", "lavfi", "-i",
                "anoisesrc=sample_rate=48000:seed=1", "-t", "3", "-c:v", "prores_ks", "-c:a", "pcm_s16le",
                "-timecode", "10:00:00:00", clip});
        convert({clip, "out." + extension, "--codec", "prores_ks", "--in", "10:00:01:10", "--out",
                 "10:00:01:19"});
        const std::string out = "out." + extension;
        // Frames 35 to 44: 0.4 s from 1.4 s on.
        EXPECT_NE(probe(out, "nb_read_frames").find("nb_read_frames=10\n"), std::string::npos);
        EXPECT_NE(probe(out, "start_time").find("start_time=0.000000\n"), std::string::npos);
        ffmpeg({"-i", clip, "-map", "0:a", "-f", "s16le", "whole.raw"});
        ffmpeg({"-i", out, "-map", "0:a", "-f", "s16le", "part.raw"});
        const std::string whole = read(at("whole.raw"));
        const std::string part = read(at("part.raw"));
        constexpr int bytesOfSecond = 2 * 48000;
        // Matroska rounds the times of its packets to milliseconds.
        const int tolerance = extension == "mkv" ? 2 * 24 : 0;
        EXPECT_NEAR(static_cast<int>(whole.find(part)), bytesOfSecond * 14 / 10, tolerance) << extension;
        EXPECT_NEAR(static_cast<int>(part.size()), bytesOfSecond * 4 / 10, 2 * tolerance) << extension;
        EXPECT_NE(probe(out, "start_time", "a").find("start_time=0.000000\n"), std::string::npos)
            << extension;
        EXPECT_NE(run({"ffprobe", "-v", "error", "-show_entries", "stream_tags=timecode:format_tags=timecode",
                       "-of", "csv=p=0", out})
                      .out.find("10:00:01:10\n"),
                  std::string::npos)
            << extension;
    }
}

TEST_F(Convert, sound_in_packets_begins_and_ends_within_the_frames_that_are_picked)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=32x24:rate=25", "-f", "lavfi", "-i", "sine=sample_rate=48000",
            "-t", "3", "-c:v", "libx264", "-g", "50", "-pix_fmt", "yuv420p", "-c:a", "aac", "clip.ts"});
    convert({"clip.ts", "out.mp4", "--start", "1.4s", "--duration", "1s"});
    EXPECT_NE(probe("out.mp4", "nb_read_frames").find("nb_read_frames=25\n"), std::string::npos);
    std::istringstream times(run({"ffprobe", "-v", "error", "-select_streams", "a", "-show_entries",
                                  "packet=pts_time", "-of", "csv=p=0", "out.mp4"})
                                 .out);
    double first = -1;
    double last = -1;
    times >> first;
    for (double time = 0; times >> time;) {
        last = time;
    }
    constexpr double packet = 1024.0 / 48000;
    EXPECT_GE(first, 0);
    EXPECT_LE(first, packet + 0.001);
    EXPECT_GE(last, 1 - packet - 0.001);
    EXPECT_LT(last, 1);
}

TEST_F(Convert, the_output_range_is_the_one_asked_for)
{
    makeClip("clip.mkv", "yuv422p", 32, 24, 1, {"-colorspace", "bt709", "-color_range", "tv"});
    convert({"clip.mkv", "out.png", "--output-range", "video"});
    expectNear(decoded("out.png", "rgb24"),
               expected(packed(decoded("clip.mkv", "yuv422p"), 32, 24, 8), Matrix::Bt709, Range::Video,
                        Range::Video),
               8);
}

TEST_F(Convert, a_clip_of_rgb_holds_what_the_pictures_hold)
{
    makeClip("clip.mkv", "yuv422p", 64, 48, 4, {"-colorspace", "bt709", "-color_range", "tv"});
    convert({"clip.mkv", "out.mkv"});
    convert({"clip.mkv", "out_%d.png"});
    const Bytes clip = decoded("out.mkv", "rgb24");
    Bytes pictures;
    for (int i = 1; i <= 4; ++i) {
        const Bytes picture = decoded("out_" + std::to_string(i) + ".png", "rgb24");
        pictures.insert(pictures.end(), picture.begin(), picture.end());
    }
    EXPECT_EQ(clip, pictures);
}

TEST_F(Convert, a_clip_keeps_times_aspect_tags_and_audio)
{
    const std::string tags = "colorspace=smpte170m:color_primaries=smpte170m:color_trc=smpte170m:range=tv";
    const std::string filters = "setsar=12/11,format=yuv422p10le,setparams=" + tags;
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48:rate=30000/1001", "-f", "lavfi", "-i",
            "sine=frequency=440:sample_rate=48000", "-t", "0.4", "-vf", filters, "-c:v", "prores_ks", "-c:a",
            "pcm_s16le", "clip.mov"});
    convert({"clip.mov", "out.mov"});
    const std::string entries = "width,height,r_frame_rate,sample_aspect_ratio,color_space,color_primaries,"
                                "color_transfer,nb_read_frames";
    EXPECT_EQ(probe("out.mov", entries), probe("clip.mov", entries));
    EXPECT_EQ(probe("out.mov", "codec_name,sample_rate,nb_read_frames", "a"),
              probe("clip.mov", "codec_name,sample_rate,nb_read_frames", "a"));
    EXPECT_EQ(run({"ffprobe", "-v", "error", "-select_streams", "v", "-show_entries", "packet=pts_time",
                   "-of", "csv", "out.mov"})
                  .out,
              run({"ffprobe", "-v", "error", "-select_streams", "v", "-show_entries", "packet=pts_time",
                   "-of", "csv", "clip.mov"})
                  .out);
    convert({"clip.mov", "silent.mov", "--no-audio"});
    EXPECT_EQ(probe("silent.mov", "codec_name", "a"), "");
}

TEST_F(Convert, no_film_is_silent_unless_it_is_said)
{
    ffmpeg({"-f",     "lavfi",     "-i",      "testsrc2=size=64x48:rate=25",
            "-f",     "lavfi",     "-i",      "sine=sample_rate=48000",
            "-f",     "lavfi",     "-i",      "sine=sample_rate=48000",
            "-t",     "0.2",       "-map",    "0",
            "-map",   "1",         "-map",    "2",
            "-c:v",   "prores_ks", "-c:a:0",  "pcm_s16le",
            "-c:a:1", "aac",       "clip.mov"});
    const Outcome told = convert({"clip.mov", "out.mp4", "--json"});
    EXPECT_NE(told.err.find("audio 1: pcm_s16le as aac; audio 2: aac copied"), std::string::npos) << told.err;
    const nlohmann::json report = nlohmann::json::parse(told.out);
    EXPECT_EQ(report["audio"].dump(), R"([{"codec":"pcm_s16le","copied":false,"written":"aac"},)"
                                      R"({"codec":"aac","copied":true,"written":"aac"}])");
    EXPECT_EQ(run({"ffprobe", "-v", "error", "-select_streams", "a", "-show_entries", "stream=codec_name",
                   "-of", "csv=p=0", "out.mp4"})
                  .out,
              "aac\naac\n");
    const Outcome refused = qxhost({"convert", "clip.mov", "out.webm", "--audio-codec", "copy"});
    EXPECT_EQ(refused.exitCode, 4);
    EXPECT_NE(refused.err.find("audio track 1 (pcm_s16le): it cannot be copied"), std::string::npos)
        << refused.err;
    convert({"clip.mov", "none.mp4", "--audio-codec", "none"});
    EXPECT_EQ(probe("none.mp4", "codec_name", "a"), "");
}

TEST_F(Convert, time_code_is_that_of_the_first_frame_written)
{
    makeClip("clip.mov", "yuv422p10le", 64, 48, 4,
             {"-c:v", "prores_ks", "-colorspace", "bt709", "-color_range", "tv", "-timecode", "10:00:00:23"});
    const auto timeCode = [&](const std::string& file) {
        return run({"ffprobe", "-v", "error", "-select_streams", "v", "-show_entries", "stream_tags=timecode",
                    "-of", "csv=p=0", file})
            .out;
    };
    ASSERT_EQ(timeCode("clip.mov"), "10:00:00:23\n");
    convert({"clip.mov", "all.mov"});
    EXPECT_EQ(timeCode("all.mov"), "10:00:00:23\n");
    convert({"clip.mov", "later.mp4", "--start", "2"});
    EXPECT_EQ(timeCode("later.mp4"), "10:00:01:00\n");
    convert({"clip.mov", "stored.mov", "--format", "v210", "--start", "1"});
    EXPECT_EQ(timeCode("stored.mov"), "10:00:00:24\n");
    EXPECT_EQ(qxhost({"fields", "clip.mov", "fields.mov", "--start", "1"}).exitCode, 0);
    EXPECT_EQ(timeCode("fields.mov"), "10:00:00:48\n");
    const Outcome raw = convert({"clip.mov", "out.raw", "--format", "uyvy"});
    EXPECT_NE(raw.err.find("time code 10:00:00:23 is left out: raw files cannot hold it"), std::string::npos)
        << raw.err;
    const Outcome picture = convert({"clip.mov", "out.png", "--frames", "1"});
    EXPECT_EQ(picture.err.find("time code"), std::string::npos) << picture.err;
}

TEST_F(Convert, guesses_are_reported_and_tags_are_not)
{
    makeClip("untagged.mkv", "yuv422p", 32, 24, 1, {});
    makeClip("tagged.mkv", "yuv422p", 32, 24, 1, {"-colorspace", "bt709", "-color_range", "tv"});
    EXPECT_NE(convert({"untagged.mkv", "a.png"}).err.find("assuming BT.601"), std::string::npos);
    EXPECT_EQ(convert({"tagged.mkv", "b.png"}).err.find("assuming"), std::string::npos);
    EXPECT_EQ(convert({"untagged.mkv", "c.png", "--quiet"}).err, "");
}

TEST_F(Convert, what_is_not_kept_of_the_input_is_said)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=40x30", "-frames", "1", "-pix_fmt", "rgba", "in.png"});
    const Outcome kept = convert({"in.png", "out.tiff"});
    EXPECT_EQ(kept.err.find("alpha"), std::string::npos) << kept.err;
    const Outcome rgba = convert({"in.png", "out.jpg"});
    EXPECT_NE(rgba.err.find("alpha is left out"), std::string::npos) << rgba.err;
    EXPECT_EQ(rgba.err.find("4:2:2"), std::string::npos) << rgba.err; // RGB stays RGB
    makeClip("full.mkv", "yuv444p", 32, 24, 1, {"-colorspace", "bt709", "-color_range", "tv"});
    const Outcome full = convert({"full.mkv", "full.png"});
    EXPECT_EQ(full.err.find("chroma"), std::string::npos) << full.err;
    const Outcome half = convert({"full.mkv", "half.uyvy"});
    EXPECT_NE(half.err.find("of which uyvy keeps half"), std::string::npos) << half.err;
    makeClip("clip.mkv", "yuv422p", 32, 24, 1, {"-colorspace", "bt709", "-color_range", "tv"});
    const Outcome plain = convert({"clip.mkv", "out.png"});
    EXPECT_EQ(plain.err.find("alpha"), std::string::npos) << plain.err;
    EXPECT_EQ(plain.err.find("4:2:2"), std::string::npos) << plain.err;
}

TEST_F(Convert, json_is_all_there_is_on_standard_output)
{
    makeClip("clip.mkv", "yuv422p10le", 32, 24, 2, {"-colorspace", "bt709", "-color_range", "tv"});
    ::setenv("QX_TIMING_LINES", "1", 1); // lines that the library prints
    const Outcome outcome = convert({"clip.mkv", "out_%d.png", "--json"});
    ::unsetenv("QX_TIMING_LINES");
    const auto run = nlohmann::json::parse(outcome.out);
    EXPECT_EQ(run["frames"], 2);
    EXPECT_EQ(run["width"], 32);
    EXPECT_EQ(run["bitsPerComponent"], 16);
    EXPECT_EQ(run["source"]["matrix"], "BT.709");
    EXPECT_EQ(run["source"]["matrixGuessed"], false);
    EXPECT_EQ(run["outputRange"], "full");
    EXPECT_FALSE(run["device"]["name"].get<std::string>().empty());
    EXPECT_EQ(run["files"], (std::vector<std::string>{"out_1.png", "out_2.png"}));
    EXPECT_NE(outcome.err.find("Manager::load()"), std::string::npos) << outcome.err;
}

TEST_F(Convert, without_json_standard_output_stays_empty)
{
    makeClip("clip.mkv", "yuv422p", 32, 24, 1, {"-colorspace", "bt709", "-color_range", "tv"});
    const Outcome outcome = convert({"clip.mkv", "out.png"});
    EXPECT_EQ(outcome.out, "");
    EXPECT_NE(outcome.err.find("out.png: 1 frame"), std::string::npos) << outcome.err;
}

TEST_F(Convert, names_may_hold_anything)
{
    makeClip("a clip \xff'\".mkv", "yuv422p", 32, 24, 1, {"-colorspace", "bt709", "-color_range", "tv"});
    const Outcome outcome = convert({"a clip \xff'\".mkv", "out \xfe.png", "--json"});
    EXPECT_TRUE(fs::exists(at("out \xfe.png")));
    EXPECT_TRUE(nlohmann::json::accept(outcome.out)) << outcome.out;
}

} // namespace

} // namespace Qx::System
