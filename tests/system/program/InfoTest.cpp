// What "qxhost info" says of a clip, by ffprobe's word and by what a conversion then does.

#include "tests/system/program/Program.h"

#include <nlohmann/json.hpp>

namespace Qx::System {

namespace {

class Info : public ProgramTest
{
protected:
    nlohmann::json info(const std::string& file) const
    {
        const Outcome outcome = qxhost({"info", file, "--json"});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        EXPECT_EQ(outcome.err, "");
        return nlohmann::json::parse(outcome.out, nullptr, false);
    }

    nlohmann::json ffprobe(const std::string& file) const
    {
        return nlohmann::json::parse(
            run({"ffprobe", "-v", "error", "-show_streams", "-show_format", "-of", "json", file}).out);
    }

    std::string text(const std::string& file) const
    {
        const Outcome outcome = qxhost({"info", file});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return outcome.out;
    }
};

TEST_F(Info, says_what_ffprobe_says)
{
    ffmpeg(
        {"-f",
         "lavfi",
         "-i",
         "testsrc2=size=64x48:rate=30000/1001",
         "-f",
         "lavfi",
         "-i",
         "sine=sample_rate=48000",
         "-frames:v",
         "30",
         "-shortest",
         "-vf",
         "setsar=12/11,format=yuv422p10le,setparams=colorspace=smpte170m:color_primaries=smpte170m:color_trc="
         "smpte170m:range=tv",
         "-c:v",
         "prores_ks",
         "-c:a",
         "pcm_s16le",
         "-metadata",
         "title=A reel",
         "-metadata:s:a",
         "language=fra",
         "-timecode",
         "00:00:59;20",
         "clip.mov"});
    const nlohmann::json ours = info("clip.mov");
    const nlohmann::json theirs = ffprobe("clip.mov");
    ASSERT_EQ(ours["streams"].size(), theirs["streams"].size());
    for (std::size_t i = 0; i < theirs["streams"].size(); ++i) {
        const nlohmann::json& stream = theirs["streams"][i];
        EXPECT_EQ(ours["streams"][i]["kind"], stream["codec_type"]);
        if (stream.contains("codec_name")) {
            EXPECT_EQ(ours["streams"][i]["codec"], stream["codec_name"]);
        }
        EXPECT_EQ(ours["streams"][i]["tags"], stream["tags"]);
    }
    EXPECT_EQ(ours["tags"], theirs["format"]["tags"]);
    EXPECT_EQ(ours["container"], theirs["format"]["format_name"]);
    const nlohmann::json& video = theirs["streams"][0];
    const nlohmann::json& said = ours["video"];
    EXPECT_EQ(said["stream"], 0);
    EXPECT_EQ(said["codec"], video["codec_name"]);
    EXPECT_EQ(said["pixelFormat"], video["pix_fmt"]);
    EXPECT_EQ(said["width"], video["width"]);
    EXPECT_EQ(said["height"], video["height"]);
    EXPECT_EQ(said["pixelAspect"], video["sample_aspect_ratio"]);
    EXPECT_EQ(said["frameRate"], video["r_frame_rate"]);
    EXPECT_EQ(video["nb_frames"], std::to_string(said["frames"].get<int>()));
    EXPECT_EQ(said["framesAreCounted"], true);
    EXPECT_EQ(said["timeCode"], video["tags"]["timecode"]);
    EXPECT_EQ(said["lastTimeCode"], "00:01:00;21");
    EXPECT_EQ(said["matrix"], video["color_space"]);
    EXPECT_EQ(said["primaries"], video["color_primaries"]);
    EXPECT_EQ(said["transfer"], video["color_transfer"]);
    EXPECT_EQ(ours["streams"][1]["sampleRate"], 48000);
    EXPECT_EQ(ours["streams"][1]["channels"], 1);
    const std::string people = text("clip.mov");
    for (const char* words :
         {"Stream 0", "video, prores (converted)", "audio, pcm_s16le, 48000 Hz, 1 channel", "title: A reel",
          "language: fra", "64 x 48", "pixels of 12:11", "30 frames", "00:00:59;20 to 00:01:00;21",
          "matrix smpte170m", "pictures of 16 bits"}) {
        EXPECT_NE(people.find(words), std::string::npos) << words << " is not in\n" << people;
    }
}

TEST_F(Info, says_what_convert_then_does)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48", "-frames", "2", "-pix_fmt", "yuv420p", "-c:v", "ffv1",
            "untagged.mkv"});
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48", "-frames", "1", "-pix_fmt", "rgba", "picture.png"});
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48", "-frames", "2", "-pix_fmt", "yuva422p10le", "-c:v",
            "ffv1", "alpha.mkv"});
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48", "-frames", "2", "-vf",
            "format=yuv420p10le,setparams=colorspace=bt2020nc:color_trc=smpte2084:color_primaries=bt2020:"
            "range=tv",
            "-c:v", "ffv1", "-colorspace", "bt2020nc", "-color_trc", "smpte2084", "-color_primaries",
            "bt2020", "pq.mkv"});
    for (const std::string file : {"untagged.mkv", "picture.png", "alpha.mkv", "pq.mkv"}) {
        const nlohmann::json foretold = info(file)["conversion"];
        const Outcome outcome = qxhost({"convert", file, "out.png", "--frames", "1", "--force", "--json"});
        ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
        const auto done = nlohmann::json::parse(outcome.out);
        EXPECT_EQ(foretold["refused"], nullptr) << file;
        EXPECT_EQ(foretold["bitsPerComponent"], done["bitsPerComponent"]) << file;
        for (const char* value : {"matrix", "matrixGuessed", "range", "rangeGuessed", "alpha"}) {
            EXPECT_EQ(foretold[value], done["source"][value]) << file << " " << value;
        }
        for (const auto& note : foretold["notes"]) {
            EXPECT_NE(outcome.err.find(note.get<std::string>()), std::string::npos) << note << " is not in\n"
                                                                                    << outcome.err;
        }
    }
    EXPECT_NE(text("untagged.mkv").find("assuming BT.601"), std::string::npos);
    EXPECT_NE(text("untagged.mkv").find("4:2:2, computed from yuv420p at 16 bits"), std::string::npos);
    EXPECT_NE(text("alpha.mkv").find("alpha, taken as straight"), std::string::npos);
    EXPECT_NE(text("alpha.mkv").find("4:4:4 with alpha, computed from yuva422p10le at 16 bits"),
              std::string::npos);
    EXPECT_NE(text("pq.mkv").find("its codes are kept; --tone-map bt2390"), std::string::npos);
    EXPECT_NE(text("picture.png").find("RGB, with unchanged codes"), std::string::npos);
}

TEST_F(Info, a_clip_that_convert_refuses_is_described_with_the_reason)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48", "-frames", "2", "-vf",
            "format=yuv422p10le,setparams=colorspace=bt2020c:color_trc=bt2020-10:color_primaries=bt2020",
            "-c:v", "ffv1", "-colorspace", "bt2020c", "wide.mkv"});
    const nlohmann::json wide = info("wide.mkv");
    EXPECT_EQ(wide["video"]["matrix"], "bt2020c");
    const Outcome outcome = qxhost({"convert", "wide.mkv", "out.png"});
    EXPECT_EQ(outcome.exitCode, 3);
    EXPECT_EQ("qxhost: " + wide["conversion"]["refused"].get<std::string>() + "\n", outcome.err);
    EXPECT_NE(text("wide.mkv").find("refuses it: "), std::string::npos);
}

TEST_F(Info, what_cannot_be_read_is_an_input_failure)
{
    const Outcome outcome = qxhost({"info", "absent.mov"});
    EXPECT_EQ(outcome.exitCode, 3);
    EXPECT_NE(outcome.err.find("absent.mov"), std::string::npos);
    EXPECT_EQ(qxhost({"info"}).exitCode, 2);
}

} // namespace

} // namespace Qx::System
