// Pictures whose every pixel has its own chroma, and alpha, judged by zimg in ffmpeg and by OpenImageIO.

#include "tests/system/program/Program.h"

#include <cmath>
#include <cstdlib>

namespace Qx::System {

namespace {

class FullChroma : public ProgramTest
{
protected:
    /// Codes of all values, tagged with this matrix and range.
    void makeClip(const std::string& format, const std::string& matrix, const std::string& range) const
    {
        ffmpeg({"-f", "lavfi", "-i", "color=size=66x50:rate=25", "-frames:v", "2", "-vf",
                "format=yuv444p16le,geq=lum='mod(X*1021+Y*77+N*9\\,65536)':cb='mod(X*33+Y*1999\\,65536)':"
                "cr='65535-mod(X*7+Y*1365\\,65536)',format=" +
                    format + ",setparams=range=" + range,
                "-c:v", "ffv1", "-colorspace", matrix, "-color_range", range, "in.mkv"});
    }

    /// R G B and alpha of all values, of 16 bits.
    void makeAlpha() const
    {
        ffmpeg({"-f", "lavfi", "-i", "color=size=66x50:rate=25", "-frames:v", "2", "-vf",
                "format=gbrap16le,geq=r='mod(X*1021+Y*77\\,65536)':g='mod(X*33+Y*1999\\,65536)':"
                "b='65535-mod(X*7+Y*1365\\,65536)':a='mod(X*911+Y*2311+N\\,65536)'",
                "-c:v", "ffv1", "alpha.mkv"});
    }

    /// The codes of 16 bits of what ffmpeg makes of a file by these filters.
    std::vector<int> codes(const std::string& file, const std::string& format,
                           const std::string& filters = "null") const
    {
        ffmpeg({"-i", file, "-vf", filters + ",format=" + format, "-f", "rawvideo", "codes.raw"});
        const std::string bytes = read(at("codes.raw"));
        std::vector<int> words;
        const bool isWide = format.ends_with("le");
        for (std::size_t i = 0; i + 1 < bytes.size(); i += isWide ? 2 : 1) {
            const int low = static_cast<std::uint8_t>(bytes[i]);
            words.push_back(isWide ? low | static_cast<std::uint8_t>(bytes[i + 1]) << 8 : low);
        }
        return words;
    }

    struct Difference
    {
        int farthest = 0;
        double share = 0; ///< of the codes that differ
    };

    static Difference between(const std::vector<int>& a, const std::vector<int>& b)
    {
        EXPECT_EQ(a.size(), b.size());
        EXPECT_FALSE(a.empty());
        Difference found;
        for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
            const int distance = std::abs(a[i] - b[i]);
            found.farthest = std::max(found.farthest, distance);
            found.share += distance > 0 ? 1.0 / static_cast<double>(a.size()) : 0;
        }
        return found;
    }

    static void expectHas(const std::string& text, const std::string& part)
    {
        EXPECT_NE(text.find(part), std::string::npos) << text << "\nlacks " << part;
    }
};

using Alpha = FullChroma;

TEST_F(FullChroma, every_pixel_has_the_colour_that_zimg_gives_it)
{
    struct Case
    {
        const char* format;
        const char* matrix;
        const char* zimgs;
        const char* range;
    };
    for (const Case& each :
         {Case{"yuv444p", "bt709", "709", "tv"}, Case{"yuv444p", "bt709", "709", "pc"},
          Case{"yuv444p10le", "smpte170m", "170m", "tv"}, Case{"yuv444p10le", "bt709", "709", "pc"},
          Case{"yuv444p12le", "bt2020nc", "2020_ncl", "tv"}, Case{"yuv444p16le", "bt709", "709", "tv"}}) {
        makeClip(each.format, each.matrix, each.range);
        const std::string zimg =
            std::string("zscale=matrixin=") + each.zimgs + ":rangein=" + each.range + ":matrix=gbr:range=pc";
        const Outcome outcome = convert({"in.mkv", "out.mkv", "--depth", "16"});
        EXPECT_EQ(outcome.err.find("4:2:2"), std::string::npos) << outcome.err;
        // zimg computes in floats: of 16 bits a few of its codes are the second nearest.
        const Difference deep = between(codes("out.mkv", "gbrp16le"), codes("in.mkv", "gbrp16le", zimg));
        EXPECT_LE(deep.farthest, 1) << each.format << each.range;
        EXPECT_LE(deep.share, 0.005) << each.format << each.range;
        convert({"in.mkv", "out.mkv", "--depth", "8"});
        const Difference eight = between(codes("out.mkv", "gbrp"), codes("in.mkv", "gbrp", zimg));
        EXPECT_LE(eight.farthest, 1) << each.format << each.range;
        EXPECT_LE(eight.share, 0.001) << each.format << each.range;
    }
}

TEST_F(FullChroma, prores_4444_keeps_its_chroma)
{
    makeClip("yuv444p10le", "bt709", "tv");
    ffmpeg({"-i", "in.mkv", "-c:v", "prores_ks", "-profile:v", "4444", "-colorspace", "bt709", "-color_range",
            "tv", "in.mov"});
    const Outcome outcome = convert({"in.mov", "out.mkv"});
    EXPECT_EQ(outcome.err.find("keeps half"), std::string::npos) << outcome.err;
    const Difference found =
        between(codes("out.mkv", "gbrp16le"),
                codes("in.mov", "gbrp16le", "zscale=matrixin=709:rangein=tv:matrix=gbr:range=pc"));
    EXPECT_LE(found.farthest, 1);
}

TEST_F(FullChroma, formats_of_422_say_that_they_keep_half)
{
    makeClip("yuv444p", "bt709", "tv");
    expectHas(convert({"in.mkv", "out.uyvy"}).err, "has full chroma resolution, of which uyvy keeps half");
    expectHas(qxhost({"info", "in.mkv"}).out, "to the GPU as 4:4:4, with unchanged codes");
}

TEST_F(FullChroma, bits_beyond_the_codes_are_ignored)
{
    std::string clean;
    std::string stray;
    for (int i = 0; i < 66 * 50 * 4; ++i) {
        const int code = i * 37 % 1024;
        for (const int word : {code, code >> 8}) {
            clean += static_cast<char>(word & 255);
        }
        stray += static_cast<char>(code & 255);
        stray += static_cast<char>((code >> 8) | 0xfc);
    }
    for (const auto& [name, bytes] : {std::pair("clean", clean), std::pair("stray", stray)}) {
        write(std::string(name) + ".raw", bytes);
        ffmpeg({"-f", "rawvideo", "-pix_fmt", "yuva444p10le", "-s", "66x50", "-i", std::string(name) + ".raw",
                "-c:v", "copy", std::string(name) + ".nut"});
        convert({std::string(name) + ".nut", std::string(name) + ".mkv", "--range", "video", "--matrix",
                 "bt709"});
    }
    EXPECT_EQ(codes("stray.mkv", "gbrap16le"), codes("clean.mkv", "gbrap16le"));
}

TEST_F(FullChroma, effects_see_it)
{
    makeClip("yuv444p10le", "bt709", "tv");
    convert({"in.mkv", "plain.mkv"});
    convert({"plain.mkv", "judge.mkv", "--effect", "cc3.fx", "--set", "gain=0.5"});
    convert({"in.mkv", "out.mkv", "--effect", "cc3.fx", "--set", "gain=0.5"});
    EXPECT_EQ(between(codes("out.mkv", "gbrp16le"), codes("judge.mkv", "gbrp16le")).farthest, 0);
}

TEST_F(Alpha, pictures_keep_it_to_the_code)
{
    makeAlpha();
    const std::vector<int> whole = codes("alpha.mkv", "gbrap16le");
    for (const std::string kind : {"png", "tif", "dpx"}) {
        convert({"alpha.mkv", "out_%d." + kind});
        EXPECT_EQ(
            run({"oiiotool", "out_1." + kind, "--ch", "R,G,B,A", "-d", "uint16", "-o", "as.tif"}).exitCode,
            0);
        convert({"out_%d." + kind, "back.mkv"});
        EXPECT_EQ(codes("back.mkv", "gbrap16le"), whole) << kind;
    }
    // OpenImageIO multiplies what it reads, unless it is told not to.
    EXPECT_EQ(run({"oiiotool", "--no-autopremult", "out_1.png", "-d", "uint16", "-o", "theirs.tif"}).exitCode,
              0);
    EXPECT_EQ(codes("theirs.tif", "rgba64le"), codes("out_1.png", "rgba64le"));
    convert({"alpha.mkv", "back.mkv"});
    EXPECT_EQ(codes("back.mkv", "gbrap16le"), whole);
    convert({"alpha.mkv", "eight_%d.png", "--depth", "8"});
    expectHas(probe("eight_1.png", "pix_fmt"), "rgba\n");
}

TEST_F(Alpha, prores_4444_keeps_it)
{
    makeAlpha();
    const Outcome outcome = convert({"alpha.mkv", "out.mov"});
    EXPECT_EQ(outcome.err.find("alpha is left out"), std::string::npos) << outcome.err;
    expectHas(probe("out.mov", "codec_name,profile"), "profile=4444");
    convert({"out.mov", "back.mkv"});
    expectHas(probe("back.mkv", "pix_fmt"), "gbrap16le");
    // The encoder is given 10 bits of alpha.
    constexpr int step = 65535 / 1023 + 1;
    EXPECT_LE(
        between(codes("back.mkv", "gray16le", "alphaextract"), codes("alpha.mkv", "gray16le", "alphaextract"))
            .farthest,
        step);
    // The same as ffmpeg decodes.
    EXPECT_LE(
        between(codes("back.mkv", "gray16le", "alphaextract"), codes("out.mov", "gray16le", "alphaextract"))
            .farthest,
        16);
    // Subsampled chroma beside alpha, through effects.
    ffmpeg({"-i", "alpha.mkv", "-vf", "format=yuva420p", "-c:v", "ffv1", "sub.mkv"});
    convert({"sub.mkv", "sub_%d.png", "--effect", "cc3.fx", "--set", "gain=0.9"});
    EXPECT_EQ(codes("sub_1.png", "gray", "alphaextract"),
              codes("sub.mkv", "gray", "select=eq(n\\,0),alphaextract"));
}

TEST_F(Alpha, effects_and_luts_leave_it_to_the_code)
{
    makeAlpha();
    write("warm.cube",
          "LUT_3D_SIZE 2\n0.1 0 0\n1 0 0\n0.1 1 0\n1 1 0\n0.1 0 0.8\n1 0 0.8\n0.1 1 0.8\n1 1 0.8\n");
    const std::vector<std::string> steps{"--effect", "cc3.fx", "--set", "gain=0.5", "--lut", "warm.cube"};
    const auto through = [&](std::vector<std::string> words) {
        words.insert(words.end(), steps.begin(), steps.end());
        return convert(words);
    };
    const std::vector<int> alpha = codes("alpha.mkv", "gray16le", "select=eq(n\\,0),alphaextract");
    const auto alphaOf = [&](const std::string& picture) {
        EXPECT_EQ(run({"oiiotool", picture, "--ch", "A", "-d", "uint16", "-o", "as.tif"}).exitCode, 0);
        return codes("as.tif", "gray16le");
    };
    for (const std::string kind : {"png", "tif", "exr"}) {
        through({"alpha.mkv", "out." + kind, "--frames", "1"});
        EXPECT_EQ(alphaOf("out." + kind), alpha) << kind;
        through({"out." + kind, "again." + kind});
        EXPECT_EQ(alphaOf("again." + kind), alpha) << kind;
        EXPECT_NE(codes("again." + kind, "rgb48le"), codes("out." + kind, "rgb48le")) << kind;
    }
    convert({"alpha.mkv", "plain.mov"});
    through({"plain.mov", "out.mov"});
    EXPECT_EQ(codes("out.mov", "gray16le", "alphaextract"), codes("plain.mov", "gray16le", "alphaextract"));
}

TEST_F(Alpha, what_effects_make_of_it_is_written_where_it_is_asked_for)
{
    makeClip("yuv444p10le", "bt709", "tv");
    write("half.fx",
          "texture Input;\n"
          "sampler S = sampler_state { Texture = <Input>; };\n"
          "float4 half_(float2 uv : TEXCOORD0) : COLOR0 { return float4(tex2D(S, uv).rgb, 0.5); }\n"
          "technique Half { pass P { PixelShader = compile ps_3_0 half_(); } }\n");
    convert({"in.mkv", "opaque.png", "--effect", "./half.fx", "--frames", "1"});
    expectHas(probe("opaque.png", "pix_fmt"), "pix_fmt=rgb48be");
    convert({"in.mkv", "half.png", "--effect", "./half.fx", "--frames", "1", "--pixel-format", "rgba64be"});
    for (const int code : codes("half.png", "gray16le", "alphaextract")) {
        ASSERT_NEAR(code, 65535 / 2, 1);
    }
    convert({"in.mkv", "half.mov", "--effect", "./half.fx", "--pixel-format", "yuva444p10le"});
    for (const int code : codes("half.mov", "gray16le", "alphaextract")) {
        ASSERT_NEAR(code, 65535 / 2, 64);
    }
}

TEST_F(Alpha, what_cannot_hold_it_is_said)
{
    makeAlpha();
    expectHas(convert({"alpha.mkv", "out.mp4"}).err, "alpha is left out: libx264, yuv420p cannot hold it");
    expectHas(convert({"alpha.mkv", "out.jpg", "--frames", "1"}).err, "alpha is left out: mjpeg");
    expectHas(convert({"alpha.mkv", "out.uyvy"}).err, "alpha.mkv has alpha, which is left out");
    const Outcome none = convert({"alpha.mkv", "none.png", "--frames", "1", "--alpha", "none"});
    EXPECT_EQ(none.err.find("left out"), std::string::npos) << none.err;
    expectHas(probe("none.png", "pix_fmt"), "pix_fmt=rgb48be\n");
    const Outcome hq = convert({"alpha.mkv", "hq.mov", "--profile", "hq"});
    expectHas(hq.err, "alpha is left out: prores_ks, yuv422p10le cannot hold it");
}

TEST_F(Alpha, openexr_is_premultiplied_and_the_others_are_straight)
{
    makeAlpha();
    const std::vector<int> straight = codes("alpha.mkv", "rgba64le", "select=eq(n\\,0)");
    const Outcome made = convert({"alpha.mkv", "out_%d.exr", "--json"});
    expectHas(made.err, "colours are multiplied by their alpha, as OpenEXR has them");
    EXPECT_EQ(nlohmann::json::parse(made.out)["alpha"], std::string("premultiplied"));
    EXPECT_EQ(run({"oiiotool", "out_1.exr", "-d", "uint16", "--no-autopremult", "-o", "as.tif"}).exitCode, 0);
    const std::vector<int> multiplied = codes("as.tif", "rgba64le");
    ASSERT_EQ(multiplied.size(), straight.size());
    int farthest = 0;
    for (std::size_t i = 0; i < straight.size(); ++i) {
        const double alpha = straight[i / 4 * 4 + 3];
        const double exact = i % 4 == 3 ? alpha : straight[i] * alpha / 65535;
        farthest = std::max(farthest, static_cast<int>(std::abs(multiplied[i] - std::floor(exact + 0.5))));
    }
    EXPECT_LE(farthest, 1); // OpenImageIO's own rounding
    // Back, where there is opacity enough to tell colours.
    const Outcome back = convert({"out_%d.exr", "back_%d.png"});
    expectHas(
        back.err,
        "its colours are taken as multiplied by their alpha, and divided by it; --alpha straight leaves");
    const std::vector<int> again = codes("back_1.png", "rgba64le");
    for (std::size_t i = 0; i < straight.size(); ++i) {
        const int alpha = straight[i / 4 * 4 + 3];
        if (alpha > 30000) {
            ASSERT_LE(std::abs(again[i] - straight[i]), 2) << i;
        }
    }
    // Nothing is done where nothing needs it, or where the user says so.
    convert({"out_%d.exr", "same_%d.exr"});
    expectHas(run({"oiiotool", "--diff", "out_1.exr", "same_1.exr"}).out, "PASS");
    convert({"alpha.mkv", "said_%d.exr", "--alpha", "premultiplied"});
    EXPECT_EQ(run({"oiiotool", "said_1.exr", "-d", "uint16", "--no-autopremult", "-o", "as.tif"}).exitCode,
              0);
    EXPECT_EQ(codes("as.tif", "rgba64le"), straight);
    expectHas(qxhost({"info", "out_1.exr"}).out, "alpha, taken as premultiplied");
    expectHas(qxhost({"info", "alpha.mkv"}).out, "alpha, taken as straight");
}

} // namespace

} // namespace Qx::System
