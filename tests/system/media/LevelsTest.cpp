// Codes at other depths, against the definitions of their ranges in double precision.

#include "tools/qxhost/media/rows/Levels.h"
#include "tests/pixels/ClipReference.h"
#include "tests/system/media/MediaFixture.h"
#include "tools/qxhost/media/Ffmpeg.h"

#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>

namespace Qx::Media::Test {
namespace {

unsigned nearestLevel(unsigned code, int from, int to, Range range, bool chroma)
{
    const auto exact = Pixels::exactLevel(
        code, from, to, range == Range::full ? Pixels::Range::Full : Pixels::Range::Video, chroma);
    return static_cast<unsigned>(std::floor(exact + 0.5));
}

/// From how many bits to how many, in which range.
class Levels : public testing::TestWithParam<std::tuple<int, int, Range>>
{
};

TEST_P(Levels, EveryCodeBecomesTheNearestOneOfItsLevel)
{
    const auto [from, to, range] = GetParam();
    for (unsigned code = 0; code < 1U << from; ++code) {
        ASSERT_EQ(codeAtDepth(code, from, to, range), nearestLevel(code, from, to, range, false)) << code;
        ASSERT_EQ(chromaAtDepth(code, from, to, range), nearestLevel(code, from, to, range, true)) << code;
    }
}

TEST_P(Levels, EveryCodeComesBackFromADeeperFormat)
{
    const auto [from, to, range] = GetParam();
    if (to < from) {
        return;
    }
    for (unsigned code = 0; code < 1U << from; ++code) {
        ASSERT_EQ(codeAtDepth(codeAtDepth(code, from, to, range), to, from, range), code);
        ASSERT_EQ(chromaAtDepth(chromaAtDepth(code, from, to, range), to, from, range), code);
    }
}

/// Codes of 8 bits per range: black or zero, and the codes up to white or from one end of a colour difference
/// to the other.
std::pair<double, double> scaleOf(const Coding& coding, bool chroma)
{
    const double largest = std::ldexp(1.0, coding.bits) - 1;
    const bool isFull = coding.range == Range::full;
    if (chroma) {
        return {std::ldexp(1.0, coding.bits - 1), isFull ? largest : std::ldexp(224.0, coding.bits - 8)};
    }
    return {isFull ? 0.0 : std::ldexp(16.0, coding.bits - 8),
            isFull ? largest : std::ldexp(219.0, coding.bits - 8)};
}

TEST_P(Levels, EveryCodeBecomesTheNearestOneOfItsLevelInTheOtherRange)
{
    const auto [from, to, range] = GetParam();
    const Coding source{from, range};
    const Coding target{to, range == Range::full ? Range::video : Range::full};
    for (const bool chroma : {false, true}) {
        const auto [zero, codes] = scaleOf(source, chroma);
        const auto [newZero, newCodes] = scaleOf(target, chroma);
        for (unsigned code = 0; code < 1U << from; ++code) {
            const double exact = newZero + (code - zero) / codes * newCodes;
            const double held = std::clamp(exact, 0.0, std::ldexp(1.0, to) - 1);
            const auto got = chroma ? chromaOfLevel(code, source, target) : codeOfLevel(code, source, target);
            ASSERT_NEAR(got, held, 0.5 + 1e-9) << code << (chroma ? " of chroma" : "");
        }
    }
}

/// A frame of yuv422p, or of 10 or more bits, whose luma counts up and whose chroma counts up and down.
Frame countingFrame(int bits, Bytes& memory)
{
    const int width = 1 << std::min(bits, 12);
    const std::string format = bits == 8 ? "yuv422p" : "yuv422p" + std::to_string(bits) + "le";
    const AVPixelFormat pixels = av_get_pix_fmt(format.c_str());
    memory.resize(static_cast<std::size_t>(av_image_get_buffer_size(pixels, width, 1, 1)));
    const int largest = (1 << bits) - 1;
    for (int i = 0; i < 2 * width; ++i) {
        const int at = i < width ? i : (i - width) % (width / 2) * 2;
        const int code = i < width + width / 2 ? at : largest - at;
        if (bits == 8) {
            memory[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(code);
        } else {
            std::memcpy(&memory[static_cast<std::size_t>(i) * 2], &code, 2); // little-endian
        }
    }
    std::shared_ptr<AVFrame> frame(av_frame_alloc(), FreeFrame());
    frame->format = pixels;
    frame->width = width;
    frame->height = 1;
    av_image_fill_arrays(frame->data, frame->linesize, memory.data(), pixels, width, 1, 1);
    return Frame(frame, {}, false);
}

TEST_P(Levels, PackedRowsHoldThemInTheUpperBitsOfTheirSamples)
{
    const auto [from, to, range] = GetParam();
    Bytes memory;
    const Frame frame = countingFrame(from, memory);
    const int width = frame.picture()->width;
    const Depth depth = to == 8 ? Depth::bits8 : Depth::bits16;
    const int unused = static_cast<int>(depth) - to;
    Bytes row(FramePacker::rowBytes(width, depth));
    FramePacker packer({depth, range, Matrix::bt709, to});
    ASSERT_TRUE(packer.pack(frame, row.data(), static_cast<std::ptrdiff_t>(row.size())));
    const auto sample = [&](int i) {
        const auto at = static_cast<std::size_t>(i);
        return depth == Depth::bits8 ? unsigned{row[at]} : row[2 * at] | unsigned{row[2 * at + 1]} << 8U;
    };
    const unsigned largest = (1U << from) - 1;
    for (int x = 0; x < width; ++x) {
        const auto code = static_cast<unsigned>(x);
        ASSERT_EQ(sample(2 * x), nearestLevel(code, from, to, range, false) << unused) << "luma of " << x;
        const unsigned chroma = x % 2 == 0 ? code : largest - (code - 1);
        ASSERT_EQ(sample(2 * x + 1), nearestLevel(chroma, from, to, range, true) << unused)
            << "chroma, " << x;
    }
}

INSTANTIATE_TEST_SUITE_P(Depths, Levels,
                         testing::Combine(testing::Values(8, 10, 12, 16), testing::Values(8, 10, 16),
                                          testing::Values(Range::video, Range::full)));

TEST(PackedLevels, BitsBeyondTheDepthOfADamagedFrameAreIgnored)
{
    Bytes memory;
    const Frame frame = countingFrame(10, memory);
    std::fill(memory.begin(), memory.end(), 0xff); // 65535 where codes end at 1023
    Bytes row(FramePacker::rowBytes(frame.picture()->width, Depth::bits16));
    FramePacker packer({Depth::bits16, Range::full, Matrix::bt709});
    ASSERT_TRUE(packer.pack(frame, row.data(), static_cast<std::ptrdiff_t>(row.size())));
    for (std::size_t i = 0; i < row.size(); i += 2) {
        const bool chroma = i % 4 == 2;
        ASSERT_EQ(row[i] | row[i + 1] << 8, nearestLevel(1023, 10, 16, Range::full, chroma)) << i;
    }
}

} // namespace
} // namespace Qx::Media::Test
