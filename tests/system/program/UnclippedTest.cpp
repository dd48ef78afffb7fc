// Pictures of floats, whose numbers beyond 0 and 1 are kept up to the output: OpenImageIO and OpenColorIO
// judge.

#include "tests/system/program/Program.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace Qx::System {

namespace {

using Lines = std::vector<std::string>;

const std::string scenes = R"(ocio_profile_version: 2
roles: {default: ACES, scene_linear: ACES}
file_rules:
  - !<Rule> {name: Default, colorspace: default}
displays:
  Monitor:
    - !<View> {name: Film, colorspace: sRGB}
  Cinema:
    - !<View> {name: SDR, view_transform: aces, display_colorspace: BT.1886}
view_transforms:
  - !<ViewTransform>
    name: aces
    from_scene_reference: !<BuiltinTransform> {style: ACES-OUTPUT - ACES2065-1_to_CIE-XYZ-D65 - SDR-VIDEO_1.0}
display_colorspaces:
  - !<ColorSpace>
    name: BT.1886
    from_display_reference: !<BuiltinTransform> {style: DISPLAY - CIE-XYZ-D65_to_REC.1886-REC.709}
colorspaces:
  - !<ColorSpace> {name: ACES}
  - !<ColorSpace>
    name: grading
    to_scene_reference: !<BuiltinTransform> {style: ACEScct_to_ACES2065-1}
  - !<ColorSpace>
    name: camera log
    to_scene_reference: !<BuiltinTransform> {style: ARRI_ALEXA-LOGC-EI800-AWG_to_ACES2065-1}
  - !<ColorSpace>
    name: sRGB
    from_scene_reference: !<GroupTransform>
      children:
        - !<MatrixTransform> {matrix: [2.52169, -1.13413, -0.38756, 0, -0.27648, 1.37272, -0.09624, 0, -0.01538, -0.15298, 1.16835, 0, 0, 0, 0, 1]}
        - !<ExponentWithLinearTransform> {gamma: 2.4, offset: 0.055, direction: inverse}
)";

const std::string gain = R"(texture Input;
sampler InputSampler = sampler_state { Texture = <Input>; MinFilter = Point; MagFilter = Point; };
float by = 2;
float4 multiplied(float2 uv : TEXCOORD0) : COLOR { float4 c = tex2D(InputSampler, uv); return float4(c.rgb * by, c.a); }
technique Gain { pass P { PixelShader = compile ps_3_0 multiplied(); } }
)";

/// A linear picture with numbers from -0.1 to 16, in many combinations.
class Unclipped : public ProgramTest
{
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        write("scenes.ocio", scenes);
        write("gain.fx", gain);
        ffmpeg({"-f", "lavfi", "-i",
                "nullsrc=s=257x143,format=rgb48,geq=r='65535*pow(mod(X*17+Y*31\\,253)/252\\,3)':"
                "g='65535*pow(mod(X*7+Y*13\\,241)/240\\,3)':b='65535*pow(mod(X*3+Y*29\\,251)/250\\,3)'",
                "-frames:v", "1", "codes.png"});
        for (const std::string type : {"float", "half"}) {
            judge({"oiiotool", "codes.png", "-d", type, "--mulc", "16.1", "--subc", "0.1", "-o",
                   type + ".exr"});
        }
    }

    void judge(const Lines& words) const
    {
        const Outcome judged = run(words);
        ASSERT_EQ(judged.exitCode, 0) << judged.out << judged.err;
    }

    Outcome convert(Lines words) const
    {
        words.insert(words.begin(), "convert");
        words.emplace_back("--force");
        Outcome outcome = qxhost(words);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return outcome;
    }

    std::vector<std::uint16_t> codes(const std::string& file) const
    {
        const std::vector<std::uint8_t> bytes = decoded(file, "rgb48le");
        std::vector<std::uint16_t> all(bytes.size() / 2);
        std::memcpy(all.data(), bytes.data(), 2 * all.size());
        return all;
    }

    /// In codes of 16 bits.
    int largestDifference(const std::string& one, const std::string& other) const
    {
        const std::vector<std::uint16_t> a = codes(one);
        const std::vector<std::uint16_t> b = codes(other);
        EXPECT_EQ(a.size(), 3U * 257 * 143);
        EXPECT_EQ(a.size(), b.size());
        int largest = 0;
        for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
            largest = std::max(largest, std::abs(int{a[i]} - int{b[i]}));
        }
        return largest;
    }

    void expectNear(const std::string& one, const std::string& other, const std::string& tolerance) const
    {
        const Outcome outcome =
            run({"oiiotool", "--fail", tolerance, "--hardfail", tolerance, "--diff", one, other});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
    }

    /// A one-dimensional LUT of linear light up to 16, which makes roots of it.
    void writeRoots() const
    {
        std::string curve = "LUT_1D_SIZE 65\nDOMAIN_MIN 0 0 0\nDOMAIN_MAX 16 16 16\n";
        for (int i = 0; i < 65; ++i) {
            const std::string value = std::to_string(std::sqrt(i / 64.0));
            curve += value + " " + value + " " + value + "\n";
        }
        write("roots.cube", curve);
    }

    /// A picture that has one colour.
    void paint(const std::string& file, const std::string& colour, const std::string& size) const
    {
        judge({"oiiotool", "--pattern", "constant:color=" + colour, size, "3", "-d", "float", "-o", file});
    }

    /// What oiiotool says of a part of a picture: "Stats Max: ..." and others.
    std::string statistics(const std::string& file, const std::string& part) const
    {
        return run({"oiiotool", file, "--cut", part, "--printstats"}).out;
    }

    static void expectHas(const std::string& text, const std::string& part)
    {
        EXPECT_NE(text.find(part), std::string::npos) << text << "\nlacks " << part;
    }
};

constexpr int quarterOfTenBitCode = 16;
constexpr int halfOfTenBitCode = 32;

TEST_F(Unclipped, linear_pictures_become_log_and_display_as_ocioconvert_has_them)
{
    for (const std::string input : {"float.exr", "half.exr"}) {
        judge({"oiiotool", input, "-d", "float", "-o", "judged.exr"}); // ocioconvert writes what it reads
        for (const std::string to : {"grading", "camera log", "sRGB"}) {
            convert({input, "ours.png", "--ocio", "scenes.ocio", "--from", "ACES", "--to", to});
            judge({"env", "OCIO=" + at("scenes.ocio").string(), "ocioconvert", "judged.exr", "ACES",
                   "theirs.exr", to});
            judge({"oiiotool", "theirs.exr", "-d", "uint16", "-o", "theirs.png"});
            EXPECT_LE(largestDifference("ours.png", "theirs.png"), quarterOfTenBitCode)
                << input << " to " << to;
        }
    }
}

TEST_F(Unclipped, view_transforms_see_the_highlights)
{
    convert({"float.exr", "ours.png", "--ocio", "scenes.ocio", "--from", "ACES", "--display", "Cinema",
             "--view", "SDR"});
    judge({"env", "OCIO=" + at("scenes.ocio").string(), "ocioconvert", "--view", "float.exr", "ACES",
           "theirs.exr", "Cinema", "SDR"});
    judge({"oiiotool", "theirs.exr", "-d", "uint16", "-o", "theirs.png"});
    EXPECT_LE(largestDifference("ours.png", "theirs.png"), halfOfTenBitCode);
}

TEST_F(Unclipped, ten_bits_are_within_a_code_of_those_that_ocioconvert_gives)
{
    convert({"float.exr", "ours.dpx", "--pixel-format", "gbrp10le", "--ocio", "scenes.ocio", "--from", "ACES",
             "--to", "grading"});
    judge({"env", "OCIO=" + at("scenes.ocio").string(), "ocioconvert", "float.exr", "ACES", "theirs.exr",
           "grading"});
    judge({"oiiotool", "theirs.exr", "-d", "uint10", "-o", "theirs.dpx"});
    const std::vector<std::uint8_t> mine = decoded("ours.dpx", "gbrp10le");
    const std::vector<std::uint8_t> reference = decoded("theirs.dpx", "gbrp10le");
    ASSERT_EQ(mine.size(), reference.size());
    int largest = 0;
    for (std::size_t i = 0; i + 1 < mine.size(); i += 2) {
        const int a = mine[i] | mine[i + 1] << 8;
        const int b = reference[i] | reference[i + 1] << 8;
        largest = std::max(largest, std::abs(a - b));
    }
    EXPECT_LE(largest, 1);
}

TEST_F(Unclipped, steps_one_after_the_other_lose_nothing)
{
    convert({"float.exr", "back.exr", "--ocio", "scenes.ocio", "--from", "ACES", "--to", "grading", "--ocio",
             "scenes.ocio", "--from", "grading", "--to", "ACES"});
    expectNear("float.exr", "back.exr", "0.004"); // at 16; the judge's own numbers are
    convert({"float.exr", "twice.exr", "--effect", "gain.fx", "--effect", "gain.fx", "--set", "by=0.25"});
    judge({"oiiotool", "float.exr", "--mulc", "0.5", "-o", "theirs.exr"});
    expectNear("twice.exr", "theirs.exr", "0.000001");
}

TEST_F(Unclipped, openexr_keeps_the_numbers)
{
    const Outcome same = convert({"float.exr", "same.exr"});
    EXPECT_EQ(same.err.find("beyond 0 and 1"), std::string::npos) << same.err;
    expectNear("float.exr", "same.exr", "0");
    convert({"half.exr", "half_same.exr", "--video-option", "format=half"});
    expectNear("half.exr", "half_same.exr", "0");
    convert({"float.exr", "doubled.exr", "--effect", "gain.fx", "--video-option", "format=half"});
    judge({"oiiotool", "float.exr", "--mulc", "2", "-d", "half", "-o", "theirs.exr"});
    expectNear("doubled.exr", "theirs.exr", "0.000001");
    // A number that no half holds becomes the largest one.
    convert({"float.exr", "huge.exr", "--effect", "gain.fx", "--set", "by=100000", "--video-option",
             "format=half"});
    expectHas(run({"oiiotool", "--stats", "huge.exr"}).out,
              "Stats Max: 65504.000000 65504.000000 65504.000000");
}

TEST_F(Unclipped, a_lut_gets_the_numbers_that_its_domain_has)
{
    writeRoots();
    convert({"float.exr", "ours.png", "--lut", "roots.cube"});
    judge({"env", "OCIO=" + at("scenes.ocio").string(), "oiiotool", "float.exr", "--ociofiletransform",
           "roots.cube", "-d", "uint16", "-o", "theirs.png"});
    EXPECT_LE(largestDifference("ours.png", "theirs.png"), 1);
}

TEST_F(Unclipped, alpha_is_divided_and_multiplied_without_clipping)
{
    judge({"oiiotool", "float.exr", "--ch", "R,G,B,A=0.125", "-o", "alpha.exr"});
    convert({"alpha.exr", "same.exr", "--effect", "gain.fx", "--set", "by=1"});
    expectNear("alpha.exr", "same.exr", "0.000002");
}

TEST_F(Unclipped, textures_that_an_effect_draws_into_clip_nothing)
{
    paint("even.exr", "7.5,-0.25,0.5", "61x37");
    convert({"even.exr", "blurred.exr", "--effect", "qx-blur.fx"});
    expectNear("even.exr", "blurred.exr", "0.00001");
}

TEST_F(Unclipped, what_is_clipped_is_said)
{
    expectHas(convert({"float.exr", "plain.png"}).err,
              "\"float.exr\": 1 frame has values beyond 0 and 1 (from -0.1 to 16), which are clipped");
    expectHas(convert({"float.exr", "gained.png", "--effect", "gain.fx"}).err,
              "gained.png: 1 frame has values beyond 0 and 1 (from -0.2 to 32), which are clipped; .exr "
              "keeps them");
    const Outcome written = convert({"float.exr", "text.exr", "--depth", "16", "--effect", "gain.fx"});
    expectHas(written.err,
              "\"float.exr\": 1 frame has values beyond 0 and 1 (from -0.1 to 16), which are clipped");
    write("within.cube", "LUT_1D_SIZE 2\nDOMAIN_MAX 16 16 16\n0 0 0\n1 1 1\n");
    const Outcome within = convert({"float.exr", "within.png", "--lut", "within.cube"});
    EXPECT_EQ(within.err.find("beyond 0 and 1"), std::string::npos) << within.err;
}

TEST_F(Unclipped, filters_keep_the_numbers)
{
    convert({"float.exr", "part.exr", "--crop", "100x80+10+20"});
    judge({"oiiotool", "float.exr", "--cut", "100x80+10+20", "-o", "theirs.exr"});
    expectNear("part.exr", "theirs.exr", "0");
    judge({"oiiotool", "float.exr", "--rotate180", "-o", "theirs.exr"});
    for (const std::string option : {"--before", "--after"}) {
        const Outcome turned = convert({"float.exr", "turned.exr", option, "hflip,vflip"});
        EXPECT_EQ(turned.err.find("clipped"), std::string::npos) << turned.err;
        expectNear("turned.exr", "theirs.exr", "0");
    }
    judge({"oiiotool", "float.exr", "--rotate90", "-o", "theirs.exr"});
    convert({"float.exr", "turned.exr", "--before", "transpose=clock"});
    expectNear("turned.exr", "theirs.exr", "0");
}

TEST_F(Unclipped, pictures_of_other_sizes_keep_the_numbers)
{
    ffmpeg({"-i", "float.exr", "-vf", "zscale=w=128:h=72:f=spline36", "-pix_fmt", "gbrpf32le", "theirs.exr"});
    convert({"float.exr", "small.exr", "--resize", "128x72"});
    expectNear("small.exr", "theirs.exr", "0.00001");
    convert({"float.exr", "small.exr", "--after", "zscale=w=128:h=72:f=spline36"});
    expectNear("small.exr", "theirs.exr", "0.00001");
    // Numbers are clipped behind the filter, not before it.
    judge({"oiiotool", "theirs.exr", "-d", "uint16", "-o", "theirs.png"});
    expectHas(convert({"float.exr", "small.png", "--resize", "128x72"}).err,
              "behind the filters: 1 frame has values");
    EXPECT_EQ(decoded("small.png", "rgb48le"), decoded("theirs.png", "rgb48le"));
}

TEST_F(Unclipped, filters_that_take_no_floats_get_codes_which_is_said)
{
    for (const Lines& filter : {Lines{"--before", "pad=300:200"},
                                {"--before", "scale=128:72"},
                                {"--after", "scale=128:72"},
                                {"--pad", "300x200"}}) {
        const Outcome outcome = convert({"float.exr", "codes.exr", filter[0], filter[1]});
        expectHas(outcome.err,
                  "these filters take no floats, so numbers beyond 0 and 1 are clipped before them");
        expectHas(outcome.err,
                  "\"float.exr\": 1 frame has values beyond 0 and 1 (from -0.1 to 16), which are clipped");
        expectHas(run({"oiiotool", "--stats", "codes.exr"}).out, "Stats Max: 1.0");
    }
}

TEST_F(Unclipped, filters_get_black_and_held_pictures_of_a_sequence)
{
    fs::copy(at("float.exr"), at("shot_1.exr"));
    fs::copy(at("float.exr"), at("shot_3.exr"));
    judge({"oiiotool", "float.exr", "--flop", "-o", "theirs.exr"});
    convert({"shot_%d.exr", "black_%d.exr", "--missing", "black", "--before", "hflip"});
    expectHas(run({"oiiotool", "--stats", "black_2.exr"}).out, "Stats Max: 0.000000 0.000000 0.000000");
    expectNear("theirs.exr", "black_1.exr", "0");
    expectNear("theirs.exr", "black_3.exr", "0");
}

TEST_F(Unclipped, whole_numbers_among_the_pictures_of_a_sequence_stay_what_they_are)
{
    fs::copy(at("float.exr"), at("shot_1.exr"));
    judge({"oiiotool", "codes.png", "-d", "uint32", "-o",
           "shot_2.exr"}); // which FFmpeg reads as codes of 16 bits
    fs::copy(at("float.exr"), at("shot_3.exr"));
    judge({"oiiotool", "codes.png", "-d", "float", "-o", "whole.exr"});
    convert({"shot_%d.exr", "ours_%d.exr"});
    expectNear("ours_1.exr", "float.exr", "0");
    expectNear("ours_2.exr", "whole.exr", "0.00002");
    expectNear("ours_3.exr", "float.exr", "0");
    judge({"oiiotool", "whole.exr", "--flop", "-o", "whole.exr"});
    judge({"oiiotool", "float.exr", "--flop", "-o", "flopped.exr"});
    convert({"shot_%d.exr", "ours_%d.exr", "--before", "hflip"});
    expectNear("ours_1.exr", "flopped.exr", "0");
    expectNear("ours_2.exr", "whole.exr", "0.00002");
    expectNear("ours_3.exr", "flopped.exr", "0");
}

TEST_F(Unclipped, text_is_drawn_over_the_numbers)
{
    paint("bright.exr", "10,-0.5,0.25", "320x180");
    convert({"bright.exr", "text.exr", "--burn-in", "MMMM", "--position", "40,30", "--font-size", "24"});
    // The box is black with an opacity of 0.6, the text white.
    const std::string box = statistics("text.exr", "2x2+41+31");
    expectHas(box, "Stats Min: 4.000000 -0.200000 0.100000");
    expectHas(box, "Stats Max: 4.000000 -0.200000 0.100000");
    const std::string text = statistics("text.exr", "60x28+41+31");
    expectHas(text, "Stats Min: 1.000000 -0.200000 0.100000");
    expectHas(text, "Stats Max: 4.000000 1.000000 1.000000");
    for (const std::string outside : {"320x30+0+0", "40x180+0+0", "320x100+0+80"}) {
        judge({"oiiotool", "bright.exr", "--cut", outside, "-o", "theirs.exr"});
        judge({"oiiotool", "text.exr", "--cut", outside, "-o", "ours.exr"});
        expectNear("ours.exr", "theirs.exr", "0");
    }
}

TEST_F(Unclipped, grey_pictures_keep_the_numbers)
{
    judge({"oiiotool", "float.exr", "--ch", "R", "--chnames", "Y", "-o", "grey.exr"});
    judge({"oiiotool", "grey.exr", "--ch", "Y,Y,Y", "--chnames", "R,G,B", "-o", "theirs.exr"});
    convert({"grey.exr", "ours.exr"});
    expectNear("ours.exr", "theirs.exr", "0");
    judge({"oiiotool", "theirs.exr", "--mulc", "2", "-o", "theirs.exr"});
    convert({"grey.exr", "ours.exr", "--effect", "gain.fx"});
    expectNear("ours.exr", "theirs.exr", "0.000001");
    judge({"oiiotool", "grey.exr", "--ch", "Y,Y,Y", "-d", "uint16", "-o", "theirs.png"});
    convert({"grey.exr", "ours.png"});
    EXPECT_EQ(largestDifference("ours.png", "theirs.png"), 0);
}

TEST_F(Unclipped, tiff_with_floats_is_refused_with_what_to_do)
{
    judge({"oiiotool", "codes.png", "-d", "float", "-o", "float.tif"});
    judge({"oiiotool", "codes.png", "-d", "half", "--attrib", "tiff:half", "1", "-o", "half.tif"});
    judge({"oiiotool", "codes.png", "-d", "double", "-o", "double.tif"});
    judge({"oiiotool", "codes.png", "-d", "int16", "-o", "signed.tif"});
    judge({"oiiotool", "codes.png", "-d", "uint32", "-o", "long.tif"});
    judge({"oiiotool", "codes.png", "--ch", "R", "-d", "float", "-o", "grey.tif"});
    for (const auto& [file, samples] : {std::pair("float.tif", "32-bit floats"),
                                        {"half.tif", "16-bit floats"},
                                        {"double.tif", "64-bit floats"},
                                        {"signed.tif", "16-bit signed whole numbers"},
                                        {"long.tif", "32-bit whole numbers"},
                                        {"grey.tif", "32-bit floats"}}) {
        const Outcome outcome = qxhost({"convert", file, "out.png"});
        EXPECT_EQ(outcome.exitCode, 3) << outcome.err;
        EXPECT_EQ(outcome.err,
                  "qxhost: \"" + std::string(file) + "\" holds " + samples +
                      ", and TIFF is read with whole numbers of up to 16 bits; make OpenEXR of it, "
                      "as with 'oiiotool IN.tif -d float -o OUT.exr'\n");
    }
    judge({"oiiotool", "float.tif", "-d", "float", "-o", "advised.exr"});
    convert({"advised.exr", "ours.exr"});
    judge({"oiiotool", "float.tif", "-o", "theirs.exr"});
    expectNear("ours.exr", "theirs.exr", "0");
    fs::copy(at("half.tif"), at("shot_2.tif"));
    judge({"oiiotool", "codes.png", "-o", "shot_1.tif"});
    const Outcome sequence = qxhost({"convert", "shot_%d.tif", "out_%d.png"});
    EXPECT_EQ(sequence.exitCode, 3);
    expectHas(sequence.err, "picture 2 (\"shot_2.tif\") holds 16-bit floats");
    EXPECT_EQ(decoded("out_1.png", "rgb48le"), decoded("codes.png", "rgb48le"));
}

TEST_F(Unclipped, encoders_name_the_floats_that_they_take)
{
    judge({"oiiotool", "float.exr", "--ch", "R,G,B,A=1", "-o", "theirs.exr"});
    convert({"theirs.exr", "ours.exr", "--pixel-format", "gbrapf32le"});
    expectNear("ours.exr", "theirs.exr", "0");
    const Outcome refused = qxhost({"convert", "float.exr", "grey.exr", "--pixel-format", "grayf32le"});
    EXPECT_EQ(refused.exitCode, 4);
    expectHas(refused.err,
              "encoder exr cannot be given pixel format grayf32le; it takes gbrpf32le, gbrapf32le");
}

TEST_F(Unclipped, fields_keep_the_numbers)
{
    const Outcome outcome = qxhost({"fields", "float.exr", "field_%d.exr"});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    for (const std::string which : {"top", "bottom"}) {
        ffmpeg({"-y", "-i", "float.exr", "-vf", "crop=257:142:0:0,field=" + which, "-pix_fmt", "gbrpf32le",
                "theirs.exr"});
        expectNear(which == "top" ? "field_1.exr" : "field_2.exr", "theirs.exr", "0");
    }
}

TEST_F(Unclipped, thumbnails_in_openexr_are_means_of_the_numbers)
{
    judge({"oiiotool", "float.exr", "--cut", "256x142", "-o", "even.exr"});
    judge({"oiiotool", "even.exr", "--resize:filter=box", "128x71", "-o", "theirs.exr"});
    const Outcome outcome = qxhost({"thumbnail", "even.exr", "small.exr", "--size", "128x71"});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    expectNear("small.exr", "theirs.exr", "0.00001");
}

TEST_F(Unclipped, contact_sheets_draw_through_luts_before_they_clip)
{
    writeRoots();
    paint("even.exr", "4,1,-1", "160x90");
    const Outcome outcome =
        qxhost({"contact", "even.exr", "sheet.png", "--lut", "roots.cube", "--size", "160x90"});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    const auto middleOf = [&](int x) {
        ffmpeg({"-y", "-i", "sheet.png", "-vf", "crop=1:1:" + std::to_string(x) + ":100", "pixel.png"});
        return decoded("pixel.png", "rgb24");
    };
    EXPECT_EQ(middleOf(16 + 80), (std::vector<std::uint8_t>{255, 255, 0}));
    EXPECT_EQ(middleOf(16 + 160 + 16 + 80),
              (std::vector<std::uint8_t>{128, 64, 0})); // the roots of 4/16 and 1/16
}

TEST_F(Unclipped, sequences_keep_the_numbers_where_pictures_are_missing)
{
    fs::copy(at("float.exr"), at("shot_1.exr"));
    fs::copy(at("float.exr"), at("shot_3.exr"));
    convert({"shot_%d.exr", "held_%d.exr", "--missing", "hold", "--effect", "gain.fx", "--set", "by=1"});
    for (const std::string number : {"1", "2", "3"}) {
        expectNear("float.exr", "held_" + number + ".exr", "0");
    }
    convert({"shot_%d.exr", "black_%d.exr", "--missing", "black", "--effect", "gain.fx", "--set", "by=1"});
    expectHas(run({"oiiotool", "--stats", "black_2.exr"}).out, "Stats Max: 0.000000 0.000000 0.000000");
    expectNear("float.exr", "black_3.exr", "0");
}

} // namespace

} // namespace Qx::System
