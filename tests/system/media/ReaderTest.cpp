// What a reader says of a clip, and what it says when it cannot read one.

#include "tests/system/media/MediaFixture.h"
#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/read/StreamColour.h"

#include <cstring>
#include <ostream>

namespace Qx::Media::Test {
namespace {

using Reader = MediaTest;

std::vector<FrameTime> allTimes(ClipReader& reader)
{
    std::vector<FrameTime> times;
    Frame frame;
    while (reader.next(frame) == ClipReader::Next::frame) {
        times.push_back(frame.time());
    }
    return times;
}

TEST_F(Reader, TellsSizeRateAspectFieldOrderAndAudio)
{
    ffmpeg("-f lavfi -i testsrc2=s=72x58:r=25:d=0.4 -f lavfi -i sine=d=0.4 -vf setfield=bff,setsar=16/15 "
           "-c:v prores_ks -flags +ildct -c:a pcm_s16le clip.mov");
    auto reader = open(at("clip.mov"));
    ASSERT_TRUE(reader);
    const StreamInfo& info = reader->info();
    EXPECT_EQ(info.width, 72);
    EXPECT_EQ(info.height, 58);
    EXPECT_EQ(info.frameRate, (Rational{25, 1}));
    EXPECT_EQ(info.sampleAspect, (Rational{16, 15}));
    EXPECT_EQ(info.fieldOrder, FieldOrder::bottomFirst);
    EXPECT_EQ(info.codec, "prores");
    EXPECT_EQ(info.pixelFormat, "yuv422p10le");
    EXPECT_EQ(info.bitsPerComponent, 10);
    EXPECT_TRUE(info.hasAudio);
    EXPECT_FALSE(info.isStill);
    EXPECT_TRUE(info.frameCountIsExact);
    EXPECT_EQ(info.frameCount, 10);
    EXPECT_NEAR(info.duration, 0.4, 0.001);
}

TEST_F(Reader, GivesEveryFrameWithItsTime)
{
    ffmpeg("-f lavfi -i testsrc2=s=64x64:r=30000/1001:d=1 -bf 3 -g 12 -c:v libx264 clip.mp4");
    auto reader = open(at("clip.mp4"));
    ASSERT_TRUE(reader);
    const auto times = allTimes(*reader);
    ASSERT_EQ(times.size(), 30U);
    const double unit = reader->info().timeBase.toDouble();
    for (std::size_t i = 0; i < times.size(); ++i) {
        EXPECT_NEAR(static_cast<double>(times[i].pts) * unit, static_cast<double>(i) * 1001 / 30000, 1e-4);
        EXPECT_NEAR(static_cast<double>(times[i].duration) * unit, 1001.0 / 30000, 1e-4);
    }
    Frame frame;
    EXPECT_EQ(reader->next(frame), ClipReader::Next::end);
    EXPECT_EQ(reader->problemCount(), 0);
}

TEST_F(Reader, StreamsWithoutTimesGetThemFromTheFrameRate)
{
    ffmpeg("-f lavfi -i testsrc2=s=64x64:r=24:d=0.5 -c:v libx264 -bf 0 clip.h264");
    auto reader = open(at("clip.h264"));
    ASSERT_TRUE(reader);
    const auto times = allTimes(*reader);
    ASSERT_EQ(times.size(), 12U);
    for (std::size_t i = 1; i < times.size(); ++i) {
        EXPECT_GT(times[i].pts, times[i - 1].pts);
    }
}

struct TagCase
{
    const char* options;
    Range range;
    Matrix matrix;
    bool rangeGuessed;
    bool matrixGuessed;

    /// Names the test by what it reads, and not by where the text lies in memory.
    friend void PrintTo(const TagCase& tags, std::ostream* out) { *out << tags.options; }
};

class Tags : public MediaTest, public testing::WithParamInterface<TagCase>
{
};

TEST_P(Tags, AreReadAndGuessesAreMarked)
{
    const TagCase& wanted = GetParam();
    ffmpeg(std::string("-f lavfi -i testsrc2=r=25:d=0.08:s=") + wanted.options + " tagged.mp4");
    // FFmpeg 7 tags the range of what it writes into Matroska itself, but copies a stream as it is.
    ffmpeg("-i tagged.mp4 -c copy clip.mkv");
    auto reader = open(at("clip.mkv"));
    ASSERT_TRUE(reader);
    const Colour& colour = reader->info().colour;
    EXPECT_EQ(colour.range, wanted.range);
    EXPECT_EQ(colour.matrix, wanted.matrix);
    EXPECT_EQ(colour.rangeGuessed, wanted.rangeGuessed);
    EXPECT_EQ(colour.matrixGuessed, wanted.matrixGuessed);
    EXPECT_EQ(colour.unsupported, "");
}

constexpr auto video = Range::video;
constexpr auto full = Range::full;
INSTANTIATE_TEST_SUITE_P(
    Combinations, Tags,
    testing::Values(TagCase{"720x16 -vf format=yuv420p,setparams=range=unknown -c:v libx264", video,
                            Matrix::bt601, true, true},
                    TagCase{"722x16 -vf format=yuv420p,setparams=range=unknown -c:v libx264", video,
                            Matrix::bt709, true, true},
                    TagCase{"64x16 -pix_fmt yuv420p -colorspace bt709 -color_range tv -c:v libx264", video,
                            Matrix::bt709, false, false},
                    TagCase{"722x16 -pix_fmt yuv420p -colorspace smpte170m -color_range pc -c:v libx264",
                            full, Matrix::bt601, false, false},
                    TagCase{"722x16 -pix_fmt yuv420p -colorspace bt470bg -color_range tv -c:v libx264", video,
                            Matrix::bt601, false, false},
                    TagCase{"64x16 -pix_fmt yuv420p10le -colorspace bt2020nc -color_primaries bt2020 "
                            "-color_trc smpte2084 -color_range tv -c:v libx264",
                            video, Matrix::bt2020, false, false},
                    TagCase{"722x16 -vf format=yuv420p,setparams=range=tv:color_primaries=bt2020 "
                            "-color_primaries bt2020 -color_range tv -c:v libx264",
                            video, Matrix::bt2020, false, true},
                    TagCase{"64x16 -pix_fmt yuvj422p -c:v mjpeg", full, Matrix::bt601, false, false}));

TEST_F(Reader, OtherColoursAreUnsupportedByName)
{
    const std::pair<std::string, std::string> cases[] = {
        {"colorspace=bt2020c", "BT.2020 with constant luminance"},
        {"colorspace=smpte240m", "smpte240m"},
        {"colorspace=fcc", "fcc"},
        {"colorspace=ycgco", "ycgco"},
    };
    for (const auto& [tags, word] : cases) {
        ffmpeg("-f lavfi -i testsrc2=r=25:d=0.08:s=64x16 -vf format=yuv420p,setparams=" + tags +
               " -c:v libx264 clip.mp4");
        auto reader = open(at("clip.mp4"));
        ASSERT_TRUE(reader);
        EXPECT_TRUE(has(reader->info().colour.unsupported, word))
            << tags << ": " << reader->info().colour.unsupported;
    }
}

/// Files that are damaged have them, and FFmpeg passes them on.
TEST(StreamColour, TagsOfUnknownNumbersSayNothingOrAreRefused)
{
    const auto colourWith = [](auto AVFrame::*tag, unsigned number) {
        const FramePtr frame(av_frame_alloc());
        frame->format = AV_PIX_FMT_YUV420P;
        frame->width = 64;
        frame->height = 48;
        std::memcpy(&(frame.get()->*tag), &number, sizeof(number));
        AVCodecParameters stream{};
        stream.color_range = AVCOL_RANGE_MPEG;
        stream.color_primaries = AVCOL_PRI_UNSPECIFIED;
        stream.color_trc = AVCOL_TRC_UNSPECIFIED;
        stream.color_space = AVCOL_SPC_BT709;
        return colourOf(*frame, stream);
    };
    for (const unsigned number : {23U, 205U, 0xffffffffU}) {
        EXPECT_EQ(colourWith(&AVFrame::color_primaries, number).primariesTag, AVCOL_PRI_UNSPECIFIED);
        EXPECT_EQ(colourWith(&AVFrame::color_trc, number).transferTag, AVCOL_TRC_UNSPECIFIED);
        EXPECT_EQ(colourWith(&AVFrame::color_range, number).range, Range::video) << "the stream's";
        EXPECT_EQ(colourWith(&AVFrame::colorspace, number).unsupported, "its matrix is of an unknown number");
    }
}

TEST_F(Reader, MissingEmptyAndForeignFilesAreNamedWithTheCause)
{
    EXPECT_TRUE(has(openError(at("none.mov")), "none.mov\": there is no such file"));
    EXPECT_TRUE(has(openError(directory_), "it is a directory"));
    store(at("empty.mov"), {});
    EXPECT_TRUE(has(openError(at("empty.mov")), "empty.mov\": the file is empty"));
    const std::string prose = "This is no clip.\n";
    store(at("prose.mov"), Bytes(prose.begin(), prose.end()));
    EXPECT_TRUE(has(openError(at("prose.mov")), "prose.mov"));
    store(at("noise.bin"), noise(5000));
    EXPECT_TRUE(has(openError(at("noise.bin")), "noise.bin"));
    EXPECT_TRUE(has(openError(at("none_%03d.png")), "none_%03d.png"));
    const fs::path link = at("loop.mov");
    fs::create_symlink(link, link);
    EXPECT_TRUE(has(openError(link), "loop.mov"));
}

TEST_F(Reader, SoundAloneIsNoVideo)
{
    ffmpeg("-f lavfi -i sine=d=0.2 sound.wav");
    EXPECT_TRUE(has(openError(at("sound.wav")), "has no video stream"));
    ffmpeg(
        "-f lavfi -i sine=d=0.2 -f lavfi -i color=s=32x32:r=25:d=0.04 -c:v png -disposition:v attached_pic "
        "-map 0 -map 1 cover.m4a");
    EXPECT_TRUE(has(openError(at("cover.m4a")), "cover picture"));
}

TEST_F(Reader, PixelFormatsThatCannotBeConvertedAreRefusedByName)
{
    ffmpeg("-f lavfi -i color=s=32x32 -frames:v 1 -pix_fmt xyz12le -c:v rawvideo one.nut");
    const std::string error = openError(at("one.nut"));
    EXPECT_TRUE(has(error, "one.nut") && has(error, "xyz12le") && has(error, "CIE XYZ")) << error;
}

TEST_F(Reader, PlaylistsDoNotOpenOtherFiles)
{
    ffmpeg("-f lavfi -i color=s=32x32:d=0.2 -c:v libx264 other.ts");
    const std::string list =
        "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\nhttp://127.0.0.1:9/other.ts\n#EXT-X-ENDLIST\n";
    store(at("list.m3u8"), Bytes(list.begin(), list.end()));
    EXPECT_TRUE(has(openError(at("list.m3u8")), "list.m3u8"));
}

/// Lists are known by what they hold, whatever their name.
class Lists : public MediaTest
{
protected:
    void SetUp() override
    {
        for (const std::string name : {"one.ts", "two.ts", "three.ts", "foreign.ts"}) {
            ffmpeg("-f lavfi -i testsrc2=s=64x64:d=1:r=25 -c:v mpeg2video -f mpegts " + name);
        }
    }

    void list(const std::string& name, const std::string& text) const
    {
        store(at(name), Bytes(text.begin(), text.end()));
    }

    /// Expects that one frame is read and that these files, though not all were opened, are the input's.
    void expectInput(const std::string& name, const std::vector<std::string>& files)
    {
        auto reader = open(at(name));
        ASSERT_TRUE(reader) << name;
        Frame frame;
        EXPECT_EQ(reader->next(frame), ClipReader::Next::frame);
        for (const std::string& file : files) {
            EXPECT_TRUE(reader->files()->contains(at(file))) << name << " " << file;
        }
        EXPECT_FALSE(reader->files()->contains(at("foreign.ts"))) << name;
    }
};

TEST_F(Lists, ConcatScriptsMakeTheFilesThatTheyNameTheInput)
{
    list("inner.txt", "ffconcat version 1.0\nfile three.ts\n");
    list("c.mkv", "ffconcat version 1.0\n# file foreign.ts\nfile 'one.ts'\nduration 0.12\n"
                  " file\ttwo.ts\r\nfile inner\\.txt");
    expectInput("c.mkv", {"c.mkv", "one.ts", "two.ts", "inner.txt", "three.ts"});
}

TEST_F(Lists, PlaylistsMakeTheFilesThatTheyNameTheInput)
{
    const std::string head = "#EXTM3U\n#EXT-X-TARGETDURATION:1\n";
    list("media.m3u8", head + "#EXTINF:0.12,\none.ts\n#EXTINF:0.12,\r\n./two.ts\r\n#EXT-X-ENDLIST\n");
    list("other.m3u8", head + "#EXTINF:0.12,\nthree.ts\n#EXT-X-ENDLIST\n");
    list("master.m3u8", "#EXTM3U\n#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"a\",NAME=\"a\",URI=\"other.m3u8\"\n"
                        "#EXT-X-STREAM-INF:BANDWIDTH=100000\nmedia.m3u8\n");
    expectInput("media.m3u8", {"media.m3u8", "one.ts", "two.ts"});
    expectInput("master.m3u8", {"master.m3u8", "media.m3u8", "other.m3u8", "one.ts", "two.ts", "three.ts"});
}

TEST_F(Lists, FilesThatAreOpenedAreTheInputHoweverTheListNamesThem)
{
    list("media.m3u8", "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXT-X-MAP:URI=one.ts\n#EXTINF:1,\ntwo.ts\n");
    expectInput("media.m3u8", {"one.ts", "two.ts"});
}

TEST_F(Lists, AManifestThatDoesNotNameItsFilesMayMeanAny)
{
    ffmpeg("-f lavfi -i testsrc2=s=64x64:d=0.4:r=25 -c:v libx264 -f dash manifest.mpd");
    list("script.txt", "ffconcat version 1.0\nfile one.ts\nfile manifest.mpd\n");
    for (const std::string name : {"manifest.mpd", "script.txt"}) {
        auto reader = open(at(name));
        ASSERT_TRUE(reader) << name;
        EXPECT_TRUE(reader->files()->contains(at("foreign.ts"))) << name;
        EXPECT_FALSE(reader->files()->contains(at("absent.ts"))) << name;
    }
}

TEST_F(Lists, ThatLeadBackToThemselvesAreRefused)
{
    list("round.txt", "ffconcat version 1.0\nfile one.ts\nfile half.txt\n");
    list("half.txt", "ffconcat version 1.0\nfile two.ts\nfile round.txt\n");
    const std::string error = openError(at("round.txt"));
    EXPECT_TRUE(has(error, "round.txt") && has(error, "leads back to itself")) << error;
}

TEST_F(Reader, TruncatedClipGivesWhatIsThereAndSaysSo)
{
    ffmpeg("-f lavfi -i testsrc2=s=64x64:r=25:d=2 -c:v mjpeg -movflags +faststart whole.mov");
    Bytes bytes = contents(at("whole.mov"));
    bytes.resize(bytes.size() * 6 / 10);
    store(at("cut.mov"), bytes);
    auto reader = open(at("cut.mov"));
    ASSERT_TRUE(reader);
    const auto times = allTimes(*reader);
    EXPECT_GT(times.size(), 10U);
    EXPECT_LT(times.size(), 50U);
    ASSERT_GT(reader->problemCount(), 0);
    EXPECT_TRUE(has(reader->problems().back(), "cut.mov")) << reader->problems().back();
}

TEST_F(Reader, AClipWithoutAnIndexToMissIsKnownToBeCutToo)
{
    ffmpeg("-f lavfi -i testsrc2=s=64x64:r=25:d=2 -f lavfi -i sine=d=2.5 -c:v ffv1 -c:a pcm_s16le whole.mkv");
    ffmpeg("-f lavfi -i testsrc2=s=64x64:r=25:d=2 -c:v libvpx-vp9 -b:v 300k -speed 8 whole.webm");
    for (const std::string name : {"whole.mkv", "whole.webm"}) {
        auto whole = open(at(name));
        ASSERT_TRUE(whole);
        EXPECT_EQ(allTimes(*whole).size(), 50U);
        EXPECT_EQ(whole->problemCount(), 0) << whole->problems().front();
        const Bytes bytes = contents(at(name));
        for (const std::size_t percent : {40U, 60U, 83U}) {
            store(at("cut.mkv"), Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(
                                                                          bytes.size() * percent / 100)));
            auto reader = open(at("cut.mkv"));
            ASSERT_TRUE(reader);
            allTimes(*reader);
            ASSERT_EQ(reader->problemCount(), 1) << name << " " << percent;
            EXPECT_TRUE(has(reader->problems()[0], "cut.mkv") && has(reader->problems()[0], "cut short"))
                << reader->problems()[0];
        }
    }
}

TEST_F(Reader, FramesThatAnEditListHidesAreNotLost)
{
    for (const std::string encoder : {"libx264 -bf 3 -g 8 -x264-params open-gop=1", "mpeg2video -bf 2 -g 8",
                                      "libx265 -x265-params log-level=none:keyint=8:open-gop=1", "prores"}) {
        ffmpeg("-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 24 -c:v " + encoder + " whole.mov");
        for (const std::string start : {"0.2", "0.32", "0.36", "0.6"}) {
            ffmpeg("-ss " + start + " -i whole.mov -t 0.3 -c copy trimmed.mov");
            auto reader = open(at("trimmed.mov"));
            ASSERT_TRUE(reader);
            ffmpeg("-i trimmed.mov -vsync passthrough -f rawvideo -pix_fmt gray judged.raw");
            const auto shown = static_cast<std::int64_t>(fs::file_size(at("judged.raw"))) / (64 * 48);
            const std::string what = encoder + " from " + start;
            EXPECT_EQ(static_cast<std::int64_t>(allTimes(*reader).size()), shown) << what;
            EXPECT_EQ(reader->info().frameCount, shown) << what;
            EXPECT_TRUE(reader->info().frameCountIsExact) << what;
            EXPECT_EQ(reader->problemCount(), 0) << what << ": " << reader->problems().front();
        }
    }
}

TEST_F(Reader, ATrimmedClipMayStillBeDamaged)
{
    ffmpeg("-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 24 -c:v libx264 -bf 0 -g 12 whole.mp4");
    ffmpeg("-ss 0.6 -i whole.mp4 -c copy -movflags +faststart trimmed.mp4");
    const Bytes sound = contents(at("trimmed.mp4"));

    Bytes cut = sound;
    cut.resize(cut.size() - 100);
    store(at("cut.mp4"), cut);
    auto reader = open(at("cut.mp4"));
    ASSERT_TRUE(reader);
    EXPECT_LT(allTimes(*reader).size(), 9U);
    EXPECT_TRUE(has(reader->problems().back(), "announces 9 frames, of which")) << reader->problems().back();

    // The first frame is hidden, but the ones that are shown refer to it.
    Bytes hurt = sound;
    const std::string data = "mdat";
    const auto first = std::search(hurt.begin(), hurt.end(), data.begin(), data.end());
    ASSERT_GT(hurt.end() - first, 1200);
    std::fill(first + 200, first + 900, std::uint8_t{0});
    store(at("hurt.mp4"), hurt);
    auto hidden = open(at("hurt.mp4"));
    ASSERT_TRUE(hidden);
    EXPECT_EQ(allTimes(*hidden).size(), 9U);
    EXPECT_GT(hidden->problemCount(), 0);
}

TEST_F(Reader, TablesWithTooFewFramesAreDamageAndNoEditList)
{
    ffmpeg("-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 10 -c:v mjpeg clip.mov");
    Bytes bytes = contents(at("clip.mov"));
    // The samples of each chunk (ISO/IEC 14496-12, 8.7.4): of the only chunk, which has ten.
    const std::string name = "stsc";
    const auto table = std::search(bytes.begin(), bytes.end(), name.begin(), name.end());
    ASSERT_GT(bytes.end() - table, 24);
    ASSERT_EQ(table[19], 10);
    table[19] = 6;
    store(at("clip.mov"), bytes);
    auto reader = open(at("clip.mov"));
    ASSERT_TRUE(reader);
    EXPECT_EQ(allTimes(*reader).size(), 6U);
    ASSERT_EQ(reader->problemCount(), 1);
    EXPECT_TRUE(has(reader->problems()[0], "announces 10 frames, of which 6 could be read"))
        << reader->problems()[0];
}

TEST_F(Reader, ABrokenPictureNearTheEndTakesNoOtherWithIt)
{
    ffmpeg("-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 10 s%02d.png");
    for (const char* broken : {"s01.png", "s04.png", "s09.png", "s10.png"}) {
        const Bytes sound = contents(at(broken));
        store(at(broken), Bytes(sound.begin(), sound.begin() + 200));
        for (const int threads : {1, 4, 16}) {
            auto opened = ClipReader::open(at("s%02d.png"), {.threads = threads});
            ASSERT_TRUE(opened) << opened.text();
            ClipReader& reader = *opened.value();
            EXPECT_EQ(allTimes(reader).size(), 9U) << broken << " with " << threads << " threads";
            ASSERT_FALSE(reader.problems().empty());
            EXPECT_TRUE(has(reader.problems().back(), "announces 10 frames, of which 9 could be read"))
                << reader.problems().back();
        }
        store(at(broken), sound);
    }
}

TEST_F(Reader, RgbHasNoMatrixAndItsLinearOrLogTagTellsNothing)
{
    for (const std::string tag : {"linear", "log100"}) {
        for (const std::string file : {"one.dpx", "one.tif", "one.png", "one.mkv"}) {
            ffmpeg("-f lavfi -i testsrc2=s=32x16 -frames:v 1 -vf format=" +
                   std::string(file == "one.mkv" ? "gbrp" : "rgb24") +
                   ",setparams=colorspace=bt2020nc:color_trc=" + tag +
                   (file == "one.mkv" ? " -c:v ffv1 " : " ") + file);
            auto reader = open(at(file));
            ASSERT_TRUE(reader);
            EXPECT_EQ(reader->info().colour.unsupported, "") << file << " " << tag;
            EXPECT_NE(reader->info().colour.transferTag, AVCOL_TRC_LINEAR) << file;
            EXPECT_NE(reader->info().colour.transferTag, AVCOL_TRC_LOG) << file;
        }
        ffmpeg("-f lavfi -i testsrc2=s=32x16 -frames:v 1 "
               "-vf format=yuv420p,setparams=colorspace=bt709:color_trc=" +
               tag + " -c:v libx264 one.mkv");
        auto reader = open(at("one.mkv"));
        ASSERT_TRUE(reader);
        EXPECT_TRUE(has(reader->info().colour.unsupported, tag)) << reader->info().colour.unsupported;
    }
}

TEST_F(Reader, ClipCutBeforeItsIndexIsAnErrorWithTheCause)
{
    ffmpeg("-f lavfi -i testsrc2=s=64x64:r=25:d=1 -c:v mjpeg whole.mov");
    Bytes bytes = contents(at("whole.mov"));
    bytes.resize(bytes.size() / 2);
    store(at("cut.mov"), bytes);
    EXPECT_TRUE(has(openError(at("cut.mov")), "moov atom not found"));
}

TEST_F(Reader, DamagedFramesAreCountedWithTheirTimeAndDoNotEndTheClip)
{
    ffmpeg("-f lavfi -i testsrc2=s=128x128:r=25:d=2 -c:v ffv1 -level 3 -slicecrc 1 clip.mkv");
    Bytes bytes = contents(at("clip.mkv"));
    const std::size_t middle = bytes.size() / 2;
    for (std::size_t i = middle; i < middle + 40; ++i) {
        bytes[i] = static_cast<std::uint8_t>(~bytes[i]);
    }
    store(at("hurt.mkv"), bytes);
    auto reader = open(at("hurt.mkv"));
    ASSERT_TRUE(reader);
    const auto times = allTimes(*reader);
    EXPECT_GE(times.size(), 45U);
    ASSERT_GT(reader->problemCount(), 0);
    EXPECT_TRUE(has(reader->problems().front(), "hurt.mkv") && has(reader->problems().front(), " s"))
        << reader->problems().front();
}

/// Reads some frames, or all.
std::int64_t problemsAfter(const fs::path& file, int frames)
{
    auto opened = ClipReader::open(file, {.threads = 8});
    EXPECT_TRUE(opened) << opened.text();
    ClipReader& reader = *opened.value();
    Frame frame;
    for (int i = 0; i < frames && reader.next(frame) == ClipReader::Next::frame; ++i) {
    }
    return reader.problemCount();
}

TEST_F(Reader, DamageBehindTheFramesTakenDoesNotCountThoughTheDecoderReadsAhead)
{
    ffmpeg("-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 10 -c:v mjpeg -movflags +faststart whole.mov");
    Bytes bytes = contents(at("whole.mov"));
    bytes.resize(bytes.size() * 7 / 10);
    store(at("cut.mov"), bytes);
    EXPECT_EQ(problemsAfter(at("cut.mov"), 3), 0);
    EXPECT_GT(problemsAfter(at("cut.mov"), 100), 0);

    ffmpeg("-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 10 s%02d.png");
    const Bytes sound = contents(at("s06.png"));
    store(at("s06.png"), Bytes(sound.begin(), sound.begin() + 200));
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(problemsAfter(at("s%02d.png"), 5), 0);
    }
    EXPECT_GT(problemsAfter(at("s%02d.png"), 6), 0);

    store(at("s06.png"), sound);
    fs::remove(at("s09.png"));
    EXPECT_EQ(problemsAfter(at("s%02d.png"), 3), 0);
    EXPECT_EQ(problemsAfter(at("s%02d.png"), 8), 0);
    EXPECT_EQ(problemsAfter(at("s%02d.png"), 9), 1);
}

TEST_F(Reader, DamageThatAFrameNeedsCountsThoughItIsShownLater)
{
    // In the order of decoding: frames 0, 3, 1 and 2. The second refers to the fourth.
    ffmpeg("-f lavfi -i testsrc2=s=128x96:r=25 -frames:v 10 -c:v mpeg2video -bf 2 -b_strategy 0 -g 50 "
           "whole.mkv");
    Bytes bytes = contents(at("whole.mkv"));
    const std::string places = probe(at("whole.mkv"), "packet=pos");
    const std::string key = "pos=";
    const std::size_t first = places.find(key);
    const std::size_t second = places.find(key, first + 1);
    const auto begin = static_cast<std::ptrdiff_t>(std::stol(places.substr(second + key.size())));
    ASSERT_LT(begin + 400, static_cast<std::ptrdiff_t>(bytes.size()));
    std::fill(bytes.begin() + begin + 100, bytes.begin() + begin + 400, std::uint8_t{0xff});
    store(at("hurt.mkv"), bytes);
    EXPECT_EQ(problemsAfter(at("hurt.mkv"), 1), 0);
    EXPECT_GT(problemsAfter(at("hurt.mkv"), 2), 0);
}

TEST_F(Reader, DamageInASequenceIsToldByThePicturesFile)
{
    ffmpeg("-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 10 s%02d.png");
    const Bytes sound = contents(at("s04.png"));
    store(at("s04.png"), Bytes(sound.begin(), sound.begin() + 200));
    ffmpeg("-f lavfi -i testsrc2=s=64x48:r=25 -frames:v 1 -start_number 7 -update 1 s07.png");
    Bytes hurt = contents(at("s07.png"));
    std::fill(hurt.end() - 300, hurt.end() - 100, std::uint8_t{0}); // the end of the picture's data
    store(at("s07.png"), hurt);
    for (const int threads : {1, 4, 16}) {
        auto opened = ClipReader::open(at("s%02d.png"), {.threads = threads});
        ASSERT_TRUE(opened) << opened.text();
        ClipReader& reader = *opened.value();
        allTimes(reader);
        ASSERT_GE(reader.problemCount(), 2) << threads;
        EXPECT_TRUE(has(reader.problems()[0], "picture 4 (\"") &&
                    has(reader.problems()[0], "s04.png\") is damaged"))
            << reader.problems()[0];
        EXPECT_TRUE(has(reader.problems()[1], "picture 7 (\"") &&
                    has(reader.problems()[1], "s07.png\") is damaged"))
            << reader.problems()[1];
    }
}

TEST_F(Reader, EachFrameIsReadInItsOwnRangeAndBroughtToTheOneWanted)
{
    // The same grey: 128 of 255, and 16 + 219 * 128 / 255.
    const auto clip = [&](const std::string& name, const std::string& pixelFormat, const std::string& range) {
        ffmpeg("-f lavfi -i color=0x808080:s=32x16:r=25 -frames:v 2 -vf format=" + pixelFormat +
               ",lutyuv=y=" + (range == "tv" ? "126" : "128") +
               ":u=128:v=128,setparams=colorspace=bt709:range=" + range +
               ":color_primaries=bt709:color_trc=bt709 -c:v libx264 -qp 0 -bf 0 " + name);
        return contents(at(name));
    };
    for (const std::string pixelFormat : {"yuv420p", "yuv422p"}) {
        Bytes both = clip("video.h264", pixelFormat, "tv");
        const Bytes second = clip("full.h264", pixelFormat, "pc");
        both.insert(both.end(), second.begin(), second.end());
        store(at("both.h264"), both);
        auto reader = open(at("both.h264"));
        ASSERT_TRUE(reader);
        EXPECT_EQ(reader->info().colour.range, Range::video);
        FramePacker following({.range = Range::video, .followTags = true});
        FramePacker insisting({.range = Range::video});
        Frame frame;
        for (int i = 0; i < 4; ++i) {
            ASSERT_EQ(reader->next(frame), ClipReader::Next::frame) << reader->failure();
            EXPECT_EQ(frame.range(), i < 2 ? Range::video : Range::full) << pixelFormat << " " << i;
            Bytes rows(FramePacker::rowBytes(32, Depth::bits8) * 16);
            ASSERT_TRUE(following.pack(frame, rows.data(), 64));
            EXPECT_EQ(rows[0], 126) << pixelFormat << " " << i;
            EXPECT_EQ(rows[1], 128);
            ASSERT_TRUE(insisting.pack(frame, rows.data(), 64));
            EXPECT_EQ(rows[0], i < 2 ? 126 : 128) << pixelFormat << " " << i;
        }
    }
}

TEST_F(Reader, RandomDamageNeverHangsOrCrashes)
{
    ffmpeg("-f lavfi -i testsrc2=s=64x64:r=25:d=0.4 -f lavfi -i sine=d=0.4 -c:v libx264 -c:a aac clip.mp4");
    const Bytes whole = contents(at("clip.mp4"));
    for (unsigned seed = 0; seed < 40; ++seed) {
        std::mt19937 random(seed);
        Bytes hurt = whole;
        for (int i = 0; i < 20; ++i) {
            hurt[random() % hurt.size()] = static_cast<std::uint8_t>(random());
        }
        store(at("hurt.mp4"), hurt);
        auto reader = ClipReader::open(at("hurt.mp4"), {});
        if (!reader) {
            EXPECT_TRUE(has(reader.text(), "hurt.mp4")) << reader.text();
            continue;
        }
        EXPECT_LE(allTimes(*reader.value()).size(), 1000U);
    }
}

TEST_F(Reader, AChangeOfSizeIsAFailureThatSaysBothSizes)
{
    ffmpeg("-f lavfi -i testsrc2=s=64x64:r=25:d=0.2 -c:v libx264 -bf 0 a.h264");
    ffmpeg("-f lavfi -i testsrc2=s=96x64:r=25:d=0.2 -c:v libx264 -bf 0 b.h264");
    Bytes both = contents(at("a.h264"));
    const Bytes second = contents(at("b.h264"));
    both.insert(both.end(), second.begin(), second.end());
    store(at("both.h264"), both);
    auto reader = open(at("both.h264"));
    ASSERT_TRUE(reader);
    EXPECT_EQ(allTimes(*reader).size(), 5U);
    Frame frame;
    EXPECT_EQ(reader->next(frame), ClipReader::Next::failed);
    EXPECT_TRUE(has(reader->failure(), "64x64") && has(reader->failure(), "96x64") &&
                has(reader->failure(), "cut off what follows to convert it by itself"))
        << reader->failure();
}

TEST_F(Reader, NamesNeedNotBeUtf8AndMayHoldPercentSignsAndColons)
{
    ffmpeg("-f lavfi -i color=white:s=32x16 -frames:v 1 one.png");
    for (const std::string name :
         {"caf\xe9.png", "100%d.png", "a:b.png", "-x.png", "*.png", "with space\n.png"}) {
        fs::rename(at("one.png"), at(name));
        auto reader = open(at(name));
        ASSERT_TRUE(reader) << name;
        EXPECT_EQ(reader->info().width, 32);
        fs::rename(at(name), at("one.png"));
    }
}

TEST_F(Reader, ANumberPatternIsAClip)
{
    ffmpeg("-f lavfi -i testsrc2=s=32x16:r=25:d=0.2 shot_%03d.png");
    auto reader = open(at("shot_%03d.png"));
    ASSERT_TRUE(reader);
    EXPECT_FALSE(reader->info().isStill);
    EXPECT_EQ(allTimes(*reader).size(), 5U);
}

TEST_F(Reader, ASequenceBeginsWithItsLowestNumberAndEndsAtAGap)
{
    ffmpeg("-f lavfi -i testsrc2=s=32x16:r=25:d=0.4 -start_number 10001 shot_%d.png");
    store(at("shot_x.png"), {'x'});
    auto reader = open(at("shot_%d.png"));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->info().frameCount, 10);
    EXPECT_EQ(allTimes(*reader).size(), 10U);
    EXPECT_EQ(reader->problemCount(), 0);

    fs::remove(at("shot_10004.png"));
    auto gap = open(at("shot_%05d.png"));
    ASSERT_TRUE(gap);
    EXPECT_EQ(gap->info().frameCount, 3);
    EXPECT_EQ(allTimes(*gap).size(), 3U);
    ASSERT_EQ(gap->problemCount(), 1) << gap->problems().front();
    EXPECT_TRUE(has(gap->problems()[0], "picture 10004 is missing") &&
                has(gap->problems()[0], "the sequence ends there"))
        << gap->problems()[0];
}

TEST_F(Reader, AudioPacketsComeWhenAskedFor)
{
    ffmpeg("-f lavfi -i testsrc2=s=32x16:r=25:d=0.4 -f lavfi -i sine=d=0.4 -c:v ffv1 -c:a pcm_s16le "
           "-metadata:s:a language=fra clip.mkv");
    auto reader = open(at("clip.mkv"), true);
    ASSERT_TRUE(reader);
    allTimes(*reader);
    ASSERT_EQ(reader->audio()->tracks().size(), 1U);
    EXPECT_EQ(reader->audio()->tracks()[0].language, "fra");
    EXPECT_NE(reader->audio()->pop(), nullptr);

    auto silent = open(at("clip.mkv"), false);
    ASSERT_TRUE(silent);
    EXPECT_TRUE(silent->info().hasAudio);
    allTimes(*silent);
    EXPECT_TRUE(silent->audio()->tracks().empty());
    EXPECT_EQ(silent->audio()->pop(), nullptr);
}

TEST_F(Reader, AlphaAndFullChromaAreTold)
{
    struct Case
    {
        const char* file;
        const char* pixelFormat;
        bool alpha;
        bool fullChroma;
    };
    for (const Case& c : {Case{"a.png", "rgba", true, true}, Case{"a.png", "rgb24", false, true},
                          Case{"a.png", "gray", false, false}, Case{"a.png", "pal8", false, true},
                          Case{"a.mkv", "yuva422p", true, false}, Case{"a.mkv", "yuv444p", false, true},
                          Case{"a.mkv", "yuv420p", false, false}}) {
        ffmpeg("-f lavfi -i testsrc2=s=32x16:r=25 -frames:v 1 -pix_fmt " + std::string(c.pixelFormat) +
               (has(c.file, "mkv") ? " -c:v ffv1 " : " ") + c.file);
        auto reader = open(at(c.file));
        ASSERT_TRUE(reader);
        EXPECT_EQ(reader->info().hasAlpha, c.alpha) << c.pixelFormat;
        EXPECT_EQ(reader->info().hasFullChroma, c.fullChroma) << c.pixelFormat;
    }
}

TEST_F(Reader, FramesOutliveTheirReader)
{
    ffmpeg("-f lavfi -i color=white:s=32x16 -frames:v 1 one.png");
    Frame frame;
    {
        auto reader = open(at("one.png"));
        ASSERT_TRUE(reader);
        ASSERT_EQ(reader->next(frame), ClipReader::Next::frame);
    }
    Bytes rows(FramePacker::rowBytes(32, Depth::bits8) * 16);
    FramePacker packer({});
    EXPECT_TRUE(packer.pack(frame, rows.data(), 64));
    EXPECT_EQ(rows[0], 235);
}

} // namespace
} // namespace Qx::Media::Test
