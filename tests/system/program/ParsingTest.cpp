#include "tools/qxhost/commands/CommandLine.h"
#include "tools/qxhost/commands/effects/CheckCommand.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/ProgressDisplay.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <gtest/gtest.h>

namespace Qx::Program {

namespace {

/// What the arguments ask of a command that has options of this type.
template <class Options>
Options optionsOf(const std::vector<std::string>& arguments)
{
    const std::unique_ptr<Command> command = parseCommandLine(arguments);
    return dynamic_cast<const CommandWithOptions<Options>&>(*command).options();
}

ConvertOptions convert(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "convert");
    return optionsOf<ConvertOptions>(arguments);
}

TEST(Parsing, convert_has_its_defaults)
{
    const ConvertOptions options = convert({"in.mov", "out.png"});
    EXPECT_EQ(options.input, "in.mov");
    EXPECT_EQ(options.output, "out.png");
    EXPECT_FALSE(options.range || options.matrix || options.outputRange || options.depth);
    EXPECT_EQ(options.filter, Image::Filter::CatmullRom);
    EXPECT_TRUE(options.effects.empty());
    EXPECT_EQ(options.picked.start, 0);
    EXPECT_EQ(options.picked.frames, 0);
    EXPECT_TRUE(options.audio);
    EXPECT_FALSE(options.force || options.quiet || options.json);
}

TEST(Parsing, convert_takes_every_option)
{
    const ConvertOptions options =
        convert({"--range",    "full",     "--matrix", "BT601", "--output-range", "video",
                 "--filter",   "Mitchell", "--depth",  "16",    "--start",        "3",
                 "--frames",   "7",        "--codec",  "ffv1",  "--pixel-format", "gbrp",
                 "--no-audio", "--force",  "--device", "1",     "--quiet",        "--json",
                 "in",         "out"});
    EXPECT_EQ(options.range, Media::Range::full);
    EXPECT_EQ(options.matrix, Media::Matrix::bt601);
    EXPECT_EQ(options.outputRange, Media::Range::video);
    EXPECT_EQ(options.filter, Image::Filter::Mitchell);
    EXPECT_EQ(options.depth, Media::Depth::bits16);
    EXPECT_EQ(options.picked.start, 3);
    EXPECT_EQ(options.picked.frames, 7);
    EXPECT_EQ(options.codec, "ffv1");
    EXPECT_EQ(options.pixelFormat, "gbrp");
    EXPECT_FALSE(options.audio);
    EXPECT_TRUE(options.force && options.quiet && options.json);
    EXPECT_EQ(options.device, "1");
    EXPECT_EQ(options.input, "in");
    EXPECT_EQ(options.output, "out");
}

TEST(Parsing, what_becomes_of_audio_is_chosen)
{
    const ConvertOptions named = convert({"in", "out", "--audio-codec", "aac", "--audio-option", "b=96k",
                                          "--audio-option", "aac_coder=fast", "--audio-option", "b=128k"});
    EXPECT_TRUE(named.audio);
    EXPECT_EQ(named.audioCodec, "aac");
    EXPECT_EQ(named.audioOptions, (std::map<std::string, std::string>{{"aac_coder", "fast"}, {"b", "128k"}}));
    EXPECT_FALSE(convert({"in", "out", "--audio-codec", "none"}).audio);
    const ConvertOptions last = convert({"in", "out", "--audio-codec", "none", "--audio-codec", "copy"});
    EXPECT_TRUE(last.audio);
    EXPECT_EQ(last.audioCodec, "copy");
}

TEST(Parsing, the_size_of_the_output_is_chosen)
{
    EXPECT_EQ(convert({"in", "out", "--bitrate", "20M"}).rate.bitRate, 20'000'000);
    EXPECT_EQ(convert({"in", "out", "--bitrate", "800k"}).rate.bitRate, 800'000);
    EXPECT_EQ(convert({"in", "out", "--bitrate", "1234567"}).rate.bitRate, 1'234'567);
    EXPECT_EQ(convert({"in", "out", "--quality", "82.5"}).rate.quality, 82.5);
    EXPECT_FALSE(convert({"in", "out"}).rate.quality);
    const ConvertOptions options = convert({"in", "out", "--profile", "HQ", "--video-option", "preset=slow",
                                            "--video-option", "x264-params=a=1:b=2"});
    EXPECT_EQ(options.profile, "HQ");
    EXPECT_EQ(options.videoOptions,
              (std::map<std::string, std::string>{{"preset", "slow"}, {"x264-params", "a=1:b=2"}}));
}

TEST(Parsing, frames_are_picked_by_number_time_and_time_code)
{
    using Time = FrameRangeOptions::Time;
    const auto startOf = [](const std::string& word) {
        return convert({"in", "out", "--start", word}).picked.startTime.value_or(Time(-1)).count();
    };
    EXPECT_EQ(startOf("00:01:02.5"), 62'500'000);
    EXPECT_EQ(startOf("01:00:00"), 3'600'000'000);
    EXPECT_EQ(startOf("1:02"), 62'000'000);
    EXPECT_EQ(startOf("12.5s"), 12'500'000);
    EXPECT_EQ(startOf("90s"), 90'000'000);
    EXPECT_EQ(startOf("1500ms"), 1'500'000);
    EXPECT_EQ(startOf("0.0416667s"), 41'666);
    EXPECT_EQ(startOf("25"), -1) << "a number of frames";
    const FrameRangeOptions last = convert({"in", "out", "--start", "2s", "--start", "25"}).picked;
    EXPECT_EQ(last.start, 25);
    EXPECT_FALSE(last.startTime);
    const FrameRangeOptions codes =
        convert({"in", "out", "--in", "10:00:05:00", "--out", "10:00:09;24"}).picked;
    EXPECT_EQ(codes.in, "10:00:05:00");
    EXPECT_EQ(codes.out, "10:00:09;24");
    EXPECT_EQ(convert({"in", "out", "--duration", "0:02"}).picked.duration, Time(2'000'000));
}

TEST(Parsing, techniques_and_settings_belong_to_the_effect_before_them)
{
    const ConvertOptions options =
        convert({"--effect", "a.fx", "--set", "x=1", "in", "--effect", "b.fx", "--technique", "T", "out",
                 "--set", "y=0.5,-1,2e1", "--set=z=true", "--effect", "a.fx"});
    ASSERT_EQ(options.effects.size(), 3U);
    EXPECT_EQ(options.effects[0].file, "a.fx");
    EXPECT_EQ(options.effects[0].technique, "");
    ASSERT_EQ(options.effects[0].settings.size(), 1U);
    EXPECT_EQ(options.effects[0].settings[0].name, "x");
    EXPECT_EQ(options.effects[1].technique, "T");
    ASSERT_EQ(options.effects[1].settings.size(), 2U);
    EXPECT_EQ(options.effects[1].settings[0].values, (std::vector<float>{0.5F, -1.0F, 20.0F}));
    EXPECT_EQ(options.effects[1].settings[1].values, (std::vector<float>{1.0F}));
    EXPECT_EQ(options.effects[2].file, "a.fx");
    EXPECT_TRUE(options.effects[2].settings.empty());
    EXPECT_EQ(options.input, "in");
    EXPECT_EQ(options.output, "out");
}

TEST(Parsing, names_that_look_like_options_follow_two_dashes)
{
    const ConvertOptions options = convert({"--force", "--", "-in.mov", "--out.mov"});
    EXPECT_EQ(options.input, "-in.mov");
    EXPECT_EQ(options.output, "--out.mov");
}

TEST(Parsing, check_takes_many_files)
{
    const auto options = optionsOf<CheckOptions>({"effects", "check", "a.fx", "b.fx", "--json"});
    EXPECT_EQ(options.files, (std::vector<std::filesystem::path>{"a.fx", "b.fx"}));
    EXPECT_TRUE(options.json);
}

TEST(Progress, narrow_terminals_lose_whole_fields)
{
    const std::string text = "12 of 250 frames, 31.5 frames/s, 0:08 left";
    EXPECT_EQ(fieldsThatFit(text, 80), text);
    EXPECT_EQ(fieldsThatFit(text, text.size() - 1), "12 of 250 frames, 31.5 frames/s");
    EXPECT_EQ(fieldsThatFit(text, 20), "12 of 250 frames");
    EXPECT_EQ(fieldsThatFit(text, 5), "");
}

TEST(Parsing, times_read_as_clocks)
{
    EXPECT_EQ(clockText(-1), "0:00");
    EXPECT_EQ(clockText(4.2), "0:05");
    EXPECT_EQ(clockText(754), "12:34");
    EXPECT_EQ(clockText(3723), "1:02:03");
}

} // namespace

} // namespace Qx::Program
