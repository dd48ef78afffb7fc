// What writers leave on disk: judged by ffmpeg's own decoders, and by what is not there after a failure.

#include "tests/system/media/MediaFixture.h"
#include "tools/qxhost/media/Ffmpeg.h"

#include <array>
#include <cmath>
#include <csignal>
#include <sys/resource.h>

namespace Qx::Media::Test {
namespace {

using Writer = MediaTest;

void writeFrames(iFrameWriter& writer, const Bytes& rows, int pitch, int count, int step = 1)
{
    for (int i = 0; i < count; ++i) {
        const Status status = writer.write(rows.data(), pitch, {i * step, step, FieldOrder::progressive});
        ASSERT_TRUE(status) << status.text();
    }
    const Status status = writer.finish();
    ASSERT_TRUE(status) << status.text();
}

/// A R G B bytes to R G B, and 16-bit words to big-endian ones.
Bytes withoutAlpha(const Bytes& argb, std::size_t sample)
{
    Bytes rgb;
    for (std::size_t pixel = 0; pixel < argb.size(); pixel += 4 * sample) {
        rgb.insert(rgb.end(), argb.begin() + static_cast<std::ptrdiff_t>(pixel + sample),
                   argb.begin() + static_cast<std::ptrdiff_t>(pixel + 4 * sample));
    }
    return rgb;
}

Bytes flat(int width, int height, std::array<std::uint8_t, 4> argb)
{
    Bytes rows;
    for (int i = 0; i < width * height; ++i) {
        rows.insert(rows.end(), argb.begin(), argb.end());
    }
    return rows;
}

TEST_F(Writer, PngHoldsTheExactCodesAtBothDepths)
{
    const Bytes codes = noise(33 * 7 * 4);
    writeFrames(*openWriter(at("a.png"), settings(33, 7)), codes, 33 * 4, 1);
    EXPECT_EQ(decoded(at("a.png"), "rgb24"), withoutAlpha(codes, 1));
    EXPECT_EQ(probe(at("a.png"), "stream=pix_fmt"), "pix_fmt=rgb24\n");

    const Bytes words = noise(33 * 7 * 8);
    writeFrames(*openWriter(at("b.png"), settings(33, 7, Depth::bits16)), words, 33 * 8, 1);
    EXPECT_EQ(decoded(at("b.png"), "rgb48le"), withoutAlpha(words, 2));
    EXPECT_EQ(probe(at("b.png"), "stream=pix_fmt"), "pix_fmt=rgb48be\n");
}

TEST_F(Writer, PngHoldsAlphaWhenAsked)
{
    for (const Depth depth : {Depth::bits8, Depth::bits16}) {
        const std::size_t sample = depth == Depth::bits8 ? 1 : 2;
        const Bytes codes = noise(5 * 4 * 4 * sample);
        OutputSettings wanted = settings(5, 4, depth);
        wanted.alpha = true;
        wanted.force = true;
        writeFrames(*openWriter(at("a.png"), wanted), codes, static_cast<int>(5 * 4 * sample), 1);
        const Bytes rgba = decoded(at("a.png"), depth == Depth::bits8 ? "rgba" : "rgba64le");
        ASSERT_EQ(rgba.size(), codes.size());
        for (std::size_t i = 0; i < codes.size(); ++i) {
            const std::size_t pixel = i / (4 * sample) * 4 * sample;
            const std::size_t within = (i % (4 * sample) + sample) % (4 * sample);
            EXPECT_EQ(rgba[i], codes[pixel + within]) << i;
        }
    }
}

TEST_F(Writer, PitchMayBeLargerThanARow)
{
    const Bytes codes = noise(100 * 6);
    writeFrames(*openWriter(at("a.png"), settings(20, 6)), codes, 100, 1);
    Bytes expected;
    for (int row = 0; row < 6; ++row) {
        const Bytes line(codes.begin() + row * 100, codes.begin() + row * 100 + 80);
        const Bytes rgb = withoutAlpha(line, 1);
        expected.insert(expected.end(), rgb.begin(), rgb.end());
    }
    EXPECT_EQ(decoded(at("a.png"), "rgb24"), expected);
}

TEST_F(Writer, OtherLosslessPicturesHoldTheExactCodes)
{
    const Bytes codes = noise(33 * 7 * 4);
    for (const std::string name : {"a.tif", "a.bmp", "a.ppm", "a.tga", "a.dpx"}) {
        writeFrames(*openWriter(at(name), settings(33, 7)), codes, 33 * 4, 1);
        EXPECT_EQ(decoded(at(name), "rgb24"), withoutAlpha(codes, 1)) << name;
    }
}

TEST_F(Writer, OnePictureKeepsItsNameAndSeveralAreNumbered)
{
    const Bytes rows = flat(8, 8, {255, 1, 2, 3});
    writeFrames(*openWriter(at("one.png"), settings(8, 8)), rows, 32, 1);
    EXPECT_EQ(listing(), (std::vector<std::string>{"one.png"}));

    auto several = openWriter(at("many.png"), settings(8, 8));
    writeFrames(*several, rows, 32, 3);
    EXPECT_EQ(listing(),
              (std::vector<std::string>{"many_00001.png", "many_00002.png", "many_00003.png", "one.png"}));
    EXPECT_EQ(several->files(), (std::vector<fs::path>{at("many_00001.png"), at("many_00003.png")}));
}

TEST_F(Writer, PatternsNumberFromOne)
{
    const Bytes rows = flat(8, 8, {255, 1, 2, 3});
    writeFrames(*openWriter(at("p_%03d.png"), settings(8, 8)), rows, 32, 2);
    writeFrames(*openWriter(at("50%%_%d.png"), settings(8, 8)), rows, 32, 1);
    writeFrames(*openWriter(at("100%.png"), settings(8, 8)), rows, 32, 1);
    EXPECT_EQ(listing(), (std::vector<std::string>{"100%.png", "50%_1.png", "p_001.png", "p_002.png"}));
}

TEST_F(Writer, ExistingFilesAreKeptUnlessForced)
{
    const Bytes rows = flat(8, 8, {255, 1, 2, 3});
    for (const std::string name : {"a.png", "a.mkv"}) {
        store(at(name), {'x'});
        const std::string error = writerError(at(name), settings(8, 8));
        EXPECT_TRUE(has(error, name) && has(error, "already exists")) << error;
        EXPECT_EQ(contents(at(name)), Bytes{'x'});
        OutputSettings forced = settings(8, 8);
        forced.force = true;
        writeFrames(*openWriter(at(name), forced), rows, 32, 1);
        EXPECT_GT(contents(at(name)).size(), 1U);
    }
    // Of a sequence too, and also when the file appears while the clip is being written.
    store(at("s_00002.png"), {'x'});
    auto sequence = openWriter(at("s.png"), settings(8, 8));
    ASSERT_TRUE(sequence);
    Status status;
    for (int i = 0; i < 3 && status; ++i) {
        status = sequence->write(rows.data(), 32, {i, 1, FieldOrder::progressive});
    }
    status = status ? sequence->finish() : status;
    ASSERT_FALSE(status);
    EXPECT_TRUE(has(status.text(), "s_00002.png")) << status.text();
    EXPECT_EQ(contents(at("s_00002.png")), Bytes{'x'});

    auto clip = openWriter(at("b.mkv"), settings(8, 8));
    ASSERT_TRUE(clip->write(rows.data(), 32, {0, 1, FieldOrder::progressive}));
    store(at("b.mkv"), {'x'});
    EXPECT_FALSE(clip->finish());
    EXPECT_EQ(contents(at("b.mkv")), Bytes{'x'});
}

TEST_F(Writer, FilesToKeepAreNotReplacedEvenWithForce)
{
    const Bytes rows = flat(8, 8, {255, 1, 2, 3});
    for (const std::string name : {"a.mkv", "s_00002.png", "s_00004.png"}) {
        store(at(name), {'x'});
    }
    const auto kept = std::make_shared<FileSet>();
    for (const std::string name : {"a.mkv", "s_00002.png", "s_00004.png"}) {
        kept->add(at(name));
    }
    OutputSettings wanted = settings(8, 8);
    wanted.force = true;
    wanted.kept = kept;
    EXPECT_TRUE(has(writerError(at("a.mkv"), wanted), "a.mkv\": this run reads it; choose another name"));
    // Foreseen, as far as the number of frames is known ...
    for (const int frames : {0, 2, 9}) {
        wanted.expectedFrames = frames;
        EXPECT_TRUE(has(writerError(at("s_%05d.png"), wanted), "s_00002.png"));
    }
    // ... and met when it is not what was expected.
    wanted.expectedFrames = 1;
    for (const std::string name : {"s.png", "s_%05d.png"}) {
        auto writer = openWriter(at(name), wanted);
        ASSERT_TRUE(writer);
        Status status;
        for (int i = 0; i < 3 && status; ++i) {
            status = writer->write(rows.data(), 32, {i, 1, FieldOrder::progressive});
        }
        status = status ? writer->finish() : status;
        ASSERT_FALSE(status);
        EXPECT_TRUE(has(status.text(), "s_00002.png") && has(status.text(), "this run reads it"))
            << status.text();
    }
    for (const std::string name : {"a.mkv", "s_00002.png", "s_00004.png"}) {
        EXPECT_EQ(contents(at(name)), Bytes{'x'}) << name;
    }
}

TEST_F(Writer, NothingIsLeftOfAnUnfinishedFile)
{
    const Bytes rows = flat(8, 8, {255, 1, 2, 3});
    for (const std::string name : {"a.png", "a.mkv", "a.mov", "s_%d.png"}) {
        auto writer = openWriter(at(name), settings(8, 8));
        ASSERT_TRUE(writer);
        // Aside until complete.
        EXPECT_FALSE(fs::exists(at(name)));
        ASSERT_EQ(listing().size(), 1U);
        EXPECT_TRUE(has(listing()[0], ".part-")) << listing()[0];
        writer.reset();
        EXPECT_TRUE(listing().empty()) << name;
    }
}

TEST_F(Writer, AWriterWithoutFramesFails)
{
    for (const std::string name : {"a.png", "a.mkv", "s_%d.png"}) {
        auto writer = openWriter(at(name), settings(8, 8));
        ASSERT_TRUE(writer);
        const Status status = writer->finish();
        ASSERT_FALSE(status);
        EXPECT_TRUE(has(status.text(), "no frame")) << status.text();
        writer.reset();
        EXPECT_TRUE(listing().empty());
    }
}

TEST_F(Writer, PlacesThatCannotBeWrittenToAreNamed)
{
    EXPECT_TRUE(has(writerError(at("none/a.png"), settings(8, 8)), "there is no directory"));
    fs::create_directory(at("dir.png"));
    EXPECT_TRUE(has(writerError(at("dir.png"), settings(8, 8)), "it is a directory"));
    EXPECT_TRUE(has(writerError("/proc/a.png", settings(8, 8)), "cannot write \"/proc/a.png\""));
    EXPECT_TRUE(has(writerError("/dev/full", settings(8, 8)), "no extension"));
    EXPECT_TRUE(has(writerError(at("a.unheard"), settings(8, 8)), ".unheard"));
    EXPECT_TRUE(has(writerError(at(""), settings(8, 8)), "cannot write"));
}

TEST_F(Writer, WrongEncodersFormatsAndOptionsAreNamed)
{
    OutputSettings wrong = settings(8, 8);
    wrong.encoder = "nonesuch";
    EXPECT_TRUE(has(writerError(at("a.mkv"), wrong), "nonesuch"));
    wrong.encoder = "prores_ks";
    EXPECT_TRUE(has(writerError(at("a.webm"), wrong), "cannot hold prores"));
    wrong = settings(8, 8);
    wrong.pixelFormat = "nonesuch";
    EXPECT_TRUE(has(writerError(at("a.mkv"), wrong), "nonesuch"));
    wrong.pixelFormat = "yuv410p";
    EXPECT_TRUE(has(writerError(at("a.mov"), wrong), "yuv422p10le"));
    wrong = settings(8, 8);
    wrong.encoderOptions["nonesuch"] = "1";
    EXPECT_TRUE(has(writerError(at("a.mkv"), wrong), "nonesuch"));
    EXPECT_TRUE(has(writerError(at("a.mkv"), settings(0, 8)), "0x8"));
    EXPECT_TRUE(listing().empty());
}

TEST_F(Writer, APictureHoldsWhatItsEndingSays)
{
    const std::pair<std::string, std::string> cases[] = {
        {"a.png", "libx264"}, {"a_%d.jpg", "png"}, {"a.tiff", "prores_ks"}};
    for (const auto& [name, encoder] : cases) {
        OutputSettings wrong = settings(16, 16);
        wrong.encoder = encoder;
        const std::string error = writerError(at(name), wrong);
        EXPECT_TRUE(has(error, name) && has(error, "cannot hold") && has(error, "another ending")) << error;
    }
    EXPECT_TRUE(listing().empty());
    OutputSettings right = settings(16, 16);
    right.encoder = "png";
    writeFrames(*openWriter(at("a.png"), right), flat(16, 16, {255, 1, 2, 3}), 64, 1);
}

/// Files may not grow past a size: writing fails as on a full disk, without one.
class FullDisk
{
public:
    explicit FullDisk(rlim_t size)
    {
        handler_ = std::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &before_);
        rlimit limit = before_;
        limit.rlim_cur = size;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk()
    {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    rlimit before_{};
    void (*handler_)(int) = SIG_DFL;
};

TEST_F(Writer, AFailingDiskIsAnErrorAndLeavesNothing)
{
    const Bytes rows = noise(256 * 256 * 4);
    for (const std::string name : {"a.png", "a.mkv", "a.mov", "s_%d.png"}) {
        auto writer = openWriter(at(name), settings(256, 256));
        ASSERT_TRUE(writer);
        Status status;
        {
            const FullDisk full(20000);
            for (int i = 0; i < 20 && status; ++i) {
                status = writer->write(rows.data(), 1024, {i, 1, FieldOrder::progressive});
            }
            status = status ? writer->finish() : status;
        }
        ASSERT_FALSE(status) << name;
        EXPECT_TRUE(has(status.text(), "cannot write") && has(status.text(), "File too large"))
            << status.text();
        writer.reset();
        EXPECT_TRUE(listing().empty()) << name;
    }
}

TEST_F(Writer, LosslessClipHoldsTheExactCodes)
{
    const Bytes codes = noise(33 * 7 * 4);
    writeFrames(*openWriter(at("a.mkv"), settings(33, 7)), codes, 33 * 4, 2);
    Bytes expected = withoutAlpha(codes, 1);
    expected.insert(expected.end(), expected.begin(), expected.begin() + 33 * 7 * 3);
    EXPECT_EQ(decoded(at("a.mkv"), "rgb24"), expected);
}

TEST_F(Writer, ColoursBecomeVideoRangeByTheMatrixAndAreTagged)
{
    struct Case
    {
        Matrix matrix;
        const char* tag;
        double kr;
        double kb;
    };
    // Kr and Kb: BT.601 2.5.1, BT.709 3.2.
    for (const Case& c :
         {Case{Matrix::bt709, "bt709", 0.2126, 0.0722}, Case{Matrix::bt601, "smpte170m", 0.299, 0.114}}) {
        OutputSettings wanted = settings(32, 32);
        wanted.colour.matrix = c.matrix;
        wanted.encoder = "ffv1";
        wanted.pixelFormat = "yuv422p10le";
        wanted.force = true;
        writeFrames(*openWriter(at("a.mkv"), wanted), flat(32, 32, {255, 200, 40, 90}), 128, 1);
        const Bytes bytes = decoded(at("a.mkv"), "yuv422p10le");
        ASSERT_EQ(bytes.size(), 32U * 32 * 4);
        const double r = 200 / 255.0;
        const double g = 40 / 255.0;
        const double b = 90 / 255.0;
        const double y = c.kr * r + (1 - c.kr - c.kb) * g + c.kb * b;
        const std::array<double, 3> expected{64 + 876 * y, 512 + 896 * (b - y) / (2 * (1 - c.kb)),
                                             512 + 896 * (r - y) / (2 * (1 - c.kr))};
        for (std::size_t i = 0; i < bytes.size() / 2; ++i) {
            std::uint16_t code;
            std::memcpy(&code, &bytes[2 * i], 2);
            EXPECT_NEAR(code, expected[i < 1024 ? 0 : (i < 1536 ? 1 : 2)], 0.51) << i;
        }
        EXPECT_EQ(probe(at("a.mkv"), "stream=color_range,color_space"),
                  "color_range=tv\ncolor_space=" + std::string(c.tag) + "\n");
    }
}

TEST_F(Writer, VideoRangeRgbGivesTheSameYCbCrAsFullRange)
{
    OutputSettings wanted = settings(32, 32);
    wanted.pixelFormat = "yuv444p";
    writeFrames(*openWriter(at("full.mkv"), wanted), flat(32, 32, {255, 255, 0, 255}), 128, 1);
    wanted.rgbRange = Range::video;
    writeFrames(*openWriter(at("video.mkv"), wanted), flat(32, 32, {255, 235, 16, 235}), 128, 1);
    EXPECT_EQ(decoded(at("full.mkv"), "yuv444p"), decoded(at("video.mkv"), "yuv444p"));
}

TEST_F(Writer, OddSizesAreWritten)
{
    for (const std::string format : {"yuv420p", "yuv422p10le", "yuv444p"}) {
        OutputSettings wanted = settings(17, 9);
        wanted.encoder = "ffv1";
        wanted.pixelFormat = format;
        wanted.force = true;
        writeFrames(*openWriter(at("a.mkv"), wanted), flat(17, 9, {255, 128, 128, 128}), 17 * 4, 1);
        const Bytes rgb = decoded(at("a.mkv"), "rgb24");
        ASSERT_EQ(rgb.size(), 17U * 9 * 3) << format;
        for (const std::uint8_t code : rgb) {
            EXPECT_NEAR(code, 128, 2) << format;
        }
    }
}

TEST_F(Writer, EverySizeIsWrittenByTheLosslessDefault)
{
    const std::pair<int, int> sizes[] = {{1, 1},   {3, 3},   {67, 3},  {3, 67},  {8, 9},
                                         {65, 64}, {353, 1}, {353, 7}, {1920, 2}};
    for (const auto& [width, height] : sizes) {
        OutputSettings wanted = settings(width, height);
        wanted.force = true;
        const Bytes codes = noise(static_cast<std::size_t>(width * height * 4));
        auto writer = openWriter(at("a.mkv"), wanted);
        ASSERT_TRUE(writer) << width << "x" << height;
        writeFrames(*writer, codes, width * 4, 1);
        EXPECT_EQ(decoded(at("a.mkv"), "rgb24"), withoutAlpha(codes, 1)) << width << "x" << height;
    }
}

TEST_F(Writer, OddSizesAreWrittenAsH264)
{
    const std::pair<int, int> sizes[] = {{67, 48}, {66, 49}, {67, 49}};
    for (const auto& [width, height] : sizes) {
        OutputSettings wanted = settings(width, height);
        wanted.force = true;
        auto writer = openWriter(at("a.mp4"), wanted);
        ASSERT_TRUE(writer);
        writeFrames(*writer, flat(width, height, {255, 128, 128, 128}), width * 4, 2);
        EXPECT_EQ(decoded(at("a.mp4"), "rgb24").size(), static_cast<std::size_t>(width * height * 3 * 2));
    }
    OutputSettings wanted = settings(67, 49);
    wanted.pixelFormat = "yuv420p";
    const std::string error = writerError(at("b.mp4"), wanted);
    EXPECT_TRUE(has(error, "67x49") && has(error, ".mkv") && has(error, "yuv444p")) << error;
}

TEST_F(Writer, SizesAndKindsThatCannotBeSayWhatCan)
{
    const std::string small = writerError(at("a.mxf"), settings(64, 64));
    EXPECT_TRUE(has(small, "256x120") && has(small, "64x64") && has(small, ".mkv")) << small;
    const std::string gif = writerError(at("a.gif"), settings(64, 64));
    EXPECT_TRUE(has(gif, "a.gif") && has(gif, ".mov")) << gif;
}

TEST_F(Writer, NamesInMessagesStayOnOneLine)
{
    const std::string error = writerError(at("none/a\nb\x1b[1m.png"), settings(8, 8));
    EXPECT_TRUE(has(error, "a\\nb\\x1b[1m.png")) << error;
}

TEST_F(Writer, FieldsAreNotMixedIn420)
{
    Bytes rows;
    for (int y = 0; y < 32; ++y) {
        const Bytes line = flat(32, 1,
                                y % 2 == 0 ? std::array<std::uint8_t, 4>{255, 200, 0, 0}
                                           : std::array<std::uint8_t, 4>{255, 0, 0, 200});
        rows.insert(rows.end(), line.begin(), line.end());
    }
    OutputSettings wanted = settings(32, 32);
    wanted.encoder = "ffv1";
    wanted.pixelFormat = "yuv420p";
    wanted.fieldOrder = FieldOrder::topFirst;
    auto writer = openWriter(at("a.mkv"), wanted);
    ASSERT_TRUE(writer->write(rows.data(), 128, {0, 1, FieldOrder::topFirst}));
    ASSERT_TRUE(writer->finish());
    const Bytes planes = decoded(at("a.mkv"), "yuv420p");
    const std::uint8_t* cr = planes.data() + 32 * 32 + 16 * 16;
    for (int y = 0; y < 16; ++y) {
        EXPECT_TRUE(y % 2 == 0 ? cr[y * 16] > 190 : cr[y * 16] < 128) << y << ": " << int{cr[y * 16]};
    }
}

TEST_F(Writer, TimesAspectFieldOrderTagsAndAudioSurviveTheRoundTrip)
{
    ffmpeg(
        "-f lavfi -i testsrc2=s=64x48:r=25:d=0.4 -f lavfi -i sine=d=0.4 "
        "-vf "
        "setfield=tff,setsar=16/11,setparams=colorspace=bt709:color_primaries=bt709:color_trc=bt709:range=tv "
        "-c:v prores_ks -flags +ildct -colorspace bt709 -color_primaries bt709 -color_trc bt709 "
        "-color_range tv "
        "-c:a pcm_s16le -metadata:s:a language=ger in.mkv");
    for (const std::string name : {"out.mkv", "out.mov"}) {
        auto reader = open(at("in.mkv"), true);
        ASSERT_TRUE(reader);
        const StreamInfo& info = reader->info();
        OutputSettings wanted = settings(info.width, info.height);
        wanted.frameRate = info.frameRate;
        wanted.timeBase = info.timeBase;
        wanted.sampleAspect = info.sampleAspect;
        wanted.fieldOrder = info.fieldOrder;
        wanted.colour = info.colour;
        wanted.audio = reader->audio();
        wanted.encoder = "prores_ks";
        auto writer = openWriter(at(name), wanted);
        ASSERT_TRUE(writer);
        const Bytes rows = flat(64, 48, {255, 10, 20, 30});
        Frame frame;
        std::vector<double> times;
        int index = 0;
        while (reader->next(frame) == ClipReader::Next::frame) {
            FrameTime time = frame.time();
            if (++index == 10) {
                time.pts += time.duration / 2; // an uneven last step must survive too
            }
            times.push_back(static_cast<double>(time.pts) * info.timeBase.toDouble());
            ASSERT_TRUE(writer->write(rows.data(), 256, time));
        }
        const Status status = writer->finish();
        ASSERT_TRUE(status) << status.text();
        EXPECT_TRUE(writer->warnings().empty()) << writer->warnings().front();

        auto again = open(at(name), true);
        ASSERT_TRUE(again);
        EXPECT_EQ(again->info().sampleAspect, (Rational{16, 11})) << name;
        EXPECT_EQ(again->info().fieldOrder, FieldOrder::topFirst) << name;
        if (name == "out.mkv") { // QuickTime files have times only; their rate is estimated from uneven ones
            EXPECT_EQ(again->info().frameRate, (Rational{25, 1}));
        }
        EXPECT_EQ(again->info().colour.matrixTag, 1) << name;
        EXPECT_EQ(again->info().colour.primariesTag, 1) << name;
        EXPECT_EQ(again->info().colour.transferTag, 1) << name;
        ASSERT_EQ(again->audio()->tracks().size(), 1U);
        EXPECT_EQ(again->audio()->tracks()[0].language, "ger");
        for (const double time : times) {
            ASSERT_EQ(again->next(frame), ClipReader::Next::frame);
            EXPECT_NEAR(static_cast<double>(frame.time().pts) * again->info().timeBase.toDouble(), time,
                        0.0006)
                << name;
        }
        EXPECT_EQ(again->next(frame), ClipReader::Next::end);
        ffmpeg("-i in.mkv -map 0:a -f s16le in.pcm");
        ffmpeg("-i " + name + " -map 0:a -f s16le out.pcm");
        EXPECT_EQ(contents(at("out.pcm")), contents(at("in.pcm"))) << name;
    }
}

TEST_F(Writer, AudioThatTheContainerCannotHoldIsAWarning)
{
    ffmpeg("-f lavfi -i testsrc2=s=64x48:r=25:d=0.2 -f lavfi -i sine=d=0.2 -c:v ffv1 -c:a pcm_s16le in.mkv");
    for (const std::string name : {"a.y4m", "a.png"}) {
        auto reader = open(at("in.mkv"), true);
        ASSERT_TRUE(reader);
        OutputSettings wanted = settings(64, 48);
        wanted.audio = reader->audio();
        auto writer = openWriter(at(name), wanted);
        ASSERT_TRUE(writer);
        writeFrames(*writer, flat(64, 48, {255, 10, 20, 30}), 256, 1);
        ASSERT_GE(writer->warnings().size(), 1U);
        const std::string& warning = writer->warnings()[0];
        EXPECT_TRUE(has(warning, "audio")) << warning;
        EXPECT_EQ(warning.find("0x"), std::string::npos) << warning;
        EXPECT_TRUE(name == "a.png" || (has(warning, ".mkv") && has(warning, "--no-audio"))) << warning;
    }
}

TEST_F(Writer, OrientationIsKeptOrItsLossIsAWarning)
{
    for (const int degrees : {90, 180, 270}) {
        Orientation turned;
        turned.degrees = degrees;
        av_display_rotation_set(turned.matrix.data(), degrees);
        OutputSettings wanted = settings(64, 48);
        wanted.orientation = turned;
        wanted.force = true;
        for (const std::string name : {"a.mov", "a.mp4", "a.mkv", "a.png"}) {
            auto writer = openWriter(at(name), wanted);
            ASSERT_TRUE(writer);
            writeFrames(*writer, flat(64, 48, {255, 10, 20, 30}), 256, 1);
            auto reader = open(at(name));
            ASSERT_TRUE(reader);
            if (name == "a.mov" || name == "a.mp4") {
                EXPECT_EQ(reader->info().orientation, turned) << name;
                EXPECT_TRUE(writer->warnings().empty()) << writer->warnings().front();
            } else {
                EXPECT_FALSE(reader->info().orientation);
                ASSERT_EQ(writer->warnings().size(), 1U);
                EXPECT_TRUE(has(writer->warnings()[0], std::to_string(degrees) + " degrees"))
                    << writer->warnings()[0];
            }
        }
    }
}

TEST_F(Writer, TimeCodeIsKeptOrItsLossIsAWarning)
{
    for (const std::string name : {"a.mov", "a.mp4", "a.mkv", "a.mxf", "a.ts"}) {
        OutputSettings wanted = settings(320, 240);
        wanted.frameRate = {30000, 1001};
        wanted.timeBase = {1001, 30000};
        wanted.timeCode = "01:02:03;04";
        auto writer = openWriter(at(name), wanted);
        ASSERT_TRUE(writer);
        writeFrames(*writer, noise(std::size_t{320} * 240 * 4), 320 * 4, 2);
        auto reader = open(at(name));
        ASSERT_TRUE(reader);
        if (name == "a.ts") {
            EXPECT_EQ(reader->info().timeCode, "");
            ASSERT_EQ(writer->warnings().size(), 1U);
            EXPECT_EQ(
                writer->warnings()[0],
                "time code 01:02:03;04 is left out: .ts (h264) does not hold it; .mov, .mp4 and .mkv do");
        } else {
            EXPECT_EQ(reader->info().timeCode, "01:02:03;04") << name;
            EXPECT_TRUE(writer->warnings().empty()) << writer->warnings().front();
        }
    }
    EXPECT_EQ(probe(at("a.mov"), "stream=codec_tag_string", "d:0"), "codec_tag_string=tmcd\n");
}

TEST_F(Writer, WhatTheFileDoesNotTellOfItsFramesIsAWarning)
{
    OutputSettings wanted = settings(720, 576);
    wanted.sampleAspect = {16, 11};
    wanted.fieldOrder = FieldOrder::bottomFirst;
    wanted.colour.primariesTag = 5;
    wanted.colour.transferTag = 6;
    wanted.colour.matrixTag = 5;
    const Bytes rows = flat(720, 576, {255, 10, 20, 30});
    const auto warningsOf = [&](const std::string& name) {
        auto writer = openWriter(at(name), wanted);
        EXPECT_TRUE(writer->write(rows.data(), 720 * 4, {0, 1, wanted.fieldOrder}));
        EXPECT_TRUE(writer->finish());
        return writer->warnings();
    };
    using Lines = std::vector<std::string>;
    EXPECT_EQ(warningsOf("a.mov"), Lines());
    EXPECT_EQ(warningsOf("a.mkv"), Lines()); // RGB there, and of RGB there is no matrix to tell
    EXPECT_EQ(warningsOf("a.flv"),
              (Lines{"pixel aspect 16:11 is left out: .flv (flv1) does not hold it; .mov, .mp4 and .mkv do",
                     "field order (bottom field first) is left out: .flv (flv1) does not hold it; .mov and "
                     ".mkv do",
                     "colour tags (matrix bt470bg, primaries bt470bg, transfer smpte170m) are left out: .flv "
                     "(flv1) does not hold it; .mov, .mp4 and .mkv do"}));
    wanted.fieldOrder = FieldOrder::progressive;
    wanted.sampleAspect = {1, 1};
    wanted.colour = {};
    wanted.colour.matrix = Matrix::bt601;
    EXPECT_EQ(warningsOf("b.mp4"), Lines());
}

TEST_F(Writer, Vc3HoldsTheColoursByTheMatrixThatItsDecodersTake)
{
    // 720 pixels would have BT.601; decoders of VC-3 take BT.709 whatever the container says.
    auto writer = openWriter(at("a.mxf"), settings(720, 576));
    ASSERT_TRUE(writer);
    writeFrames(*writer, flat(720, 576, {255, 0, 200, 0}), 720 * 4, 2);
    const Bytes planes = decoded(at("a.mxf"), "yuv422p");
    const double luma = 16 + 219 * 0.7152 * 200 / 255; // Kg of BT.709
    EXPECT_NEAR(planes[0], luma, 2);
    auto reader = open(at("a.mxf"));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->info().colour.matrix, Matrix::bt709);
    EXPECT_FALSE(reader->info().colour.matrixGuessed);
}

TEST_F(Writer, AudioEndsWithTheVideo)
{
    ffmpeg("-f lavfi -i testsrc2=s=64x48:r=25:d=2 -f lavfi -i sine=d=2 -c:v ffv1 -c:a pcm_s16le in.mkv");
    auto reader = open(at("in.mkv"), true);
    ASSERT_TRUE(reader);
    OutputSettings wanted = settings(64, 48);
    wanted.timeBase = reader->info().timeBase;
    wanted.audio = reader->audio();
    auto writer = openWriter(at("out.mkv"), wanted);
    ASSERT_TRUE(writer);
    std::vector<FrameTime> times;
    Frame frame;
    while (reader->next(frame) == ClipReader::Next::frame) { // the reader runs far ahead
        times.push_back(frame.time());
    }
    const Bytes rows = flat(64, 48, {255, 10, 20, 30});
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(writer->write(rows.data(), 256, times[static_cast<std::size_t>(i)]));
    }
    ASSERT_TRUE(writer->finish());
    ffmpeg("-i out.mkv -map 0:a -f s16le out.pcm");
    EXPECT_NEAR(static_cast<double>(contents(at("out.pcm")).size()) / 2 / 44100, 0.4, 0.03);
}

TEST_F(Writer, TimesThatAFixedRateCannotHoldAreAWarning)
{
    const Bytes rows = flat(32, 32, {255, 10, 20, 30});
    OutputSettings wanted = settings(32, 32);
    wanted.timeBase = {1, 1000};
    for (const std::string name : {"a.avi", "a.mkv"}) {
        auto writer = openWriter(at(name), wanted);
        ASSERT_TRUE(writer);
        for (const int pts : {100, 140, 145, 180}) { // 25 a second, and one between
            ASSERT_TRUE(writer->write(rows.data(), 128, {pts, 40, FieldOrder::progressive}));
        }
        ASSERT_TRUE(writer->finish());
        EXPECT_EQ(writer->warnings().size(), name == "a.avi" ? 1U : 0U);
        auto reader = open(at(name));
        Frame frame;
        int frames = 0;
        while (reader->next(frame) == ClipReader::Next::frame) {
            ++frames;
        }
        EXPECT_EQ(frames, 4) << name;
    }
}

TEST_F(Writer, AlphaThatTheFileCannotHoldIsAWarning)
{
    OutputSettings wanted = settings(32, 32);
    wanted.alpha = true;
    for (const std::string name : {"a.mp4", "a.bmp", "a.jpg"}) {
        auto writer = openWriter(at(name), wanted);
        writeFrames(*writer, flat(32, 32, {99, 10, 20, 30}), 128, 1);
        EXPECT_EQ(writer->warnings().size(), name == "a.bmp" ? 0U : 1U) << name;
    }
}

TEST_F(Writer, NamesNeedNotBeUtf8)
{
    const Bytes rows = flat(8, 8, {255, 1, 2, 3});
    for (const std::string name : {"caf\xe9.png", "caf\xe9.mkv", "a:b.mov", "-x.mkv"}) {
        writeFrames(*openWriter(at(name), settings(8, 8)), rows, 32, 1);
        EXPECT_TRUE(fs::exists(at(name))) << name;
        EXPECT_TRUE(open(at(name)));
    }
    EXPECT_EQ(listing().size(), 4U);
}

TEST_F(Writer, TwoWritersOfOneNameDoNotDisturbEachOther)
{
    const Bytes rows = flat(8, 8, {255, 1, 2, 3});
    auto first = openWriter(at("a.mkv"), settings(8, 8));
    auto second = openWriter(at("a.mkv"), settings(8, 8));
    ASSERT_TRUE(first && second);
    writeFrames(*first, rows, 32, 1);
    ASSERT_TRUE(second->write(rows.data(), 32, {}));
    EXPECT_FALSE(second->finish()); // the name is taken by now
    second.reset();
    EXPECT_EQ(listing(), (std::vector<std::string>{"a.mkv"}));
}

} // namespace
} // namespace Qx::Media::Test
