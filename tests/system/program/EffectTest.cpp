#include "tests/system/program/Program.h"

#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include <fstream>
#include <iterator>

namespace Qx::System {

namespace {

constexpr const char* tintEffect = R"(// Weighs the components.
texture Input;
sampler S = sampler_state { Texture = <Input>; MinFilter = Point; MagFilter = Point; };
float4 tint = {1, 1, 1, 1};
float amount = 1;
float4 weigh(float2 uv : TEXCOORD0) : COLOR0 { return tex2D(S, uv) * tint * amount; }
float4 white(float2 uv : TEXCOORD0) : COLOR0 { return 1; }
technique Weigh { pass P0 { PixelShader = compile ps_3_0 weigh(); } }
technique White { pass P0 { PixelShader = compile ps_3_0 white(); } }
)";

using Bytes = std::vector<std::uint8_t>;

class Effects : public ProgramTest
{
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=48x32", "-frames", "1", "-pix_fmt", "yuv422p", "-c:v",
                "ffv1", "-colorspace", "bt709", "-color_range", "tv", "clip.mkv"});
        write("tint.fx", tintEffect);
    }

    Bytes through(std::vector<std::string> options) const
    {
        options.insert(options.begin(), {"convert", "clip.mkv", "out.png", "--force"});
        const Outcome outcome = qxhost(options);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return decoded("out.png", "rgb24");
    }

    void expectFailure(std::vector<std::string> options, const std::vector<std::string>& words) const
    {
        options.insert(options.begin(), {"convert", "clip.mkv", "no.png"});
        const Outcome outcome = qxhost(options);
        EXPECT_EQ(outcome.exitCode, 6) << outcome.err;
        for (const std::string& word : words) {
            EXPECT_NE(outcome.err.find(word), std::string::npos) << word << " is not in: " << outcome.err;
        }
        EXPECT_EQ(filesBeside({"clip.mkv", "tint.fx", "broken.fx", "two.fx", "wide.fx"}),
                  std::vector<std::string>());
    }
};

TEST_F(Effects, a_neutral_grade_changes_nothing)
{
    EXPECT_EQ(through({"--effect", "cc3.fx"}), through({}));
}

TEST_F(Effects, names_of_the_catalogue_have_no_letter_case)
{
    EXPECT_EQ(through({"--effect", "CC3.FX", "--set", "saturation=0"}),
              through({"--effect", "cc3.fx", "--set", "saturation=0"}));
}

TEST_F(Effects, are_looked_up_after_the_host_has_started_with_its_settings)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=48x32", "-frames", "1", "start.png"});
    const Outcome outcome = qxhost({"convert", "start.png", "started.png", "--effect", "cc3.fx"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(outcome.err.find("the host was started after"), std::string::npos) << outcome.err;
}

TEST_F(Effects, a_parameter_has_its_effect)
{
    const Bytes grey = through({"--effect", "cc3.fx", "--set", "saturation=0"});
    for (std::size_t i = 0; i < grey.size(); i += 3) {
        ASSERT_NEAR(grey[i], grey[i + 1], 1);
        ASSERT_NEAR(grey[i], grey[i + 2], 1);
    }
}

TEST_F(Effects, a_vector_sets_each_component)
{
    const Bytes plain = through({});
    const Bytes tinted = through({"--effect", "./tint.fx", "--set", "tint=1,0.5,0,1"});
    ASSERT_EQ(tinted.size(), plain.size());
    for (std::size_t i = 0; i < plain.size(); i += 3) {
        ASSERT_EQ(tinted[i], plain[i]);
        ASSERT_NEAR(tinted[i + 1], plain[i + 1] * 0.5, 0.51);
        ASSERT_EQ(tinted[i + 2], 0);
    }
}

TEST_F(Effects, blanks_around_the_parts_of_a_setting_do_not_count)
{
    EXPECT_EQ(through({"--effect", "tint.fx", "--set", " tint = 1, 0.5 ,\t0, 1 "}),
              through({"--effect", "tint.fx", "--set", "tint=1,0.5,0,1"}));
}

TEST_F(Effects, one_value_sets_all_components)
{
    EXPECT_EQ(through({"--effect", "tint.fx", "--set", "tint=0"}), Bytes(std::size_t{48} * 32 * 3, 0));
}

TEST_F(Effects, a_technique_is_chosen_by_name)
{
    EXPECT_EQ(through({"--effect", "tint.fx", "--technique", "White"}), Bytes(std::size_t{48} * 32 * 3, 255));
}

TEST_F(Effects, several_run_in_order_each_with_its_own_parameters)
{
    const Bytes result = through({"--effect", "tint.fx", "--technique", "White", "--effect", "tint.fx",
                                  "--set", "tint=1,1,0,1", "--effect", "tint.fx", "--set", "amount=0.2"});
    for (std::size_t i = 0; i < result.size(); i += 3) {
        ASSERT_EQ(result[i], 51);
        ASSERT_EQ(result[i + 1], 51);
        ASSERT_EQ(result[i + 2], 0);
    }
}

TEST_F(Effects, an_unknown_effect_is_answered_with_those_there_are)
{
    expectFailure({"--effect", "cc4.fx"}, {"cc4.fx", "did you mean cc3.fx?", "null.fx"});
}

TEST_F(Effects, an_unknown_technique_is_answered_with_those_there_are)
{
    expectFailure({"--effect", "tint.fx", "--technique", "Whit"},
                  {"tint.fx", "\"Whit\"", "did you mean White?", "Weigh and White"});
}

TEST_F(Effects, an_unknown_parameter_is_answered_with_those_there_are)
{
    expectFailure({"--effect", "tint.fx", "--set", "tnit=1"},
                  {"tint.fx", "\"tnit\"", "did you mean tint?", "tint and amount"});
    expectFailure({"--effect", "cc3.fx", "--set", "satturation=1"}, {"did you mean saturation?", "gainRed"});
}

TEST_F(Effects, a_wrong_number_of_values_is_refused)
{
    expectFailure({"--effect", "tint.fx", "--set", "tint=1,2"}, {"\"tint\"", "4", "2"});
    expectFailure({"--effect", "tint.fx", "--set", "Input=1"}, {"\"Input\""});
}

TEST_F(Effects, a_value_outside_its_annotated_range_is_used_with_a_warning)
{
    std::string ranged = tintEffect;
    const auto annotate = [&](const std::string& declaration, const std::string& annotations) {
        ranged.replace(ranged.find(declaration), declaration.size(), declaration + annotations);
    };
    annotate("float4 tint", " < float Min = -0.5; >");
    annotate("float amount", " < float UIMin = 0.1; float UIMax = 1; >");
    write("ranged.fx", ranged);
    const auto warningOf = [&](const std::vector<std::string>& settings) {
        std::vector<std::string> line{"convert", "clip.mkv", "out.png", "--force", "--effect", "ranged.fx"};
        for (const std::string& setting : settings) {
            line.insert(line.end(), {"--set", setting});
        }
        const Outcome outcome = qxhost(line);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        const std::size_t begin = outcome.err.find("ranged.fx: ");
        return begin == std::string::npos ? ""
                                          : outcome.err.substr(begin, outcome.err.find('\n', begin) - begin);
    };
    EXPECT_EQ(warningOf({"amount=9"}), "ranged.fx: \"amount\" is set to 9, which is outside its range from "
                                       "0.1 to 1; it is drawn with that value");
    EXPECT_EQ(decoded("out.png", "rgb24"), through({"--effect", "tint.fx", "--set", "amount=9"}));
    EXPECT_EQ(warningOf({"tint=1,0,-0.75,1"}), "ranged.fx: \"tint\" is set to -0.75, which is outside its "
                                               "range of at least -0.5; it is drawn with that value");
    EXPECT_EQ(warningOf({"amount=0.1", "tint=-0.5"}), "") << "the limits belong to the range";
    const Outcome json = qxhost({"convert", "clip.mkv", "out.png", "--force", "--json", "--effect",
                                 "ranged.fx", "--set", "amount=-1"});
    const nlohmann::json warnings = nlohmann::json::parse(json.out).at("warnings");
    ASSERT_EQ(warnings.size(), 1U);
    EXPECT_NE(warnings[0].get<std::string>().find("is set to -1, "), std::string::npos) << warnings[0];
}

TEST_F(Effects, a_broken_effect_is_refused_with_the_place)
{
    write("broken.fx", "float4 f() : COLOR0 {\n    return nothing;\n}\n"
                       "technique T { pass P { PixelShader = compile ps_3_0 f(); } }\n");
    expectFailure({"--effect", "broken.fx"}, {"broken.fx:2:", "nothing"});
}

TEST_F(Effects, one_that_wants_a_second_picture_is_refused)
{
    write("two.fx", "texture Input; texture Other;\nsampler S = sampler_state { Texture = <Other>; };\n"
                    "float4 f(float2 uv : TEXCOORD0) : COLOR0 { return tex2D(S, uv); }\n"
                    "technique T { pass P { PixelShader = compile ps_3_0 f(); } }\n");
    expectFailure({"--effect", "two.fx"}, {"two.fx: technique \"T\" reads the texture \"Other\", which "
                                           "nothing gives a picture; add --texture Other=FILE"});
}

TEST_F(Effects, messages_cannot_steer_the_terminal)
{
    write("bad\x1b[31m\n.fx", "#error \x1b[2J\n");
    const Outcome checked = qxhost({"effects", "check", "bad\x1b[31m\n.fx"});
    EXPECT_EQ(checked.exitCode, 1);
    EXPECT_EQ((checked.out + checked.err).find('\x1b'), std::string::npos) << checked.out << checked.err;
    EXPECT_NE(checked.out.find("bad\\x1b[31m\\n.fx:1:"), std::string::npos) << checked.out;
    const Outcome missing = qxhost({"convert", "no\x1b[31m\nsuch.mov", "out.png"});
    EXPECT_EQ(missing.err.find('\x1b'), std::string::npos) << missing.err;
    EXPECT_EQ(missing.err.find('\n'), missing.err.size() - 1) << missing.err;
}

TEST_F(Effects, a_file_in_utf_16_is_refused_with_what_to_do)
{
    write("wide.fx", std::string("\xff\xfet\0e\0", 6));
    expectFailure({"--effect", "wide.fx"}, {"wide.fx:1:1:", "UTF-16", "save it as UTF-8"});
}

TEST_F(Effects, the_list_names_the_shipped_effects)
{
    const Outcome outcome = qxhost({"effects", "list", "--json"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    std::map<std::string, std::size_t> techniques;
    for (const auto& effect : nlohmann::json::parse(outcome.out)) {
        EXPECT_TRUE(effect["compiled"].get<bool>()) << effect;
        EXPECT_TRUE(fs::is_directory(effect["directory"].get<std::string>())) << effect;
        techniques[effect["name"]] = effect["techniques"].size();
        if (effect["name"] == "LUT.fx" || effect["name"] == "cc3.fx") {
            EXPECT_EQ(effect["drawable"].empty(), effect["name"] == "LUT.fx") << effect;
        }
    }
    for (const char* name :
         {"blur", "chroma-key", "colour-wheels", "crop", "curves", "deinterlace", "dissolve", "glow", "grain",
          "guides", "scopes", "sharpen", "transform", "vignette", "white-balance", "wipe"})
        EXPECT_EQ(techniques.count("qx-" + std::string(name) + ".fx"), 1U) << name;
    EXPECT_EQ(techniques["ColourConvert.fx"], 44U);
    EXPECT_EQ(techniques.count("null.fx"), 1U);
    EXPECT_EQ(techniques.count("cc3.fx"), 1U);
    const Outcome table = qxhost({"effects", "list"});
    EXPECT_NE(table.out.find("ColourConvert.fx"), std::string::npos);
    EXPECT_NE(table.out.find("44"), std::string::npos);
}

TEST_F(Effects, checking_prints_the_messages_and_answers_by_exit_code)
{
    const Outcome good = qxhost({"effects", "check", "tint.fx"});
    EXPECT_EQ(good.exitCode, 0) << good.err;
    EXPECT_NE(good.out.find("tint.fx: ok, 2 techniques"), std::string::npos) << good.out;

    write("broken.fx", "technique T { pass P { PixelShader = compile ps_3_0 missing(); } }\n");
    const Outcome bad = qxhost({"effects", "check", "tint.fx", "broken.fx"});
    EXPECT_EQ(bad.exitCode, 1);
    EXPECT_NE(bad.out.find("tint.fx: ok"), std::string::npos) << bad.out;
    EXPECT_NE(bad.out.find("broken.fx:1:"), std::string::npos) << bad.out;

    const auto report =
        nlohmann::json::parse(qxhost({"effects", "check", "--json", "tint.fx", "broken.fx"}).out);
    EXPECT_EQ(report[0]["ok"], true);
    EXPECT_EQ(report[0]["diagnostics"], nlohmann::json::array());
    EXPECT_EQ(report[1]["ok"], false);
    EXPECT_NE(report[1]["messages"].get<std::string>().find("missing"), std::string::npos);
    const auto expected = nlohmann::json::parse(R"({
        "severity": "error", "file": "broken.fx", "line": 1, "column": 53,
        "text": "there is no function 'missing'", "technique": "T", "pass": "P", "otherPasses": 0,
        "excerpt": "technique T { pass P { PixelShader = compile ps_3_0 missing(); } }", "caret": 52})");
    ASSERT_EQ(report[1]["diagnostics"].size(), 1U);
    EXPECT_EQ(report[1]["diagnostics"][0], expected);

    EXPECT_EQ(qxhost({"effects", "check", "absent.fx"}).exitCode, 3);
}

TEST_F(Effects, checking_and_listing_say_what_a_conversion_cannot_draw)
{
    fs::create_directories(at(".data/qxhost/templates"));
    const std::string effect =
        "texture Input; texture Other;\n"
        "sampler A = sampler_state { Texture = <Input>; }; sampler B = sampler_state { Texture = <Other>; "
        "};\n"
        "float4 one(float2 uv : TEXCOORD0) : COLOR0 { return tex2D(A, uv); }\n"
        "float4 two(float2 uv : TEXCOORD0) : COLOR0 { return tex2D(A, uv) + tex2D(B, uv); }\n"
        "technique One { pass P { PixelShader = compile ps_3_0 one(); } }\n"
        "technique Two { pass P { PixelShader = compile ps_3_0 two(); } }\n";
    write("mix.fx", effect);
    write(".data/qxhost/templates/mix.fx", effect);
    const Outcome checked = qxhost({"effects", "check", "mix.fx"});
    EXPECT_EQ(checked.exitCode, 0) << checked.err;
    EXPECT_NE(checked.out.find(
                  "mix.fx: ok, 2 techniques\nmix.fx: 'qxhost convert' cannot draw \"Two\", which reads "
                  "the texture \"Other\", which nothing gives a picture; add --texture Other=FILE\n"),
              std::string::npos)
        << checked.out;
    for (const auto& listed : nlohmann::json::parse(qxhost({"effects", "list", "--json"}).out)) {
        if (listed["name"] == "mix.fx") {
            EXPECT_EQ(listed["drawable"], nlohmann::json::array({"One"}));
            EXPECT_EQ(listed["needs"], nlohmann::json::parse(R"({"Two": ["--texture Other=FILE"]})"));
            const Outcome shown = qxhost({"effects", "list"});
            EXPECT_NE(shown.out.find("--texture Other=FILE for Two\n"), std::string::npos) << shown.out;
            EXPECT_NE(shown.out.find("--texture LUT=FILE\n"), std::string::npos) << shown.out;
            return;
        }
    }
    FAIL() << "mix.fx is not listed";
}

TEST_F(Effects, describing_shows_what_an_effect_has)
{
    write(
        "glow.fx",
        "texture Input < string Label = \"Picture\"; >;\n"
        "sampler S = sampler_state { Texture = <Input>; MagFilter = Linear; AddressV = Wrap; };\n"
        "float amount < string Label = \"Amount\"; float Min = -1; float Max = 2.5; > = 0.5;\n"
        "float3x2 m = { 1, 2, 3, 4, 5, 6 };\n"
        "bool on[2] = { true, false };\n"
        "float2 size : TARGETSIZE;\n"
        "float4 f(float2 uv : TEXCOORD0) : COLOR\n"
        "{ return tex2D(S, uv) * amount + m._m00 + on[0] + size.x; }\n"
        "technique Glow < string Label = \"Glow\"; >\n"
        "{ pass First { PixelShader = compile ps_3_0 f(); } pass { PixelShader = compile ps_3_0 f(); } }\n");
    const Outcome shown = qxhost({"effects", "describe", "glow.fx"});
    EXPECT_EQ(shown.exitCode, 0) << shown.err;
    EXPECT_EQ(shown.out, "TECHNIQUE  PASSES            LABEL\n"
                         "Glow       First, (unnamed)  Glow\n"
                         "\n"
                         "PARAMETER  TYPE      DEFAULT               RANGE      LABEL\n"
                         "amount     float     0.5                   -1 to 2.5  Amount\n"
                         "m          float3x2  1, 2, 3, 4, 5, 6\n"
                         "on         bool[2]   true, false\n"
                         "size       float2    (size of the target)\n"
                         "\n"
                         "TEXTURE  GIVEN        LABEL\n"
                         "Input    the picture  Picture\n"
                         "\n"
                         "SAMPLER  TEXTURE  FILTER  ADDRESS\n"
                         "S        Input    Linear  Clamp, Wrap\n");

    const auto data = nlohmann::json::parse(qxhost({"effects", "describe", "glow.fx", "--json"}).out);
    EXPECT_EQ(data["ok"], true);
    EXPECT_EQ(data["techniques"][0]["passes"][0],
              nlohmann::json::parse(R"({"name": "First", "samplers": ["S"]})"));
    EXPECT_EQ(data["parameters"][0],
              nlohmann::json::parse(R"({"name": "amount", "type": "float", "default": [0.5],
        "minimum": -1.0, "maximum": 2.5, "label": "Amount", "annotations": [
            {"type": "string", "name": "Label", "value": "Amount"}, {"type": "float", "name": "Min", "value": "-1"},
            {"type": "float", "name": "Max", "value": "2.5"}]})"));
    EXPECT_EQ(data["parameters"][1]["default"], nlohmann::json({1.0, 2.0, 3.0, 4.0, 5.0, 6.0}));
    EXPECT_EQ(data["parameters"][2]["default"], nlohmann::json({true, false}));
    EXPECT_EQ(data["parameters"][3]["filledWith"], "size of the target");
    EXPECT_EQ(data["samplers"][0]["addressV"], "Wrap");
}

TEST_F(Effects, describing_shows_the_registers_that_a_file_gives)
{
    write("player.fx",
          "sampler picture : register(s0);\nsampler other : register(s3);\nsampler free;\n"
          "float4 p0 : register(c0);\nfloat gain : register(c12) = 2;\nfloat more = 1;\n"
          "float4 f(float2 uv : TEXCOORD0) : COLOR\n"
          "{ return (tex2D(picture, uv) + tex2D(other, uv) + tex2D(free, uv)) * gain * more + p0; }\n"
          "technique T { pass { PixelShader = compile ps_2_0 f(); } }\n");
    const Outcome shown = qxhost({"effects", "describe", "player.fx"});
    EXPECT_EQ(shown.exitCode, 0) << shown.err;
    EXPECT_NE(shown.out.find("PARAMETER  TYPE    DEFAULT                          RANGE  LABEL  REGISTER\n"
                             "p0         float4  (width, height, frame, seconds)                c0\n"
                             "gain       float   2                                              c12\n"
                             "more       float   1\n"),
              std::string::npos)
        << shown.out;
    EXPECT_NE(shown.out.find("SAMPLER  TEXTURE  FILTER  ADDRESS       REGISTER\n"
                             "picture  picture  Point   Clamp, Clamp  s0\n"
                             "other    other    Point   Clamp, Clamp  s3\n"
                             "free     free     Point   Clamp, Clamp\n"),
              std::string::npos)
        << shown.out;
    const auto data = nlohmann::json::parse(qxhost({"effects", "describe", "player.fx", "--json"}).out);
    EXPECT_EQ(data["parameters"][1]["register"], "c12");
    EXPECT_FALSE(data["parameters"][2].contains("register"));
    EXPECT_EQ(data["samplers"][1]["register"], "s3");
    EXPECT_FALSE(data["samplers"][2].contains("register"));
}

TEST_F(Effects, describing_what_does_not_compile_gives_the_messages)
{
    write("broken.fx", "float x = ;\n");
    const Outcome shown = qxhost({"effects", "describe", "broken.fx"});
    EXPECT_EQ(shown.exitCode, 1);
    EXPECT_EQ(shown.out, "");
    EXPECT_NE(shown.err.find("broken.fx:1:7: error: "), std::string::npos) << shown.err;
    const auto data = nlohmann::json::parse(qxhost({"effects", "describe", "--json", "broken.fx"}).out);
    EXPECT_EQ(data["ok"], false);
    EXPECT_EQ(data["diagnostics"][0]["column"], 7);
    EXPECT_EQ(qxhost({"effects", "describe", "absent.fx"}).exitCode, 3);
    EXPECT_EQ(qxhost({"effects", "describe", "cc3.fx"}).exitCode, 0);
}

TEST_F(Effects, a_missing_file_does_not_keep_the_others_from_being_checked)
{
    write("broken.fx", "technique T { pass P { PixelShader = compile ps_3_0 missing(); } }\n");
    const Outcome outcome = qxhost({"effects", "check", "absent.fx", "broken.fx", "tint.fx"});
    EXPECT_EQ(outcome.exitCode, 3);
    EXPECT_NE(outcome.err.find("qxhost: absent.fx: "), std::string::npos) << outcome.err;
    EXPECT_NE(outcome.out.find("broken.fx: has errors"), std::string::npos) << outcome.out;
    EXPECT_NE(outcome.out.find("tint.fx: ok"), std::string::npos) << outcome.out;
    const Outcome json = qxhost({"effects", "check", "--json", "absent.fx", "tint.fx"});
    EXPECT_EQ(json.exitCode, 3);
    const auto report = nlohmann::json::parse(json.out);
    EXPECT_EQ(report[0]["ok"], false);
    EXPECT_EQ(report[1]["ok"], true);
}

TEST_F(Effects, checking_takes_names_of_the_catalogue_too)
{
    const Outcome outcome = qxhost({"effects", "check", "CC3.fx"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("cc3.fx: ok"), std::string::npos) << outcome.out;
    write("cc3.fx", "nonsense");
    EXPECT_EQ(qxhost({"effects", "check", "cc3.fx"}).exitCode, 1) << "a file goes before the catalogue";
}

/// Effects that other programs were written for, over three frames of a second's tenth each: greys of 40, 80
/// and 120.
class ForeignEffects : public ProgramTest
{
protected:
    static constexpr int width = 8;
    static constexpr int height = 4;

    void SetUp() override
    {
        ProgramTest::SetUp();
        ffmpeg({"-f", "lavfi", "-i",
                "color=black:size=8x4:rate=10,format=rgb24,geq=r=40*(N+1):g=40*(N+1):b=40*(N+1)", "-frames:v",
                "3", "-c:v", "ffv1", "clip.mkv"});
    }

    /// Textures, each with a sampler called s and the texture's name, and a technique that returns a colour.
    void effect(const std::string& file, const std::vector<std::string>& textures, const std::string& more,
                const std::string& colour) const
    {
        std::string text = more;
        for (const std::string& texture : textures) {
            const std::string name = texture.substr(0, texture.find_first_of(" :<"));
            text += "texture " + texture + ";\nsampler s" + name + " = sampler_state { Texture = <" + name +
                    ">; };\n";
        }
        write(file, text + "float4 f(float2 uv : TEXCOORD0) : COLOR0 { return " + colour +
                        "; }\ntechnique T { pass { PixelShader = compile ps_3_0 f(); } }\n");
    }

    void picture(const std::string& file, const std::string& colour, const std::string& size = "8x4") const
    {
        ffmpeg({"-f", "lavfi", "-i", "color=" + colour + ":size=" + size + ",format=rgb24", "-frames:v", "1",
                file});
    }

    /// The first pixel of each frame that comes out, all of whose pixels must be alike.
    std::vector<std::vector<int>> through(std::vector<std::string> options) const
    {
        options.insert(options.begin(), {"convert", "clip.mkv", "out.mkv", "--force", "--effect"});
        const Outcome outcome = qxhost(options);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        const Bytes bytes = decoded("out.mkv", "rgb24");
        std::vector<std::vector<int>> frames;
        constexpr std::size_t frame = std::size_t{3} * width * height;
        for (std::size_t at = 0; at + frame <= bytes.size(); at += frame) {
            frames.push_back({bytes[at], bytes[at + 1], bytes[at + 2]});
            for (std::size_t i = 0; i < frame; ++i) {
                EXPECT_EQ(bytes[at + i], frames.back()[i % 3]);
            }
        }
        return frames;
    }

    void expectRefusal(const std::vector<std::string>& options, const std::string& message) const
    {
        std::vector<std::string> line{"convert", "clip.mkv", "no.mkv", "--effect"};
        line.insert(line.end(), options.begin(), options.end());
        const Outcome outcome = qxhost(line);
        EXPECT_EQ(outcome.exitCode, 6);
        EXPECT_NE(outcome.err.find("qxhost: " + message), std::string::npos) << outcome.err;
        EXPECT_FALSE(fs::exists(at("no.mkv")));
    }

    using Frames = std::vector<std::vector<int>>;
};

TEST_F(ForeignEffects, the_picture_goes_to_the_only_texture_whatever_its_name)
{
    effect("one.fx", {"Scene"}, "", "1 - tex2D(sScene, uv)");
    EXPECT_EQ(through({"one.fx"}), (Frames{{215, 215, 215}, {175, 175, 175}, {135, 135, 135}}));
    const Outcome shown = qxhost({"effects", "describe", "one.fx"});
    EXPECT_NE(shown.out.find("TEXTURE  GIVEN        LABEL\nScene    the picture\n"), std::string::npos)
        << shown.out;
    EXPECT_EQ(nlohmann::json::parse(
                  qxhost({"effects", "describe", "one.fx", "--json"}).out)["techniques"][0]["picture"],
              "Scene");
    EXPECT_EQ(qxhost({"effects", "check", "one.fx"}).out, "one.fx: ok, 1 technique\n");
}

TEST_F(ForeignEffects, the_picture_goes_to_the_sampler_at_the_first_register)
{
    picture("mask.png", "0x102030");
    write(
        "player.fx",
        "sampler mask : register(s1);\nsampler s0 : register(s0);\n"
        "float4 p0 : register(c0);\nfloat4 p1 : register(c1);\n"
        "float4 f(float2 uv : TEXCOORD0) : COLOR\n"
        "{ return tex2D(s0, uv).r + tex2D(mask, uv) + float4(p0.z, p0.w * 10, p0.x * p1.x - 1, 0) / 255; }\n"
        "technique T { pass { PixelShader = compile ps_2_0 f(); } }\n");
    EXPECT_EQ(through({"player.fx", "--texture", "mask=mask.png"}),
              (Frames{{56, 72, 88}, {97, 113, 128}, {138, 154, 168}}));
    expectRefusal({"player.fx"}, "player.fx: technique \"T\" reads the texture \"mask\", which nothing gives "
                                 "a picture; add --texture mask=FILE");
}

TEST_F(ForeignEffects, an_annotation_names_a_picture_beside_the_effect)
{
    fs::create_directory(at("fx"));
    picture("fx/Grain.png", "0x102030", "3x5");
    effect("fx/two.fx", {"Grain < string ResourceName = \"..\\\\media\\\\grain.PNG\"; >", "Scene"}, "",
           "tex2D(sGrain, uv) + tex2D(sScene, uv)");
    EXPECT_EQ(through({"fx/two.fx"}), (Frames{{56, 72, 88}, {96, 112, 128}, {136, 152, 168}}));
    const Outcome shown = qxhost({"effects", "describe", "fx/two.fx"});
    EXPECT_NE(shown.out.find("Grain    Grain.png\nScene    the picture\n"), std::string::npos) << shown.out;

    fs::remove(at("fx/Grain.png"));
    const std::string missing = "reads the texture \"Grain\", whose file ";
    const std::string remedy =
        "grain.PNG is not beside the effect; put it there, or add --texture Grain=FILE";
    const Outcome checked = qxhost({"effects", "check", "fx/two.fx"});
    EXPECT_NE(checked.out.find(missing), std::string::npos) << checked.out;
    EXPECT_NE(checked.out.find(remedy), std::string::npos) << checked.out;
    expectRefusal({"fx/two.fx"}, "fx/two.fx: technique \"T\" " + missing);
}

TEST_F(ForeignEffects, an_option_gives_a_texture_its_picture)
{
    picture("a.png", "0x102030");
    picture("b.png", "0x010203");
    effect("two.fx", {"Input", "Other < string ResourceName = \"a.png\"; >"}, "",
           "tex2D(sOther, uv) + tex2D(sInput, uv)");
    EXPECT_EQ(through({"two.fx", "--texture", "Other=b.png"}),
              (Frames{{41, 42, 43}, {81, 82, 83}, {121, 122, 123}}));
    expectRefusal({"two.fx", "--texture", "Othr=b.png"},
                  "two.fx: has no texture \"Othr\" (did you mean Other?); it has Input and Other");
    expectRefusal({"two.fx", "--texture", "Other=c.png"},
                  "two.fx: the texture \"Other\" cannot have its picture: ");
    ASSERT_EQ(::mkfifo(at("pipe.png").c_str(), 0600), 0);
    expectRefusal(
        {"two.fx", "--texture", "Other=pipe.png"},
        "two.fx: the texture \"Other\" cannot have its picture: pipe.png: is not a file; a texture's "
        "picture is read from a file");
    write("d.png", "no picture");
    expectRefusal({"two.fx", "--texture", "Other=d.png"},
                  "two.fx: the texture \"Other\" cannot have its picture: ");
}

TEST_F(ForeignEffects, an_annotation_names_directories_in_any_letter_case)
{
    fs::create_directories(at("fx/Maps/Noise"));
    picture("fx/Maps/Noise/Grain.png", "0x102030");
    effect("fx/two.fx", {"Grain < string ResourceName = \"maps\\\\NOISE\\\\grain.PNG\"; >", "Input"}, "",
           "tex2D(sGrain, uv) + tex2D(sInput, uv)");
    const Outcome shown = qxhost({"effects", "describe", "fx/two.fx"});
    EXPECT_NE(shown.out.find("Grain    Maps/Noise/Grain.png\n"), std::string::npos) << shown.out;
    EXPECT_EQ(through({"fx/two.fx"}), (Frames{{56, 72, 88}, {96, 112, 128}, {136, 152, 168}}));
}

TEST_F(ForeignEffects, an_effect_whose_textures_all_have_files_is_said_not_to_see_the_picture)
{
    picture("a.png", "0x102030");
    effect("one.fx", {"Scene"}, "", "tex2D(sScene, uv)");
    const Outcome outcome =
        qxhost({"convert", "clip.mkv", "out.mkv", "--effect", "one.fx", "--texture", "Scene=a.png"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(
        outcome.err.find("one.fx: technique \"T\" reads nothing but the files of its textures; the picture "
                         "is not seen\n"),
        std::string::npos)
        << outcome.err;
}

TEST_F(ForeignEffects, a_volume_gets_the_table_of_a_lut)
{
    write("table.cube", "LUT_3D_SIZE 2\n0.2 0 0\n0.4 0 0\n0.2 0 0\n0.4 0 0\n"
                        "0.2 0 0.6\n0.4 0 0.6\n0.2 0 0.6\n0.4 0 0.6\n");
    write("volume.fx", "texture Table < string ResourceName = \"table.cube\"; >; texture Scene;\n"
                       "sampler3D T = sampler_state { Texture = <Table>; };\n"
                       "sampler S = sampler_state { Texture = <Scene>; };\n"
                       "float4 f(float2 uv : TEXCOORD0) : COLOR0\n"
                       "{ return tex3Dfetch(T, int3(1, 0, 1)) + 0 * tex2D(S, uv); }\n"
                       "technique T { pass { PixelShader = compile ps_3_0 f(); } }\n");
    EXPECT_EQ(through({"volume.fx"}).at(0), (std::vector<int>{102, 0, 153}));
    picture("a.png", "0x102030");
    expectRefusal({"volume.fx", "--texture", "Table=a.png"},
                  "volume.fx: the texture \"Table\" cannot have its table: ");
    fs::remove(at("table.cube"));
    expectRefusal({"volume.fx"}, "volume.fx: technique \"T\" reads the texture \"Table\", whose file "
                                 "table.cube is not beside the effect");
    EXPECT_NE(qxhost({"effects", "check", "LUT.fx"})
                  .out.find("reads the texture \"LUT\", a volume, which nothing gives a "
                            "table; add --texture LUT=FILE with a LUT\n"),
              std::string::npos);
}

TEST_F(ForeignEffects, the_picture_of_a_texture_is_not_replaced)
{
    picture("a.png", "0x102030");
    effect("two.fx", {"Input", "Other < string File = \"a.png\"; >"}, "",
           "tex2D(sOther, uv) + tex2D(sInput, uv)");
    const std::string before = read(at("a.png"));
    const Outcome outcome =
        qxhost({"convert", "clip.mkv", "a.png", "--frames", "1", "--force", "--effect", "two.fx"});
    EXPECT_EQ(outcome.exitCode, 4) << outcome.err;
    EXPECT_EQ(read(at("a.png")), before);
}

TEST_F(ForeignEffects, the_alpha_of_a_texture_is_read)
{
    ffmpeg({"-f", "lavfi", "-i", "color=0x102030@0x40:size=8x4,format=rgba", "-frames:v", "1", "a.png"});
    effect("two.fx", {"Input", "Other"}, "",
           "float4(tex2D(sOther, uv).a, tex2D(sOther, uv).r, 0, 1) + 0 * tex2D(sInput, uv)");
    EXPECT_EQ(through({"two.fx", "--texture", "Other=a.png"}).at(0), (std::vector<int>{0x40, 0x10, 0}));
}

TEST_F(ForeignEffects, each_frame_is_told_its_time_its_number_and_its_size)
{
    effect("time.fx", {}, "float t : TIME; int n : FRAME; float2 size : VIEWPORTPIXELSIZE;\n",
           "float4(t, n / 10.0, (size.x * 10 + size.y) / 255, 1)");
    const Frames expected{{0, 0, 84}, {26, 26, 84}, {51, 51, 84}};
    EXPECT_EQ(through({"time.fx"}), expected);
    EXPECT_EQ(through({"time.fx", "--start", "2"}), (Frames{{51, 51, 84}})) << "times are the clip's";
    EXPECT_EQ(through({"time.fx", "--set", "t=0.8"}).at(2), (std::vector<int>{204, 51, 84}))
        << "what the user sets is kept";
    const Outcome shown = qxhost({"effects", "describe", "time.fx"});
    EXPECT_NE(shown.out.find("(time in seconds)"), std::string::npos) << shown.out;
    EXPECT_EQ(nlohmann::json::parse(
                  qxhost({"effects", "describe", "time.fx", "--json"}).out)["parameters"][2]["given"],
              "size of the picture");
}

TEST_F(ForeignEffects, vertex_shaders_place_the_picture)
{
    write("quad.fx",
          "sampler s : register(s0) = sampler_state { MagFilter = Linear; };\n"
          "float4x4 place : WORLDVIEWPROJECTION;\nfloat2 size : VIEWPORTPIXELSIZE;\n"
          "void corner(inout float4 at : POSITION, inout float2 uv : TEXCOORD0, out float4 c : COLOR0)\n"
          "{ at = mul(at, place); uv += 0.5 / size; c = at.w / 255; }\n"
          "float4 f(float2 uv : TEXCOORD0, float4 c : COLOR0) : COLOR { return tex2D(s, uv) + c; }\n"
          "technique T { pass { VertexShader = compile vs_2_0 corner(); PixelShader = compile ps_2_0 f(); } "
          "}\n");
    EXPECT_EQ(through({"quad.fx"}), (Frames{{41, 41, 41}, {81, 81, 81}, {121, 121, 121}}));
    const Outcome shown = qxhost({"effects", "describe", "quad.fx"});
    EXPECT_NE(shown.out.find("(1 on its diagonal)"), std::string::npos) << shown.out;
    EXPECT_EQ(qxhost({"effects", "check", "quad.fx"}).out, "quad.fx: ok, 1 technique\n");
    expectRefusal({"quad.fx", "--set", "place=1"},
                  "quad.fx: \"place\" cannot be set: it places the rectangle "
                  "that a pass draws, as its semantic "
                  "WORLDVIEWPROJECTION says");
}

TEST_F(ForeignEffects, a_rectangle_that_vanishes_by_values_that_are_set_is_told_of)
{
    const std::string shaders =
        "float4 corner(float4 at : POSITION) : POSITION { return at * float4(size, size, 1, 1); }\n"
        "float4 f() : COLOR { return 1; }\n"
        "technique T { pass Shrunk { VertexShader = compile vs_2_0 corner(); PixelShader = compile ps_2_0 "
        "f(); } "
        "}\n";
    write("shrunk.fx", "float size = 1;\n" + shaders);
    write("grown.fx", "float size : TIME;\n" + shaders); // it is 0 in the first frame only
    const auto errorsOf = [&](std::vector<std::string> effect) {
        effect.insert(effect.begin(), {"convert", "clip.mkv", "out.mkv", "--force", "--effect"});
        const Outcome outcome = qxhost(effect);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return outcome.err;
    };
    const std::string told =
        "technique \"T\": pass \"Shrunk\": with values that its parameters were given, the "
        "vertex shader 'corner' places all corners at one point, or in one line: nothing is "
        "drawn\n";
    const std::string shrunk = errorsOf({"shrunk.fx", "--set", "size=0"});
    EXPECT_NE(shrunk.find("shrunk.fx: " + told), std::string::npos) << shrunk;
    EXPECT_EQ(shrunk.find("nothing is drawn"), shrunk.rfind("nothing is drawn")) << "once: " << shrunk;
    const std::string grown = errorsOf({"grown.fx"});
    EXPECT_NE(grown.find("grown.fx: " + told), std::string::npos) << grown;
    EXPECT_EQ(errorsOf({"shrunk.fx"}).find("nothing is drawn"), std::string::npos);
    EXPECT_EQ(errorsOf({"shrunk.fx", "--set", "size=0.5"}).find("nothing is drawn"), std::string::npos);
}

TEST_F(ForeignEffects, a_texture_that_says_what_it_lacks_is_refused_with_that)
{
    effect("named.fx", {"Input", "N < string ResourceName = \"noise\"; >"}, "",
           "tex2D(sInput, uv) * tex2D(sN, uv)");
    expectRefusal({"named.fx"},
                  "named.fx: technique \"T\" reads the texture \"N\", whose annotation ResourceName = "
                  "noise is no file's name, which has an extension; add --texture N=FILE");
    effect("drawn.fx", {"Input", "Half : RENDERCOLORTARGET"}, "", "tex2D(sInput, uv) * tex2D(sHalf, uv)");
    expectRefusal(
        {"drawn.fx"},
        "drawn.fx: technique \"T\" reads the texture \"Half\", into which no pass draws: none has the "
        "annotation string Target = \"Half\" or a script with RenderColorTarget0=Half");
}

TEST_F(ForeignEffects, a_picture_for_a_texture_that_takes_none_is_told_of)
{
    picture("noise.png", "0x102030");
    write("two.fx",
          "sampler s : register(s0);\ntexture Mid;\nsampler m = sampler_state { Texture = <Mid>; };\n"
          "texture More;\nsampler o = sampler_state { Texture = <More>; };\n"
          "float4 f(float2 uv : TEXCOORD0, uniform sampler of) : COLOR { return tex2D(of, uv); }\n"
          "technique T { pass < string Target = \"Mid\"; > { PixelShader = compile ps_2_0 f(s); } "
          "pass { PixelShader = compile ps_2_0 f(m); } }\n"
          "technique U { pass { PixelShader = compile ps_2_0 f(o); } }\n");
    const Outcome outcome = qxhost({"convert", "clip.mkv", "out.mkv", "--effect", "two.fx", "--texture",
                                    "Mid=noise.png", "--texture", "More=noise.png"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(
        outcome.err.find("two.fx: technique \"T\" draws the texture \"Mid\" itself; noise.png is not used\n"),
        std::string::npos)
        << outcome.err;
    EXPECT_NE(outcome.err.find(
                  "two.fx: technique \"T\" does not read the texture \"More\"; noise.png is not used\n"),
              std::string::npos)
        << outcome.err;
}

TEST_F(ForeignEffects, the_levels_that_a_sampler_reads_are_described)
{
    write("levels.fx",
          "texture Input < int MipLevels = 0; >;\n"
          "sampler S = sampler_state { Texture = <Input>; Filter = Linear; MipFilter = Point; };\n"
          "float4 f(float2 uv : TEXCOORD0) : COLOR { return tex2D(S, uv); }\n"
          "technique T { pass { PixelShader = compile ps_3_0 f(); } }\n");
    const Outcome outcome = qxhost({"effects", "describe", "levels.fx"});
    EXPECT_NE(outcome.out.find("Linear, levels Point"), std::string::npos) << outcome.out;
    EXPECT_NE(qxhost({"effects", "describe", "--json", "levels.fx"}).out.find("\"mipFilter\": \"Point\""),
              std::string::npos);
}

TEST_F(ForeignEffects, a_parameter_that_chooses_a_shader_cannot_be_set)
{
    write("chosen.fx", "int k = 1;\nfloat4 f(uniform float a) : COLOR { return a; }\n"
                       "PixelShader p[2] = { compile ps_2_0 f(0), compile ps_2_0 f(1) };\n"
                       "technique T { pass { PixelShader = (p[k]); } }\n");
    EXPECT_EQ(through({"chosen.fx"}).at(0), (std::vector<int>{255, 255, 255}));
    expectRefusal({"chosen.fx", "--set", "k=0"}, "chosen.fx: \"k\" cannot be set: its value in the file has "
                                                 "chosen the shader of a pass; change it there");
    EXPECT_NE(qxhost({"effects", "describe", "chosen.fx"}).out.find("(chosen by its default)"),
              std::string::npos);
}

TEST_F(ForeignEffects, a_texture_beyond_what_the_device_draws_is_told_of)
{
    ffmpeg({"-f", "lavfi", "-i", "color=0x282828:size=2048x2:rate=10,format=rgb24", "-frames:v", "1", "-c:v",
            "ffv1", "wide.mkv"});
    write("wide.fx",
          "sampler s : register(s0);\ntexture Wide < float2 ViewportRatio = { 16, 0.5 }; >;\n"
          "sampler w = sampler_state { Texture = <Wide>; };\n"
          "float4 f(float2 uv : TEXCOORD0, uniform sampler of) : COLOR { return tex2D(of, uv); }\n"
          "technique T { pass < string Target = \"Wide\"; > { PixelShader = compile ps_2_0 f(s); } "
          "pass { PixelShader = compile ps_2_0 f(w); } }\n");
    const Outcome outcome = qxhost({"convert", "wide.mkv", "wide.out.mkv", "--effect", "wide.fx"});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    std::ifstream file(at(".state/qxhost/qxhost.log"));
    const std::string log((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const std::string told = "technique \"T\": texture \"Wide\" would be 32768 texels wide or high; it is ";
    EXPECT_NE(log.find(told), std::string::npos) << log;
    EXPECT_NE(outcome.err.find("wide.fx: " + told), std::string::npos) << outcome.err;
}

TEST_F(ForeignEffects, a_cube_of_other_proportions_is_told_of)
{
    picture("flat.png", "0x102030", "16x9");
    picture("cube.png", "0x102030", "48x8");
    write("sky.fx",
          "sampler s : register(s0);\nsamplerCUBE sky : register(s1);\n"
          "float4 f(float2 uv : TEXCOORD0) : COLOR { return tex2D(s, uv) + texCUBE(sky, float3(uv, 1)); }\n"
          "technique T { pass { PixelShader = compile ps_2_0 f(); } }\n");
    const std::string doubt =
        "the texture \"sky\" is read as a cube, whose six square faces lie side by side; its "
        "picture has 16 x 9 pixels";
    const Outcome flat =
        qxhost({"convert", "clip.mkv", "flat.mkv", "--effect", "sky.fx", "--texture", "sky=flat.png"});
    EXPECT_EQ(flat.exitCode, 0) << flat.err;
    EXPECT_NE(flat.err.find(doubt), std::string::npos) << flat.err;
    const auto log = [&] {
        std::ifstream file(at(".state/qxhost/qxhost.log"));
        return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    };
    EXPECT_NE(log().find("technique \"T\": texture \"sky\" is read as a cube"), std::string::npos) << log();
    EXPECT_EQ(log().find("3 x 3 texels"), std::string::npos) << "what the host tries out is not told of";
    const Outcome cube =
        qxhost({"convert", "clip.mkv", "cube.mkv", "--effect", "sky.fx", "--texture", "sky=cube.png"});
    EXPECT_EQ(cube.exitCode, 0) << cube.err;
    EXPECT_EQ(cube.err.find("cube, whose"), std::string::npos) << cube.err;
}

TEST_F(ForeignEffects, the_frame_before_is_kept_as_picture_and_as_result)
{
    effect("before.fx", {"Scene", "Before : PREVIOUS", "Trail : PREVIOUSRESULT"}, "",
           "float4(tex2D(sScene, uv).r, tex2D(sBefore, uv).r, tex2D(sTrail, uv).b + 10 / 255.0, 1)");
    EXPECT_EQ(through({"before.fx"}), (Frames{{40, 40, 50}, {80, 40, 60}, {120, 80, 70}}));
}

TEST_F(ForeignEffects, the_result_of_the_frame_before_has_no_burned_in_text)
{
    ffmpeg({"-f", "lavfi", "-i", "color=0xC8C8C8:size=96x64:rate=10,format=rgb24", "-frames:v", "3", "-c:v",
            "ffv1", "grey.mkv"});
    effect("trail.fx", {"Scene", "Trail : PREVIOUSRESULT"}, "", "tex2D(sTrail, uv) + 0 * tex2D(sScene, uv)");
    const Outcome outcome =
        qxhost({"convert", "grey.mkv", "out.mkv", "--effect", "trail.fx", "--burn-in", "X"});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    const Bytes bytes = decoded("out.mkv", "rgb24");
    constexpr std::size_t frame = std::size_t{3} * 96 * 64;
    ASSERT_EQ(bytes.size(), 3 * frame);
    const Bytes first(bytes.begin(), bytes.begin() + frame);
    EXPECT_NE(first, Bytes(frame, 200)) << "there is a text";
    EXPECT_EQ(Bytes(bytes.begin() + 2 * frame, bytes.end()), first);
}

TEST_F(ForeignEffects, passes_draw_into_textures_that_later_ones_read)
{
    write("two.fx", "texture Scene; texture Half < string Format = \"A16B16G16R16F\"; >;\n"
                    "sampler A = sampler_state { Texture = <Scene>; };\n"
                    "sampler B = sampler_state { Texture = <Half>; };\n"
                    "float4 up(float2 uv : TEXCOORD0) : COLOR0 { return tex2D(A, uv) * 8; }\n"
                    "float4 down(float2 uv : TEXCOORD0) : COLOR0 { return tex2D(B, uv) / 4; }\n"
                    "technique T\n{\n"
                    "    pass P < string Target = \"Half\"; > { PixelShader = compile ps_3_0 up(); }\n"
                    "    pass Q { PixelShader = compile ps_3_0 down(); }\n}\n");
    EXPECT_EQ(through({"two.fx"}), (Frames{{80, 80, 80}, {160, 160, 160}, {240, 240, 240}}));
    const Outcome shown = qxhost({"effects", "describe", "two.fx"});
    EXPECT_NE(shown.out.find("Scene    the picture\nHalf     a pass\n"), std::string::npos) << shown.out;
    const auto data = nlohmann::json::parse(qxhost({"effects", "describe", "two.fx", "--json"}).out);
    EXPECT_EQ(data["techniques"][0]["passes"][0]["target"], "Half");
    EXPECT_FALSE(data["techniques"][0]["passes"][1].contains("target"));
    EXPECT_EQ(qxhost({"effects", "check", "two.fx"}).out, "two.fx: ok, 1 technique\n");
}

TEST_F(ForeignEffects, dates_are_fixed_by_an_option_and_go_on_with_the_clip)
{
    effect("date.fx", {},
           "float4 d < string source = \"date\"; >; float2 p < string source = \"pingpong\"; float step = 2; "
           ">;\n",
           "float4(d.y * 10 + d.z, (d.w - 86395) * 10 + (d.x - 2026), p.x * 100, 0) / 255");
    EXPECT_EQ(through({"date.fx", "--date", "2026-11-24T23:59:59"}),
              (Frames{{134, 40, 0}, {134, 41, 20}, {134, 42, 40}}));
    EXPECT_EQ(through({"date.fx", "--date", "2027-02-03 23:59:56"}).at(0), (std::vector<int>{23, 11, 0}));
    EXPECT_NE(qxhost({"effects", "describe", "date.fx"}).out.find("(year, month, day, seconds)"),
              std::string::npos);
    EXPECT_EQ(qxhost({"effects", "check", "date.fx"}).out, "date.fx: ok, 1 technique\n");
    // Without the option it is the machine's date; the year alone cannot change in a test by chance.
    effect("year.fx", {}, "float4 d < string source = \"date\"; >;\n",
           "float4(d.x - 2000, d.y, d.z, 0) / 255");
    const std::vector<int> shown = through({"year.fx"}).at(0);
    EXPECT_GE(shown[0], 26);
    EXPECT_LE(shown[1], 12);
    EXPECT_GE(shown[2], 1);
}

TEST_F(ForeignEffects, a_clip_moves_in_a_texture)
{
    const auto clip = [this](const std::string& file, const std::string& rate, const std::string& frames) {
        ffmpeg({"-f", "lavfi", "-i",
                "color=black:size=8x4:rate=" + rate + ",format=rgb24,geq=r=10*(N+1):g=10*(N+1):b=10*(N+1)",
                "-frames:v", frames, "-c:v", "ffv1", file});
    };
    effect("two.fx", {"Input", "Over"}, "", "float4(tex2D(sInput, uv).r, tex2D(sOver, uv).gb, 1)");
    clip("same.mkv", "10", "9");
    EXPECT_EQ(through({"two.fx", "--texture", "Over=same.mkv"}),
              (Frames{{40, 10, 10}, {80, 20, 20}, {120, 30, 30}}));
    EXPECT_EQ(through({"two.fx", "--texture", "Over=same.mkv", "--start", "2"}), (Frames{{120, 30, 30}}))
        << "it goes with the input";
    clip("fast.mkv", "25", "9");
    EXPECT_EQ(through({"two.fx", "--texture", "Over=fast.mkv"}),
              (Frames{{40, 10, 10}, {80, 30, 30}, {120, 60, 60}}))
        << "frames 0, 2 and 5 of those at 0, 0.04, 0.08, ...";
    clip("slow.mkv", "5", "2");
    EXPECT_EQ(through({"two.fx", "--texture", "Over=slow.mkv"}),
              (Frames{{40, 10, 10}, {80, 10, 10}, {120, 20, 20}}));
    clip("short.mkv", "10", "2");
    const Outcome held =
        qxhost({"convert", "clip.mkv", "held.mkv", "--effect", "two.fx", "--texture", "Over=short.mkv"});
    EXPECT_EQ(held.exitCode, 0) << held.err;
    const std::string note =
        "two.fx: texture \"Over\": short.mkv ends after 2 frames; its last frame stays\n";
    const std::size_t said = held.err.find(note);
    EXPECT_NE(said, std::string::npos) << held.err;
    EXPECT_EQ(held.err.find(note, said + 1), std::string::npos) << held.err;
    EXPECT_EQ(through({"two.fx", "--texture", "Over=short.mkv"}),
              (Frames{{40, 10, 10}, {80, 20, 20}, {120, 20, 20}}));
    // Neither a still nor a clip that is long enough is spoken of.
    picture("still.png", "0x102030");
    for (const char* const file : {"Over=still.png", "Over=same.mkv"}) {
        const Outcome quiet =
            qxhost({"convert", "clip.mkv", "quiet.mkv", "--force", "--effect", "two.fx", "--texture", file});
        EXPECT_EQ(quiet.err.find("last frame stays"), std::string::npos) << quiet.err;
    }
}

TEST_F(ForeignEffects, a_pass_draws_several_results_into_textures)
{
    write("parts.fx",
          "texture Scene; texture Low < string Format = \"A8R8G8B8\"; >; texture High;\n"
          "sampler A = sampler_state { Texture = <Scene>; };\n"
          "sampler L = sampler_state { Texture = <Low>; };\n"
          "sampler H = sampler_state { Texture = <High>; };\n"
          "struct Parts { float4 low : COLOR0; float4 high : COLOR1; };\n"
          "Parts split(float2 uv : TEXCOORD0)\n"
          "{ Parts p; p.low = tex2D(A, uv) + 10 / 255.0; p.high = tex2D(A, uv) + 100 / 255.0; return p; }\n"
          "float4 join(float2 uv : TEXCOORD0) : COLOR0\n"
          "{ return float4(tex2D(L, uv).r, tex2D(H, uv).g, tex2D(A, uv).b, 1); }\n"
          "technique T\n{\n"
          "    pass P < string Target = \"Low\"; string Target1 = \"High\"; > { PixelShader = compile ps_3_0 "
          "split(); }\n"
          "    pass Q { PixelShader = compile ps_3_0 join(); }\n}\n");
    EXPECT_EQ(through({"parts.fx"}), (Frames{{50, 140, 40}, {90, 180, 80}, {130, 220, 120}}));
    EXPECT_NE(qxhost({"effects", "describe", "parts.fx"}).out.find("T          P, Q"), std::string::npos)
        << qxhost({"effects", "describe", "parts.fx"}).out;
    const auto data = nlohmann::json::parse(qxhost({"effects", "describe", "parts.fx", "--json"}).out);
    const auto& passes = data["techniques"][0]["passes"];
    EXPECT_EQ(passes[0]["name"], "P");
    EXPECT_EQ(passes[0]["target"], "High");
    EXPECT_EQ(passes[0]["result"], "COLOR1");
    EXPECT_EQ(passes[1]["target"], "Low");
    EXPECT_FALSE(passes[1].contains("result"));
    EXPECT_EQ(passes.size(), 3U);
}

TEST_F(ForeignEffects, checking_says_which_parameters_nobody_gives)
{
    effect("mesh.fx", {"Scene"},
           "float4x4 w : LIGHTDIRECTION; float t : TIME; float gain : GAIN < float Max = 1; >;\n",
           "tex2D(sScene, uv) + w[0] + t + gain");
    EXPECT_EQ(qxhost({"effects", "check", "mesh.fx"}).out,
              "mesh.fx: ok, 1 technique\n"
              "mesh.fx: 'qxhost convert' cannot give \"w\" what it asks for (semantic LIGHTDIRECTION); it "
              "keeps its "
              "default unless --set w=... is given\n");
}

TEST_F(Effects, devices_are_listed_and_one_is_chosen)
{
    const Outcome outcome = qxhost({"devices", "--json"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    int chosen = 0;
    for (const auto& device : nlohmann::json::parse(outcome.out)) {
        EXPECT_FALSE(device["name"].get<std::string>().empty());
        chosen += device["chosen"].get<bool>() ? 1 : 0;
    }
    EXPECT_EQ(chosen, 1);
    EXPECT_NE(qxhost({"devices"}).out.find("* "), std::string::npos);
}

TEST_F(Effects, devices_say_what_is_done_instead_of_what_a_device_lacks)
{
    ::setenv("QX_DEVICE_WITHOUT", "timer,conformance", 1);
    const std::string text = qxhost({"devices"}).out;
    EXPECT_NE(text.find("it has no timer: its own time is not measured\n"), std::string::npos) << text;
    EXPECT_NE(text.find("has not passed Vulkan's conformance tests"), std::string::npos) << text;
    const auto devices = nlohmann::json::parse(qxhost({"devices", "--json"}).out);
    for (const auto& device : devices) {
        EXPECT_FALSE(device["conformant"].get<bool>());
        EXPECT_GE(device["notes"].size(), 2U);
    }
    ::setenv("QX_DEVICE_WITHOUT", "colour", 1);
    const Outcome refused = qxhost({"devices"});
    ::unsetenv("QX_DEVICE_WITHOUT");
    EXPECT_NE(refused.exitCode, 0);
    EXPECT_NE(refused.err.find("QX_DEVICE_WITHOUT has \"colour\"; it takes timer, rows"), std::string::npos)
        << refused.err;
}

} // namespace

} // namespace Qx::System
