// What the display matrix of a clip asks for, judged by ffmpeg, which applies it as players do.

#include "tests/system/program/Program.h"

namespace Qx::System {

namespace {

class Rotation : public ProgramTest
{
protected:
    /// A clip of one frame with a display matrix.
    void makeClip(const std::string& name, const std::vector<std::string>& encoding, const MatrixPart& part,
                  int unit = 1 << 16) const
    {
        std::vector<std::string> arguments{"-f", "lavfi", "-i", "testsrc2=size=64x48", "-frames:v", "1"};
        arguments.insert(arguments.end(), encoding.begin(), encoding.end());
        arguments.insert(arguments.end(), {"-colorspace", "bt709", "-color_range", "tv", "plain.mov"});
        ffmpeg(arguments);
        turn("plain.mov", name, part, unit);
    }

    static void expectHas(const std::string& text, const std::string& part)
    {
        EXPECT_NE(text.find(part), std::string::npos) << text << "\nlacks " << part;
    }
};

constexpr MatrixPart quarterTurn{0, 1, -1, 0};

TEST_F(Rotation, all_quarters_and_flips_are_those_of_players)
{
    const std::vector<std::string> rgb{"-c:v", "png", "-pix_fmt", "rgb24"};
    for (const MatrixPart& part : {MatrixPart{1, 0, 0, 1}, quarterTurn, MatrixPart{-1, 0, 0, -1},
                                   MatrixPart{0, -1, 1, 0}, MatrixPart{-1, 0, 0, 1}, MatrixPart{1, 0, 0, -1},
                                   MatrixPart{0, 1, 1, 0}, MatrixPart{0, -1, -1, 0}}) {
        makeClip("in.mov", rgb, part);
        const Outcome outcome = convert({"in.mov", "out.mkv", "--rotate", "--range", "full"});
        EXPECT_EQ(decoded("out.mkv", "rgb24"), decoded("in.mov", "rgb24"))
            << part[0] << part[1] << part[2] << part[3] << outcome.err;
        expectHas(probe("out.mkv", "width"), part[0] == 0 ? "width=48" : "width=64");
    }
}

TEST_F(Rotation, pixels_that_are_not_square_turn_with_the_picture)
{
    makeClip("in.mov", {"-vf", "setsar=2/1", "-c:v", "png", "-pix_fmt", "rgb24"}, quarterTurn);
    convert({"in.mov", "out.mov", "--rotate", "--range", "full"});
    expectHas(probe("out.mov", "sample_aspect_ratio"), "sample_aspect_ratio=1:2");
}

TEST_F(Rotation, chroma_keeps_its_resolution)
{
    makeClip("in.mov", {"-c:v", "prores_ks", "-pix_fmt", "yuv422p10le"}, quarterTurn);
    const Outcome outcome = convert({"in.mov", "out.mkv", "--rotate"});
    expectHas(outcome.err, "frames are filtered by transpose=clock");
    expectHas(outcome.err, "yuv422p10le becomes yuv444p10le");
}

TEST_F(Rotation, is_a_tag_where_the_container_has_one_and_else_said)
{
    makeClip("in.mov", {"-c:v", "prores_ks", "-pix_fmt", "yuv422p10le"}, quarterTurn);
    const auto tagOf = [&](const std::string& file) {
        return run({"ffprobe", "-v", "error", "-show_entries", "stream_side_data=rotation", "-of", "csv=p=0",
                    file})
            .out;
    };
    EXPECT_EQ(tagOf("in.mov").substr(0, 3), "-90");
    convert({"in.mov", "out.mov"});
    EXPECT_EQ(tagOf("out.mov").substr(0, 3), "-90");
    expectHas(probe("out.mov", "width"), "width=64");
    expectHas(convert({"in.mov", "out.mkv"}).err, "marked to be shown turned by 90 degrees");
    convert({"in.mov", "turned.mov", "--rotate"});
    EXPECT_EQ(tagOf("turned.mov").find("90"), std::string::npos);
    expectHas(probe("turned.mov", "width"), "width=48");
}

TEST_F(Rotation, what_cannot_be_turned_is_refused)
{
    constexpr int halfRoot = 46341;
    makeClip("in.mov", {"-c:v", "png", "-pix_fmt", "rgb24"}, {1, 1, -1, 1}, halfRoot);
    expectHas(convert({"in.mov", "out.mkv", "--rotate"}, 3).err,
              "is shown turned by 45 degrees, and only quarters");
    makeClip("in.mov",
             {"-vf", "setfield=tff", "-flags", "+ildct", "-c:v", "prores_ks", "-pix_fmt", "yuv422p10le"},
             quarterTurn);
    expectHas(convert({"in.mov", "out.mkv", "--rotate"}, 3).err, "is interlaced");
    convert({"in.mov", "out.mkv", "--rotate", "--deinterlace"});
    expectHas(probe("out.mkv", "width"), "width=48");
}

} // namespace

} // namespace Qx::System
