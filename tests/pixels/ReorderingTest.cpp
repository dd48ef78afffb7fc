// What happens to values where components change their depth on the way to their places.

#include "QxFxResources/GPUColourConverter.h"
#include "tests/pixels/Gpu.h"
#include "tests/pixels/Judge.h"
#include "tests/pixels/Rearrangements.h"
#include "tests/pixels/Reference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>

namespace Qx::Pixels {
namespace {

using namespace Image;

std::uint16_t wordAt(const std::vector<std::byte>& row, std::size_t i)
{
    std::uint16_t word = 0;
    std::memcpy(&word, &row[2 * i], sizeof word);
    return word;
}

/// A deep frame's rows as the GPU brings them to eight bits, beside the frame's own words in the same places.
void expectEightBits(const FrameSpec& deep, const Rows& got, const Rows& words,
                     const std::function<double(std::uint16_t)>& exact)
{
    ASSERT_FALSE(got.empty()) << deep.name();
    ASSERT_EQ(got.size(), words.size()) << deep.name();
    for (std::size_t y = 0; y < got.size(); ++y) {
        ASSERT_EQ(got[y].size() * 2, words[y].size()) << deep.name();
        for (std::size_t i = 0; i < got[y].size(); ++i) {
            const std::uint16_t word = wordAt(words[y], i);
            ASSERT_NEAR(std::to_integer<int>(got[y][i]), exact(word), 0.5 + Errors::tie)
                << deep.name() << ", component " << i << " of row " << y << ": " << word;
        }
    }
}

/// Steps of video: 235 x 256 is 235.
double asVideo(std::uint16_t word)
{
    return std::min(word / 256.0, 255.0);
}

/// Shares of the largest code: 65535 is 255.
double asShare(std::uint16_t word)
{
    return word * 255.0 / 65535.0;
}

TEST(FewerBits, KeepVideoInItsStepsInEveryOrder)
{
    for (const Format format : {UYVY, YVYU, VYUY, YV12}) {
        const FrameSpec deep{format, 16, 66, 6, false, 2};
        const Surface frame = randomFrame(deep);
        Surface uploaded = frame.uploadToGPU();
        const Surface video = ColourConversion::reorderComponents(uploaded, YUY2, iGPUImage::eARGB8);
        Rows words = rowsIn(frame, deep);
        if (format == YV12) {
            for (std::size_t y = deep.height; y < words.size(); ++y)
                std::fill(words[y].begin() + deep.width, words[y].end(), std::byte{0});
        }
        const FrameSpec shallow{format, 8, deep.width, deep.height};
        expectEightBits(deep, rowsAs(shallow, video), words, asVideo);
    }
}

TEST(FewerBits, KeepTheSharesOfRgbInEveryOrder)
{
    for (const Format format : {RGBA, BGRA, ABGR, BGR24, RGB24, B48R, BGR3, B64A, PlanarRGB}) {
        const FrameSpec deep{format, 16, 65, 5, false, 2};
        const Surface frame = randomFrame(deep);
        Surface uploaded = frame.uploadToGPU();
        const Surface rgb = ColourConversion::convertToRGBA(uploaded, iGPUImage::eARGB8);
        EXPECT_EQ(rgb.getBitsPerComponent(), 8);
        const FrameSpec shallow{format, 8, deep.width, deep.height};
        expectEightBits(deep, rowsAs(shallow, rgb), rowsIn(frame, deep), asShare);
    }
}

TEST(MoreBits, WidenAPaddedPictureAndNotItsPadding)
{
    for (const unsigned padding : {0U, 1U, 7U}) {
        const FrameSpec spec{ARGB, 8, 61, 4, false, padding};
        const Surface frame = randomFrame(spec);
        const Core::Data wanted(61, 4, ARGB, 16, 0);
        const Surface host =
            ColourConversion::copyToHostSurface(frame.uploadToGPU(), wanted, Polarity::Progressive);
        const Rows words = rowsIn(host, {ARGB, 16, 61, 4});
        const Rows bytes = rowsIn(frame, spec);
        ASSERT_EQ(words.size(), bytes.size());
        for (std::size_t y = 0; y < words.size(); ++y) {
            for (std::size_t i = 0; i < bytes[y].size(); ++i) {
                ASSERT_EQ(wordAt(words[y], i), std::to_integer<int>(bytes[y][i]) * 257)
                    << "component " << i << " of row " << y << ", padding " << padding;
            }
        }
    }
}

TEST(PaddedRows, LeaveInEveryOrderWithoutTheirPadding)
{
    const FrameSpec padded{ARGB, 8, 37, 3, false, 5};
    const FrameSpec tight{ARGB, 8, 37, 3};
    const Surface frame = randomFrame(padded);
    Surface same = makeFrame(tight);
    fillRows(same, rowsIn(frame, padded));
    for (const Format format : {BGRA, RGBA, ABGR, BGR24, B48R, PlanarRGB}) {
        const FrameSpec wanted{format, 8, 37, 3};
        EXPECT_EQ(firstDifference(rowsAs(wanted, frame.uploadToGPU()), rowsAs(wanted, same.uploadToGPU())),
                  "")
            << wanted.name();
    }
}

TEST(ConvertToRGBA, DecodesPackedVideoToFullRangeWithPointChroma)
{
    for (const int depth : {8, 16}) {
        for (const Picture& picture : trialPictures(Layout::Packed422, depth)) {
            Surface video = upload(picture);
            video.setGamutScaling(GamutScaling::Video);
            video.setColourSpace(ColourSpace::BT709);
            if (depth == 16)
                video.setDataFormat(Y216);
            const Surface rgb =
                ColourConversion::convertToRGBA(video, depth == 8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16);
            const auto got = download(rgb, Layout::Rgb, picture.name);
            ASSERT_TRUE(got) << picture.name;
            const Conversion conversion{Direction::Decode, Range::Video, Range::Full, Matrix::Bt709,
                                        Pixels::Filter::Point};
            const auto exact = exactConversion(conversion, picture, depth);
            ASSERT_EQ(got->codes.size(), exact.size());
            const Verdict verdict = judge(*got, exact);
            EXPECT_LE(verdict.errors.worst, 1) << verdict.worstSample;
        }
    }
}

TEST(ChannelExpand, ShowsEachComponentInMemoryOrderAsOpaqueGrey)
{
    const FrameSpec spec{ARGB, 8, 61, 5, false, 0};
    const Surface frame = randomFrame(spec);
    const auto expanded =
        ColourConversion::channelExpand(frame.uploadToGPU().getGPUSurface(), iGPUImage::eARGB8);
    ASSERT_TRUE(expanded);
    EXPECT_EQ(expanded->getSize(), (XY<int>{4 * 61, 5}));
    const auto got = download(makeWrapper(expanded), Layout::Rgb, "expanded");
    ASSERT_TRUE(got);
    const Rows bytes = rowsIn(frame, spec);
    for (int y = 0; y < 5; ++y) {
        for (int x = 0; x < 4 * 61; ++x) {
            const int wanted =
                std::to_integer<int>(bytes[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)]);
            for (int i = 0; i < 3; ++i)
                ASSERT_EQ(got->at(x, y, i), wanted) << x << ", " << y;
            ASSERT_EQ(got->at(x, y, 3), 255);
        }
    }
}

} // namespace
} // namespace Qx::Pixels
