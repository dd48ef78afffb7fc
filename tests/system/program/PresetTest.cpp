// Presets: options of "qxhost convert" in TOML files.

#include "tests/system/program/Program.h"

#include <algorithm>

namespace Qx::System {

namespace {

using Words = std::vector<std::string>;

class Presets : public ProgramTest
{
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=320x180:rate=25,setparams=colorspace=bt709:range=tv",
                "-f", "lavfi", "-i", "sine=sample_rate=48000", "-frames:v", "3", "-shortest", "-pix_fmt",
                "yuv422p10le", "-c:v", "prores_ks", "-c:a", "pcm_s16le", "clip.mov"});
    }

    Outcome convert(const Words& arguments) const
    {
        Words words{"convert", "clip.mov"};
        words.insert(words.end(), arguments.begin(), arguments.end());
        return qxhost(words);
    }

    /// The frames that the arguments make, as 8-bit RGB.
    std::vector<std::uint8_t> frames(Words arguments) const
    {
        arguments.insert(arguments.begin(), {"out.mkv", "--force", "--codec", "ffv1"});
        const Outcome outcome = convert(arguments);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return decoded("out.mkv", "rgb24");
    }

    void expectRefused(const std::string& preset, const Words& parts) const
    {
        write("bad.toml", preset);
        const Outcome outcome = convert({"out.mov", "--preset", "bad.toml"});
        EXPECT_EQ(outcome.exitCode, 2) << preset;
        for (const std::string& part : parts) {
            EXPECT_NE(outcome.err.find(part), std::string::npos) << outcome.err;
        }
        EXPECT_FALSE(fs::exists(at("out.mov")));
    }
};

TEST_F(Presets, are_the_options_that_they_hold)
{
    write("look.toml", R"(about = "A look"
frames = 2
output-range = "video"
no-audio = true
quiet = false

[[step]]
amount = 0.5
lut = "film.cube"

[[step]]
effect = "cc3.fx"
set = { saturation = 0.5, gain = 1.25 }

[[burn-in]]
text = "{frame}"
font-size = 30
position = "17,23"
)");
    write("film.cube", "LUT_1D_SIZE 2\n0 0 0\n1 0.9 0.7\n");
    EXPECT_EQ(frames({"--preset", "look.toml"}),
              frames({"--frames",   "2",         "--output-range", "video",   "--lut",       "./film.cube",
                      "--amount",   "0.5",       "--effect",       "cc3.fx",  "--set",       "saturation=0.5",
                      "--set",      "gain=1.25", "--burn-in",      "{frame}", "--font-size", "30",
                      "--position", "17,23"}));
    EXPECT_EQ(probe("out.mkv", "nb_read_frames"), "nb_read_frames=2\n");
}

TEST_F(Presets, find_files_that_lie_beside_them_from_anywhere)
{
    fs::create_directory(at("looks"));
    write("looks/film.cube", "LUT_1D_SIZE 2\n0 0 0\n1 0.9 0.7\n");
    write("looks/film.toml", "[[step]]\nlut = \"film.cube\"\n");
    EXPECT_EQ(frames({"--preset", "looks/film.toml"}), frames({"--lut", "looks/film.cube"}));
}

TEST_F(Presets, the_command_line_has_the_last_word)
{
    write("two.toml", "frames = 2\nquality = 10\ncodec = \"mpeg4\"\n[[step]]\neffect = \"cc3.fx\"\n"
                      "set = { gain = 0.5 }\n");
    EXPECT_EQ(frames({"--preset", "two.toml", "--frames", "1"}),
              frames({"--frames", "1", "--effect", "cc3.fx", "--set", "gain=0.5"}));
    EXPECT_EQ(frames({"--effect", "cc3.fx", "--set", "saturation=0", "--preset", "two.toml"}),
              frames({"--frames", "2", "--effect", "cc3.fx", "--set", "gain=0.5", "--effect", "cc3.fx",
                      "--set", "saturation=0"}))
        << "effects come after the preset's";
    const Outcome other = convert({"other.mkv", "--bitrate", "800k", "--preset", "two.toml"});
    EXPECT_EQ(other.exitCode, 0) << "quality gives way to it: " << other.err;
    const Outcome format = convert({"tape.mov", "--format", "uyvy", "--preset", "two.toml"});
    EXPECT_EQ(format.exitCode, 0) << "codec and quality give way to it: " << format.err;
    const Outcome range = convert({"range.mkv", "--duration", "0.04s", "--preset", "two.toml"});
    EXPECT_EQ(range.exitCode, 0) << "frames gives way to it: " << range.err;
    EXPECT_EQ(probe("range.mkv", "nb_read_frames"), "nb_read_frames=1\n");
}

TEST_F(Presets, serve_many_inputs)
{
    fs::copy_file(at("clip.mov"), at("b.mov"));
    fs::create_directory(at("out"));
    write("many.toml", "to = \"out/{name}.mkv\"\njobs = 2\nframes = 1\ncodec = \"ffv1\"\n");
    const Outcome outcome = convert({"b.mov", "--preset", "many.toml"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(probe("out/clip.mkv", "codec_name"), "codec_name=ffv1\n");
    EXPECT_EQ(probe("out/b.mkv", "nb_read_frames"), "nb_read_frames=1\n");
}

TEST_F(Presets, mistakes_are_named_with_file_and_line)
{
    expectRefused("frames = 2\nqualty = 3\n",
                  {"bad.toml:2: convert has no option qualty (did you mean quality?)"});
    expectRefused("quality = 500\n", {"bad.toml:1: --quality: ", "from 0 to 100"});
    expectRefused("quality = [1, 2]\n",
                  {"bad.toml:1: quality: expected text in quotes, a number, true or false"});
    expectRefused("bitrate = nan\n", {"bad.toml:1: bitrate: expected a number that is finite"});
    expectRefused("codec = \"h264\"\nframes = \n", {"bad.toml:2: "});
    expectRefused("\neffect = \"cc3.fx\"\n", {"bad.toml:2: effect: belongs below a line [[step]]"});
    expectRefused("step = 3\n", {"bad.toml:1: step: expected tables that begin with [[step]]"});
    expectRefused("[[step]]\nset = { gain = 1 }\n",
                  {"bad.toml:1: [[step]]: expected one of effect, lut, look, tone-map and ocio"});
    expectRefused("[[step]]\nlut = \"a\"\namout = 1\n",
                  {"bad.toml:3: [[step]]: there is no key amout (did you mean amount?)"});
    expectRefused("[[burn-in]]\nposition = \"top\"\n", {"bad.toml:1: [[burn-in]]: text is missing"});
    expectRefused("[[burn-in]]\ntext = \"a\"\nsize = 3\n", {"bad.toml:3: [[burn-in]]: there is no key size"});
    expectRefused("preset = \"web\"\n", {"bad.toml:1: preset: cannot stand in a preset"});
    expectRefused("[[step]]\neffect = \"cc3.fx\"\nset = { gain = \"a lot\" }\n",
                  {"bad.toml:3: --set gain=a lot: invalid value"});
    expectRefused("[[burn-in]]\ntext = \"{clp}\"\n",
                  {"bad.toml:2: ", "there is no field {clp} (did you mean clip?)"});
    expectRefused("about = 3\n", {"bad.toml:1: about: expected text in quotes"});
}

TEST_F(Presets, mistakes_that_show_among_other_options_are_named_with_file_and_line)
{
    expectRefused("frames = 1\n[[step]]\nlut = \"film.cube\"\namount = 2\n",
                  {"bad.toml:4: --amount: invalid value \"2\""});
    expectRefused("quality = 60\nframes = 1\nbitrate = \"3M\"\n", {"bad.toml:3: ", "--quality", "--bitrate"});
    expectRefused("frames = 1\njobs = 3\n", {"bad.toml:2: --jobs is for several inputs"});
    expectRefused("[[step]]\nocio = \"a.ocio\"\nfrom = \"x\"\n",
                  {"bad.toml:2: --ocio a.ocio: expected two of"});
    // A mistake of the command line is no mistake of the preset.
    write("good.toml", "frames = 1\n");
    const Outcome outcome = convert({"out.mov", "--preset", "good.toml", "--jobs", "3"});
    EXPECT_EQ(outcome.exitCode, 2);
    EXPECT_EQ(outcome.err.find("good.toml"), std::string::npos) << outcome.err;
    EXPECT_NE(outcome.err.find("--jobs is for several inputs"), std::string::npos) << outcome.err;
}

TEST_F(Presets, that_cannot_be_read_are_refused)
{
    const auto refused = [&](const std::string& word, const std::string& what) {
        const Outcome outcome = convert({"out.mov", "--preset", word});
        EXPECT_EQ(outcome.exitCode, 2) << word;
        EXPECT_NE(outcome.err.find(what), std::string::npos) << outcome.err;
    };
    refused("dailys", "there is no preset \"dailys\" (did you mean dailies?)");
    refused("none.toml", "--preset none.toml: there is no such file");
    refused("./none", "--preset ./none: there is no such file");
    refused("", "--preset is empty");
    fs::create_directory(at("folder.toml"));
    refused("folder.toml", "--preset folder.toml: is not a file");
    write("large.toml", std::string((1U << 20U) + 1, '#'));
    refused("large.toml", "is too large for a preset");
    write("bytes.toml", "about = \"\xff\"\n");
    refused("bytes.toml", "bytes.toml:1: ");
}

TEST_F(Presets, of_the_user_come_before_the_installed)
{
    const nlohmann::json before = nlohmann::json::parse(qxhost({"presets", "--json"}).out);
    const auto named = [](const nlohmann::json& list, const std::string& name) {
        const auto found =
            std::find_if(list.begin(), list.end(), [&](const auto& each) { return each["name"] == name; });
        return found == list.end() ? nlohmann::json() : *found;
    };
    ASSERT_FALSE(named(before, "dailies").is_null());
    const fs::path own = at(".config/qxhost/presets");
    fs::create_directories(own);
    write(".config/qxhost/presets/dailies.toml", "about = \"Ours\"\nframes = 1\ncodec = \"ffv1\"\n");
    write(".config/qxhost/presets/broken.toml", "frames\n");
    write(".config/qxhost/presets/warm.look.toml", "look = 1\n"); // lies beside them, and is none
    const Outcome listed = qxhost({"presets", "--json"});
    const nlohmann::json after = nlohmann::json::parse(listed.out);
    EXPECT_EQ(after.size(), before.size() + 1) << "one is hidden by the user's, and one is new";
    EXPECT_EQ(named(after, "dailies")["about"], "Ours");
    EXPECT_EQ(named(after, "dailies")["options"], nlohmann::json({"--frames=1", "--codec=ffv1"}));
    EXPECT_NE(listed.err.find("broken.toml:1: "), std::string::npos) << listed.err;
    const Outcome table = qxhost({"presets"});
    EXPECT_NE(table.out.find("dailies"), std::string::npos);
    EXPECT_NE(table.out.find("Ours"), std::string::npos);
    EXPECT_NE(table.out.find("cannot be read"), std::string::npos);

    EXPECT_EQ(convert({"ours.mkv", "--preset", "dailies"}).exitCode, 0);
    EXPECT_EQ(probe("ours.mkv", "codec_name"), "codec_name=ffv1\n");
}

struct Shipped
{
    const char* name;
    const char* file;
    const char* codec;
    const char* profile;
    const char* pixelFormat;
    int width;
    const char* audio;
};

void PrintTo(const Shipped& shipped, std::ostream* out)
{
    *out << shipped.name;
}

class ShippedPreset : public Presets, public testing::WithParamInterface<Shipped>
{
};

/// By FFmpeg's words for the codecs.
constexpr Shipped shippedPresets[] = {
    {"dailies", "a.mp4", "h264", "High", "yuv420p", 1280, "aac"},
    {"web", "a.mp4", "h264", "High", "yuv420p", 1920, "aac"},
    {"proxy", "a.mov", "prores", "Proxy", "yuv422p10le", 1280, "pcm_s16le"},
    {"prores-hq", "a.mov", "prores", "HQ", "yuv422p10le", 320, "pcm_s16le"},
    {"dnxhr-hqx", "a.mov", "dnxhd", "DNXHR HQX", "yuv422p10le", 320, "pcm_s16le"},
};

TEST_P(ShippedPreset, makes_what_it_says)
{
    const Shipped& shipped = GetParam();
    const Outcome outcome = convert({shipped.file, "--preset", shipped.name});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(probe(shipped.file, "codec_name"), std::string("codec_name=") + shipped.codec + "\n");
    if (*shipped.profile != '\0') {
        EXPECT_EQ(probe(shipped.file, "profile"), std::string("profile=") + shipped.profile + "\n");
    }
    EXPECT_EQ(probe(shipped.file, "pix_fmt"), std::string("pix_fmt=") + shipped.pixelFormat + "\n");
    EXPECT_EQ(probe(shipped.file, "width"), "width=" + std::to_string(shipped.width) + "\n");
    EXPECT_EQ(probe(shipped.file, "nb_read_frames"), "nb_read_frames=3\n");
    EXPECT_EQ(probe(shipped.file, "r_frame_rate"), "r_frame_rate=25/1\n");
    EXPECT_EQ(probe(shipped.file, "codec_name", "a"), std::string("codec_name=") + shipped.audio + "\n");
}

INSTANTIATE_TEST_SUITE_P(All, ShippedPreset, testing::ValuesIn(shippedPresets));

TEST_F(Presets, all_that_are_shipped_are_tested)
{
    const nlohmann::json list = nlohmann::json::parse(qxhost({"presets", "--json"}).out);
    EXPECT_EQ(list.size(), std::size(shippedPresets));
    for (const auto& each : list) {
        EXPECT_TRUE(std::any_of(std::begin(shippedPresets), std::end(shippedPresets),
                                [&](const Shipped& shipped) { return each["name"] == shipped.name; }))
            << each;
        EXPECT_FALSE(each["about"].get<std::string>().empty()) << each;
    }
}

} // namespace

} // namespace Qx::System
