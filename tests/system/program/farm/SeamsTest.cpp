// "qxhost convert --segments": frames, samples and times are those that FFmpeg finds in the input.

#include "tests/system/program/farm/FarmTest.h"

#include <sstream>

namespace Qx::System {

namespace {

class Seams : public FarmTest
{
protected:
    /// 60 frames of ProRes with time code, and audio of as many seconds whose samples all differ.
    void makeClipAt(const std::string& rate, const std::string& seconds, const std::string& timeCode) const
    {
        fs::remove(at("clip.mov"));
        ffmpeg({"-f",        "lavfi",
                "-i",        "testsrc2=size=96x64:rate=" + rate,
                "-f",        "lavfi",
                "-i",        "aevalsrc=sin(400*t*t)|cos(500*t*t):sample_rate=48000",
                "-frames:v", "60",
                "-t",        seconds,
                "-vf",       "setparams=range=tv:colorspace=bt709:color_primaries=bt709:color_trc=bt709",
                "-c:v",      "prores_ks",
                "-c:a",      "pcm_s24le",
                "-timecode", timeCode,
                "clip.mov"});
    }

    /// A hash of each frame that FFmpeg decodes, a line each, without times.
    Words frames(const Words& input, const std::string& pixelFormat, const std::string& filter = "null") const
    {
        Words command{"ffmpeg", "-nostdin", "-v", "error", "-xerror"};
        command.insert(command.end(), input.begin(), input.end());
        command.insert(command.end(), {"-map", "0:v", "-vf", filter, "-pix_fmt", pixelFormat, "-f",
                                       "framehash", "-hash", "md5", "-"});
        const Outcome outcome = run(command);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        std::istringstream lines(outcome.out);
        Words hashes;
        for (std::string line; std::getline(lines, line);) {
            if (line.front() != '#') {
                hashes.push_back(line.substr(line.rfind(',') + 1));
            }
        }
        return hashes;
    }

    /// A hash of all samples, after a filter.
    std::string samples(const std::string& file, const std::string& filter = "anull") const
    {
        const Outcome outcome = run({"ffmpeg", "-nostdin", "-v", "error", "-i", file, "-map", "0:a", "-af",
                                     filter, "-c:a", "pcm_s24le", "-f", "hash", "-"});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return outcome.out;
    }

    /// What ffprobe says, a line each.
    Words probe(const std::string& file, const std::string& stream, const std::string& entries) const
    {
        const Outcome outcome = run({"ffprobe", "-v", "error", "-select_streams", stream, "-show_entries",
                                     entries, "-of", "default=nokey=1:noprint_wrappers=1", file});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        std::istringstream lines(outcome.out);
        Words values;
        for (std::string line; std::getline(lines, line);) {
            values.push_back(line);
        }
        return values;
    }
};

TEST_F(Seams, frames_samples_times_and_time_code_are_the_inputs_at_any_rate)
{
    struct Case
    {
        std::string rate;
        std::string seconds;
        std::string timeCode;
    };
    for (const Case& each :
         {Case{"24000/1001", "2.5025", "01:00:00:00"}, Case{"30000/1001", "2.002", "00:08:59;28"},
          Case{"60000/1001", "1.001", "00:00:59;58"}, Case{"50", "1.2", "23:59:59:40"},
          Case{"15", "4", "10:00:00:00"}}) {
        SCOPED_TRACE(each.rate);
        makeClipAt(each.rate, each.seconds, each.timeCode);
        convert("clip.mov", "many.mov", {"--format", "v210", "--segments", "7", "--force"});
        const Words expected = frames({"-i", "clip.mov"}, "yuv422p10le");
        EXPECT_EQ(expected.size(), 60U);
        EXPECT_EQ(frames({"-i", "many.mov"}, "yuv422p10le"), expected);
        EXPECT_EQ(probe("many.mov", "v", "packet=pts_time,duration_time"),
                  probe("clip.mov", "v", "packet=pts_time,duration_time"));
        EXPECT_EQ(samples("many.mov"), samples("clip.mov"));
        EXPECT_EQ(probe("many.mov", "a", "stream=start_time,duration_ts"),
                  probe("clip.mov", "a", "stream=start_time,duration_ts"));
        EXPECT_EQ(probe("many.mov", "v", "stream=r_frame_rate:stream_tags=timecode"),
                  (Words{each.rate + (each.rate.find('/') == std::string::npos ? "/1" : ""), each.timeCode}));
    }
}

TEST_F(Seams, audio_of_a_part_is_cut_to_the_sample)
{
    makeClipAt("30000/1001", "2.002", "00:00:00;00");
    convert("clip.mov", "many.mov",
            {"--format", "v210", "--start", "5", "--frames", "30", "--segments", "4"});
    EXPECT_EQ(frames({"-i", "many.mov"}, "yuv422p10le"),
              frames({"-i", "clip.mov"}, "yuv422p10le", "trim=start_frame=5:end_frame=35"));
    // Five frames are 8008 samples, thirty are 48048.
    EXPECT_EQ(samples("many.mov"), samples("clip.mov", "atrim=start_sample=8008:end_sample=56056"));
    EXPECT_EQ(probe("many.mov", "v", "stream_tags=timecode"), Words{"00:00:00;05"});
}

TEST_F(Seams, pictures_are_those_of_the_input)
{
    makeClipAt("25", "2.4", "00:00:00:00");
    struct Case
    {
        std::string extension;
        std::string pixelFormat;
    };
    for (const Case& each : {Case{".dpx", "gbrp10be"}, Case{".png", "rgb48be"}, Case{".png", "rgb24"}}) {
        SCOPED_TRACE(each.extension + " " + each.pixelFormat);
        for (const char* folder : {"in", "out"}) {
            fs::remove_all(at(folder));
            fs::create_directory(at(folder));
        }
        const std::string input = "in/shot_%04d" + each.extension;
        const std::string output = "out/shot_%04d" + each.extension;
        ffmpeg({"-i", "clip.mov", "-frames:v", "20", "-start_number", "1001", "-pix_fmt", each.pixelFormat,
                input});
        convert(input, output, {"--segments", "6"});
        const Words expected = frames({"-start_number", "1001", "-i", input}, each.pixelFormat);
        EXPECT_EQ(expected.size(), 20U);
        EXPECT_EQ(frames({"-start_number", "1001", "-i", output}, each.pixelFormat), expected);
    }
}

TEST_F(Seams, a_decoder_that_begins_at_a_seam_needs_nothing_before_it)
{
    makeClipAt("25", "2.4", "00:00:00:00");
    convert("clip.mov", "many.mp4", {"--video-option", "bf=3", "--segments", "5"});
    const Words whole = frames({"-i", "many.mp4"}, "yuv422p10le");
    EXPECT_EQ(whole.size(), 60U);
    for (const std::size_t begin : {12U, 24U, 36U, 48U}) {
        const std::string time = std::to_string(static_cast<double>(begin) / 25);
        const Words tail = frames({"-ss", time, "-i", "many.mp4"}, "yuv422p10le");
        EXPECT_EQ(tail, Words(whole.begin() + static_cast<std::ptrdiff_t>(begin), whole.end())) << begin;
    }
}

} // namespace

} // namespace Qx::System
