// Looks as tables and corrections for other programs, which read them here: FFmpeg and OpenColorIO.

#include "tests/system/program/Program.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

namespace Qx::System {

namespace {

using Words = std::vector<std::string>;
using Json = nlohmann::json;

const std::string grade = R"(look = 1
about = "Warm"
[[step]]
effect = "cc3.fx"
set = { saturation = 0.8, gainRed = 1.05, liftBlue = 0.03, gamma = 1.25, gain = 0.9 }
)";

class LookExports : public ProgramTest
{
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        write("a.look.toml", grade);
    }

    /// 16-bit RGB with colours of all kinds, which the export has not seen.
    void makePicture() const
    {
        ffmpeg({"-f", "lavfi", "-i",
                "nullsrc=size=192x108,format=gbrp16le,geq=r='random(1)*65535':g='random(2)*65535':b="
                "'mod(X*340+Y*17\\,65536)'",
                "-frames:v", "1", "-pix_fmt", "rgb48be", "in.png"});
    }

    Json exported(const std::string& output, Words more = {}) const
    {
        more.insert(more.begin(), {"look", "export", "a.look.toml", output, "--json", "--force"});
        const Outcome outcome = qxhost(more);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return Json::parse(outcome.out, nullptr, false);
    }

    std::vector<std::uint16_t> codes(const std::string& picture) const
    {
        const std::vector<std::uint8_t> bytes = decoded(picture, "rgb48le");
        std::vector<std::uint16_t> all(bytes.size() / 2);
        std::memcpy(all.data(), bytes.data(), 2 * all.size());
        EXPECT_EQ(all.size(), 3U * 192 * 108);
        return all;
    }

    /// What the program draws with the look itself.
    std::vector<std::uint16_t> drawn(const Words& more = {}) const
    {
        Words words{"convert", "in.png", "ours.png", "--force", "--look", "a.look.toml"};
        words.insert(words.end(), more.begin(), more.end());
        const Outcome outcome = qxhost(words);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return codes("ours.png");
    }

    /// What OpenColorIO makes of the picture with an exported file.
    std::vector<std::uint16_t> throughOcio(const std::string& file, const std::string& interpolation) const
    {
        write("judge.ocio", fmt::format(R"(ocio_profile_version: 2
search_path: .
roles: {{default: plain}}
file_rules:
  - !<Rule> {{name: Default, colorspace: default}}
displays:
  Monitor:
    - !<View> {{name: Film, colorspace: plain}}
colorspaces:
  - !<ColorSpace> {{name: plain}}
  - !<ColorSpace>
    name: looked
    from_scene_reference: !<FileTransform> {{src: {}, cccid: "0", interpolation: {}}}
)",
                                        file, interpolation));
        const Outcome outcome = run({"env", "OCIO=" + at("judge.ocio").string(), "ocioconvert", "in.png",
                                     "plain", "theirs.png", "looked"});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
        return codes("theirs.png");
    }

    /// In parts of white.
    static double difference(const std::vector<std::uint16_t>& a, const std::vector<std::uint16_t>& b)
    {
        int largest = 0;
        for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
            largest = std::max(largest, std::abs(int{a[i]} - int{b[i]}));
        }
        return largest / 65535.0;
    }

    /// The failure, after which there must be no file.
    std::string refusal(const std::string& look, const std::string& output, const Words& more = {}) const
    {
        write("bad.look.toml", look);
        Words words{"look", "export", "bad.look.toml", output};
        words.insert(words.end(), more.begin(), more.end());
        const Outcome outcome = qxhost(words);
        EXPECT_EQ(outcome.exitCode, 6) << outcome.err;
        EXPECT_FALSE(fs::exists(at(output)));
        return outcome.err;
    }
};

constexpr double rounding = 2.0 / 65535;

TEST_F(LookExports, are_tables_whose_largest_error_holds_in_other_programs)
{
    makePicture();
    const std::vector<std::uint16_t> ours = drawn();
    for (const char* size : {"17", "33", "65"}) {
        const Json made = exported("a.cube", {"--size", size});
        EXPECT_EQ(made["points"].get<int>(), std::stoi(size));
        const double tetrahedral = made["tetrahedralError"];
        const double trilinear = made["trilinearError"];
        EXPECT_EQ(made["largestError"].get<double>(), std::max(tetrahedral, trilinear));
        EXPECT_GT(tetrahedral, 0);
        EXPECT_LT(made["largestError"].get<double>(), 0.02);
        EXPECT_LE(difference(throughOcio("a.cube", "tetrahedral"), ours), tetrahedral + rounding) << size;
        EXPECT_LE(difference(throughOcio("a.cube", "linear"), ours), trilinear + rounding) << size;
        ffmpeg({"-y", "-i", "in.png", "-vf", "format=gbrp16le,lut3d=file=a.cube:interp=tetrahedral",
                "-pix_fmt", "rgb48be", "theirs.png"});
        EXPECT_LE(difference(codes("theirs.png"), ours), tetrahedral + rounding) << size;
        ffmpeg({"-y", "-i", "in.png", "-vf", "format=gbrp16le,lut3d=file=a.cube:interp=trilinear", "-pix_fmt",
                "rgb48be", "theirs.png"});
        EXPECT_LE(difference(codes("theirs.png"), ours), trilinear + rounding) << size;
    }
}

TEST_F(LookExports, are_more_exact_with_more_points)
{
    const double coarse = exported("a.cube", {"--size", "17"})["largestError"];
    const double fine = exported("a.cube", {"--size", "65"})["largestError"];
    EXPECT_LT(fine, coarse);
}

TEST_F(LookExports, are_corrections_with_the_values_that_were_set)
{
    makePicture();
    const Json made = exported("a.cdl");
    // cc3.fx: (x + lift * (1 - x)) * gain, to the power 1 / gamma.
    const std::vector<double> slope{0.945, 0.9, 0.873};
    const std::vector<double> offset{0, 0, 0.027};
    for (std::size_t c = 0; c < 3; ++c) {
        EXPECT_NEAR(made["slope"][c].get<double>(), slope[c], 5e-4);
        EXPECT_NEAR(made["offset"][c].get<double>(), offset[c], 5e-4);
        EXPECT_NEAR(made["power"][c].get<double>(), 0.8, 5e-4);
    }
    EXPECT_NEAR(made["saturation"].get<double>(), 0.8, 5e-4);
    const double error = made["unclampedError"];
    EXPECT_LT(error, 0.1 / 1023);
    const std::vector<std::uint16_t> ours = drawn();
    EXPECT_LE(difference(throughOcio("a.cdl", "linear"), ours), error + rounding);
    exported("a.cc");
    EXPECT_LE(difference(throughOcio("a.cc", "linear"), ours), error + rounding);
}

TEST_F(LookExports, of_a_chain_are_its_whole)
{
    makePicture();
    write("film.spi1d", "Version 1\nFrom 0 1\nLength 3\nComponents 1\n{\n0\n0.6\n1\n}\n");
    write("a.look.toml", grade + "[[step]]\nlut = \"film.spi1d\"\namount = 0.5\n[[step]]\neffect = "
                                 "\"qx-vignette.fx\"\non = false\n");
    const double error = exported("a.cube", {"--size", "65"})["tetrahedralError"];
    EXPECT_LE(difference(throughOcio("a.cube", "tetrahedral"), drawn()), error + rounding);
    const std::string failure = refusal(read(at("a.look.toml")), "b.cdl");
    EXPECT_NE(failure.find("is no CDL; export a .cube file instead: the nearest slope, offset, power and "
                           "saturation are off by"),
              std::string::npos)
        << failure;
}

TEST_F(LookExports, of_key_frames_are_those_of_one_frame)
{
    makePicture();
    write("a.look.toml",
          "look = 1\n[[step]]\neffect = \"cc3.fx\"\nkeys.gain = [{ at = 0, value = 0.4 }, { at = "
          "10, value = 0.9 }]\n");
    const Json made = exported("a.cdl", {"--frame", "6"});
    EXPECT_NEAR(made["slope"][0].get<double>(), 0.7, 5e-4);
    EXPECT_NE(refusal(read(at("a.look.toml")), "b.cube")
                  .find("step 1, cc3.fx: gain has key frames; --frame N exports what it is in that frame"),
              std::string::npos);
    const std::string byTimeCode = refusal(
        "look = 1\n[[step]]\neffect = \"cc3.fx\"\nkeys.gain = [{ at = \"01:00:00:00\", value = 1 }]\n",
        "b.cube", {"--frame", "6"});
    EXPECT_NE(byTimeCode.find("gain: the key frame at 01:00:00:00 is of a clip"), std::string::npos)
        << byTimeCode;
}

const std::string effectBegin = R"(
texture Input;
sampler s = sampler_state { Texture = <Input>; };
)";
const std::string effectEnd = "\ntechnique T { pass P0 { PixelShader = compile ps_3_0 f(); } }\n";

TEST_F(LookExports, are_refused_where_more_counts_than_the_colour)
{
    const auto failureOf = [this](const std::string& effect) {
        write("e.fx", effectBegin + effect + effectEnd);
        return refusal("look = 1\n" +
                           std::string("[[step]]\neffect = \"cc3.fx\"\n[[step]]\neffect = \"e.fx\"\n"),
                       "b.cube");
    };
    const auto expectPart = [](const std::string& text, const std::string& part) {
        EXPECT_NE(text.find(part), std::string::npos) << text;
    };
    expectPart(refusal("look = 1\n[[step]]\neffect = \"qx-dissolve.fx\"\n", "b.cube"),
               "add texture = { To = \"FILE\" } to this step of ");
    const std::string begin = "is no pure mapping of colours: step 2, e.fx: ";
    const std::string place =
        failureOf("float4 f(float2 uv : TEXCOORD0) : COLOR0 { return tex2D(s, uv) * (1 - "
                  "0.01 * uv.x); }");
    expectPart(place, begin + "the same colour comes out up to ");
    expectPart(place, "apart at another place");
    expectPart(failureOf("float4 f(float2 uv : TEXCOORD0) : COLOR0 { return lerp(tex2D(s, uv), tex2D(s, uv + "
                         "0.01), 0.01); }"),
               "among other neighbours");
    expectPart(
        failureOf("float time : TIME;\nfloat4 f(float2 uv : TEXCOORD0) : COLOR0 { return tex2D(s, uv) * "
                  "(1 - 0.1 * frac(time)); }"),
        begin + "its parameter time gets the time in seconds");
    expectPart(
        failureOf("float2 size : VIEWPORTPIXELSIZE;\nfloat4 f(float2 uv : TEXCOORD0) : COLOR0 { return "
                  "tex2D(s, uv) * (size.x > 200 ? 0.9 : 1); }"),
        "in a picture of another size");
    expectPart(failureOf("float4 f(float2 uv : TEXCOORD0) : COLOR0 { float4 p = tex2D(s, uv); return "
                         "float4(p.rgb, p.g); }"),
               "is no pure mapping of colours: it makes pixels transparent");
    // What only asks for the picture's size may well be one.
    write("e.fx",
          effectBegin +
              "float2 size : VIEWPORTPIXELSIZE;\nfloat4 f(float2 uv : TEXCOORD0) : COLOR0 { float4 p = "
              "tex2D(s, uv); return float4(p.rgb * 0.5, p.a); }" +
              effectEnd);
    write("a.look.toml", "look = 1\n[[step]]\neffect = \"e.fx\"\n");
    EXPECT_LT(exported("b.cube")["largestError"].get<double>(), 2 * rounding);
}

TEST_F(LookExports, are_described_before_they_are_made)
{
    write("a.look.toml", grade +
                             "[[step]]\nlut = \"./none.cube\"\non = false\nkeys.amount = [{ at = 3, value = "
                             "0.25, curve = \"hold\" }]\n");
    const Outcome text = qxhost({"look", "describe", "a.look.toml"});
    EXPECT_EQ(text.exitCode, 0) << text.err;
    EXPECT_EQ(text.out,
              "Warm\n1. effect cc3.fx\n   saturation = 0.8\n   gainRed = 1.05\n   liftBlue = 0.03\n   "
              "gamma = 1.25\n   gain = 0.9\n2. lut " +
                  at("none.cube").string() +
                  ", off, which is missing\n   amount\n     frame 3: 0.25, hold\n");
    const Json json = Json::parse(qxhost({"look", "describe", "a.look.toml", "--json"}).out);
    EXPECT_EQ(json["about"], "Warm");
    EXPECT_EQ(json["steps"][0]["set"]["saturation"], Json({0.8}));
    EXPECT_EQ(json["steps"][1]["missing"], true);
    EXPECT_EQ(json["steps"][1]["keys"]["amount"][0]["at"], 3);
    EXPECT_EQ(qxhost({"look", "describe", "none.look.toml"}).exitCode, 3);
}

TEST_F(LookExports, replace_nothing_unasked)
{
    write("a.cube", "mine");
    EXPECT_EQ(qxhost({"look", "export", "a.look.toml", "a.cube"}).exitCode, 4);
    EXPECT_EQ(read(at("a.cube")), "mine");
    write("film.cube", "LUT_1D_SIZE 2\n0 0 0\n1 0.9 0.7\n");
    write("b.look.toml", "look = 1\n[[step]]\nlut = \"film.cube\"\n");
    EXPECT_EQ(qxhost({"look", "export", "b.look.toml", "film.cube", "--force"}).exitCode, 4);
    EXPECT_EQ(read(at("film.cube")), "LUT_1D_SIZE 2\n0 0 0\n1 0.9 0.7\n");
    for (const Words& wrong : {Words{"a.png"}, Words{"b.cube", "--size", "16"},
                               Words{"b.cube", "--size", "66"}, Words{"b.cdl", "--size", "33"}, Words{"b"}}) {
        Words words{"look", "export", "a.look.toml"};
        words.insert(words.end(), wrong.begin(), wrong.end());
        EXPECT_EQ(qxhost(words).exitCode, 2) << wrong.front();
    }
    EXPECT_EQ(qxhost({"look", "export", "a.look.toml", "none/a.cube"}).exitCode, 4);
    EXPECT_EQ(qxhost({"look", "export", "none.look.toml", "c.cube"}).exitCode, 3);
}

} // namespace

} // namespace Qx::System
