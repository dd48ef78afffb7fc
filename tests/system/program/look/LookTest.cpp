// Looks in conversions: qxhost convert --look.

#include "tests/system/program/Program.h"

#include <algorithm>

namespace Qx::System {

namespace {

using Words = std::vector<std::string>;
using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t frameBytes = std::size_t{64} * 36 * 3;
constexpr int clipFrames = 40;

const std::string filmLut = "LUT_1D_SIZE 2\n0 0 0\n1 0.9 0.7\n";

class ConvertedLooks : public ProgramTest
{
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        write("film.cube", filmLut);
    }

    /// 40 frames of 29.97, whose tenth changes the minute.
    void makeClip(const std::string& timeCode = "00:00:59;20") const
    {
        ffmpeg({"-f", "lavfi", "-i",
                "testsrc2=size=64x36:rate=30000/1001,setparams=colorspace=bt709:range=tv", "-frames:v",
                std::to_string(clipFrames), "-timecode", timeCode, "-pix_fmt", "yuv422p10le", "-c:v",
                "prores_ks", "clip.mov"});
    }

    /// The frames that the options make of the clip, as 8-bit RGB.
    Bytes frames(Words options, const std::string& output = "out.mkv") const
    {
        options.insert(options.begin(), {"convert", "clip.mov", output, "--force", "--matrix", "bt709"});
        const Outcome outcome = qxhost(options);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return decoded(output, "rgb24");
    }

    Bytes frame(const Words& options, int number) const
    {
        Words words = options;
        words.insert(words.end(), {"--start", std::to_string(number), "--frames", "1"});
        return frames(words);
    }

    static Bytes part(const Bytes& all, int number)
    {
        const auto begin = all.begin() + static_cast<std::ptrdiff_t>(frameBytes) * number;
        return {begin, begin + frameBytes};
    }

    /// The message must have all parts, and nothing must have been written.
    void expectRefused(const std::string& look, int exitCode, const Words& parts) const
    {
        write("bad.look.toml", look);
        const Outcome outcome =
            qxhost({"convert", "clip.mov", "refused.mkv", "--look", "bad.look.toml", "--matrix", "bt709"});
        EXPECT_EQ(outcome.exitCode, exitCode) << outcome.err;
        for (const std::string& each : parts) {
            EXPECT_NE(outcome.err.find(each), std::string::npos) << each << " in: " << outcome.err;
        }
        EXPECT_FALSE(fs::exists(at("refused.mkv")));
    }
};

const std::string gradeAndFilm = R"(look = 1
[[step]]
effect = "cc3.fx"
set = { saturation = 0.5, gain = 1.25 }
[[step]]
lut = "film.cube"
amount = 0.5
)";

TEST_F(ConvertedLooks, draw_what_their_steps_draw_as_options)
{
    makeClip();
    write("a.look.toml", gradeAndFilm);
    const Bytes drawn = frames({"--look", "a.look.toml", "--frames", "2"});
    EXPECT_EQ(drawn.size(), 2 * frameBytes);
    EXPECT_EQ(drawn, frames({"--effect", "cc3.fx", "--set", "saturation=0.5", "--set", "gain=1.25", "--lut",
                             "./film.cube", "--amount", "0.5", "--frames", "2"}));
}

TEST_F(ConvertedLooks, are_steps_among_others_in_the_order_given)
{
    makeClip();
    write("grade.look.toml", "look = 1\n[[step]]\neffect = \"cc3.fx\"\nset = { lift = 0.2 }\n");
    const Words last{"--frames", "1"};
    const auto drawn = [&](Words words) {
        words.insert(words.end(), last.begin(), last.end());
        return frames(words);
    };
    const Words film{"--lut", "film.cube"};
    const Words look{"--look", "grade.look.toml"};
    const Words asOptions{"--effect", "cc3.fx", "--set", "lift=0.2"};
    const auto both = [](Words a, const Words& b) {
        a.insert(a.end(), b.begin(), b.end());
        return a;
    };
    EXPECT_EQ(drawn(both(film, look)), drawn(both(film, asOptions)));
    EXPECT_EQ(drawn(both(look, film)), drawn(both(asOptions, film)));
    EXPECT_NE(drawn(both(look, film)), drawn(both(film, look)));
    EXPECT_EQ(drawn(both(look, look)), drawn(both(asOptions, asOptions)));
}

TEST_F(ConvertedLooks, leave_out_steps_that_are_off)
{
    makeClip();
    write("a.look.toml",
          "look = 1\n[[step]]\neffect = \"none-such.fx\"\non = false\n[[step]]\nlut = \"film.cube\"\n");
    EXPECT_EQ(frame({"--look", "a.look.toml"}, 0), frame({"--lut", "film.cube"}, 0));
    write("off.look.toml", "look = 1\n[[step]]\nlut = \"film.cube\"\non = false\n");
    EXPECT_EQ(frame({"--look", "off.look.toml"}, 0), frame({}, 0));
}

TEST_F(ConvertedLooks, apply_key_frames_to_each_frame_of_the_clip)
{
    makeClip();
    // By number, and by drop-frame time code: 00:01:00;02 is frame 10.
    write("a.look.toml", R"(look = 1
[[step]]
effect = "cc3.fx"
keys.gain = [
    { at = 0, value = 0.5 },
    { at = "00:01:00;02", value = 1, curve = "smooth" },
    { at = 20, value = 1.5, curve = "hold" },
    { at = 30, value = 0.25 },
]
)");
    const Words look{"--look", "a.look.toml"};
    const Bytes all = frames(look);
    ASSERT_EQ(all.size(), clipFrames * frameBytes);
    // Linear; 3t^2 - 2t^3; held; after the last.
    for (const auto& [number, gain] : {std::pair(0, "0.5"),
                                       {4, "0.7"},
                                       {10, "1"},
                                       {12, "1.052"},
                                       {18, "1.448"},
                                       {20, "1.5"},
                                       {29, "1.5"},
                                       {30, "0.25"},
                                       {39, "0.25"}}) {
        const std::string setting = std::string("gain=") + gain;
        EXPECT_EQ(part(all, number), frame({"--effect", "cc3.fx", "--set", setting}, number)) << number;
    }
}

TEST_F(ConvertedLooks, count_key_frames_from_the_beginning_of_the_clip)
{
    makeClip();
    write("a.look.toml",
          "look = 1\n[[step]]\neffect = \"cc3.fx\"\nkeys.gain = [{ at = 0, value = 0 }, { at = "
          "39, value = 1.5 }]\n");
    const Words look{"--look", "a.look.toml"};
    const Bytes all = frames(look);
    EXPECT_NE(part(all, 13), part(all, 14));
    EXPECT_EQ(part(all, 13), frame(look, 13));
    EXPECT_EQ(part(all, 10),
              frames({"--look", "a.look.toml", "--in", "00:01:00;02", "--out", "00:01:00;02"}));
    EXPECT_EQ(all, frames({"--look", "a.look.toml", "--segments", "3"}, "pieces.mkv"));
}

TEST_F(ConvertedLooks, are_drawn_in_thumbnails)
{
    makeClip();
    write("a.look.toml",
          "look = 1\n[[step]]\neffect = \"cc3.fx\"\nkeys.gain = [{ at = 0, value = 0 }, { at = "
          "30, value = 1 }]\n");
    const Outcome outcome = qxhost({"thumbnail", "clip.mov", "small.png", "--size", "64x36", "--start", "30",
                                    "--look", "a.look.toml", "--matrix", "bt709"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(decoded("small.png", "rgb24"), frame({"--effect", "cc3.fx", "--set", "gain=1"}, 30));
    EXPECT_EQ(qxhost({"thumbnail", "clip.mov", "small.png", "--size", "64x36", "--look", ""}).exitCode, 2);
}

TEST_F(ConvertedLooks, are_the_same_wherever_they_are_read_from)
{
    makeClip();
    fs::create_directory(at("looks"));
    fs::copy_file(at("film.cube"), at("looks/film.cube"));
    write("looks/a.look.toml", gradeAndFilm);
    const Bytes expected = frame({"--look", "looks/a.look.toml"}, 0);
    // A file of that name in the working directory is another.
    write("film.cube", "LUT_1D_SIZE 2\n1 1 1\n0 0 0\n");
    EXPECT_EQ(frame({"--look", "looks/a.look.toml"}, 0), expected);
    fs::remove(at("looks/film.cube"));
    const Outcome outcome = qxhost({"convert", "clip.mov", "x.mkv", "--look", "looks/a.look.toml"});
    EXPECT_EQ(outcome.exitCode, 6);
    EXPECT_NE(
        outcome.err.find("looks/a.look.toml: there is no LUT film.cube beside it, nor in the catalogue"),
        std::string::npos)
        << outcome.err;
}

TEST_F(ConvertedLooks, that_cannot_be_drawn_are_refused_before_anything_is_written)
{
    makeClip("01:00:00:00");
    const std::string begin = "look = 1\n[[step]]\neffect = \"cc3.fx\"\n";
    expectRefused("look = 1\n[[step]]\n", 6, {"bad.look.toml:2: [[step]]: expected one of effect and lut"});
    expectRefused("look = 1\n[[step]]\neffect = \"none.fx\"\n", 6,
                  {"bad.look.toml: there is no effect none.fx beside it, nor in the catalogue"});
    expectRefused("look = 1\n[[step]]\neffect = \"./none.fx\"\n", 6, {"bad.look.toml: ", "none.fx"});
    expectRefused(begin + "set = { gian = 1 }\n", 6,
                  {"bad.look.toml: cc3.fx: has no parameter \"gian\" (did you mean gain?)"});
    expectRefused(begin + "keys.gian = [{ at = 0, value = 1 }]\n", 6, {"has no parameter \"gian\""});
    expectRefused(begin + "keys.gain = [{ at = 0, value = 1 }, { at = 3, value = [1, 2] }]\n", 6,
                  {"\"gain\" takes one value; 2 are given"});
    expectRefused(begin + "technique = \"Soft\"\n", 6, {"bad.look.toml: cc3.fx: has no technique \"Soft\""});
    expectRefused(begin + "keys.gain = [{ at = \"01:00:00;05\", value = 1 }]\n", 3,
                  {"bad.look.toml: cc3.fx: gain: the key frame at 01:00:00;05: clip.mov has no such label",
                   "non-drop"});
    expectRefused("look = 1\n[[step]]\neffect = \"qx-dissolve.fx\"\n", 6,
                  {"add texture = { To = \"FILE\" } to this step of ", "bad.look.toml"});
    const Outcome none = qxhost({"convert", "clip.mov", "x.mkv", "--look", "none.look.toml"});
    EXPECT_EQ(none.exitCode, 6);
    EXPECT_NE(none.err.find("none.look.toml: there is no such file"), std::string::npos) << none.err;
    EXPECT_EQ(qxhost({"convert", "clip.mov", "x.mkv", "--look", ""}).exitCode, 2);
    const Outcome set =
        qxhost({"convert", "clip.mov", "x.mkv", "--look", "bad.look.toml", "--set", "gain=1"});
    EXPECT_EQ(set.exitCode, 2);
    EXPECT_NE(set.err.find("--set gain=1 belongs to an --effect, but follows --look bad.look.toml"),
              std::string::npos)
        << set.err;
}

TEST_F(ConvertedLooks, are_not_replaced_by_the_output)
{
    makeClip();
    write("a.look.toml", gradeAndFilm);
    fs::create_symlink("a.look.toml", at("frames.raw"));
    const Outcome outcome =
        qxhost({"convert", "clip.mov", "frames.raw", "--format", "argb", "--look", "a.look.toml", "--force"});
    EXPECT_EQ(outcome.exitCode, 4) << outcome.err;
    EXPECT_EQ(read(at("a.look.toml")), gradeAndFilm);
}

TEST_F(ConvertedLooks, are_steps_of_presets_too)
{
    makeClip();
    write("a.look.toml", gradeAndFilm);
    write("p.toml", "[[step]]\nlook = \"a.look.toml\"\n");
    EXPECT_EQ(frame({"--preset", "p.toml"}, 0), frame({"--look", "a.look.toml"}, 0));
}

TEST_F(ConvertedLooks, go_into_jobs_with_all_that_they_name)
{
    makeClip();
    fs::create_directory(at("looks"));
    fs::copy_file(at("film.cube"), at("looks/film.cube"));
    write("looks/a.look.toml",
          gradeAndFilm +
              "[[step]]\neffect = \"cc3.fx\"\nkeys.gain = [{ at = 0, value = 0 }, { at = 39, value = "
              "1.5 }]\n[[step]]\neffect = \"none.fx\"\non = false\n");
    const Bytes expected = frames({"--look", "looks/a.look.toml"});
    const Outcome made = qxhost({"farm", "make", "clip.mov", "out.mkv", "--job", "job", "--segments", "2",
                                 "--look", "looks/a.look.toml", "--matrix", "bt709"});
    ASSERT_EQ(made.exitCode, 0) << made.err;
    fs::rename(at("looks"), at("elsewhere")); // the job has all
    const Outcome ran = qxhost({"farm", "run", "job"});
    ASSERT_EQ(ran.exitCode, 0) << ran.err;
    EXPECT_EQ(decoded("job/out.mkv", "rgb24"), expected);
}

TEST_F(ConvertedLooks, of_jobs_that_have_changed_or_lead_elsewhere_are_refused)
{
    makeClip();
    write("a.look.toml", gradeAndFilm);
    ASSERT_EQ(qxhost({"farm", "make", "clip.mov", "out.mkv", "--job", "job", "--segments", "2", "--look",
                      "a.look.toml", "--matrix", "bt709"})
                  .exitCode,
              0);
    const std::string held = "job/assets/look-1-a.look.toml";
    const std::string text = read(at(held));
    write(held, text + "\n");
    const Outcome changed = qxhost({"farm", "run", "job"});
    EXPECT_EQ(changed.exitCode, 3);
    EXPECT_NE(changed.err.find("the look \"assets/look-1-a.look.toml\""), std::string::npos) << changed.err;
    for (const std::string& elsewhere : {at("film.cube").string(), std::string("../../film.cube")}) {
        write(held, "look = 1\n[[step]]\nlut = \"" + elsewhere + "\"\n");
        const Outcome leaving = qxhost({"farm", "status", "job"});
        EXPECT_EQ(leaving.exitCode, 3);
        EXPECT_NE(leaving.err.find("leaves the job's folder"), std::string::npos) << leaving.err;
    }
}

} // namespace

} // namespace Qx::System
