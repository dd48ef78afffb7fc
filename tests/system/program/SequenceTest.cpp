// Numbered pictures in and out, judged by ffmpeg and OpenImageIO.

#include "tests/system/program/Program.h"

#include <cmath>
#include <fmt/format.h>

namespace Qx::System {

namespace {

class Sequences : public ProgramTest
{
protected:
    Outcome convert(std::vector<std::string> arguments, int exitCode = 0) const
    {
        arguments.insert(arguments.begin(), "convert");
        Outcome outcome = qxhost(arguments);
        EXPECT_EQ(outcome.exitCode, exitCode) << outcome.err;
        return outcome;
    }

    /// Pictures 86400 to 86405 of noise, of 16 bits.
    void makePictures() const
    {
        ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48:rate=25", "-frames:v", "6", "-vf",
                "format=gbrp16le,geq=r='mod(X*1021+Y*77+N*4099\\,65536)':g='mod(X*33+Y*1999+N\\,65536)':"
                "b='65535-mod(X*7+Y*1365+N*321\\,65536)'",
                "-pix_fmt", "rgb48be", "-start_number", "86400", "in_%06d.png"});
    }

    /// The codes of a picture as OpenImageIO reads it, as 16 bits, R G B.
    std::vector<std::uint8_t> read16(const std::string& picture) const
    {
        const Outcome outcome = run({"oiiotool", picture, "--ch", "R,G,B", "-d", "uint16", "-o", "as.tif"});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
        std::vector<std::uint8_t> codes = decoded("as.tif", "rgb48le");
        fs::remove(at("as.tif"));
        return codes;
    }

    void expectSame(const std::string& picture, const std::string& other) const
    {
        EXPECT_EQ(read16(picture), read16(other)) << picture << " and " << other;
    }

    std::vector<std::string> made(const std::string& beginning) const
    {
        std::vector<std::string> names;
        for (const fs::directory_entry& entry : fs::directory_iterator(directory_)) {
            if (entry.path().filename().string().starts_with(beginning)) {
                names.push_back(entry.path().filename().string());
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    static void expectHas(const std::string& text, const std::string& part)
    {
        EXPECT_NE(text.find(part), std::string::npos) << text << "\nlacks " << part;
    }
};

using Names = std::vector<std::string>;

TEST_F(Sequences, numbers_are_kept)
{
    makePictures();
    convert({"in_%06d.png", "out_%06d.png"});
    EXPECT_EQ(made("out_"), (Names{"out_086400.png", "out_086401.png", "out_086402.png", "out_086403.png",
                                   "out_086404.png", "out_086405.png"}));
    for (int number = 86400; number <= 86405; ++number) {
        expectSame(fmt::format("in_{:06}.png", number), fmt::format("out_{:06}.png", number));
    }
    convert({"in_%06d.png", "part_%06d.png", "--start", "2", "--frames", "2"});
    EXPECT_EQ(made("part_"), (Names{"part_086402.png", "part_086403.png"}));
    expectSame("in_086402.png", "part_086402.png");
    convert({"in_%06d.png", "late_%06d.png", "--start-number", "86404"});
    EXPECT_EQ(made("late_"), (Names{"late_086404.png", "late_086405.png"}));
    expectSame("in_086404.png", "late_086404.png");
    convert({"in_%06d.png", "new_%04d.png", "--start-number", "86404", "--renumber", "7"});
    EXPECT_EQ(made("new_"), (Names{"new_0007.png", "new_0008.png"}));
    expectSame("in_086404.png", "new_0007.png");
    convert({"in_%06d.png", "crop_%06d.png", "--crop", "32x32", "--frames", "2"});
    EXPECT_EQ(made("crop_"), (Names{"crop_086400.png", "crop_086401.png"}));
    convert({"in_%06d.png", "f_%06d.png", "--frames", "1"});
    EXPECT_EQ(made("f_"), (Names{"f_086400.png"}));
    // A clip has no numbers.
    convert({"in_%06d.png", "clip.mkv"});
    convert({"clip.mkv", "c_%03d.png", "--frames", "2"});
    EXPECT_EQ(made("c_"), (Names{"c_001.png", "c_002.png"}));
    convert({"clip.mkv", "d_%03d.png", "--frames", "2", "--renumber", "0"});
    EXPECT_EQ(made("d_"), (Names{"d_000.png", "d_001.png"}));
}

TEST_F(Sequences, a_damaged_picture_leaves_its_number_free)
{
    makePictures();
    write("in_086402.png", read(at("in_086402.png")).substr(0, 500));
    convert({"in_%06d.png", "out_%06d.png"}, 3);
    const Names names = made("out_");
    EXPECT_EQ(names.back(), "out_086405.png");
    expectSame("in_086405.png", "out_086405.png");
    expectSame("in_086403.png", "out_086403.png");
}

TEST_F(Sequences, rates_are_as_given)
{
    makePictures();
    convert({"in_%06d.png", "out.mov", "--fps", "24"});
    expectHas(probe("out.mov", "r_frame_rate,nb_read_frames"), "r_frame_rate=24/1\nnb_read_frames=6\n");
    convert({"in_%06d.png", "ntsc.mov", "--fps", "29.97"});
    expectHas(probe("ntsc.mov", "r_frame_rate"), "r_frame_rate=30000/1001\n");
    convert({"in_%06d.png", "usual.mov"});
    expectHas(probe("usual.mov", "r_frame_rate"), "r_frame_rate=25/1\n");
    expectHas(convert({"out.mov", "no.mov", "--fps", "30"}, 2).err, "clips have a rate of their own");
}

TEST_F(Sequences, gaps_end_fill_or_refuse_a_sequence)
{
    makePictures();
    fs::copy(at("in_086402.png"), at("kept.png"));
    fs::remove(at("in_086402.png"));
    write("in_086403.png", ""); // an empty file is no picture either
    const Names all{"_086400.png", "_086401.png", "_086402.png", "_086403.png", "_086404.png", "_086405.png"};
    const auto expectAll = [&](const std::string& beginning) {
        Names names;
        for (const std::string& each : all) {
            names.push_back(beginning + each);
        }
        EXPECT_EQ(made(beginning + "_"), names);
    };
    const Outcome held = convert({"in_%06d.png", "hold_%06d.png", "--missing", "hold"});
    expectHas(held.err, "pictures 86402 to 86403 are missing; the picture before is put in");
    expectAll("hold");
    expectSame("hold_086402.png", "in_086401.png");
    expectSame("hold_086403.png", "in_086401.png");
    expectSame("hold_086404.png", "in_086404.png");

    const Outcome dark = convert({"in_%06d.png", "black_%06d.png", "--missing", "black", "--json"});
    expectAll("black");
    for (const std::uint8_t code : read16("black_086403.png")) {
        ASSERT_EQ(code, 0);
    }
    expectSame("black_086404.png", "in_086404.png");
    EXPECT_EQ(nlohmann::json::parse(dark.out)["complete"], true);
    expectHas(nlohmann::json::parse(dark.out)["warnings"].dump(), "black is put in");

    const Outcome refused = convert({"in_%06d.png", "fail_%06d.png", "--missing", "fail"}, 3);
    expectHas(refused.err,
              "picture 86402 is missing, picture 86403 is empty; --missing hold or black fills the gaps");
    EXPECT_TRUE(made("fail_").empty());

    const Outcome described = qxhost({"info", "in_%06d.png"});
    expectHas(described.out,
              "in_%06d.png: ends at a gap after picture 86401; --missing hold or black goes on to "
              "picture 86405");

    // All of them are named, and empty files as such.
    fs::copy(at("in_086401.png"), at("in_086407.png"));
    write("in_086408.png", "");
    write("in_086409.png", "");
    fs::copy(at("in_086401.png"), at("in_086411.png"));
    const Outcome several = convert({"in_%06d.png", "fail_%06d.png", "--missing", "fail"}, 3);
    expectHas(several.err,
              "picture 86402 is missing, picture 86403 is empty, picture 86406 is missing, pictures 86408 to "
              "86409 are empty, picture 86410 is missing; --missing hold");
    for (int number = 86413; number < 86433; number += 2) {
        fs::copy(at("in_086401.png"), at(fmt::format("in_{:06}.png", number)));
    }
    const Outcome many = convert({"in_%06d.png", "fail_%06d.png", "--missing", "fail"}, 3);
    expectHas(many.err, "picture 86420 is missing, and 5 more gaps; --missing hold");
    for (int number = 86407; number < 86433; ++number) {
        fs::remove(at(fmt::format("in_{:06}.png", number)));
    }

    const Outcome ended = convert({"in_%06d.png", "end_%06d.png"}, 3);
    expectHas(ended.err, "picture 86402 is missing");
    EXPECT_EQ(made("end_"), (Names{"end_086400.png", "end_086401.png"}));

    // From within the gap, and of a clip too.
    convert({"in_%06d.png", "mid_%06d.png", "--missing", "hold", "--start", "3", "--frames", "2"});
    EXPECT_EQ(made("mid_"), (Names{"mid_086403.png", "mid_086404.png"}));
    expectSame("mid_086403.png", "in_086401.png");
    expectSame("mid_086404.png", "in_086404.png");
    convert({"in_%06d.png", "late_%06d.png", "--missing", "black", "--start", "5"});
    EXPECT_EQ(made("late_"), (Names{"late_086405.png"}));
    expectSame("late_086405.png", "in_086405.png");
    convert({"in_%06d.png", "clip.mkv", "--missing", "hold"});
    expectHas(probe("clip.mkv", "nb_read_frames"), "=6");
}

TEST_F(Sequences, gaps_of_one_picture_are_filled_wherever_they_are)
{
    makePictures();
    for (const int missing : {86401, 86402, 86403, 86404}) {
        const std::string name = fmt::format("in_{}.png", "0" + std::to_string(missing));
        fs::rename(at(name), at("aside"));
        const std::string beginning = "o" + std::to_string(missing);
        convert({"in_%06d.png", beginning + "_%06d.png", "--missing", "hold"});
        EXPECT_EQ(made(beginning).size(), 6U) << missing;
        for (int number = 86400; number <= 86405; ++number) {
            expectSame(fmt::format("{}_{:06}.png", beginning, number),
                       fmt::format("in_{:06}.png", number == missing ? number - 1 : number));
        }
        fs::rename(at("aside"), at(name));
    }
}

TEST_F(Sequences, a_damaged_picture_is_a_gap_that_counts)
{
    makePictures();
    write("in_086405.png", "no picture");
    write("in_086402.png", "no picture either");
    convert({"in_%06d.png", "out_%06d.png", "--missing", "hold"}, 3);
    EXPECT_EQ(made("out_").size(), 6U);
    expectSame("out_086402.png", "in_086401.png");
    expectSame("out_086405.png", "in_086404.png");
}

TEST_F(Sequences, what_is_no_sequence_is_refused)
{
    makePictures();
    convert({"in_%06d.png", "clip.mkv"});
    expectHas(convert({"clip.mkv", "no.mkv", "--start-number", "3"}, 2).err, "clip.mkv is no pattern");
    expectHas(convert({"clip.mkv", "no.mkv", "--missing", "hold"}, 2).err, "clip.mkv is no pattern");
    expectHas(convert({"in_%06d.png", "no.mkv", "--start-number", "5"}, 3).err,
              "there is no picture 5; they run from 86400 to 86405");
    expectHas(convert({"in_%06d.png", "no.mkv", "--missing", "guess"}, 2).err,
              "expected hold, black or fail");
    expectHas(convert({"in_%06d.png", "no.mkv", "--renumber", "-1"}, 2).err, "expected a whole number");
    expectHas(convert({"in_%06d.png", "no.mkv", "--renumber", "99999999999"}, 2).err, "too large");
}

TEST_F(Sequences, every_kind_of_deep_picture_keeps_its_codes)
{
    makePictures();
    for (const std::string kind : {"tif", "dpx", "exr", "png"}) {
        convert({"in_%06d.png", "out_%06d." + kind, "--frames", "2"});
        expectSame("out_086401." + kind, "in_086401.png");
        convert({"out_%06d." + kind, "back_" + kind + "_%06d.png"});
        expectSame("back_" + kind + "_086401.png", "in_086401.png");
    }
    // Those that OpenImageIO writes.
    for (const std::string kind : {"tif", "dpx", "exr"}) {
        ASSERT_EQ(run({"oiiotool", "in_086400.png", "-d", kind == "exr" ? "float" : "uint16", "-o",
                       "theirs_1." + kind})
                      .exitCode,
                  0);
        const Outcome outcome = convert({"theirs_%d." + kind, "ours_" + kind + "_%d.png"});
        expectSame("ours_" + kind + "_1.png", "in_086400.png");
    }
    // Ten bits in, ten bits out.
    ASSERT_EQ(run({"oiiotool", "in_086400.png", "-d", "uint10", "-o", "ten_1.dpx"}).exitCode, 0);
    convert({"ten_%d.dpx", "tenout_%d.dpx", "--pixel-format", "gbrp10le"});
    expectSame("ten_1.dpx", "tenout_1.dpx");
    expectHas(run({"oiiotool", "--info", "-v", "tenout_1.dpx"}).out, "uint10 dpx");
}

TEST_F(Sequences, half_floats_are_rounded_to_the_nearest_code)
{
    makePictures();
    ASSERT_EQ(run({"oiiotool", "in_086400.png", "-d", "half", "-o", "half_1.exr"}).exitCode, 0);
    expectHas(run({"oiiotool", "--info", "-v", "half_1.exr"}).out, "half openexr");
    convert({"half_%d.exr", "half_%d.png"});
    expectSame("half_1.exr", "half_1.png");
    convert({"half_%d.exr", "again_%d.exr", "--video-option", "format=half"});
    const std::string info = run({"oiiotool", "--info", "-v", "again_1.exr"}).out;
    expectHas(info, "half openexr");
    // A code of 16 bits has more digits than a half, so that nothing is lost on the way.
    const Outcome difference = run({"oiiotool", "--fail", "0.00001", "--diff", "half_1.exr", "again_1.exr"});
    expectHas(difference.out, "PASS");
}

TEST_F(Sequences, values_that_codes_cannot_hold_are_said)
{
    makePictures();
    ASSERT_EQ(
        run({"oiiotool", "in_086400.png", "-d", "float", "--mulc", "4", "--subc", "0.5", "-o", "hot_1.exr"})
            .exitCode,
        0);
    const Outcome outcome = convert({"hot_%d.exr", "hot_%d.png"});
    expectHas(outcome.err, "1 frame has values beyond 0 and 1 (from -0.5 to 3.");
    ASSERT_EQ(run({"oiiotool", "hot_1.exr", "--clamp:min=0,0,0:max=1,1,1", "-o", "clamped.exr"}).exitCode, 0);
    expectSame("hot_1.png", "clamped.exr");
}

TEST_F(Sequences, linear_and_log_tags_refuse_no_rgb)
{
    makePictures();
    for (const std::string transfer : {"linear", "log100"}) {
        ffmpeg({"-i", "in_086400.png", "-vf", "format=gbrp16le,setparams=color_trc=" + transfer, "-color_trc",
                transfer, "-c:v", "ffv1", "tagged.mkv"});
        convert({"tagged.mkv", "tagged.png", "--force"});
        expectSame("tagged.png", "in_086400.png");
    }
    ffmpeg({"-i", "in_086400.png", "-color_trc", "linear", "linear_1.dpx"});
    convert({"linear_%d.dpx", "linear_%d.png"});
    expectSame("linear_1.png", "in_086400.png");
}

} // namespace

} // namespace Qx::System
