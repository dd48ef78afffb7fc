// One picture of all effects and LUTs: qxhost contact.

#include "tests/system/program/Program.h"

#include <algorithm>

namespace Qx::System {

namespace {

using Words = std::vector<std::string>;
using Bytes = std::vector<std::uint8_t>;
using Json = nlohmann::json;

// The layout of a sheet, in pixels.
constexpr int cellWidth = 160;
constexpr int cellHeight = 90;
constexpr int gap = 16;
constexpr int heading = 56;
constexpr int label = 26;

class ContactSheets : public ProgramTest
{
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=320x180:rate=25,setparams=colorspace=bt709:range=tv",
                "-frames:v", "5", "-pix_fmt", "yuv422p", "-c:v", "ffv1", "clip.mkv"});
        write("film.cube", "LUT_1D_SIZE 2\n0 0 0\n1 0.5 0.2\n");
    }

    Json contact(Words arguments) const
    {
        arguments.insert(arguments.begin(),
                         {"contact", "clip.mkv", "sheet.png", "--force", "--json", "--size", "160x90"});
        const Outcome outcome = qxhost(arguments);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return Json::parse(outcome.out, nullptr, false);
    }

    /// The picture of a cell.
    Bytes cell(int column, int row) const
    {
        const std::string place = "crop=" + std::to_string(cellWidth) + ":" + std::to_string(cellHeight) +
                                  ":" + std::to_string(gap + column * (cellWidth + gap)) + ":" +
                                  std::to_string(heading + row * (cellHeight + label + gap));
        ffmpeg({"-y", "-i", "sheet.png", "-vf", place, "cell.png"});
        return decoded("cell.png", "rgb24");
    }

    /// A frame through the options, as `convert` and `thumbnail` make it.
    Bytes expected(Words options, const std::string& frame) const
    {
        options.insert(options.begin(), {"convert", "clip.mkv", "whole.png", "--force", "--start", frame,
                                         "--frames", "1", "--output-range", "full"});
        const Outcome converted = qxhost(options);
        EXPECT_EQ(converted.exitCode, 0) << converted.err;
        const Outcome shrunk = qxhost({"thumbnail", "whole.png", "small.png", "--size", "160x90", "--force"});
        EXPECT_EQ(shrunk.exitCode, 0) << shrunk.err;
        return decoded("small.png", "rgb24");
    }
};

TEST_F(ContactSheets, show_the_frame_through_each_effect_and_lut_that_is_named)
{
    const Json made = contact({"--start", "3", "--effect", "cc3.fx", "--effect", "qx-vignette.fx", "--lut",
                               "film.cube", "--columns", "3"});
    EXPECT_EQ(made["drawn"], Json({"The frame itself", "cc3.fx", "qx-vignette.fx", "film.cube"}));
    EXPECT_EQ(made["notDrawn"], Json::array());
    EXPECT_EQ(made["width"], gap + 3 * (cellWidth + gap));
    EXPECT_EQ(made["height"], heading + 2 * (cellHeight + label + gap));
    EXPECT_EQ(cell(0, 0), expected({}, "3"));
    EXPECT_EQ(cell(1, 0), expected({"--effect", "cc3.fx"}, "3"));
    EXPECT_EQ(cell(2, 0), expected({"--effect", "qx-vignette.fx"}, "3"));
    EXPECT_EQ(cell(0, 1), expected({"--lut", "film.cube"}, "3"));
}

TEST_F(ContactSheets, show_the_whole_catalogue_by_themselves)
{
    fs::create_directory(at("luts"));
    fs::copy_file(at("film.cube"), at("luts/film.cube"));
    const Outcome listed = qxhost({"effects", "list", "--json"});
    ASSERT_EQ(listed.exitCode, 0) << listed.err;
    const Json made = contact({});
    const Json catalogue = Json::parse(listed.out);
    for (const Json& effect : catalogue) {
        const std::string name = effect["name"];
        const bool isStarter = name.rfind("qx-", 0) == 0 || name == "cc3.fx";
        const auto isIt = [&](const Json& each) { return each == name; };
        const auto isLeftOut = [&](const Json& each) { return each["name"] == name; };
        const bool isDrawn = std::any_of(made["drawn"].begin(), made["drawn"].end(), isIt);
        const bool isNamed = std::any_of(made["notDrawn"].begin(), made["notDrawn"].end(), isLeftOut);
        EXPECT_EQ(isDrawn || isNamed, isStarter) << name;
        EXPECT_FALSE(isDrawn && isNamed) << name;
    }
    EXPECT_GE(made["drawn"].size(), 15U);
}

TEST_F(ContactSheets, name_what_needs_more_than_one_picture)
{
    const Json made = contact({"--effect", "qx-dissolve.fx", "--effect", "cc3.fx"});
    EXPECT_EQ(made["drawn"], Json({"The frame itself", "cc3.fx"}));
    ASSERT_EQ(made["notDrawn"].size(), 1U);
    EXPECT_EQ(made["notDrawn"][0]["name"], "qx-dissolve.fx");
    EXPECT_EQ(made["notDrawn"][0]["why"],
              "qx-dissolve.fx: needs more than the frame: 'qxhost convert' draws it with --texture To=FILE");
}

TEST_F(ContactSheets, show_each_technique_of_an_effect_that_is_named)
{
    write("two.fx", R"(
texture Input;
sampler s = sampler_state { Texture = <Input>; };
float4 same(float2 uv : TEXCOORD0) : COLOR0 { return tex2D(s, uv); }
float4 negative(float2 uv : TEXCOORD0) : COLOR0 { float4 p = tex2D(s, uv); return float4(1 - p.rgb, p.a); }
technique Same { pass P0 { PixelShader = compile ps_3_0 same(); } }
technique Negative { pass P0 { PixelShader = compile ps_3_0 negative(); } }
)");
    const Json made = contact({"--effect", "./two.fx"});
    EXPECT_EQ(made["drawn"], Json({"The frame itself", "two.fx: Same", "two.fx: Negative"}));
    EXPECT_EQ(cell(1, 0), cell(0, 0));
    EXPECT_EQ(cell(2, 0), expected({"--effect", "./two.fx", "--technique", "Negative"}, "0"));
}

TEST_F(ContactSheets, refuse_what_is_not_there_and_keep_what_is)
{
    const auto failureOf = [this](const Words& arguments, int exitCode) {
        const Outcome outcome = qxhost(arguments);
        EXPECT_EQ(outcome.exitCode, exitCode) << outcome.err;
        return outcome.err;
    };
    EXPECT_NE(failureOf({"contact", "clip.mkv", "a.png", "--effect", "none.fx"}, 6).find("none.fx"),
              std::string::npos);
    EXPECT_NE(failureOf({"contact", "clip.mkv", "a.png", "--lut", "none.cube"}, 6).find("none.cube"),
              std::string::npos);
    EXPECT_NE(failureOf({"contact", "none.mkv", "a.png"}, 3).find("none.mkv"), std::string::npos);
    EXPECT_NE(failureOf({"contact", "clip.mkv", "a.png", "--start", "99"}, 3).find("--start"),
              std::string::npos);
    failureOf({"contact", "clip.mkv", "a.mov"}, 4);
    failureOf({"contact", "clip.mkv", "a_%05d.png"}, 4);
    failureOf({"contact", "clip.mkv", "-"}, 2);
    failureOf({"contact", "clip.mkv", "a.png", "--effect", ""}, 2);
    failureOf({"contact", "clip.mkv", "a.png", "--columns", "0"}, 2);
    write("there.png", "mine");
    failureOf({"contact", "clip.mkv", "there.png", "--effect", "cc3.fx"}, 4);
    EXPECT_EQ(read(at("there.png")), "mine");
    fs::copy_file(at("film.cube"), at("film.png"));
    failureOf({"contact", "clip.mkv", "film.png", "--force", "--lut", "./film.png"}, 6); // no LUT's ending
    EXPECT_FALSE(fs::exists(at("a.png")));
}

TEST_F(ContactSheets, refuse_an_effect_that_does_not_compile_with_its_messages)
{
    write("broken.fx", "technique T { pass P { PixelShader = compile ps_3_0 none(); } }");
    const Outcome outcome = qxhost({"contact", "clip.mkv", "a.png", "--effect", "./broken.fx"});
    EXPECT_EQ(outcome.exitCode, 6); // it is named, and its message is wanted
    EXPECT_NE(outcome.err.find("broken.fx"), std::string::npos) << outcome.err;
}

} // namespace

} // namespace Qx::System
