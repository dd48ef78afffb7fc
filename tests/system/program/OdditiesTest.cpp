// Files that are unusual or damaged in ways that are met in practice, and what comes out of each.

#include "tests/system/program/Program.h"

#include <cstdint>
#include <fstream>
#include <functional>
#include <iterator>
#include <nlohmann/json.hpp>
#include <ostream>
#include <sstream>

namespace Qx::System {

namespace {

/// The files of a test, as bytes.
class Files
{
public:
    explicit Files(fs::path directory) : directory_(std::move(directory)) {}

    std::string operator[](const std::string& name) const
    {
        std::ifstream in(directory_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    void store(const std::string& name, std::string_view bytes) const
    {
        std::ofstream out(directory_ / name, std::ios::binary);
        out << bytes;
        ASSERT_TRUE(out.flush().good());
    }

    void join(const std::string& name, std::initializer_list<const char*> parts) const
    {
        std::string all;
        for (const char* part : parts) {
            all += (*this)[part];
        }
        store(name, all);
    }

    /// Keeps the first hundredths of a file.
    void cut(const std::string& name, std::size_t percent) const
    {
        const std::string bytes = (*this)[name];
        ASSERT_GT(bytes.size(), 1000U);
        store(name, std::string_view(bytes).substr(0, bytes.size() * percent / 100));
    }

private:
    fs::path directory_;
};

/// One entry of an edit list: which part of the media is shown, and how long.
struct Edit
{
    std::uint32_t milliseconds; ///< in the time of the movie, which FFmpeg counts so
    std::int32_t from;          ///< in the time of the media; -1 shows nothing
};

/// Stores a number as ISO files have it.
void put(std::string& bytes, std::size_t at, std::uint32_t value)
{
    for (std::size_t i = 0; i < 4; ++i) {
        bytes.at(at + i) = static_cast<char>(value >> (24 - 8 * i));
    }
}

/// Gives a file's only track the matrix that turns it by 90 degrees clockwise (ISO/IEC 14496-12, 8.3.2).
void turn(const Files& files, const std::string& name, std::uint32_t height)
{
    std::string bytes = files[name];
    const std::size_t header = bytes.find("tkhd");
    ASSERT_NE(header, std::string::npos);
    ASSERT_EQ(bytes.at(header + 4), 0) << "its times have 32 bits";
    constexpr std::uint32_t one = 1U << 16;
    const std::size_t matrix = header + 44;
    ASSERT_EQ(bytes.substr(matrix, 4), std::string("\0\1\0\0", 4)) << "it is not turned yet";
    std::size_t at = matrix;
    for (const std::uint32_t value : {0U, one, 0U, 0U - one, 0U, 0U, height << 16U, 0U, 1U << 30U}) {
        put(bytes, at, value);
        at += 4;
    }
    files.store(name, bytes);
}

/// Replaces the entries of a file's only edit list, which has as many (ISO/IEC 14496-12, 8.6.6).
void setEdits(const Files& files, const std::string& name, const std::vector<Edit>& edits)
{
    std::string bytes = files[name];
    const std::size_t list = bytes.find("elst");
    ASSERT_NE(list, std::string::npos);
    ASSERT_EQ(static_cast<std::size_t>(bytes.at(list + 11)), edits.size());
    std::size_t at = list + 12;
    for (const Edit& edit : edits) {
        put(bytes, at, edit.milliseconds);
        put(bytes, at + 4, static_cast<std::uint32_t>(edit.from));
        at += 12;
    }
    files.store(name, bytes);
}

struct Oddity
{
    const char* name;
    std::vector<const char*> made;            ///< the arguments of ffmpeg, a run each
    std::function<void(const Files&)> edited; ///< afterwards
    const char* clip;

    int exitCode;
    int frames; ///< of the output; 0 if there must be none
    const char* size;
    std::vector<const char*> says; ///< on standard error

    /// Names the test by what it reads, and not by where the text lies in memory.
    friend void PrintTo(const Oddity& oddity, std::ostream* out) { *out << oddity.name; }
};

class Oddities : public ProgramTest, public testing::WithParamInterface<Oddity>
{
protected:
    void make() const
    {
        for (const char* line : GetParam().made) {
            std::istringstream words(line);
            ffmpeg({std::istream_iterator<std::string>(words), {}});
        }
        if (GetParam().edited) {
            GetParam().edited(Files(directory_));
        }
    }
};

TEST_P(Oddities, come_out_as_stated)
{
    const Oddity& oddity = GetParam();
    make();
    const Outcome outcome = qxhost({"convert", oddity.clip, "out.mkv", "--json"});
    EXPECT_EQ(outcome.exitCode, oddity.exitCode) << outcome.err;
    for (const char* words : oddity.says) {
        EXPECT_NE(outcome.err.find(words), std::string::npos) << words << " is not in\n" << outcome.err;
    }
    ASSERT_EQ(fs::exists(at("out.mkv")), oddity.frames > 0) << outcome.err;
    if (oddity.frames == 0) {
        return;
    }
    const auto report = nlohmann::json::parse(outcome.out, nullptr, false);
    ASSERT_FALSE(report.is_discarded()) << outcome.out;
    EXPECT_EQ(report["frames"], oddity.frames) << outcome.err;
    EXPECT_EQ(report["complete"], oddity.exitCode == 0) << outcome.err;
    const std::string probed = probe("out.mkv", "width,height,nb_read_frames");
    EXPECT_NE(probed.find("nb_read_frames=" + std::to_string(oddity.frames) + "\n"), std::string::npos)
        << probed;
    std::istringstream size(probed);
    std::string width;
    std::string height;
    size >> width >> height;
    EXPECT_EQ(width + " " + height, oddity.size);
}

// Ten frames of 64x48, in a fast encoder's plain way or as H.264 with frames that others refer to.
#define PLAIN "-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 10 -c:v mpeg4 -bf 0 "
#define H264 "-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 10 -pix_fmt yuv420p -c:v libx264 -bf 3 "
#define INTRA "-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 10 -c:v mjpeg "
#define BARE "-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 10 -c:v libx264 -bf 0 "
#define PICTURES "-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 4 "
constexpr const char* usual = "width=64 height=48";
constexpr int frameTime = 512; // of the media in MOV and MP4 at 25 frames a second, as FFmpeg writes them

using EditBeyondTheEnd = ProgramTest;

TEST_F(EditBeyondTheEnd, shows_what_ffmpeg_reads_of_it_and_fails_as_an_input)
{
    std::istringstream words(INTRA "a.mov");
    ffmpeg({std::istream_iterator<std::string>(words), {}});
    setEdits(Files(directory_), "a.mov", {{200, 50 * frameTime}});
    // FFmpeg 5 shows the last frame, FFmpeg 7 none.
    const std::string probed = probe("a.mov", "nb_read_frames");
    const bool shown = probed.find("nb_read_frames=1\n") != std::string::npos;
    const Outcome outcome = qxhost({"convert", "a.mov", "out.mkv"});
    EXPECT_EQ(outcome.exitCode, 3) << outcome.err;
    EXPECT_EQ(fs::exists(at("out.mkv")), shown) << probed << outcome.err;
    EXPECT_NE(outcome.err.find(shown ? "announces 10 frames, of which 1 could be read"
                                     : "holds no frame that can be decoded"),
              std::string::npos)
        << outcome.err;
}

INSTANTIATE_TEST_SUITE_P(
    EditLists, Oddities,
    testing::Values(
        Oddity{"trimmed_by_stream_copy",
               {H264 "a.mp4", "-ss 0.16 -i a.mp4 -c copy b.mp4"},
               {},
               "b.mp4",
               0,
               6,
               usual,
               {}},
        Oddity{"trimmed_between_frames_that_refer_across_the_cut",
               {"-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 24 -pix_fmt yuv420p -c:v libx264 -bf 3 -g 8 "
                "-x264-params open-gop=1 a.mp4",
                "-ss 0.44 -i a.mp4 -c copy b.mp4"},
               {},
               "b.mp4",
               0,
               13,
               usual,
               {}},
        Oddity{"only_a_part_is_shown",
               {INTRA "a.mov"},
               [](const Files& files) {
                   setEdits(files, "a.mov", {{200, 3 * frameTime}});
               },
               "a.mov",
               0,
               5,
               usual,
               {}},
        Oddity{"a_part_is_shown_twice",
               {INTRA "a.mov", "-itsoffset 0.2 -i a.mov -c copy b.mov"},
               [](const Files& files) {
                   setEdits(files, "b.mov", {{200, 5 * frameTime}, {400, 0}});
               },
               "b.mov",
               0,
               15,
               usual,
               {}},
        Oddity{"begins_late",
               {H264 "a.mp4", "-itsoffset 0.4 -i a.mp4 -c copy b.mp4"},
               {},
               "b.mp4",
               0,
               10,
               usual,
               {}},
        Oddity{"rotated",
               {PLAIN "a.mp4"},
               [](const Files& files) { turn(files, "a.mp4", 48); },
               "a.mp4",
               0,
               10,
               usual,
               {"turned by 90 degrees"}}),
    [](const auto& test) { return std::string(test.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Times, Oddities,
    testing::Values(
        Oddity{"negative_in_matroska", {BARE "-bsf:v setts=ts=TS-200 a.mkv"}, {}, "a.mkv", 0, 10, usual, {}},
        Oddity{"negative_in_mp4_are_hidden",
               {BARE "a.mov", "-i a.mov -c copy -bsf:v setts=ts=TS-5*512 -avoid_negative_ts disabled a.mp4"},
               {},
               "a.mp4",
               0,
               5,
               usual,
               {}},
        Oddity{"none_in_avi", {H264 "a.avi"}, {}, "a.avi", 0, 10, usual, {}},
        Oddity{"none_in_a_bare_stream", {H264 "a.h264"}, {}, "a.h264", 0, 10, usual, {}},
        Oddity{"far_from_zero", {BARE "-bsf:v setts=ts=TS+9000000000 a.mkv"}, {}, "a.mkv", 0, 10, usual, {}},
        Oddity{"the_frame_rate_varies",
               {"-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 10 -vf setpts=N*N/25/TB -vsync vfr -c:v mpeg4 "
                "a.mkv"},
               {},
               "a.mkv",
               0,
               10,
               usual,
               {}},
        Oddity{
            "every_other_frame_is_left_out_of_avi",
            {"-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 10 -vf setpts=2*N/25/TB -vsync vfr -enc_time_base "
             "1/25 -c:v mjpeg a.avi"},
            {},
            "a.avi",
            0,
            10,
            usual,
            {}},
        Oddity{"joined_transport_streams",
               {"-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 10 -c:v mpeg2video a.ts"},
               [](const Files& files) {
                   files.join("b.ts", {"a.ts", "a.ts"});
               },
               "b.ts",
               3,
               20,
               usual,
               {"damaged or cut short near 1.7"}}),
    [](const auto& test) { return std::string(test.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Changes, Oddities,
    testing::Values(
        Oddity{"of_size",
               {BARE "a.h264", "-f lavfi -i testsrc2=s=96x48:r=25 -frames:v 10 -c:v libx264 b.h264"},
               [](const Files& files) {
                   files.join("c.h264", {"a.h264", "b.h264"});
               },
               "c.h264",
               3,
               0,
               "",
               {"size changes from 64x48 to 96x48 near frame 11", "--frames 10 converts what is before it"}},
        Oddity{"of_chroma_resolution_and_depth",
               {BARE "-pix_fmt yuv444p a.h264", BARE "-pix_fmt yuv420p b.h264",
                BARE "-pix_fmt yuv422p10 c.h264"},
               [](const Files& files) {
                   files.join("d.h264", {"a.h264", "b.h264", "c.h264"});
               },
               "d.h264",
               0,
               30,
               usual,
               {}},
        Oddity{"from_ycbcr_to_rgb",
               {BARE "-pix_fmt yuv420p a.h264",
                "-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 10 -c:v libx264rgb b.h264"},
               [](const Files& files) {
                   files.join("c.h264", {"a.h264", "b.h264"});
               },
               "c.h264",
               0,
               20,
               usual,
               {}},
        Oddity{"from_rgb_to_ycbcr",
               {BARE "-pix_fmt yuv420p a.h264",
                "-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 10 -c:v libx264rgb b.h264"},
               [](const Files& files) {
                   files.join("c.h264", {"b.h264", "a.h264"});
               },
               "c.h264",
               3,
               0,
               "",
               {"pixel format changes from gbrp to yuv"}},
        Oddity{"of_the_kind_of_picture_in_a_sequence",
               {PICTURES "-pix_fmt rgb24 s%d.png", PICTURES "-frames:v 1 -pix_fmt gray s2.png",
                PICTURES "-frames:v 1 -pix_fmt pal8 s3.png", PICTURES "-frames:v 1 -pix_fmt rgba64be s4.png"},
               {},
               "s%d.png",
               0,
               4,
               usual,
               {}},
        Oddity{"of_the_size_in_a_sequence",
               {PICTURES "s%d.png", "-f lavfi -i testsrc2=s=32x32 -frames:v 1 s3.png"},
               {},
               "s%d.png",
               3,
               0,
               "",
               {"size changes from 64x48 to 32x32 at picture 3 (\"s3.png\")", "rename what follows",
                "--frames 2 converts what is before it"}}),
    [](const auto& test) { return std::string(test.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Damage, Oddities,
    testing::Values(Oddity{"mp4_without_its_index",
                           {INTRA "a.mov"},
                           [](const Files& files) { files.cut("a.mov", 70); },
                           "a.mov",
                           3,
                           0,
                           "",
                           {"moov atom not found"}},
                    Oddity{"mp4_without_its_end",
                           {INTRA "-movflags +faststart a.mov"},
                           [](const Files& files) { files.cut("a.mov", 70); },
                           "a.mov",
                           3,
                           7,
                           usual,
                           {"damaged or cut short near", "announces 10 frames, of which 7 could be read"}},
                    Oddity{"mp4_in_fragments_without_its_end",
                           {INTRA "-movflags +frag_keyframe+empty_moov a.mp4"},
                           [](const Files& files) { files.cut("a.mp4", 70); },
                           "a.mp4",
                           3,
                           7,
                           usual,
                           {"the file is damaged or cut short"}},
                    Oddity{"avi_without_its_index",
                           {INTRA "a.avi"},
                           [](const Files& files) {
                               const std::string bytes = files["a.avi"];
                               files.store("a.avi", std::string_view(bytes).substr(0, bytes.rfind("idx1")));
                           },
                           "a.avi",
                           0,
                           10,
                           usual,
                           {}},
                    Oddity{"avi_without_its_end",
                           {INTRA "a.avi"},
                           [](const Files& files) { files.cut("a.avi", 70); },
                           "a.avi",
                           3,
                           6,
                           usual,
                           {"announces 10 frames, of which 6 could be read"}},
                    Oddity{"an_empty_file",
                           {},
                           [](const Files& files) { files.store("a.mp4", ""); },
                           "a.mp4",
                           3,
                           0,
                           "",
                           {"the file is empty"}},
                    Oddity{"a_clip_without_a_frame",
                           {"-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 0 -c:v mpeg4 a.avi"},
                           {},
                           "a.avi",
                           3,
                           0,
                           "",
                           {"holds no frame that can be decoded"}},
                    Oddity{"an_empty_picture_in_a_sequence",
                           {PICTURES "s%d.png"},
                           [](const Files& files) { files.store("s3.png", ""); },
                           "s%d.png",
                           3,
                           2,
                           usual,
                           {"picture 3 (\"s3.png\") is empty; the sequence ends there"}},
                    Oddity{"a_broken_picture_in_a_sequence",
                           {PICTURES "s%d.png"},
                           [](const Files& files) {
                               files.store("s3.png", std::string_view(files["s3.png"]).substr(0, 200));
                           },
                           "s%d.png",
                           3,
                           3,
                           usual,
                           {"picture 3 (\"s3.png\") is damaged",
                            "announces 4 frames, of which 3 could be read"}}),
    [](const auto& test) { return std::string(test.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Kinds, Oddities,
    testing::Values(
        Oddity{"an_odd_size",
               {"-f lavfi -i testsrc=s=63x47:r=25 -frames:v 10 -pix_fmt yuv420p -c:v ffv1 a.mkv"},
               {},
               "a.mkv",
               0,
               10,
               "width=63 height=47",
               {}},
        Oddity{"a_single_pixel",
               {"-f lavfi -i testsrc=s=8x8:r=25 -frames:v 10 -vf crop=1:1,format=yuv420p -c:v ffv1 a.mkv"},
               {},
               "a.mkv",
               0,
               10,
               "width=1 height=1",
               {}},
        Oddity{"unknown_colour_tags",
               {BARE "-bsf:v h264_metadata=matrix_coefficients=77:transfer_characteristics=99:colour_"
                     "primaries=88 a.mkv"},
               {},
               "a.mkv",
               0,
               10,
               usual,
               {"no tag for its matrix; assuming BT.601"}},
        Oddity{"colour_tags_that_cannot_be_converted",
               {BARE "-bsf:v h264_metadata=matrix_coefficients=12 a.mkv"},
               {},
               "a.mkv",
               3,
               0,
               "",
               {"its matrix is chroma-derived-nc", "--matrix"}},
        Oddity{"named_as_another_kind",
               {H264 "a.mp4"},
               [](const Files& files) { files.store("b.avi", files["a.mp4"]); },
               "b.avi",
               0,
               10,
               usual,
               {}}),
    [](const auto& test) { return std::string(test.param.name); });

#undef PLAIN
#undef H264
#undef INTRA
#undef BARE
#undef PICTURES

} // namespace

} // namespace Qx::System
