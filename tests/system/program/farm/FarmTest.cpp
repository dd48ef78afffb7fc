#include "tests/system/program/farm/FarmTest.h"

namespace Qx::System {

void FarmTest::makeClip(const std::string& name) const
{
    ffmpeg({"-f",        "lavfi",
            "-i",        "testsrc2=size=96x64:rate=30000/1001",
            "-f",        "lavfi",
            "-i",        "sine=frequency=440:sample_rate=48000",
            "-frames:v", "50",
            "-t",        "1.669",
            "-vf",       "setparams=range=tv:colorspace=bt709:color_primaries=bt709:color_trc=bt709",
            "-c:v",      "prores_ks",
            "-c:a",      "pcm_s16le",
            "-timecode", "00:00:59;12",
            name});
}

std::string FarmTest::packets(const std::string& file) const
{
    const Outcome hashes = run(
        {"ffmpeg", "-nostdin", "-v", "error", "-i", file, "-map", "0", "-c", "copy", "-f", "framehash", "-"});
    EXPECT_EQ(hashes.exitCode, 0) << hashes.err;
    const Outcome streams =
        run({"ffprobe", "-v", "error", "-show_entries",
             "stream=codec_name,profile,width,height,pix_fmt,color_range,color_space,start_pts,"
             "duration_ts,time_base,nb_frames,r_frame_rate,avg_frame_rate,codec_tag_string:"
             "stream_tags=timecode",
             "-of", "compact", file});
    EXPECT_EQ(streams.exitCode, 0) << streams.err;
    return hashes.out + streams.out;
}

std::string FarmTest::times(const std::string& file, const std::string& kind) const
{
    const Outcome outcome =
        run({"sh", "-c",
             "ffprobe -v error -select_streams " + kind + " -show_entries packet=pts,duration -of csv=p=0 " +
                 file + " | sort -n; ffprobe -v error -select_streams " + kind +
                 " -show_entries packet=dts -of csv=p=0 " + file + "; ffprobe -v error -select_streams " +
                 kind + " -show_entries stream=start_pts,duration_ts,time_base -of csv=p=0 " + file});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    return outcome.out;
}

std::string FarmTest::frameHashes(const std::string& file, const std::string& kind) const
{
    const Outcome outcome = run({"ffmpeg", "-nostdin", "-v", "error", "-i", file, "-map", "0:" + kind, "-f",
                                 kind == "a" ? "hash" : "framehash", "-"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_FALSE(outcome.out.empty());
    return outcome.out;
}

void FarmTest::convert(const std::string& input, const std::string& output, Words arguments) const
{
    arguments.insert(arguments.begin(), {"convert", input, output});
    const Outcome outcome = qxhost(arguments);
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
}

void FarmTest::makeJob(Words arguments) const
{
    arguments.insert(arguments.begin(), {"farm", "make", "clip.mov", "graded.mov", "--job", "film.job"});
    const Outcome outcome = qxhost(arguments);
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
}

Outcome FarmTest::withFilesUpTo32MiB(const std::string& arguments) const
{
    return run({"sh", "-c", "ulimit -f 65536; exec '" + programPath() + "' " + arguments});
}

nlohmann::json FarmTest::status() const
{
    const Outcome outcome = qxhost({"farm", "status", "film.job", "--json"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    return nlohmann::json::parse(outcome.out, nullptr, false);
}

} // namespace Qx::System
