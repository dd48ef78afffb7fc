// Dither, judged by zimg's own in ffmpeg.

#include "tests/system/program/Program.h"

namespace Qx::System {

namespace {

class Dither : public ProgramTest
{
protected:
    void makeRamps() const
    {
        ffmpeg({"-f", "lavfi", "-i", "color=size=256x64:rate=25", "-frames:v", "2", "-vf",
                "format=gbrp16le,geq=r='X*40+Y*3':g='X*40+7000':b='30000+Y*11'", "-c:v", "ffv1",
                "-color_range", "pc", "in.mkv"});
    }

    static void expectHas(const std::string& text, const std::string& part)
    {
        EXPECT_NE(text.find(part), std::string::npos) << text << "\nlacks " << part;
    }
};

TEST_F(Dither, diffuses_the_error_as_zimg_does_and_the_same_way_each_time)
{
    makeRamps();
    ffmpeg({"-i", "in.mkv", "-vf", "zscale=dither=error_diffusion:rangein=pc:range=pc,format=gbrp", "-c:v",
            "ffv1", "judge.mkv"});
    ffmpeg({"-i", "in.mkv", "-vf", "zscale=dither=none:rangein=pc:range=pc,format=gbrp", "-c:v", "ffv1",
            "plain.mkv"});
    convert({"in.mkv", "out.mkv", "--dither", "--pixel-format", "bgr0"});
    EXPECT_EQ(decoded("out.mkv", "rgb24"), decoded("judge.mkv", "rgb24"));
    convert({"in.mkv", "again.mkv", "--dither", "--pixel-format", "bgr0"});
    EXPECT_EQ(decoded("again.mkv", "rgb24"), decoded("judge.mkv", "rgb24"));
    // Off by default.
    convert({"in.mkv", "out.mkv", "--pixel-format", "bgr0"});
    EXPECT_EQ(decoded("out.mkv", "rgb24"), decoded("plain.mkv", "rgb24"));
    EXPECT_NE(decoded("judge.mkv", "rgb24"), decoded("plain.mkv", "rgb24"));
}

TEST_F(Dither, keeps_the_mean_of_what_rounding_would_step)
{
    makeRamps();
    // An effect on 8 bits makes levels between codes, which without dither are lost.
    ffmpeg({"-f", "lavfi", "-i", "color=0x646464:size=64x64", "-frames:v", "1", "-pix_fmt", "rgb24",
            "flat.png"});
    convert({"flat.png", "dithered.png", "--effect", "cc3.fx", "--set", "gain=1.0033", "--dither"});
    expectHas(probe("dithered.png", "pix_fmt"), "pix_fmt=rgb24");
    convert({"flat.png", "deep.png", "--effect", "cc3.fx", "--set", "gain=1.0033", "--depth", "16"});
    double wanted = 0;
    double mean = 0;
    const std::vector<std::uint8_t> deep = decoded("deep.png", "rgb48le");
    for (std::size_t i = 0; i + 1 < deep.size(); i += 2) {
        wanted += (deep[i] | deep[i + 1] << 8) / 257.0 / (static_cast<double>(deep.size()) / 2);
    }
    const std::vector<std::uint8_t> dithered = decoded("dithered.png", "rgb24");
    for (const std::uint8_t code : dithered) {
        mean += code / static_cast<double>(dithered.size());
    }
    EXPECT_GT(wanted, 100.2);
    EXPECT_LT(wanted, 100.8);
    EXPECT_NEAR(mean, wanted, 0.02);
}

TEST_F(Dither, does_nothing_unsaid)
{
    makeRamps();
    expectHas(convert({"in.mkv", "deep.png", "--dither", "--frames", "1"}).err,
              "nothing is dithered: the codes of rgb48be have more than 8 bits");
    expectHas(convert({"in.mkv", "out.uyvy", "--dither"}, 2).err, "cannot be combined with --format");
    EXPECT_EQ(convert({"in.mkv", "out.mp4", "--dither"}).err.find("nothing is dithered"), std::string::npos);
}

} // namespace

} // namespace Qx::System
