// Clips whose frames have wrong times: what comes out beside what ffmpeg decodes of them, and what is said.

#include "tests/system/program/Program.h"

#include <cmath>
#include <cstdlib>
#include <sstream>

namespace Qx::System {

namespace {

class Times : public ProgramTest
{
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48:rate=25", "-frames:v", "12", "-vf",
                "format=yuv422p10le,setparams=colorspace=bt709:range=tv", "-colorspace", "bt709",
                "-color_range", "tv", "-c:v", "prores_ks", "whole.mkv"});
    }

    /// The clip with the times that ffmpeg's filter of packets gives.
    void retime(const std::string& times, const std::string& name) const
    {
        ffmpeg({"-i", "whole.mkv", "-c", "copy", "-bsf:v", "setts=" + times, name});
    }

    Outcome convert(const std::string& clip, const std::string& out, std::vector<std::string> more = {}) const
    {
        more.insert(more.begin(), {"convert", clip, out, "--force"});
        return qxhost(more);
    }

    /// In milliseconds.
    std::vector<long> timesOf(const std::string& file, const std::string& stream = "v") const
    {
        std::istringstream lines(run({"ffprobe", "-v", "error", "-select_streams", stream, "-show_entries",
                                      "frame=pts_time", "-of", "csv=p=0", file})
                                     .out);
        std::vector<long> times;
        for (std::string line; std::getline(lines, line);) {
            times.push_back(std::lround(std::strtod(line.c_str(), nullptr) * 1000));
        }
        return times;
    }

    /// Twelve frames, 40 ms from one to the next.
    static std::vector<long> even(long count = 12)
    {
        std::vector<long> times;
        for (long i = 0; i < count; ++i) {
            times.push_back(40 * i);
        }
        return times;
    }

    /// Of each frame, in order of decoding, whatever its time.
    std::string frameSums(const std::string& file) const
    {
        return run({"ffmpeg", "-nostdin", "-v", "error", "-i", file, "-vf", "setpts=N", "-fps_mode",
                    "passthrough", "-f", "framemd5", "-map", "0:v", "-"})
            .out;
    }

    static void expectHas(const std::string& text, const std::string& part)
    {
        EXPECT_NE(text.find(part), std::string::npos) << text << "\nlacks " << part;
    }
};

const std::vector<std::string> lossless{"--codec", "ffv1", "--pixel-format", "yuv422p10le"};

TEST_F(Times, that_go_back_lose_no_frame_and_are_said)
{
    retime("ts='if(gte(N,6),TS-200,TS)'", "back.mkv");
    const Outcome outcome = convert("back.mkv", "out.mkv", lossless);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(frameSums("out.mkv"), frameSums("whole.mkv"));
    EXPECT_EQ(timesOf("out.mkv"), even());
    expectHas(outcome.err,
              "\"back.mkv\": the times of 6 frames, the first 0.200 s, do not follow that of the frame "
              "before; each of them is shown right after that frame");
}

TEST_F(Times, that_repeat_lose_no_frame_and_are_said)
{
    retime("ts='if(eq(N,5),TS-40,TS)'", "twice.mkv");
    const Outcome outcome = convert("twice.mkv", "out.mkv", lossless);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(frameSums("out.mkv"), frameSums("whole.mkv"));
    EXPECT_EQ(timesOf("out.mkv"), even());
    expectHas(outcome.err, "\"twice.mkv\": the time of one frame, 0.160 s, does not follow that of the frame "
                           "before; it is shown right after that frame");
    EXPECT_EQ(convert("whole.mkv", "out.mkv", lossless).err.find("follow"), std::string::npos);
}

TEST_F(Times, of_one_frame_that_is_far_too_late_move_no_other)
{
    // As a block of Matroska has it: the times of decoding, which it does not hold, go on.
    retime("pts='if(eq(N,5),PTS+1000000,PTS)'", "wrong.mkv");
    ASSERT_EQ(timesOf("wrong.mkv")[5], 1000200);
    ASSERT_EQ(timesOf("wrong.mkv")[6], 240);
    const Outcome outcome = convert("wrong.mkv", "out.mkv", lossless);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(frameSums("out.mkv"), frameSums("whole.mkv"));
    EXPECT_EQ(timesOf("out.mkv"), even());
    expectHas(outcome.err, "the time of one frame, 1000.200 s, does not follow that of the frame before");
}

TEST_F(Times, that_leave_a_long_gap_are_kept_and_said)
{
    retime("ts='if(gte(N,6),TS+60000,TS)'", "gap.mkv");
    const Outcome outcome = convert("gap.mkv", "out.mkv", lossless);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(frameSums("out.mkv"), frameSums("whole.mkv"));
    EXPECT_EQ(timesOf("out.mkv"), timesOf("gap.mkv"));
    expectHas(outcome.err,
              "\"gap.mkv\": there is no frame between 0.240 s and 60.240 s; the frame before is shown "
              "as long");
}

TEST_F(Times, of_joined_transport_streams_go_on_with_their_sound)
{
    const auto make = [&](const std::string& source, const std::string& offset, const std::string& name) {
        ffmpeg({"-f",
                "lavfi",
                "-i",
                source + "=size=64x48:rate=25",
                "-f",
                "lavfi",
                "-i",
                "sine",
                "-t",
                "0.96",
                "-vf",
                "format=yuv420p",
                "-c:v",
                "mpeg2video",
                "-g",
                "6",
                "-bf",
                "2",
                "-c:a",
                "mp2",
                "-output_ts_offset",
                offset,
                name});
    };
    make("testsrc2", "0", "a.ts");
    make("testsrc", "0", "again.ts");
    make("testsrc", "3600", "later.ts");
    for (const std::string second : {"again.ts", "later.ts"}) {
        run({"sh", "-c", "cat a.ts " + second + " > joined.ts"});
        const Outcome outcome = convert("joined.ts", "out.mkv");
        expectHas(outcome.err, "\"joined.ts\": its clock jumps");
        const std::vector<long> times = timesOf("out.mkv");
        ASSERT_EQ(times.size(), 48U) << outcome.err;
        for (std::size_t i = 1; i < times.size(); ++i) {
            EXPECT_LE(std::abs(times[i] - times[i - 1] - 40), 2) << second << ", frame " << i;
        }
        // The sound of both, as long as the pictures.
        const std::vector<long> sound = timesOf("out.mkv", "a");
        for (std::size_t i = 1; i < sound.size(); ++i) {
            EXPECT_LE(sound[i] - sound[i - 1], 60) << second << ", packet " << i;
        }
        EXPECT_LE(std::abs(sound.back() - times.back()), 100) << outcome.err;
        EXPECT_EQ(outcome.err.find("audio packets are left out"), std::string::npos) << outcome.err;
    }
}

} // namespace

} // namespace Qx::System
