// Frames as packed 4:2:2: exact where the source is 4:2:2, else against arithmetic written out here.

#include "tests/system/media/MediaFixture.h"
#include "tools/qxhost/media/Ffmpeg.h"

#include <array>
#include <cmath>

namespace Qx::Media::Test {
namespace {

using Packing = MediaTest;

/// Wraps raw planes into a file whose decoder gives them back unchanged.
constexpr const char* rawInto = " -c:v rawvideo ";

/// Packs bytes laid out as FFmpeg's format says, without a file between (not every format has a container).
Bytes packedFromMemory(const std::string& format, int width, int height, const Bytes& bytes, Depth depth)
{
    const AVPixelFormat pixels = av_get_pix_fmt(format.c_str());
    std::shared_ptr<AVFrame> frame(av_frame_alloc(), FreeFrame());
    frame->format = pixels;
    frame->width = width;
    frame->height = height;
    EXPECT_EQ(av_image_get_buffer_size(pixels, width, height, 1), static_cast<int>(bytes.size())) << format;
    av_image_fill_arrays(frame->data, frame->linesize, bytes.data(), pixels, width, height, 1);
    const std::size_t pitch = FramePacker::rowBytes(width, depth);
    Bytes rows(pitch * static_cast<std::size_t>(height));
    FramePacker packer({depth, Range::video, matrixForWidth(width)});
    const Status status =
        packer.pack(Frame(frame, {}, false), rows.data(), static_cast<std::ptrdiff_t>(pitch));
    EXPECT_TRUE(status) << status.text();
    return rows;
}

/// Y0 Cb Y1 Cr out of planar 4:2:2; an odd width repeats its last pixel.
template <class T>
std::vector<T> interleaved(const std::vector<T>& planar, int width, int height, int shift)
{
    const auto w = static_cast<std::size_t>(width);
    const auto h = static_cast<std::size_t>(height);
    const std::size_t pairs = (w + 1) / 2;
    const T* y = planar.data();
    const T* cb = y + w * h;
    const T* cr = cb + pairs * h;
    std::vector<T> packed;
    for (std::size_t row = 0; row < h; ++row) {
        for (std::size_t pair = 0; pair < pairs; ++pair) {
            const std::array<T, 4> four{y[row * w + 2 * pair], cb[row * pairs + pair],
                                        y[row * w + std::min(2 * pair + 1, w - 1)], cr[row * pairs + pair]};
            for (const T code : four) {
                packed.push_back(static_cast<T>(code << shift));
            }
        }
    }
    return packed;
}

std::vector<std::uint16_t> words(const Bytes& bytes)
{
    std::vector<std::uint16_t> out(bytes.size() / 2);
    std::memcpy(out.data(), bytes.data(), bytes.size());
    return out;
}

std::string raw(const std::string& format, int width, int height)
{
    return "-f rawvideo -pix_fmt " + format + " -s " + std::to_string(width) + "x" + std::to_string(height) +
           " -i in.raw ";
}

std::size_t planarSize(int width, int height)
{
    return static_cast<std::size_t>(width * height + 2 * ((width + 1) / 2) * height);
}

TEST_F(Packing, EightBit422ArrivesAsTheExactCodes)
{
    const Bytes codes = noise(planarSize(64, 6));
    store(at("in.raw"), codes);
    ffmpeg(raw("yuv422p", 64, 6) + "-c:v ffv1 clip.mkv");
    auto reader = open(at("clip.mkv"));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->info().naturalDepth, Depth::bits8);
    EXPECT_EQ(packed8(*reader), interleaved(codes, 64, 6, 0));
}

TEST_F(Packing, EightBit422AtSixteenBitsIsShiftedToTheTop)
{
    const Bytes codes = noise(planarSize(64, 6));
    store(at("in.raw"), codes);
    ffmpeg(raw("yuv422p", 64, 6) + "-c:v ffv1 clip.mkv");
    auto reader = open(at("clip.mkv"));
    ASSERT_TRUE(reader);
    const std::vector<std::uint16_t> wide(codes.begin(), codes.end());
    EXPECT_EQ(packed16(*reader), interleaved(wide, 64, 6, 8));
}

class DeepPacking : public MediaTest, public testing::WithParamInterface<int>
{
};

TEST_P(DeepPacking, Deep422ArrivesAsTheExactCodesShiftedToTheTop)
{
    const int bits = GetParam();
    const Bytes codes = noiseWords(planarSize(62, 5), bits);
    store(at("in.raw"), codes);
    const std::string format = "yuv422p" + std::to_string(bits) + "le";
    ffmpeg(raw(format, 62, 5) +
           (bits == 9 || bits == 10 || bits == 12 || bits == 16 ? "-c:v ffv1" : rawInto) + " clip.nut");
    auto reader = open(at("clip.nut"));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->info().pixelFormat, format);
    EXPECT_EQ(reader->info().bitsPerComponent, bits);
    EXPECT_EQ(reader->info().naturalDepth, Depth::bits16);
    EXPECT_EQ(packed16(*reader), interleaved(words(codes), 62, 5, 16 - bits));
}

INSTANTIATE_TEST_SUITE_P(Bits, DeepPacking, testing::Values(9, 10, 12, 14, 16));

TEST_F(Packing, OddWidthsRepeatTheLastPixel)
{
    for (const int width : {1, 3, 17, 63}) {
        const Bytes codes = noise(planarSize(width, 3));
        store(at("in.raw"), codes);
        ffmpeg(raw("yuv422p", width, 3) + rawInto + "clip.nut");
        auto reader = open(at("clip.nut"));
        ASSERT_TRUE(reader);
        EXPECT_EQ(packed8(*reader), interleaved(codes, width, 3, 0)) << width;
    }
}

TEST_F(Packing, Packed422OrdersAndBigEndianAreOnlyReordered)
{
    const Bytes codes = noise(planarSize(48, 4));
    store(at("in.raw"), codes);
    for (const std::string format : {"uyvy422", "yuyv422", "yvyu422"}) {
        // Lossless reordering by ffmpeg of the same samples.
        ffmpeg(raw("yuv422p", 48, 4) + "-f rawvideo -pix_fmt " + format + " other.raw");
        EXPECT_EQ(packedFromMemory(format, 48, 4, contents(at("other.raw")), Depth::bits8),
                  interleaved(codes, 48, 4, 0))
            << format;
    }
    Bytes semiPlanar(codes.begin(), codes.begin() + 48 * 4);
    for (std::size_t i = 0; i < 24 * 4; ++i) {
        semiPlanar.push_back(codes[48 * 4 + i]);
        semiPlanar.push_back(codes[48 * 4 + 24 * 4 + i]);
    }
    EXPECT_EQ(packedFromMemory("nv16", 48, 4, semiPlanar, Depth::bits8), interleaved(codes, 48, 4, 0));
    const Bytes deep = noiseWords(planarSize(48, 4), 10);
    store(at("in.raw"), deep);
    ffmpeg(raw("yuv422p10le", 48, 4) + "-pix_fmt yuv422p10be -c:v rawvideo clip.nut");
    auto reader = open(at("clip.nut"));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->info().pixelFormat, "yuv422p10be");
    EXPECT_EQ(packed16(*reader), interleaved(words(deep), 48, 4, 6));
}

TEST_F(Packing, FullRangeDeepSourcesReachTheLargestCode)
{
    Bytes codes;
    for (int i = 0; i < 8 * 2 * 2; ++i) {
        const std::uint16_t code = i < 16 ? 1023 : 512; // white luma, chroma at zero
        codes.push_back(static_cast<std::uint8_t>(code & 255));
        codes.push_back(static_cast<std::uint8_t>(code >> 8));
    }
    store(at("in.raw"), codes);
    ffmpeg("-color_range pc " + raw("yuv422p10le", 8, 2) + "-color_range pc -c:v ffv1 clip.mkv");
    auto reader = open(at("clip.mkv"));
    ASSERT_TRUE(reader);
    ASSERT_EQ(reader->info().colour.range, Range::full);
    const auto packed = packed16(*reader);
    ASSERT_EQ(packed.size(), 32U);
    for (std::size_t i = 0; i < packed.size(); ++i) {
        EXPECT_EQ(packed[i], i % 2 == 0 ? 65535 : 32768) << i;
    }
}

/// Keys' cubic with a = -1/2, the Catmull-Rom kernel.
double catmullRom(double x)
{
    x = std::abs(x);
    if (x < 1) {
        return 1.5 * x * x * x - 2.5 * x * x + 1;
    }
    return x < 2 ? -0.5 * x * x * x + 2.5 * x * x - 4 * x + 2 : 0;
}

/// A column of samples at a position between them.
double sampled(const std::uint8_t* column, std::size_t stride, int count, double position)
{
    double sum = 0;
    const int base = static_cast<int>(std::floor(position));
    for (int tap = base - 1; tap <= base + 2; ++tap) {
        sum += catmullRom(position - tap) *
               column[static_cast<std::size_t>(std::clamp(tap, 0, count - 1)) * stride];
    }
    return std::clamp(sum, 0.0, 255.0);
}

TEST_F(Packing, LeftSited420ChromaIsResampledVerticallyByCatmullRom)
{
    constexpr int width = 32;
    constexpr int height = 40;
    const Bytes codes = noise(width * height * 3 / 2);
    store(at("in.raw"), codes);
    ffmpeg(raw("yuv420p", width, height) + "-chroma_sample_location left -c:v ffv1 clip.mkv");
    auto reader = open(at("clip.mkv"));
    ASSERT_TRUE(reader);
    const Bytes packed = packed8(*reader);
    const std::uint8_t* cb = codes.data() + width * height;
    // Away from the edges, where filters differ in what they take beyond the picture.
    for (int y = 4; y < height - 4; ++y) {
        for (int x = 0; x < width / 2; ++x) {
            const std::uint8_t* pair = &packed[static_cast<std::size_t>((y * width / 2 + x) * 4)];
            EXPECT_EQ(pair[0], codes[static_cast<std::size_t>(y * width + 2 * x)]);
            // Chroma rows lie midway between the luma rows 2i and 2i + 1.
            const double expected = sampled(cb + x, width / 2, height / 2, (y - 0.5) / 2);
            EXPECT_NEAR(pair[1], expected, 0.51) << x << "," << y;
        }
    }
}

TEST_F(Packing, CentreSitedChromaIsMovedToTheEvenPixel)
{
    // A horizontal ramp of 4 a chroma sample, 2 a pixel: centre siting lies half a pixel to the right of left
    // siting, so what arrives on the even pixel is one code less.
    constexpr int width = 64;
    constexpr int height = 8;
    Bytes codes(width * height, 128);
    for (int plane = 0; plane < 2; ++plane) {
        for (int y = 0; y < height / 2; ++y) {
            for (int x = 0; x < width / 2; ++x) {
                codes.push_back(static_cast<std::uint8_t>(50 + 4 * x));
            }
        }
    }
    store(at("in.raw"), codes);
    for (const bool centre : {false, true}) {
        ffmpeg(raw("yuv420p", width, height) +
               "-c:v libx264 -qp 0 -preset ultrafast -x264-params chromaloc=" + (centre ? "1" : "0") +
               " clip.mp4");
        auto reader = open(at("clip.mp4"));
        ASSERT_TRUE(reader);
        const Bytes packed = packed8(*reader);
        for (int x = 4; x < width / 2 - 4; ++x) {
            EXPECT_EQ(packed[static_cast<std::size_t>((4 * width / 2 + x) * 4 + 1)],
                      50 + 4 * x - (centre ? 1 : 0))
                << x;
        }
    }
}

TEST_F(Packing, FieldsOfInterlaced420AreNotMixed)
{
    // Chroma 90 in the top field, 160 in the bottom field.
    constexpr int width = 32;
    constexpr int height = 32;
    Bytes codes(width * height, 100);
    for (int plane = 0; plane < 2; ++plane) {
        for (int y = 0; y < height / 2; ++y) {
            codes.insert(codes.end(), width / 2, y % 2 == 0 ? 90 : 160);
        }
    }
    store(at("in.raw"), codes);
    ffmpeg(raw("yuv420p", width, height) +
           "-vf setfield=tff -flags +ildct -c:v libx264 -qp 0 -preset ultrafast -x264-params tff=1 clip.mp4");
    auto reader = open(at("clip.mp4"));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->info().fieldOrder, FieldOrder::topFirst);
    const Bytes packed = packed8(*reader);
    for (int y = 0; y < height; ++y) {
        EXPECT_EQ(packed[static_cast<std::size_t>(y * width * 2 + 1)], y % 2 == 0 ? 90 : 160) << y;
    }
}

TEST_F(Packing, FlatColoursOfEveryLayoutArriveUnchanged)
{
    // Y 81, Cb 90, Cr 240 whatever the subsampling, at sizes that no subsampling divides.
    for (const std::string format : {"yuv420p", "yuv444p", "yuv411p", "yuv410p", "yuv440p", "nv12", "nv21",
                                     "nv24", "yuva420p", "yuva444p"}) {
        for (const auto& [width, height] : {std::pair{37, 21}, std::pair{1, 1}, std::pair{64, 2}}) {
            store(at("in.raw"), [&] {
                Bytes flat(static_cast<std::size_t>(width * height), 81);
                flat.insert(flat.end(), static_cast<std::size_t>(width * height), 90);
                flat.insert(flat.end(), static_cast<std::size_t>(width * height), 240);
                return flat;
            }());
            ffmpeg(raw("yuv444p", width, height) + "-f rawvideo -pix_fmt " + format + " other.raw");
            const Bytes packed =
                packedFromMemory(format, width, height, contents(at("other.raw")), Depth::bits8);
            for (std::size_t i = 0; i < packed.size(); ++i) {
                ASSERT_EQ(packed[i], i % 4 == 1 ? 90 : (i % 4 == 3 ? 240 : 81))
                    << format << " " << width << "x" << height << " sample " << i;
            }
        }
    }
}

TEST_F(Packing, DeepNonPlanarLayoutsKeepTheirCodes)
{
    Bytes flat;
    for (const int code : {400, 500, 600}) {
        for (int i = 0; i < 32 * 8; ++i) {
            flat.push_back(static_cast<std::uint8_t>(code & 255));
            flat.push_back(static_cast<std::uint8_t>(code >> 8));
        }
    }
    store(at("in.raw"), flat);
    for (const std::string format : {"p010le", "p010be", "yuv420p10be", "yuv444p10le", "p210le", "p410be"}) {
        ffmpeg(raw("yuv444p10le", 32, 8) + "-f rawvideo -pix_fmt " + format + " other.raw");
        const auto packed = words(packedFromMemory(format, 32, 8, contents(at("other.raw")), Depth::bits16));
        for (std::size_t i = 0; i < packed.size(); ++i) {
            ASSERT_EQ(packed[i], 64 * (i % 4 == 1 ? 500 : (i % 4 == 3 ? 600 : 400)))
                << format << " sample " << i;
        }
    }
}

/// Y Cb Cr of an R G B by the definitions: Kr, Kb of BT.601 (2.5.1) and BT.709 (3.2), 8-bit video range.
std::array<double, 3> ycbcr(double r, double g, double b, Matrix matrix)
{
    const double kr = matrix == Matrix::bt709 ? 0.2126 : 0.299;
    const double kb = matrix == Matrix::bt709 ? 0.0722 : 0.114;
    const double y = kr * r + (1 - kr - kb) * g + kb * b;
    return {16 + 219 * y, 128 + 224 * (b - y) / (2 * (1 - kb)), 128 + 224 * (r - y) / (2 * (1 - kr))};
}

TEST_F(Packing, RgbBecomesVideoRangeByTheMatrixOfItsWidth)
{
    for (const int width : {64, 720, 722}) {
        const Matrix matrix = width > 720 ? Matrix::bt709 : Matrix::bt601;
        for (const std::string colour : {"red", "blue", "lime", "white", "black", "0x336699"}) {
            ffmpeg("-f lavfi -i color=" + colour + ":s=" + std::to_string(width) +
                   "x4,format=gbrp -frames:v 1 -pix_fmt rgb24 one.png");
            const Bytes rgb = decoded(at("one.png"), "rgb24");
            auto reader = open(at("one.png"));
            ASSERT_TRUE(reader);
            EXPECT_TRUE(reader->info().isStill);
            EXPECT_TRUE(reader->info().colour.fromRgb);
            EXPECT_EQ(reader->info().colour.matrix, matrix);
            EXPECT_EQ(reader->info().colour.range, Range::video);
            EXPECT_FALSE(reader->info().colour.matrixGuessed);
            const auto expected = ycbcr(rgb[0] / 255.0, rgb[1] / 255.0, rgb[2] / 255.0, matrix);
            const Bytes packed = packed8(*reader);
            for (std::size_t i = 0; i < packed.size(); ++i) {
                const double wanted = expected[i % 4 == 1 ? 1 : (i % 4 == 3 ? 2 : 0)];
                ASSERT_NEAR(packed[i], wanted, 0.51) << colour << " at " << i;
            }
        }
    }
}

TEST_F(Packing, EveryRgbLayoutGivesTheSameCodes)
{
    // Colours that even 4-bit components hold exactly.
    ffmpeg("-f lavfi -i color=0xff0077:s=30x6,format=gbrp -frames:v 1 -f rawvideo -pix_fmt rgb24 in.raw");
    const auto expected = ycbcr(1, 0, 0x77 / 255.0, Matrix::bt601);
    for (const std::string format :
         {"rgb24", "bgr24", "argb", "rgba", "abgr", "bgra", "0rgb", "gbrp", "gbrap", "rgb48le", "rgb48be",
          "rgba64be", "gbrp16be", "gbrp10le", "gbrp12be"}) {
        ffmpeg(raw("rgb24", 30, 6) + "-f rawvideo -pix_fmt " + format + " other.raw");
        // swscale, which makes the other layouts here, may be a code or two off in deep ones.
        const auto packed = words(packedFromMemory(format, 30, 6, contents(at("other.raw")), Depth::bits16));
        for (std::size_t i = 0; i < packed.size(); ++i) {
            const double wanted = expected[i % 4 == 1 ? 1 : (i % 4 == 3 ? 2 : 0)];
            ASSERT_NEAR(packed[i] / 256.0, wanted, 0.6) << format << " at " << i;
        }
    }
}

TEST_F(Packing, GreyPalettesAndBitmapsAreFullRangeRgb)
{
    for (const std::string format : {"gray", "ya8", "monob"}) {
        ffmpeg("-f lavfi -i color=white:s=32x4,format=gbrp -frames:v 1 -pix_fmt " + format + " one.png");
        auto reader = open(at("one.png"));
        ASSERT_TRUE(reader) << format;
        const Bytes packed = packed8(*reader);
        ASSERT_FALSE(packed.empty());
        for (std::size_t i = 0; i < packed.size(); ++i) {
            ASSERT_EQ(packed[i], i % 2 == 0 ? 235 : 128) << format << " at " << i;
        }
    }
}

TEST_F(Packing, BitPackedRgbIsUnpackedByItsFields)
{
    Bytes deep;
    Bytes shallow;
    for (int i = 0; i < 4 * 2; ++i) {
        const std::uint32_t ten = 1023U << 20 | 0U << 10 | 341U; // x2rgb10: red 1, green 0, blue 1/3
        const std::uint16_t five = 31U << 11 | 0U << 5 | 31U;    // rgb565: red 1, green 0, blue 1
        const auto* tenBytes = reinterpret_cast<const std::uint8_t*>(&ten);
        const auto* fiveBytes = reinterpret_cast<const std::uint8_t*>(&five);
        deep.insert(deep.end(), tenBytes, tenBytes + 4);
        shallow.insert(shallow.end(), fiveBytes, fiveBytes + 2);
    }
    const auto tens = words(packedFromMemory("x2rgb10le", 4, 2, deep, Depth::bits16));
    const auto fives = packedFromMemory("rgb565le", 4, 2, shallow, Depth::bits8);
    const auto expectedTen = ycbcr(1, 0, 1 / 3.0, Matrix::bt601);
    const auto expectedFive = ycbcr(1, 0, 1, Matrix::bt601);
    for (std::size_t i = 0; i < tens.size(); ++i) {
        const std::size_t component = i % 4 == 1 ? 1 : (i % 4 == 3 ? 2 : 0);
        EXPECT_NEAR(tens[i] / 256.0, expectedTen[component], 0.01) << i;
        EXPECT_NEAR(fives[i], expectedFive[component], 0.51) << i;
    }
}

TEST_F(Packing, PalettesAreLookedUp)
{
    Bytes indices(8 * 2, 0);
    indices.resize(8 * 2 + 256 * 4, 0);
    const std::uint32_t red = 0xffff0000;
    std::memcpy(&indices[8 * 2], &red, sizeof red);
    const Bytes packed = packedFromMemory("pal8", 8, 2, indices, Depth::bits8);
    const auto expected = ycbcr(1, 0, 0, Matrix::bt601);
    for (std::size_t i = 0; i < packed.size(); ++i) {
        EXPECT_NEAR(packed[i], expected[i % 4 == 1 ? 1 : (i % 4 == 3 ? 2 : 0)], 0.51) << i;
    }
}

TEST_F(Packing, RowsTooShortForTheWidthAreRefused)
{
    ffmpeg("-f lavfi -i color=white:s=32x4 -frames:v 1 one.png");
    auto reader = open(at("one.png"));
    ASSERT_TRUE(reader);
    Frame frame;
    ASSERT_EQ(reader->next(frame), ClipReader::Next::frame);
    Bytes memory(32 * 4 * 2);
    FramePacker packer({});
    const Status status = packer.pack(frame, memory.data(), 63);
    ASSERT_FALSE(status);
    EXPECT_NE(status.text().find("63"), std::string::npos) << status.text();
    EXPECT_FALSE(packer.pack(Frame(), memory.data(), 64));
}

} // namespace
} // namespace Qx::Media::Test
