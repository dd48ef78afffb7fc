// Dither, judged by zimg's own in ffmpeg.

#include "tests/system/program/Program.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <random>

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

/// The power of the 64 x 64 samples from (left, top) of an error, by frequency, without the mean.
std::vector<double> powerOf(const std::vector<double>& error, std::size_t width)
{
    constexpr std::size_t side = 64;
    using Complex = std::complex<double>;
    const auto transform = [&](std::vector<Complex> in, bool rows) {
        std::vector<Complex> out(in.size());
        for (std::size_t line = 0; line < side; ++line) {
            for (std::size_t f = 0; f < side; ++f) {
                Complex sum;
                for (std::size_t i = 0; i < side; ++i) {
                    const double angle = -2 * std::numbers::pi * static_cast<double>(f * i % side) / side;
                    sum += in[rows ? line * side + i : i * side + line] * std::polar(1.0, angle);
                }
                out[rows ? line * side + f : f * side + line] = sum;
            }
        }
        return out;
    };
    std::vector<Complex> samples;
    for (std::size_t y = 0; y < side; ++y) {
        for (std::size_t x = 0; x < side; ++x) {
            samples.emplace_back(error.at(y * width + x));
        }
    }
    samples = transform(transform(samples, true), false);
    std::vector<double> power;
    for (const Complex& each : samples) {
        power.push_back(std::norm(each));
    }
    power[0] = 0;
    return power;
}

/// The mean power of frequencies up to an eighth of the pixels' own, to that of all.
double lowPart(const std::vector<double>& power)
{
    constexpr std::size_t side = 64;
    double low = 0;
    double all = 0;
    int lows = 0;
    for (std::size_t i = 1; i < power.size(); ++i) {
        const auto fx = static_cast<double>(std::min(i % side, side - i % side));
        const auto fy = static_cast<double>(std::min(i / side, side - i / side));
        all += power[i];
        if (std::hypot(fx, fy) <= side / 8.0) {
            low += power[i];
            ++lows;
        }
    }
    return low / lows / (all / static_cast<double>(power.size() - 1));
}

TEST_F(Dither, blue_noise_keeps_the_mean_and_is_never_off_by_a_code)
{
    makeRamps();
    convert({"in.mkv", "out.mkv", "--dither", "blue-noise", "--pixel-format", "bgr0"});
    const std::vector<std::uint8_t> made = decoded("out.mkv", "rgb24");
    const std::vector<std::uint8_t> exact = decoded("in.mkv", "rgb48le");
    ASSERT_EQ(made.size() * 2, exact.size());
    double mean = 0;
    for (std::size_t i = 0; i < made.size(); ++i) {
        const double error = made[i] - (exact[2 * i] | exact[2 * i + 1] << 8) / 257.0;
        ASSERT_LT(std::abs(error), 1) << i;
        mean += error / static_cast<double>(made.size());
    }
    EXPECT_NEAR(mean, 0, 0.01);
    convert({"in.mkv", "again.mkv", "--dither", "blue-noise", "--pixel-format", "bgr0"});
    EXPECT_EQ(decoded("again.mkv", "rgb24"), made);
    convert({"in.mkv", "off.mkv", "--dither", "none", "--pixel-format", "bgr0"});
    EXPECT_NE(decoded("off.mkv", "rgb24"), made);
}

TEST_F(Dither, blue_noise_has_no_low_frequencies)
{
    // Surfaces between two codes, a third and three fifths of the way.
    for (const std::string level : {"25786", "25854"}) {
        ffmpeg({"-y", "-f", "lavfi", "-i", "color=size=64x64:rate=25", "-frames:v", "1", "-vf",
                "format=gbrp16le,geq=r=" + level + ":g=" + level + ":b=" + level, "-c:v", "ffv1",
                "-color_range", "pc", "flat.mkv"});
        convert({"flat.mkv", "out.mkv", "--dither", "blue-noise", "--pixel-format", "bgr0"});
        const std::vector<std::uint8_t> made = decoded("out.mkv", "rgb24");
        std::vector<double> previous;
        for (std::size_t component = 0; component < 3; ++component) {
            std::vector<double> error;
            double mean = 0;
            for (std::size_t i = component; i < made.size(); i += 3) {
                error.push_back(made[i] - std::stod(level) / 257.0);
                mean += error.back() / 4096;
            }
            EXPECT_NEAR(mean, 0, 1.0 / 4096);
            EXPECT_LT(lowPart(powerOf(error, 64)), 0.05) << level << ", component " << component;
            EXPECT_NE(error, previous); // components do not fall on each other
            previous = error;
        }
        // The same measure of noise without a colour is near 1.
        std::mt19937 random(1);
        std::vector<double> white;
        for (int i = 0; i < 4096; ++i) {
            white.push_back(static_cast<double>(random() % 1000));
        }
        EXPECT_GT(lowPart(powerOf(white, 64)), 0.5);
    }
}

TEST_F(Dither, blue_noise_reaches_ycbcr_of_video_range)
{
    // Grey of 16 bits between two codes of luma; chroma is zero and stays so.
    ffmpeg({"-f", "lavfi", "-i", "color=size=64x64:rate=25", "-frames:v", "1", "-vf",
            "format=gbrp16le,geq=r=25800:g=25800:b=25800", "-c:v", "ffv1", "-color_range", "pc", "flat.mkv"});
    convert({"flat.mkv", "out.mkv", "--codec", "ffv1", "--pixel-format", "yuv420p", "--dither=blue-noise"});
    const std::vector<std::uint8_t> made = decoded("out.mkv", "yuv420p");
    const double wanted = 16 + 219 * 25800 / 65535.0;
    double mean = 0;
    for (std::size_t i = 0; i < 4096; ++i) {
        EXPECT_LT(std::abs(made.at(i) - wanted), 1);
        mean += made[i] / 4096.0;
    }
    EXPECT_NEAR(mean, wanted, 0.01);
    for (std::size_t i = 4096; i < made.size(); ++i) {
        EXPECT_EQ(made[i], 128) << i;
    }
}

TEST_F(Dither, its_kind_may_be_left_out)
{
    makeRamps();
    convert({"in.mkv", "one.mkv", "--dither", "--pixel-format", "bgr0"});
    convert({"--dither", "in.mkv", "two.mkv", "--pixel-format", "bgr0"});
    convert({"in.mkv", "three.mkv", "--dither", "error-diffusion", "--pixel-format", "bgr0"});
    EXPECT_EQ(decoded("two.mkv", "rgb24"), decoded("one.mkv", "rgb24"));
    EXPECT_EQ(decoded("three.mkv", "rgb24"), decoded("one.mkv", "rgb24"));
    write("kind.toml", "dither = \"blue-noise\"\n\"pixel-format\" = \"bgr0\"\n");
    write("flag.toml", "dither = true\n\"pixel-format\" = \"bgr0\"\n");
    convert({"in.mkv", "kind.mkv", "--preset", "./kind.toml"});
    convert({"in.mkv", "flag.mkv", "--preset", "./flag.toml"});
    EXPECT_NE(decoded("kind.mkv", "rgb24"), decoded("one.mkv", "rgb24"));
    EXPECT_EQ(decoded("flag.mkv", "rgb24"), decoded("one.mkv", "rgb24"));
    expectHas(convert({"in.mkv", "out.mkv", "--dither=green"}, 2).err, "blue-noise");
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
