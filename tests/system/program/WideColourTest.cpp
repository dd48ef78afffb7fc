#include "tests/system/program/Program.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

// Clips of BT.2020, PQ and HLG, judged by FFmpeg's zscale and ffprobe.

namespace Qx::System {

namespace {

class WideColours : public ProgramTest
{
protected:
    /// Rows of one colour each, so that no filter of chroma can differ: 10 bits, video range.
    void makeClip(const std::string& name, const std::string& transfer) const
    {
        ffmpeg({"-f", "lavfi", "-i", "color=black:s=64x128:r=5:d=0.4", "-vf",
                "format=yuv422p10le,geq=lum='64+mod(Y*53,877)':cb='64+mod(Y*37,897)':cr='64+mod(Y*91,897)',"
                "setparams=range=tv:colorspace=bt2020nc:color_primaries=bt2020:color_trc=" +
                    transfer,
                "-c:v", "ffv1", "-color_range", "tv", "-colorspace", "bt2020nc", "-color_primaries", "bt2020",
                "-color_trc", transfer, name});
    }

    std::vector<std::uint16_t> words(const std::string& file, const std::string& format) const
    {
        const std::vector<std::uint8_t> bytes = decoded(file, format);
        std::vector<std::uint16_t> result(bytes.size() / 2);
        std::memcpy(result.data(), bytes.data(), result.size() * 2);
        return result;
    }

    static int farthest(const std::vector<std::uint16_t>& one, const std::vector<std::uint16_t>& other)
    {
        int most = one.size() == other.size() && !one.empty() ? 0 : 65536;
        for (std::size_t i = 0; i < std::min(one.size(), other.size()); ++i) {
            most = std::max(most, std::abs(one[i] - other[i]));
        }
        return most;
    }
};

TEST_F(WideColours, bt2020_becomes_the_rgb_that_zscale_makes)
{
    makeClip("pq.mkv", "smpte2084");
    const Outcome outcome = qxhost({"convert", "pq.mkv", "ours.png", "--frames", "1"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(
        outcome.err.find("pq.mkv: is PQ (SMPTE ST 2084), and its codes are kept; --tone-map bt2390 makes "
                         "BT.709 of them"),
        std::string::npos)
        << outcome.err;
    ffmpeg({"-i", "pq.mkv", "-frames:v", "1", "-vf",
            "zscale=matrixin=2020_ncl:rangein=limited:matrix=gbr:range=full,format=gbrp16le", "-f",
            "rawvideo", "-pix_fmt", "rgb48le", "theirs.raw"});
    const std::string raw = read(at("theirs.raw"));
    std::vector<std::uint16_t> theirs(raw.size() / 2);
    std::memcpy(theirs.data(), raw.data(), theirs.size() * 2);
    EXPECT_LE(farthest(words("ours.png", "rgb48le"), theirs), 2);
}

TEST_F(WideColours, a_clip_keeps_its_codes_and_tags)
{
    for (const std::string transfer : {"smpte2084", "arib-std-b67"}) {
        makeClip("wide.mkv", transfer);
        const Outcome outcome = qxhost({"convert", "wide.mkv", "out.mkv", "--codec", "ffv1", "--pixel-format",
                                        "yuv422p10le", "--force"});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        const std::string tags = probe("out.mkv", "color_range,color_space,color_primaries,color_transfer");
        for (const std::string& tag : {std::string("color_space=bt2020nc"),
                                       std::string("color_primaries=bt2020"), "color_transfer=" + transfer}) {
            EXPECT_NE(tags.find(tag), std::string::npos) << tag << " is not in " << tags;
        }
        // Codes outside what RGB can show are not kept on the way through it: compare what both show.
        ffmpeg({"-y", "-i", "wide.mkv", "-vf", "zscale=matrix=gbr:range=full,format=gbrp16le", "-c:v", "ffv1",
                "given.mkv"});
        ffmpeg({"-y", "-i", "out.mkv", "-vf", "zscale=matrix=gbr:range=full,format=gbrp16le", "-c:v", "ffv1",
                "made.mkv"});
        EXPECT_LE(farthest(words("given.mkv", "rgb48le"), words("made.mkv", "rgb48le")), 3 * 64) << transfer;
    }
}

TEST_F(WideColours, frames_in_a_pixel_format_have_the_matrix_of_their_clip)
{
    makeClip("pq.mkv", "smpte2084");
    ASSERT_EQ(qxhost({"convert", "pq.mkv", "kept.mov", "--format", "v210"}).exitCode, 0);
    EXPECT_EQ(words("kept.mov", "yuv422p10le"), words("pq.mkv", "yuv422p10le"));
    // Through RGB, by an effect that changes nothing.
    const Outcome drawn = qxhost({"convert", "pq.mkv", "drawn.mov", "--format", "v210", "--effect",
                                  "qx-guides.fx", "--set", "opacity=0"});
    ASSERT_EQ(drawn.exitCode, 0) << drawn.err;
    const std::string tags = probe("drawn.mov", "color_space,color_primaries");
    EXPECT_NE(tags.find("color_space=bt2020nc"), std::string::npos) << tags;
    ffmpeg({"-i", "pq.mkv", "-vf",
            "zscale=matrix=gbr:range=full,format=gbrp16le,zscale=matrix=2020_ncl:range=limited,format="
            "yuv422p10le",
            "-c:v", "ffv1", "-colorspace", "bt2020nc", "theirs.mkv"});
    EXPECT_LE(farthest(words("drawn.mov", "yuv422p10le"), words("theirs.mkv", "yuv422p10le")), 1);
}

TEST_F(WideColours, the_mastering_display_is_handed_on_and_sets_the_tone_map)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x64:rate=5:duration=0.4", "-vf",
            "format=yuv420p10le,setparams=range=tv:colorspace=bt2020nc:color_primaries=bt2020:color_trc="
            "smpte2084",
            "-c:v", "libx265", "-x265-params",
            "log-level=none:lossless=1:max-cll=1200,400:master-display="
            "G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(40000000,50)",
            "-colorspace", "bt2020nc", "-color_primaries", "bt2020", "-color_trc", "smpte2084",
            "-color_range", "tv", "hdr.mp4"});
    ASSERT_EQ(qxhost({"convert", "hdr.mp4", "kept.mkv", "--codec", "ffv1"}).exitCode, 0);
    const Outcome probed = run({"ffprobe", "-v", "error", "-show_entries", "stream_side_data", "kept.mkv"});
    EXPECT_NE(probed.out.find("max_luminance=4000"), std::string::npos) << probed.out;
    EXPECT_NE(probed.out.find("max_content=1200"), std::string::npos) << probed.out;

    const Outcome made =
        qxhost({"convert", "hdr.mp4", "mapped.png", "--tone-map", "bt2390", "--frames", "1"});
    EXPECT_EQ(made.exitCode, 0) << made.err;
    EXPECT_EQ(made.err.find("its codes are kept"), std::string::npos) << made.err;
    ASSERT_EQ(
        qxhost({"convert", "hdr.mp4", "by-hand.png", "--frames", "1", "--effect", "qx-tone-map.fx",
                "--technique", "BT2390", "--set", "transfer=1", "--set", "primaries=1", "--set", "peak=4000"})
            .exitCode,
        0);
    EXPECT_EQ(words("mapped.png", "rgb48le"), words("by-hand.png", "rgb48le"));

    ASSERT_EQ(qxhost({"convert", "hdr.mp4", "filtered.png", "--frames", "1", "--before", "hflip,hflip",
                      "--tone-map", "bt2390"})
                  .exitCode,
              0);
    EXPECT_EQ(words("filtered.png", "rgb48le"), words("mapped.png", "rgb48le"));

    ASSERT_EQ(qxhost({"convert", "hdr.mp4", "mapped.mkv", "--codec", "ffv1", "--pixel-format", "yuv422p10le",
                      "--tone-map", "bt2446a"})
                  .exitCode,
              0);
    const std::string tags = probe("mapped.mkv", "color_space,color_primaries,color_transfer");
    for (const char* tag : {"color_space=bt709", "color_primaries=bt709", "color_transfer=bt709"}) {
        EXPECT_NE(tags.find(tag), std::string::npos) << tags;
    }
    const Outcome after = run({"ffprobe", "-v", "error", "-show_entries", "stream_side_data", "mapped.mkv"});
    EXPECT_EQ(after.out.find("max_luminance"), std::string::npos) << after.out;

    const Outcome small = qxhost({"thumbnail", "hdr.mp4", "small.png", "--size", "64x64"});
    EXPECT_EQ(small.exitCode, 0) << small.err;
    EXPECT_NE(small.err.find("hdr.mp4: is PQ (SMPTE ST 2084); the picture is made BT.709"), std::string::npos)
        << small.err;
    EXPECT_EQ(words("small.png", "rgb48le"), words("mapped.png", "rgb48le"));
}

TEST_F(WideColours, a_tone_map_says_when_it_has_nothing_to_do_and_is_given_once)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x64:rate=5:duration=0.4", "-vf",
            "format=yuv420p,setparams=range=tv:colorspace=bt709:color_primaries=bt709:color_trc=bt709",
            "-c:v", "ffv1", "-colorspace", "bt709", "-color_primaries", "bt709", "-color_trc", "bt709",
            "-color_range", "tv", "usual.mkv"});
    const Outcome idle = qxhost({"convert", "usual.mkv", "out.png", "--frames", "1", "--tone-map", "bt2390"});
    EXPECT_EQ(idle.exitCode, 0) << idle.err;
    EXPECT_NE(idle.err.find("usual.mkv: is tagged as BT.709 already; --tone-map changes nothing"),
              std::string::npos)
        << idle.err;
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x64:rate=5:duration=0.2", "-pix_fmt", "yuv420p", "-c:v",
            "ffv1", "untagged.mkv"});
    const Outcome untagged = qxhost({"convert", "untagged.mkv", "untagged.png", "--tone-map", "bt2390"});
    EXPECT_EQ(untagged.exitCode, 0) << untagged.err;
    EXPECT_NE(untagged.err.find(
                  "untagged.mkv: has no tag that says PQ, HLG or BT.2020, so --tone-map changes nothing"),
              std::string::npos)
        << untagged.err;
    EXPECT_EQ(untagged.err.find("tagged as BT.709"), std::string::npos) << untagged.err;
    const Outcome twice =
        qxhost({"convert", "usual.mkv", "a.png", "--tone-map", "bt2390", "--tone-map", "bt2446a"});
    EXPECT_EQ(twice.exitCode, 2);
    EXPECT_NE(twice.err.find("--tone-map is given twice"), std::string::npos) << twice.err;
    const Outcome other = qxhost({"convert", "usual.mkv", "a.png", "--tone-map", "hable"});
    EXPECT_EQ(other.exitCode, 2);
    EXPECT_NE(other.err.find("bt2390 or bt2446a"), std::string::npos) << other.err;
}

TEST_F(WideColours, constant_luminance_is_refused_by_name)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x64:rate=5:duration=0.4", "-vf",
            "format=yuv420p10le,setparams=range=tv:colorspace=bt2020c", "-c:v", "ffv1", "-colorspace",
            "bt2020c", "-color_range", "tv", "constant.mkv"});
    const Outcome outcome = qxhost({"convert", "constant.mkv", "out.png"});
    EXPECT_EQ(outcome.exitCode, 3);
    for (const char* word :
         {"constant.mkv", "BT.2020 with constant luminance", "--matrix bt601, bt709 or bt2020"}) {
        EXPECT_NE(outcome.err.find(word), std::string::npos) << outcome.err;
    }
    EXPECT_EQ(filesBeside({"constant.mkv"}), std::vector<std::string>());
}

TEST_F(WideColours, high_dynamic_range_is_h264_of_ten_bits)
{
    for (const std::string transfer : {"smpte2084", "arib-std-b67", "bt709"}) {
        ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=64x48", "-frames", "2", "-vf",
                "format=yuv420p10le,setparams=range=tv", "-c:v", "ffv1", "-colorspace", "bt2020nc",
                "-color_trc", transfer, "-color_primaries", "bt2020", "deep.mkv"});
        EXPECT_EQ(qxhost({"convert", "deep.mkv", "out.mp4", "--force"}).exitCode, 0);
        EXPECT_EQ(probe("out.mp4", "pix_fmt"),
                  transfer == "bt709" ? "pix_fmt=yuv420p\n" : "pix_fmt=yuv420p10le\n");
    }
}

TEST_F(WideColours, high_dynamic_range_of_eight_bits_is_said)
{
    for (const auto& [transfer, name] :
         {std::pair<std::string, std::string>{"smpte2084", "PQ"}, {"arib-std-b67", "HLG"}, {"bt709", ""}}) {
        makeClip("deep.mkv", transfer);
        const auto isSaid = [&](std::vector<std::string> arguments) {
            arguments.insert(arguments.begin(), "deep.mkv");
            const std::string said = convert(arguments).err;
            return said.find("the codes of " + name + " become 8 bits") != std::string::npos;
        };
        EXPECT_EQ(isSaid({"out.mp4", "--profile", "high"}), !name.empty()) << transfer;
        EXPECT_EQ(isSaid({"out.jpg", "--frames", "1"}), !name.empty()) << transfer;
        EXPECT_FALSE(isSaid({"out.mp4"})); // which has 10 bits
        EXPECT_FALSE(isSaid({"out.png", "--frames", "1"}));
        EXPECT_FALSE(isSaid({"out.mp4", "--profile", "high", "--tone-map", "bt2390"}));
    }
}

} // namespace

} // namespace Qx::System
