#include "tests/pixels/ClipReference.h"
#include "tests/system/program/Program.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <random>

namespace Qx::System {

namespace {

using Bytes = std::vector<std::uint8_t>;

/// A pixel format in a container, and the planar one that FFmpeg can say its samples in.
struct Case
{
    const char* format;
    const char* file;
    const char* codec;
    const char* samples;
};

class PixelFormats : public ProgramTest
{
protected:
    static constexpr int width = 50; // no whole number of the groups of any packed format
    static constexpr int height = 22;

    /// A noisy clip of two frames, losslessly coded.
    void makeClip(const std::string& name, const std::string& pixelFormat) const
    {
        std::vector<std::string> arguments{"-f", "lavfi", "-i", "testsrc2=size=50x22:rate=25", "-vf"};
        arguments.push_back("noise=alls=60:allf=t,format=" + pixelFormat);
        const bool rgb = pixelFormat.starts_with("gbr");
        arguments.insert(arguments.end(), {"-frames", "2", "-c:v", "ffv1", "-colorspace",
                                           rgb ? "rgb" : "bt709", "-color_range", rgb ? "pc" : "tv", name});
        ffmpeg(arguments);
    }

    /// Runs the program, which must succeed.
    Outcome succeed(const std::vector<std::string>& arguments) const
    {
        Outcome outcome = qxhost(arguments);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return outcome;
    }

    /// A clip of full-range 4:2:2 that holds every code: luma counts up, Cb has the even codes and Cr the
    /// odd.
    void makeCountingClip(const std::string& name, const std::string& pixelFormat, int codes) const
    {
        std::string planes;
        const auto add = [&](int code) {
            planes += static_cast<char>(code);
            if (codes > 256) {
                planes += static_cast<char>(code >> 8);
            }
        };
        for (int i = 0; i < 4 * codes; ++i) {
            add(i % codes);
        }
        for (int i = 0; i < 4 * codes; ++i) {
            add(i % (codes / 2) * 2 + (i < 2 * codes ? 0 : 1));
        }
        write("planes.raw", planes);
        // With the options alone FFmpeg 7 converts the codes, and with the filter alone too: FFV1's range is
        // video unless told.
        ffmpeg({"-f", "rawvideo", "-pix_fmt", pixelFormat, "-s", std::to_string(codes) + "x4", "-i",
                "planes.raw", "-vf", "setparams=colorspace=bt709:range=pc", "-c:v", "ffv1", "-colorspace",
                "bt709", "-color_range", "pc", name});
    }

    void expectWritten(const std::string& clip, const Case& each) const
    {
        SCOPED_TRACE(std::string(each.format) + " in " + each.file);
        succeed({"convert", clip, each.file, "--format", each.format, "--quiet"});
        EXPECT_EQ(decoded(each.file, each.samples), decoded(clip, each.samples));
        EXPECT_EQ(probe(each.file, "codec_name"), std::string("codec_name=") + each.codec + "\n");
    }

    void expectFailure(const std::vector<std::string>& arguments, int code,
                       const std::vector<std::string>& words) const
    {
        const Outcome outcome = qxhost(arguments);
        EXPECT_EQ(outcome.exitCode, code) << outcome.err;
        for (const std::string& word : words) {
            EXPECT_NE(outcome.err.find(word), std::string::npos) << word << " is not in: " << outcome.err;
        }
    }
};

TEST_F(PixelFormats, video_that_is_written_decodes_to_the_samples_of_the_source)
{
    makeClip("deep.mkv", "yuv422p10le");
    makeClip("clip.mkv", "yuv422p");
    expectWritten("deep.mkv", {"v210", "deep.mov", "v210", "yuv422p10le"});
    expectWritten("deep.mkv", {"m101", "deep.avi", "m101", "yuv422p10le"});
    EXPECT_EQ(probe("deep.mov", "codec_tag_string,color_space"),
              "codec_tag_string=v210\ncolor_space=bt709\n");
    expectWritten("clip.mkv", {"uyvy", "clip.mov", "rawvideo", "yuv422p"});
    expectWritten("clip.mkv", {"yuy2", "clip.avi", "rawvideo", "yuv422p"});
    expectWritten("clip.mkv", {"yvyu", "clip.nut", "rawvideo", "yuv422p"});
    EXPECT_EQ(probe("clip.mov", "codec_tag_string"), "codec_tag_string=2vuy\n");
    EXPECT_EQ(
        filesBeside({"deep.mkv", "clip.mkv", "deep.mov", "deep.avi", "clip.mov", "clip.avi", "clip.nut"}),
        std::vector<std::string>{});
}

TEST_F(PixelFormats, rgb_that_is_written_decodes_to_the_codes_of_the_source)
{
    makeClip("clip.mkv", "gbrp");
    makeClip("deep.mkv", "gbrp16le");
    expectWritten("clip.mkv", {"24bg", "a.avi", "rawvideo", "gbrp"});
    expectWritten("clip.mkv", {"bgr3", "a.mov", "rawvideo", "gbrp"});
    expectWritten("clip.mkv", {"bgra", "b.mov", "rawvideo", "gbrp"});
    expectWritten("clip.mkv", {"planar", "a.nut", "rawvideo", "gbrp"});
    expectWritten("deep.mkv", {"b48r", "c.mov", "rawvideo", "gbrp16le"});
    expectWritten("deep.mkv", {"b64a", "d.mov", "rawvideo", "gbrp16le"});
    expectWritten("deep.mkv", {"rgba:16", "d.nut", "rawvideo", "gbrp16le"});
    EXPECT_EQ(probe("c.mov", "codec_tag_string,pix_fmt"), "codec_tag_string=b48r\npix_fmt=rgb48be\n");
    EXPECT_EQ(probe("d.mov", "codec_tag_string,pix_fmt"), "codec_tag_string=b64a\npix_fmt=rgba64be\n");
}

TEST_F(PixelFormats, what_ffmpeg_writes_comes_in_to_the_same_samples)
{
    makeClip("deep.mkv", "yuv422p10le");
    ffmpeg({"-i", "deep.mkv", "-c:v", "v210", "v210.mov"});
    // Upper bits first: a word of y216 is the 10-bit code times 64. (FFmpeg's encoder has kept codes clear of
    // the reserved ones, so what counts is what it wrote.)
    ffmpeg({"-i", "v210.mov", "-f", "rawvideo", "-pix_fmt", "yuv422p10le", "planar.raw"});
    succeed({"convert", "v210.mov", "tape.y216"});
    ffmpeg({"-f", "rawvideo", "-pix_fmt", "y210le", "-s", "50x22", "-i", "tape.y216", "-f", "rawvideo",
            "-pix_fmt", "yuv422p10le", "again.raw"});
    EXPECT_TRUE(read(at("again.raw")) == read(at("planar.raw")));

    makeClip("rgb.mkv", "gbrp16le");
    ffmpeg({"-i", "rgb.mkv", "-c:v", "rawvideo", "-pix_fmt", "rgb48be", "b48r.mov"});
    ffmpeg({"-i", "rgb.mkv", "-f", "rawvideo", "-pix_fmt", "rgb48le", "rgb.raw"});
    succeed({"convert", "b48r.mov", "rgb.b48r"});
    EXPECT_TRUE(read(at("rgb.b48r")) == read(at("rgb.raw")));
    succeed({"convert", "rgb.b48r", "b64a.mov", "--size", "50x22", "--format", "b64a"});
    succeed({"convert", "b64a.mov", "rgb.bgr3", "--format", "bgr3:16"});
    EXPECT_TRUE(read(at("rgb.bgr3")) == read(at("rgb.raw")));
}

TEST_F(PixelFormats, raw_frames_keep_their_codes_from_format_to_format)
{
    makeClip("clip.mkv", "yuv420p");
    ffmpeg({"-i", "clip.mkv", "-f", "rawvideo", "-pix_fmt", "yuv420p", "planar.raw"});
    std::string yv12 = read(at("planar.raw"));
    constexpr std::size_t luma = width * height;
    constexpr std::size_t chroma = luma / 4;
    for (std::size_t at = luma; at < yv12.size(); at += luma + 2 * chroma) {
        std::swap_ranges(yv12.begin() + static_cast<std::ptrdiff_t>(at),
                         yv12.begin() + static_cast<std::ptrdiff_t>(at + chroma),
                         yv12.begin() + static_cast<std::ptrdiff_t>(at + chroma));
    }
    write("clip.yv12", yv12);
    const Outcome outcome = succeed({"convert", "clip.yv12", "clip.uyvy", "--size", "50x22", "--json"});
    const nlohmann::json run = nlohmann::json::parse(outcome.out);
    EXPECT_EQ(run["frames"], 2);
    EXPECT_EQ(run["codesKept"], true);
    EXPECT_TRUE(run["outputRange"].is_null());
    EXPECT_EQ(run["source"]["rangeGuessed"], false);
    EXPECT_EQ(outcome.err.find("BT.601"), std::string::npos) << outcome.err; // nothing depends on a guess
    succeed({"convert", "clip.uyvy", "tape.raw", "--size", "50x22", "--format", "v210"});
    succeed({"convert", "tape.raw", "again.yv12", "--raw", "v210", "--size", "50x22"});
    EXPECT_TRUE(read(at("again.yv12")) == yv12);
}

TEST_F(PixelFormats, every_full_range_code_of_ten_bits_is_written_and_comes_back_from_clips_and_raw_frames)
{
    makeCountingClip("clip.mkv", "yuv422p10le", 1024);
    const Bytes codes = decoded("clip.mkv", "yuv422p10le");
    const Outcome written = succeed({"convert", "clip.mkv", "v210.mov", "--format", "v210", "--json"});
    EXPECT_EQ(decoded("v210.mov", "yuv422p10le"), codes);
    const nlohmann::json run = nlohmann::json::parse(written.out);
    EXPECT_EQ(run["codesKept"], true);
    EXPECT_EQ(run["warnings"],
              nlohmann::json::array({"colour tags (range full) are left out: .mov (v210) does "
                                     "not hold it; .mkv does"}));
    succeed({"convert", "clip.mkv", "m101.avi", "--format", "m101"});
    EXPECT_EQ(decoded("m101.avi", "yuv422p10le"), codes);
    for (const std::string format : {"v210", "m101", "y216"}) {
        succeed({"convert", "clip.mkv", "tape." + format, "--format", format});
        succeed({"convert", "tape." + format, format + ".mkv", "--size", "1024x4", "--range", "full",
                 "--matrix", "bt709", "--format", "v210"});
        EXPECT_EQ(decoded(format + ".mkv", "yuv422p10le"), codes) << format;
    }
    EXPECT_EQ(probe("y216.mkv", "color_range"), "color_range=pc\n");
    // Luma, to a program that looks at the upper ten bits.
    ffmpeg({"-f", "rawvideo", "-pix_fmt", "y210le", "-s", "1024x4", "-i", "tape.y216", "-f", "rawvideo",
            "-pix_fmt", "yuv422p10le", "planar.raw"});
    EXPECT_EQ(read(at("planar.raw")).substr(0, 8192), std::string(codes.begin(), codes.begin() + 8192));
}

TEST_F(PixelFormats, full_range_codes_of_eight_bits_have_the_same_levels_from_a_clip_and_from_raw_frames)
{
    makeCountingClip("clip.mkv", "yuv422p", 256);
    succeed({"convert", "clip.mkv", "tape.yuy2"});
    for (const std::string format : {"v210", "m101", "y216"}) {
        succeed({"convert", "clip.mkv", "clip." + format, "--format", format});
        succeed({"convert", "tape.yuy2", "tape." + format, "--size", "256x4", "--range", "full", "--format",
                 format});
        EXPECT_TRUE(read(at("clip." + format)) == read(at("tape." + format))) << format;
        succeed({"convert", "tape." + format, "again.yuy2", "--size", "256x4", "--range", "full", "--force"});
        EXPECT_TRUE(read(at("again.yuy2")) == read(at("tape.yuy2"))) << format;
    }
    const std::string words = read(at("clip.y216"));
    EXPECT_EQ(words.substr(255 * 4, 2), "\xff\xff") << "white";
}

TEST_F(PixelFormats, full_range_white_of_ten_bits_is_white_in_rgb_from_a_clip_and_from_raw_frames)
{
    makeCountingClip("clip.mkv", "yuv422p10le", 1024);
    succeed({"convert", "clip.mkv", "tape.v210"});
    succeed({"convert", "clip.mkv", "clip.b48r"});
    succeed(
        {"convert", "tape.v210", "tape.b48r", "--size", "1024x4", "--range", "full", "--matrix", "bt709"});
    EXPECT_TRUE(read(at("clip.b48r")) == read(at("tape.b48r")));

    std::string white;
    for (int i = 0; i < 48 * 2 * 2; ++i) {
        white += i % 2 == 0 ? std::string("\0\x80", 2) : std::string("\xff\xff", 2); // chroma at zero
    }
    write("white.raw", white);
    succeed({"convert", "white.raw", "white.v210", "--raw", "uyvy:16", "--size", "48x2", "--range", "full"});
    succeed({"convert", "white.v210", "white.b48r", "--size", "48x2", "--range", "full"});
    EXPECT_EQ(read(at("white.b48r")), std::string(48 * 2 * 6, '\xff'));
}

TEST_F(PixelFormats, a_range_that_is_guessed_is_said_where_it_decides_codes)
{
    write("tape.uyvy", std::string(8 * 2 * 2, 'x'));
    const Outcome deeper = succeed({"convert", "tape.uyvy", "tape.v210", "--size", "8x2", "--json"});
    EXPECT_NE(deeper.err.find("assuming video range for its codes at 10 bits; --range"), std::string::npos)
        << deeper.err;
    EXPECT_EQ(nlohmann::json::parse(deeper.out)["source"]["rangeGuessed"], true);
    const Outcome same = succeed({"convert", "tape.uyvy", "tape.yuy2", "--size", "8x2"});
    EXPECT_EQ(same.err.find("range"), std::string::npos) << same.err;
}

TEST_F(PixelFormats, rgb_of_video_range_has_white_where_it_belongs_at_every_depth)
{
    ffmpeg({"-f", "lavfi", "-i", "color=white:size=48x22,format=yuv422p10le", "-frames", "1", "-vf",
            "lutyuv=y=940:u=512:v=512", "-c:v", "ffv1", "-color_range", "tv", "-colorspace", "bt709",
            "white.mkv"});
    const std::map<std::string, std::string> whites{
        {"argb", "\xff\xeb\xeb\xeb"}, {"argb10", "\xac\xb3\xce\xfa"}, {"b48r", std::string("\0\xeb", 2)}};
    for (const auto& [format, white] : whites) {
        for (const std::string depth : {"8", "16"}) {
            succeed({"convert", "white.mkv", "white.raw", "--format", format, "--output-range", "video",
                     "--depth", depth, "--force"});
            const std::string codes = read(at("white.raw"));
            ASSERT_FALSE(codes.empty());
            for (std::size_t i = 0; i < codes.size(); i += white.size()) {
                ASSERT_EQ(codes.substr(i, white.size()), white) << format << " at " << depth;
            }
        }
    }
}

TEST_F(PixelFormats, a_clip_of_video_range_rgb_keeps_its_range)
{
    ffmpeg({"-f", "lavfi", "-i", "color=0xebebeb:size=50x22,format=gbrp", "-frames", "1", "-c:v", "ffv1",
            "rgb.mkv"});
    // FFmpeg 7 encodes RGB in full range only, but copies a stream under another tag.
    ffmpeg({"-i", "rgb.mkv", "-c", "copy", "-color_range", "tv", "clip.mkv"});
    const Outcome written = succeed({"convert", "clip.mkv", "deep.nut", "--format", "b48r", "--json"});
    EXPECT_NE(written.out.find("colour tags (range video) are left out: .nut"), std::string::npos)
        << written.out;
    const Bytes deep = decoded("deep.nut", "rgb48le");
    ASSERT_EQ(deep.size(), std::size_t{50 * 22 * 6});
    EXPECT_EQ(deep[0] | deep[1] << 8, 60160);
    succeed({"convert", "clip.mkv", "video.uyvy"});
    EXPECT_EQ(read(at("video.uyvy")).substr(0, 4), "\x80\xeb\x80\xeb"); // white is white
}

TEST_F(PixelFormats, a_clip_of_420_becomes_the_exact_rgb_within_a_code_and_the_nearest_one_as_a_rule)
{
    constexpr int wide = 192;
    constexpr int high = 128;
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=192x128:rate=25", "-vf", "noise=alls=8:allf=t,format=yuv420p",
            "-frames", "1", "-c:v", "libx264", "-crf", "12", "-colorspace", "smpte170m", "-color_range", "tv",
            "clip.mp4"});
    Pixels::PlanarFrame form;
    form.width = wide;
    form.height = high;
    form.halfHeight = true;
    form.matrix = Pixels::Matrix::Bt601;
    const Pixels::PlanarFrame frame = Pixels::planarFrame(form, decoded("clip.mp4", "yuv420p"));
    succeed({"convert", "clip.mp4", "clip.raw", "--format", "bgr3"});
    const std::string codes = read(at("clip.raw"));
    for (const auto& [name, exact] :
         {std::pair{"double precision", Pixels::exactRgb(frame, Pixels::Range::Full, 8)},
          std::pair{"zimg", Pixels::zimgRgb(frame, Pixels::Range::Full, 8)}}) {
        ASSERT_EQ(codes.size(), exact.size()) << name;
        std::size_t samples = 0;
        std::size_t notNearest = 0;
        std::size_t beyondACode = 0;
        // Away from the edges, where filters differ in what they take beyond the picture.
        constexpr int border = 2;
        for (int y = border; y < high - border; ++y) {
            for (int i = border * 3; i < (wide - border) * 3; ++i) {
                const auto at = static_cast<std::size_t>(y * wide * 3 + i);
                const double away = std::abs(static_cast<std::uint8_t>(codes[at]) - exact[at]);
                ++samples;
                notNearest += away > 0.51 ? 1U : 0U;
                beyondACode += away > 1.0 ? 1U : 0U;
            }
        }
        EXPECT_LE(static_cast<double>(beyondACode), 1e-4 * static_cast<double>(samples)) << name;
        EXPECT_LE(static_cast<double>(notNearest), 1e-2 * static_cast<double>(samples)) << name;
    }
}

TEST_F(PixelFormats, edges_of_saturated_colours_of_420_are_exact_within_a_code)
{
    // Blocks of the eight corners of RGB, as codes of BT.709.
    constexpr std::array<std::array<int, 3>, 8> corners{{{16, 128, 128},
                                                         {63, 102, 240},
                                                         {173, 42, 26},
                                                         {219, 16, 138},
                                                         {32, 240, 118},
                                                         {78, 214, 230},
                                                         {188, 154, 16},
                                                         {235, 128, 128}}};
    constexpr int wide = 128;
    constexpr int high = 64;
    constexpr int block = 4;
    for (const int bits : {8, 10}) {
        std::mt19937 random(5);
        std::vector<unsigned> blocks(wide * high / (block * block));
        std::generate(blocks.begin(), blocks.end(), [&] { return static_cast<unsigned>(random() % 8); });
        std::string planes;
        for (std::size_t plane = 0; plane < 3; ++plane) {
            const int step = plane == 0 ? 1 : 2;
            for (int y = 0; y < high; y += step) {
                for (int x = 0; x < wide; x += step) {
                    const auto at = static_cast<std::size_t>(y / block * (wide / block) + x / block);
                    const int code = corners.at(blocks[at]).at(plane) << (bits - 8);
                    planes += static_cast<char>(code);
                    planes += bits > 8 ? std::string(1, static_cast<char>(code >> 8)) : std::string();
                }
            }
        }
        write("planes.raw", planes);
        const std::string layout = bits > 8 ? "yuv420p10le" : "yuv420p";
        for (const char* tag : {"tv", "pc"}) {
            ffmpeg({"-f", "rawvideo", "-pix_fmt", layout, "-s", "128x64", "-i", "planes.raw", "-vf",
                    std::string("setparams=colorspace=bt709:range=") + tag, "-c:v", "ffv1", "-strict", "-1",
                    "-colorspace", "bt709", "-color_range", tag, "edges.mkv"});
            succeed({"convert", "edges.mkv", "rgb.raw", "--format", "bgr3", "--force"});
            Pixels::PlanarFrame form;
            form.width = wide;
            form.height = high;
            form.bits = bits;
            form.halfHeight = true;
            form.range = std::string(tag) == "pc" ? Pixels::Range::Full : Pixels::Range::Video;
            form.matrix = Pixels::Matrix::Bt709;
            const std::vector<double> exact = Pixels::exactRgb(
                Pixels::planarFrame(form, {planes.begin(), planes.end()}), Pixels::Range::Full, 8);
            const std::string codes = read(at("rgb.raw"));
            ASSERT_EQ(codes.size(), exact.size());
            double worst = 0;
            constexpr int border = 2;
            for (int y = border; y < high - border; ++y) {
                for (int i = border * 3; i < (wide - border) * 3; ++i) {
                    const auto at = static_cast<std::size_t>(y * wide * 3 + i);
                    worst = std::max(worst, std::abs(static_cast<std::uint8_t>(codes[at]) - exact[at]));
                }
            }
            EXPECT_LE(worst, 0.52) << layout << " " << tag;
        }
    }
}

/// R, G and B of raw frames of a format whose components have these bits.
std::vector<double> rgbCodes(const std::string& bytes, int bits)
{
    const auto byte = [&](std::size_t at) {
        return static_cast<std::uint32_t>(static_cast<std::uint8_t>(bytes[at]));
    };
    std::vector<double> codes;
    if (bits == 10) {
        for (std::size_t i = 0; i + 3 < bytes.size(); i += 4) {
            const std::uint32_t word = byte(i) | byte(i + 1) << 8U | byte(i + 2) << 16U | byte(i + 3) << 24U;
            for (const unsigned shift : {20U, 10U, 0U}) {
                codes.push_back(word >> shift & 1023U);
            }
        }
        return codes;
    }
    const std::size_t size = bits == 8 ? 1 : 2;
    for (std::size_t i = 0; i + size <= bytes.size(); i += size) {
        codes.push_back(size == 1 ? byte(i) : byte(i) | byte(i + 1) << 8U);
    }
    return codes;
}

TEST_F(PixelFormats, a_clip_of_422_becomes_the_nearest_rgb_in_either_range_at_every_depth)
{
    constexpr int wide = 96;
    constexpr int high = 16;
    for (const auto& [bits, tag] : {std::pair{8, "pc"}, {10, "pc"}, {12, "pc"}, {10, "tv"}}) {
        std::mt19937 random(static_cast<unsigned>(bits));
        std::string noise;
        for (int i = 0; i < 2 * wide * high; ++i) {
            const auto code = random() & ((1U << bits) - 1);
            noise += static_cast<char>(code);
            noise += bits > 8 ? std::string(1, static_cast<char>(code >> 8U)) : std::string();
        }
        write("noise.raw", noise);
        const std::string layout = "yuv422p" + (bits > 8 ? std::to_string(bits) + "le" : std::string());
        ffmpeg({"-f", "rawvideo", "-pix_fmt", layout, "-s", "96x16", "-i", "noise.raw", "-vf",
                std::string("setparams=colorspace=bt709:range=") + tag, "-c:v", "ffv1", "-strict", "-1",
                "-colorspace", "bt709", "-color_range", tag, "noise.mkv"});
        Pixels::PlanarFrame form;
        form.width = wide;
        form.height = high;
        form.bits = bits;
        form.range = std::string(tag) == "pc" ? Pixels::Range::Full : Pixels::Range::Video;
        form.matrix = Pixels::Matrix::Bt709;
        const Pixels::PlanarFrame frame = Pixels::planarFrame(form, {noise.begin(), noise.end()});
        for (const auto& [format, depth] : {std::pair{"bgr3", 8}, {"argb10", 10}, {"b48r", 16}}) {
            for (const auto& [word, range] :
                 {std::pair{"full", Pixels::Range::Full}, {"video", Pixels::Range::Video}}) {
                succeed({"convert", "noise.mkv", "rgb.raw", "--format", format, "--output-range", word,
                         "--force"});
                const std::vector<double> codes = rgbCodes(read(at("rgb.raw")), depth);
                const std::vector<double> exact = Pixels::exactRgb(frame, range, depth);
                ASSERT_EQ(codes.size(), exact.size());
                std::size_t samples = 0;
                std::size_t notNearest = 0;
                double worst = 0;
                constexpr int border = 4; // where filters differ in what they take beyond the picture
                for (int y = 0; y < high; ++y) {
                    for (int i = border * 3; i < (wide - border) * 3; ++i) {
                        const auto at = static_cast<std::size_t>(y * wide * 3 + i);
                        const double away = std::abs(codes[at] - exact[at]);
                        worst = std::max(worst, away);
                        ++samples;
                        notNearest += away > 0.5 + 1e-6 ? 1U : 0U;
                    }
                }
                const std::string what = layout + " " + tag + " to " + format + " " + word;
                EXPECT_LE(static_cast<double>(notNearest), 1e-3 * static_cast<double>(samples)) << what;
                EXPECT_LE(worst, 0.51) << what;
            }
        }
    }
}

TEST_F(PixelFormats, rows_that_nobody_could_read_back_are_refused_before_anything_is_written)
{
    ffmpeg(
        {"-f", "lavfi", "-i", "testsrc2=size=51x22,format=gbrp", "-frames", "1", "-c:v", "ffv1", "clip.mkv"});
    expectFailure({"convert", "clip.mkv", "clip.mov", "--format", "bgr3"}, 4,
                  {".mov", "bgr3", "odd width (51 pixels)", "use .nut, or .raw"});
    EXPECT_EQ(filesBeside({"clip.mkv"}), std::vector<std::string>{});
    expectWritten("clip.mkv", {"24bg", "b.mov", "rawvideo", "gbrp"});
    expectWritten("clip.mkv", {"bgr3", "b.nut", "rawvideo", "gbrp"});
}

TEST_F(PixelFormats, rows_may_be_padded_and_the_rate_is_the_one_said)
{
    const std::string tight = [] {
        std::string bytes;
        for (int i = 0; i < 6 * 4 * 4; ++i) {
            bytes += static_cast<char>(i * 37);
        }
        return bytes; // two frames of 12 x 2 in UYVY
    }();
    std::string padded;
    for (std::size_t row = 0; row < 4; ++row) {
        padded += tight.substr(row * 24, 24) + "#######"; // 31 bytes a row
    }
    write("padded.raw", padded);
    succeed({"convert", "padded.raw", "tight.mov", "--raw", "uyvy", "--size", "12x2", "--row-bytes", "31",
             "--fps", "29.97", "--format", "uyvy"});
    const Bytes decodedBytes = decoded("tight.mov", "uyvy422");
    EXPECT_EQ(std::string(decodedBytes.begin(), decodedBytes.end()), tight);
    EXPECT_EQ(probe("tight.mov", "r_frame_rate"), "r_frame_rate=30000/1001\n");
}

TEST_F(PixelFormats, rows_may_be_padded_in_what_is_written_too)
{
    makeClip("clip.mkv", "yuv422p");
    succeed({"convert", "clip.mkv", "tight.uyvy"});
    succeed({"convert", "clip.mkv", "padded.uyvy", "--output-row-bytes", "128"});
    const std::string tight = read(at("tight.uyvy"));
    std::string wanted;
    for (std::size_t row = 0; row < 2 * height; ++row) {
        wanted += tight.substr(row * 2 * width, 2 * width) + std::string(128 - 2 * width, '\0');
    }
    EXPECT_TRUE(read(at("padded.uyvy")) == wanted);
    succeed(
        {"convert", "padded.uyvy", "again.raw", "--size", "50x22", "--row-bytes", "128", "--format", "uyvy"});
    EXPECT_TRUE(read(at("again.raw")) == tight);

    // Planes: chroma has half of it, rounded up.
    succeed({"convert", "tight.uyvy", "padded.yv12", "--size", "50x22", "--output-row-bytes", "61"});
    EXPECT_EQ(fs::file_size(at("padded.yv12")), 2U * (61 * 22 + 2 * 31 * 11));
    succeed({"convert", "tight.uyvy", "tight.yv12", "--size", "50x22"});
    succeed({"convert", "padded.yv12", "again.yv12", "--size", "50x22", "--row-bytes", "61"});
    EXPECT_TRUE(read(at("again.yv12")) == read(at("tight.yv12")));

    succeed({"black", "black.raw", "--size", "3x2", "--format", "argb", "--output-row-bytes", "16"});
    const std::string row = std::string("\xff\0\0\0\xff\0\0\0\xff\0\0\0", 12) + std::string(4, '\0');
    EXPECT_TRUE(read(at("black.raw")) == row + row);

    expectFailure({"convert", "clip.mkv", "no.uyvy", "--output-row-bytes", "99"}, 2,
                  {"--output-row-bytes 99", "50 pixels of uyvy has 100 bytes"});
    expectFailure({"convert", "clip.mkv", "no.raw", "--format", "uyvy:16", "--output-row-bytes", "201"}, 2,
                  {"--output-row-bytes 201", "whole 16-bit words"});
    expectFailure({"convert", "clip.mkv", "no.mov", "--format", "uyvy", "--output-row-bytes", "128"}, 2,
                  {"--output-row-bytes 128", ".mov", ".raw"});
    expectFailure({"convert", "clip.mkv", "no.png", "--output-row-bytes", "128"}, 2,
                  {"--output-row-bytes", "--format"});
    expectFailure({"black", "no.png", "--size", "3x2", "--output-row-bytes", "128"}, 2,
                  {"--output-row-bytes", "--format"});
}

TEST_F(PixelFormats, rgb_becomes_video_by_the_librarys_rules)
{
    // BT.601 for small pictures: Y = 16 + 65.481 R + 128.553 G + 24.966 B; Cb and Cr from the same weights.
    ffmpeg({"-f", "lavfi", "-i", "color=red:size=50x22,format=gbrp", "-frames", "1", "red.png"});
    succeed({"convert", "red.png", "red.uyvy"});
    const std::string bytes = read(at("red.uyvy"));
    ASSERT_EQ(bytes.size(), std::size_t{width * height * 2});
    for (std::size_t i = 0; i < bytes.size(); i += 4) {
        ASSERT_EQ(static_cast<std::uint8_t>(bytes[i]), 90);
        ASSERT_EQ(static_cast<std::uint8_t>(bytes[i + 1]), 81);
        ASSERT_EQ(static_cast<std::uint8_t>(bytes[i + 2]), 240);
    }
}

TEST_F(PixelFormats, fields_are_every_second_line_in_their_order_of_time)
{
    makeClip("clip.mkv", "gbrp");
    succeed({"fields", "clip.mkv", "top.mkv"});
    succeed({"fields", "clip.mkv", "bottom.mkv", "--order", "bottom"});
    for (const std::string order : {"top", "bottom"}) {
        ffmpeg({"-i", "clip.mkv", "-vf",
                std::string("setfield=") + (order == "top" ? "tff" : "bff") + ",separatefields", "-c:v",
                "ffv1", "wanted.mkv"});
        EXPECT_EQ(decoded(order + ".mkv", "gbrp"), decoded("wanted.mkv", "gbrp")) << order;
    }
    EXPECT_EQ(probe("top.mkv", "width,height,r_frame_rate,nb_read_frames"),
              "width=50\nheight=11\nr_frame_rate=50/1\nnb_read_frames=4\n");
}

TEST_F(PixelFormats, fields_are_woven_to_the_frames_they_came_from_as_the_manual_says)
{
    makeClip("clip.mkv", "gbrp");
    for (const std::string order : {"top", "bottom"}) {
        succeed({"fields", "clip.mkv", order + ".mkv", "--order", order});
        ffmpeg({"-i", order + ".mkv", "-vf", "weave=first_field=" + order, "-c:v", "ffv1",
                order + "_frames.mkv"});
        EXPECT_EQ(decoded(order + "_frames.mkv", "gbrp"), decoded("clip.mkv", "gbrp")) << order;
        EXPECT_EQ(probe(order + "_frames.mkv", "r_frame_rate"), "r_frame_rate=25/1\n");
    }
}

TEST_F(PixelFormats, thumbnails_keep_the_shape_unless_told_otherwise)
{
    ffmpeg({"-f", "lavfi", "-i", "color=0x3060c0:size=320x180,format=gbrp", "-frames", "1", "in.png"});
    succeed({"thumbnail", "in.png", "fit.png", "--size", "100x100"});
    EXPECT_EQ(probe("fit.png", "width,height"), "width=100\nheight=56\n");
    succeed({"thumbnail", "in.png", "square.png", "--size", "100x100", "--stretch"});
    EXPECT_EQ(probe("square.png", "width,height"), "width=100\nheight=100\n");
    const Bytes codes = decoded("square.png", "rgb24");
    for (std::size_t i = 0; i < codes.size(); i += 3) {
        ASSERT_EQ(codes[i], 0x30);
        ASSERT_EQ(codes[i + 1], 0x60);
        ASSERT_EQ(codes[i + 2], 0xc0);
    }
    succeed({"thumbnail", "in.png", "same.png", "--size", "4000x4000"});
    EXPECT_EQ(probe("same.png", "width,height"), "width=320\nheight=180\n");
    expectFailure({"thumbnail", "in.png", "no.png", "--size", "4000x40", "--stretch"}, 2,
                  {"4000x40", "320x180", "--stretch"});
    expectFailure({"thumbnail", "in.png", "no.mp4", "--size", "40x40"}, 4, {"no.mp4", "a picture", ".png"});
}

TEST_F(PixelFormats, black_is_black_in_every_kind_of_output)
{
    succeed({"black", "opaque.png", "--size", "8x4"});
    EXPECT_EQ(decoded("opaque.png", "rgb24"), Bytes(std::size_t{8 * 4 * 3}));
    succeed({"black", "clear.png", "--size", "8x4", "--transparent"});
    EXPECT_EQ(decoded("clear.png", "rgba"), Bytes(std::size_t{8 * 4 * 4}));
    EXPECT_EQ(probe("clear.png", "pix_fmt"), "pix_fmt=rgba\n");
    const Outcome several = succeed({"black", "b.png", "--size", "8x4", "--frames", "2"});
    EXPECT_NE(several.err.find("b_00001.png to b_00002.png: 2 frames"), std::string::npos) << several.err;
    const Outcome outcome = succeed({"black", "leader.mov", "--size", "50x22", "--frames", "3", "--fps", "24",
                                     "--format", "v210", "--json"});
    EXPECT_EQ(nlohmann::json::parse(outcome.out)["frames"], 3);
    EXPECT_EQ(probe("leader.mov", "r_frame_rate,nb_read_frames"), "r_frame_rate=24/1\nnb_read_frames=3\n");
    const Bytes codes = decoded("leader.mov", "yuv422p10le");
    ASSERT_EQ(codes.size(), std::size_t{3 * 50 * 22 * 2 * 2});
    EXPECT_EQ(codes[0] | codes[1] << 8, 64);
    EXPECT_EQ(codes[50 * 22 * 2] | codes[50 * 22 * 2 + 1] << 8, 512);
    expectFailure({"black", "opaque.png", "--size", "8x4"}, 4, {"opaque.png", "exists", "--force"});
}

TEST_F(PixelFormats, what_cannot_be_is_refused_with_what_can)
{
    write("tape.v210", std::string(1000, 'x'));
    expectFailure({"convert", "tape.v210", "out.png"}, 2, {"tape.v210", "--size WxH"});
    expectFailure({"convert", "tape.v210", "out.png", "--size", "48x10"}, 3,
                  {"1000 bytes", "48x10 v210 has 1280", "--size"});
    expectFailure({"convert", "none.v210", "out.png", "--size", "48x10"}, 3, {"none.v210", "no such file"});
    expectFailure({"convert", "tape.v210", "out.mp4", "--size", "48x1", "--format", "v210"}, 4,
                  {".mp4", "v210", ".mov, .avi, .mkv", ".raw"});
    expectFailure({"convert", "tape.v210", "out.mov", "--size", "48x1", "--format", "vyuy"}, 4,
                  {"vyuy", "no container", ".raw"});
    expectFailure({"convert", "tape.v210", "out.png", "--size", "48x1", "--format", "yuy2"}, 4,
                  {".png", "--format", ".raw"});
    expectFailure(
        {"convert", "tape.v210", "out.raw", "--size", "48x1", "--row-bytes", "100", "--format", "uyvy"}, 2,
        {"--row-bytes 100", "48 pixels of v210", "128"});
    expectFailure({"convert", "tape.v210", "out.raw", "--size", "48x4", "--row-bytes", "4611686018427387904"},
                  2, {"--row-bytes 4611686018427387904", "1073741824"});
    expectFailure({"convert", "tape.v210", "out.mov", "--size", "32768x32768"}, 3,
                  {"1000 bytes", "32768x32768 v210"});
    expectFailure({"thumbnail", "tape.v210", "out.png", "--size", "7x3"}, 2,
                  {"tape.v210", "--raw-size 1920x1080"});
    expectFailure({"convert", "tape.v210", "out.raw", "--size", "48x1"}, 4, {".raw", "--format NAME"});
    makeClip("clip.mkv", "yuv422p");
    expectFailure({"convert", "clip.mkv", "out.png", "--fps", "30"}, 2, {"--fps", "--raw"});
    expectFailure({"convert", "clip.mkv", "out.uyvy", "--output-range", "video"}, 2,
                  {"--output-range", "uyvy"});
    EXPECT_EQ(filesBeside({"tape.v210", "clip.mkv"}), std::vector<std::string>{});

    // What is whole is written all the same.
    expectFailure({"convert", "tape.v210", "whole.uyvy", "--size", "48x3"}, 3,
                  {"1000 bytes", "last 232 bytes", "incomplete"});
    EXPECT_EQ(fs::file_size(at("whole.uyvy")), 2U * 48 * 3 * 2);
}

TEST_F(PixelFormats, raw_frames_of_an_encoder_are_read_as_what_they_are_or_refused)
{
    makeClip("rgb.mkv", "gbrp");
    const Bytes source = decoded("rgb.mkv", "rgb24");
    // The formats that a container holds are FFmpeg's knowledge; these are read and refused by all versions.
    const std::map<std::string, std::pair<std::vector<std::string>, std::vector<std::string>>> known{
        {"nut", {{"rgb24", "gbrp", "bgra", "rgb48le", "gbrp16le"}, {"nv24", "yuv440p10le"}}},
        {"mov", {{"rgb24", "bgr24", "rgb48be", "argb"}, {"gbrp16le", "nv24", "yuv444p"}}},
        {"avi", {{"bgr24", "bgra"}, {"rgb48le", "nv24", "yuv444p"}}},
    };
    for (const auto& [container, formats] : known) {
        const std::string file = "raw." + container;
        for (const std::string& format : formats.first) {
            succeed({"convert", "rgb.mkv", file, "--codec", "rawvideo", "--pixel-format", format, "--force"});
            const Outcome probed = run({"ffprobe", "-v", "error", "-show_entries", "stream=pix_fmt", "-of",
                                        "csv=p=0", at(file).string()});
            EXPECT_EQ(probed.out, format + "\n") << file;
            const bool isDeep =
                format.find("48") != std::string::npos || format.find("16") != std::string::npos;
            Bytes pixels = decoded(file, isDeep ? "rgb48le" : "rgb24");
            for (std::size_t i = 0; isDeep && 2 * i + 1 < pixels.size(); ++i) {
                pixels[i] = pixels[2 * i + 1]; // swscale rounds 16 bits its own way to 8
            }
            pixels.resize(source.size());
            EXPECT_EQ(pixels, source) << file << " " << format;
        }
        fs::remove(at(file));
        for (const std::string& format : formats.second) {
            expectFailure({"convert", "rgb.mkv", file, "--codec", "rawvideo", "--pixel-format", format}, 4,
                          {"raw frames of " + format + " have no name in " + container, "--format", "ffv1"});
            EXPECT_FALSE(fs::exists(at(file)));
        }
    }
    const Outcome piped = qxhost({"convert", "rgb.mkv", "-", "--pixel-format", "nv24"});
    EXPECT_EQ(piped.exitCode, 4);
    EXPECT_EQ(piped.out, "");
}

TEST_F(PixelFormats, what_a_container_does_not_take_is_no_fault_of_the_disk)
{
    makeClip("rgb.mkv", "gbrp");
    const Outcome outcome =
        qxhost({"convert", "rgb.mkv", "out.y4m", "--codec", "wrapped_avframe", "--pixel-format", "gbrp"});
    EXPECT_EQ(outcome.exitCode, 4);
    EXPECT_NE(outcome.err.find("cannot write \"out.y4m\": yuv4mpegpipe does not take such frames: "),
              std::string::npos)
        << outcome.err;
    EXPECT_EQ(outcome.err.find("disk"), std::string::npos) << outcome.err;
    EXPECT_FALSE(fs::exists(at("out.y4m")));
}

} // namespace

} // namespace Qx::System
