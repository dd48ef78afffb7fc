// Looks as values and as files, and the key frames of their parameters.

#include "tools/qxhost/pipeline/look/LookFile.h"
#include "tests/TemporaryDirectory.h"
#include "tools/qxhost/console/Failure.h"

#include <gtest/gtest.h>

#include <array>
#include <cfloat>
#include <clocale>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <locale>
#include <random>

namespace Qx::Program {

namespace {

namespace fs = std::filesystem;

KeyFrame keyAt(std::int64_t frame, std::vector<float> values, KeyCurve curve = KeyCurve::linear)
{
    return {frame, "", std::move(values), curve};
}

TEST(KeyFrames, hold_the_first_value_before_them_and_the_last_after_them)
{
    const std::vector<KeyFrame> keys{keyAt(10, {2}), keyAt(20, {4})};
    EXPECT_EQ(valuesAt(keys, -5), std::vector<float>{2});
    EXPECT_EQ(valuesAt(keys, 10), std::vector<float>{2});
    EXPECT_EQ(valuesAt(keys, 20), std::vector<float>{4});
    EXPECT_EQ(valuesAt(keys, 1000), std::vector<float>{4});
}

TEST(KeyFrames, go_linearly_or_hold_by_the_curve_of_the_one_before)
{
    const std::vector<KeyFrame> keys{keyAt(0, {0, 1}), keyAt(4, {1, 0}, KeyCurve::hold), keyAt(8, {5, 6})};
    EXPECT_EQ(valuesAt(keys, 1), (std::vector<float>{0.25F, 0.75F}));
    EXPECT_EQ(valuesAt(keys, 7), (std::vector<float>{1, 0}));
    EXPECT_EQ(valuesAt(keys, 8), (std::vector<float>{5, 6}));
}

// The values are those of Boost's interpolator "pchip" with slopes of 0 at both ends.
TEST(KeyFrames, go_smoothly_as_a_monotone_cubic)
{
    std::vector<KeyFrame> keys;
    for (const auto& [frame, value] : {std::pair(0, 0.0F), {10, 1.0F}, {30, 1.5F}, {40, 0.25F}, {75, 0.5F}}) {
        keys.push_back(keyAt(frame, {value}, KeyCurve::smooth));
    }
    for (const auto& [frame, expected] : {std::pair(1, 0.0241428571),
                                          {5, 0.446428571},
                                          {9, 0.937285714},
                                          {11, 1.04230357},
                                          {15, 1.19866071},
                                          {20, 1.35714286},
                                          {29, 1.49841071},
                                          {31, 1.465},
                                          {35, 0.875},
                                          {39, 0.285},
                                          {41, 0.250600583},
                                          {60, 0.401603499},
                                          {74, 0.499399417}}) {
        EXPECT_NEAR(valuesAt(keys, frame).front(), expected, 1e-6) << frame;
    }
}

TEST(KeyFrames, stop_where_a_smooth_curve_meets_another)
{
    // Between two it is 3t^2 - 2t^3, whatever the neighbours do.
    const std::vector<KeyFrame> keys{keyAt(0, {0}), keyAt(10, {1}, KeyCurve::smooth), keyAt(20, {2}),
                                     keyAt(30, {3})};
    EXPECT_NEAR(valuesAt(keys, 11).front(), 1 + 0.028, 1e-6);
    EXPECT_NEAR(valuesAt(keys, 19).front(), 1 + 0.972, 1e-6);
    EXPECT_NEAR(valuesAt(keys, 21).front(), 2.1, 1e-6);
}

TEST(KeyFrames, never_leave_what_lies_between_two_of_them)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<float> value(-3, 3);
    std::uniform_int_distribution<int> gap(1, 40);
    std::uniform_int_distribution<int> curve(0, 2);
    for (int round = 0; round < 200; ++round) {
        std::vector<KeyFrame> keys;
        std::int64_t frame = 0;
        for (int i = 0; i < 8; ++i) {
            frame += gap(random);
            keys.push_back(keyAt(frame, {value(random)}, static_cast<KeyCurve>(curve(random))));
        }
        for (std::size_t i = 0; i + 1 < keys.size(); ++i) {
            const auto [least, most] = std::minmax(keys[i].values[0], keys[i + 1].values[0]);
            for (std::int64_t at = keys[i].frame; at < keys[i + 1].frame; ++at) {
                const float now = valuesAt(keys, at).front();
                ASSERT_TRUE(now >= least - 1e-5F && now <= most + 1e-5F) << "round " << round << ", " << at;
            }
        }
    }
}

TEST(KeyFrames, take_one_value_for_all_components)
{
    const std::vector<KeyFrame> keys{keyAt(0, {1}), keyAt(2, {3, 5, 1})};
    EXPECT_EQ(valuesAt(keys, 1), (std::vector<float>{2, 3, 1}));
}

Look withKeysAt(const std::vector<std::string>& labels)
{
    Look look;
    LookLink link;
    link.file = "cc3.fx";
    LookParameter parameter{"gain", {}, {}};
    for (const std::string& label : labels) {
        parameter.keys.push_back({0, label, {1}, KeyCurve::linear});
    }
    link.parameters.push_back(parameter);
    look.links.push_back(link);
    return look;
}

TEST(KeyFrames, by_time_code_are_those_of_the_clip)
{
    const auto clip = TimeCode::startingAt("09:59:50;00", {30000, 1001});
    ASSERT_TRUE(clip);
    Look look = withKeysAt({"10:01:00;02", "10:00:00;00", "09:59:49;29"});
    resolveTimeCodes(look, clip, "clip.mov");
    const std::vector<KeyFrame>& keys = look.links[0].parameters[0].keys;
    EXPECT_EQ(keys[0].frame, -1); // before the clip
    EXPECT_EQ(keys[1].frame, 300);
    EXPECT_EQ(keys[2].frame, 300 + 1800); // the label before it is 10:00:59;29
    EXPECT_EQ(keys[2].timeCode, "10:01:00;02");
}

TEST(KeyFrames, by_time_code_that_a_clip_has_not_are_refused)
{
    const auto failureOf = [](const std::string& label, const std::optional<TimeCode>& code) {
        Look look = withKeysAt({label});
        try {
            resolveTimeCodes(look, code, "clip.mov");
        } catch (const Failure& failure) {
            return std::string(failure.what());
        }
        return std::string();
    };
    const auto clip = TimeCode::startingAt("10:00:00:00", {25, 1});
    EXPECT_EQ(failureOf("10:00:00:24", clip), "");
    EXPECT_EQ(failureOf("10:00:00:25", clip),
              "cc3.fx: gain: the key frame at 10:00:00:25: clip.mov has no such label: it counts 25 frames a "
              "second, non-drop (written with ':')");
    EXPECT_EQ(failureOf("10:00:00:00", {}),
              "cc3.fx: gain: the key frame at 10:00:00:00: clip.mov has no time code; give the key frame by "
              "the number of a frame");
    Look look = withKeysAt({"10:00:01:00"});
    look.links[0].parameters[0].keys.push_back(keyAt(25, {2}));
    EXPECT_THROW(resolveTimeCodes(look, clip, "clip.mov"), Failure);
}

class LookFiles : public testing::Test
{
protected:
    fs::path at(const std::string& name) const { return temporary_.path() / name; }

    fs::path written(const std::string& text) const
    {
        std::ofstream(at("a.look.toml"), std::ios::binary) << text;
        return at("a.look.toml");
    }

    std::string failureOf(const std::string& text) const
    {
        try {
            readLook(written(text));
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code(), ExitCode::input);
            std::string words = failure.what();
            const std::string file = at("a.look.toml").string();
            EXPECT_EQ(words.substr(0, file.size()), file) << words;
            return words.substr(std::min(file.size() + 1, words.size()));
        }
        return "none";
    }

    const Qx::Test::TemporaryDirectory temporary_;
};

Look manyThings(const fs::path& folder)
{
    Look look{"Warm \"evening\"\twith a tab, a \\ and an \u00e9", {}};
    LookLink effect{.id = 1,
                    .kind = LookLink::Kind::effect,
                    .file = "cc3.fx",
                    .on = false,
                    .technique = "Grade",
                    .parameters = {{"gain", {1.1F, 0.3F, -0.0F}, {}},
                                   {"a name = odd", {1.0F / 3}, {}},
                                   {"lift",
                                    {},
                                    {keyAt(0, {FLT_MIN}),
                                     keyAt(999'999'999, {FLT_MAX}, KeyCurve::hold),
                                     {0, "10:00:00;02", {0.1F, 16777216, 1e-7F}, KeyCurve::smooth}}}},
                    .textures = {{"Noise", folder / "pictures/n o\"i'se.png"}, {"Other", "/else/where.png"}}};
    LookLink lut{.id = 2,
                 .kind = LookLink::Kind::lut,
                 .file = (folder / "film.cube").string(),
                 .on = true,
                 .technique = "",
                 .parameters = {{"amount", {0.7F}, {}}},
                 .textures = {}};
    look.links = {effect, lut};
    return look;
}

TEST_F(LookFiles, read_back_as_they_were_written)
{
    const Look look = manyThings(temporary_.path());
    writeLook(look, at("b.look.toml"), false);
    EXPECT_EQ(readLook(at("b.look.toml")), look);
    EXPECT_EQ(lookText(readLook(at("b.look.toml")), temporary_.path()), lookText(look, temporary_.path()));
}

TEST_F(LookFiles, are_small_and_readable)
{
    Look look;
    LookLink link;
    link.file = (temporary_.path() / "mine/glow.fx").string();
    link.parameters = {{"tint", {1, 0.9F, 0.8F}, {}},
                       {"amount", {}, {keyAt(0, {0}, KeyCurve::smooth), {0, "01:00:00:00", {1}, {}}}}};
    look.links.push_back(link);
    look.about = "Glow";
    EXPECT_EQ(lookText(look, temporary_.path()), R"(look = 1
about = "Glow"

[[step]]
effect = "mine/glow.fx"
set = { tint = [1, 0.9, 0.8] }
keys.amount = [
    { at = 0, value = 0, curve = "smooth" },
    { at = "01:00:00:00", value = 1 },
]
)");
}

TEST_F(LookFiles, keep_every_float)
{
    std::mt19937 random(11);
    std::uniform_int_distribution<std::uint32_t> bits;
    Look look;
    LookLink link;
    link.id = 1;
    link.file = "cc3.fx";
    LookParameter parameter{"values", {}, {}};
    while (parameter.values.size() < 20'000) {
        const std::uint32_t word = bits(random);
        float value = 0;
        std::memcpy(&value, &word, sizeof value);
        if (std::isfinite(value)) {
            parameter.values.push_back(value);
        }
    }
    link.parameters.push_back(parameter);
    look.links.push_back(link);
    const Look back = readLookText(lookText(look, "/folder"), "/folder/a.look.toml");
    const std::vector<float>& values = back.links.at(0).parameters.at(0).values;
    ASSERT_EQ(values.size(), parameter.values.size());
    EXPECT_EQ(std::memcmp(values.data(), parameter.values.data(), values.size() * sizeof(float)), 0);
}

/// For streams, as a German locale has it.
class CommaAsPoint : public std::numpunct<char>
{
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST_F(LookFiles, are_the_same_in_any_locale)
{
    const Look look = manyThings(temporary_.path());
    const std::string text = lookText(look, temporary_.path());
    const std::locale before = std::locale();
    ::setenv("LOCPATH", QX_TEST_LOCALES, 1);
    ASSERT_NE(std::setlocale(LC_ALL, "de_DE.UTF-8"), nullptr) << "is it in " QX_TEST_LOCALES "?";
    ASSERT_STREQ(std::localeconv()->decimal_point, ",");
    std::locale::global(std::locale(before, new CommaAsPoint));
    const std::string german = lookText(look, temporary_.path());
    const Look read = readLookText(text, temporary_.path() / "a.look.toml");
    std::locale::global(before);
    std::setlocale(LC_ALL, "C");
    ::unsetenv("LOCPATH");
    EXPECT_EQ(german, text);
    EXPECT_EQ(read, look);
}

TEST_F(LookFiles, move_with_what_lies_beneath_them)
{
    fs::create_directory(at("old"));
    Look look;
    LookLink link;
    link.id = 1;
    link.file = at("old/sub/glow.fx").string();
    look.links.push_back(link);
    writeLook(look, at("old/a.look.toml"), false);
    fs::rename(at("old"), at("new"));
    EXPECT_EQ(readLook(at("new/a.look.toml")).links.at(0).file, at("new/sub/glow.fx").string());
}

TEST_F(LookFiles, name_files_beside_them_before_those_of_the_catalogue)
{
    std::ofstream(at("film.cube")) << "LUT_1D_SIZE 2\n0 0 0\n1 1 1\n";
    const Look look =
        readLook(written("look = 1\n[[step]]\nlut = \"film.cube\"\n[[step]]\neffect = \"cc3.fx\"\n"));
    EXPECT_EQ(look.links.at(0).file, at("film.cube").string());
    EXPECT_EQ(look.links.at(1).file, "cc3.fx");
    EXPECT_NE(lookText(look, temporary_.path()).find("lut = \"./film.cube\""), std::string::npos);
}

TEST_F(LookFiles, are_not_written_where_a_name_of_the_catalogue_would_be_another_file)
{
    std::ofstream(at("cc3.fx")) << "";
    Look look;
    LookLink link;
    link.file = "cc3.fx";
    look.links.push_back(link);
    EXPECT_THROW(writeLook(look, at("a.look.toml"), false), Failure);
    EXPECT_FALSE(fs::exists(at("a.look.toml")));
}

TEST_F(LookFiles, that_cannot_be_written_leave_what_was_there)
{
    Look look = manyThings(temporary_.path());
    writeLook(look, at("a.look.toml"), false);
    EXPECT_THROW(writeLook(look, at("a.look.toml"), false), Failure); // exists
    look.links[0].parameters[0].values[0] = std::numeric_limits<float>::quiet_NaN();
    EXPECT_THROW(writeLook(look, at("a.look.toml"), true), Failure);
    look = manyThings(temporary_.path());
    look.links[0].textures[0].file = temporary_.path() / "latin\xe9.png"; // no UTF-8
    EXPECT_THROW(writeLook(look, at("a.look.toml"), true), Failure);
    EXPECT_EQ(readLook(at("a.look.toml")), manyThings(temporary_.path()));
    EXPECT_EQ(looksIn(temporary_.path()), std::vector<std::string>{"a.look.toml"});
}

TEST_F(LookFiles, that_are_wrong_are_refused_with_the_line)
{
    const std::string begin = "look = 1\n[[step]]\n";
    const auto message = [](const std::string& words) { return words; };
    EXPECT_EQ(failureOf("codec = 1\n"), " is no look; expected a line \"look = 1\" at its beginning");
    EXPECT_EQ(failureOf("look = 2\n"),
              message("1: is a look of version 2, and this qxhost reads version 1; use "
                      "a qxhost that is as new as the one that wrote it"));
    EXPECT_EQ(failureOf("look = 1\nstepp = 3\n"),
              "2: there is no key stepp (did you mean step?); expected about and [[step]]");
    EXPECT_EQ(failureOf("look = 1\nstep = 3\n"), "2: step: expected tables that begin with [[step]]");
    EXPECT_EQ(failureOf(begin), "2: [[step]]: expected one of effect and lut");
    EXPECT_EQ(failureOf(begin + "effect = \"a.fx\"\nlut = \"a.cube\"\n"),
              "2: [[step]]: expected one of effect and lut");
    EXPECT_EQ(failureOf(begin + "effect = \"\"\n"), "3: effect: is empty; give a name");
    EXPECT_EQ(failureOf(begin + "effect = \"a.fx\"\ntecnique = \"T\"\n"),
              "4: [[step]]: there is no key tecnique (did you mean technique?)");
    EXPECT_EQ(failureOf(begin + "effect = \"a.fx\"\nset = { gain = \"1\" }\n"),
              "4: gain: expected a number, as in 0.5, or several, as in [1, 0.5, 0]");
    EXPECT_EQ(failureOf(begin + "effect = \"a.fx\"\nset = { gain = inf }\n"),
              "4: gain: expected a number, as in 0.5, or several, as in [1, 0.5, 0]");
    EXPECT_EQ(failureOf(begin + "effect = \"a.fx\"\nset = { gain = [] }\n"),
              "4: gain: has no value; expected a number, as in 0.5, or several, as in [1, 0.5, 0]");
    EXPECT_EQ(
        failureOf(begin + "effect = \"a.fx\"\nset = { gain = 1 }\nkeys.gain = [{ at = 1, value = 1 }]\n"),
        "5: gain: has a value and key frames; leave one of them out");
    EXPECT_EQ(failureOf(begin + "effect = \"a.fx\"\nkeys.gain = []\n"),
              "4: gain: expected key frames, as in [{ at = 0, value = 1 }, { at = 50, value = 2 }]");
    EXPECT_EQ(failureOf(begin + "effect = \"a.fx\"\nkeys.gain = [\n{ at = -1, value = 1 }]\n"),
              "5: gain: at: expected the number of a frame from 0, or a time code, as in \"10:00:05:00\"");
    EXPECT_EQ(failureOf(begin + "effect = \"a.fx\"\nkeys.gain = [\n{ at = 1 }]\n"),
              "5: gain: a key frame needs at and value, as in { at = 0, value = 1 }");
    EXPECT_EQ(
        failureOf(begin + "effect = \"a.fx\"\nkeys.gain = [\n{ at = 1, value = 1, curve = \"soft\" }]\n"),
        "5: curve: invalid value \"soft\": expected linear, smooth or hold");
    EXPECT_EQ(failureOf(begin +
                        "effect = \"a.fx\"\nkeys.gain = [\n{ at = 1, value = 1 },\n{ at = 1, value = 2 }]\n"),
              "6: gain: has two key frames at the same place; leave one of them out");
    EXPECT_EQ(failureOf(begin +
                        "effect = \"a.fx\"\nkeys.gain = [\n{ at = 1, value = [1, 2] },\n{ at = 3, value "
                        "= [1, 2, 3] }]\n"),
              "6: gain: has a key frame with 2 values, and here 3; expected as many, or one for all");
    EXPECT_EQ(failureOf(begin + "lut = \"a.cube\"\namount = 2\n"),
              "4: amount: expected a number from 0 to 1");
    EXPECT_EQ(failureOf(begin + "lut = \"a.cube\"\nset = { amount = 1 }\n"),
              "4: set: belongs to an effect, and this step is a LUT");
    EXPECT_EQ(failureOf(begin + "lut = \"a.cube\"\non = 1\n"), "4: on: expected true or false");
    for (const char* noToml : {"about = \"open\n", "[.a]\n", "[[=]]\n", "a = [", "[a.]\n", "a..b = 1\n"}) {
        EXPECT_NE(failureOf(std::string("look = 1\n") + noToml), "none") << noToml; // TOML's own words
    }
    EXPECT_EQ(failureOf("look = 1\n" + std::string(2U << 20U, '#')),
              " is too large for a look; expected at most 1 MiB of TOML");
}

TEST_F(LookFiles, that_are_missing_or_cut_anywhere_are_refused)
{
    EXPECT_THROW(readLook(at("none.look.toml")), Failure);
    EXPECT_THROW(readLook(temporary_.path()), Failure);
    const std::string text = lookText(manyThings(temporary_.path()), temporary_.path());
    for (std::size_t length = 0; length < text.size(); ++length) {
        try {
            const Look cut = readLookText(text.substr(0, length), at("a.look.toml"));
            EXPECT_LE(cut.links.size(), 2U);
        } catch (const Failure&) {
        }
    }
}

TEST_F(LookFiles, that_are_damaged_anyhow_are_read_or_refused)
{
    const std::string text = lookText(manyThings(temporary_.path()), temporary_.path());
    std::mt19937 random(3);
    int refused = 0;
    constexpr int rounds = 3000;
    for (int round = 0; round < rounds; ++round) {
        std::string damaged = text;
        for (unsigned i = 0; i <= random() % 3; ++i) {
            const std::size_t place = random() % damaged.size();
            switch (random() % 3) {
            case 0:
                damaged[place] = static_cast<char>(random());
                break;
            case 1:
                damaged.erase(place, random() % 20);
                break;
            default:
                damaged.insert(place, text.substr(random() % text.size(), random() % 20));
            }
        }
        try {
            const Look look = readLookText(damaged, at("a.look.toml"));
            for (const LookLink& link : look.links) {
                static_cast<void>(effectRequest(link));
            }
            // What reads can be written, if names of the file system allow it.
            EXPECT_NO_THROW(lookText(look, temporary_.path())) << damaged;
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code(), ExitCode::input) << failure.what();
            ++refused;
        }
    }
    EXPECT_GT(refused, rounds / 4);
    EXPECT_LT(refused, rounds);
}

TEST(Looks, give_the_pipeline_the_steps_that_are_on)
{
    const Look look = manyThings("/folder");
    const std::vector<EffectRequest> requests = effectRequests(look);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].lut, "/folder/film.cube");
    EXPECT_EQ(requests[0].file, tableEffect);
    const EffectRequest effect = effectRequest(look.links[0]);
    EXPECT_EQ(effect.file, "cc3.fx");
    EXPECT_EQ(effect.technique, "Grade");
    EXPECT_EQ(effect.settings.size(), 2U);
    ASSERT_EQ(effect.keyed.size(), 1U);
    EXPECT_EQ(effect.keyed[0].keys.size(), 3U);
    EXPECT_EQ(effect.textures.size(), 2U);
}

} // namespace

} // namespace Qx::Program
