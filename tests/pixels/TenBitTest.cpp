// 10-bit 4:2:2 of cards and files, against words that are packed on the CPU.

#include "QxFxResources/GPUColourConverter.h"
#include "image/SurfaceUtilities.h"
#include "platform/ImageConverter.h"
#include "tests/pixels/Rearrangements.h"
#include "tests/pixels/TenBitFrames.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>

namespace Qx::Pixels {
namespace {

using namespace Image;

Surface frameOf(Format format, const TenBitCodes& codes, const Rows& rows, unsigned padding = 0)
{
    Surface frame = randomFrame({format, 10, codes.width, codes.height(), false, padding});
    if (frame.getHostImage())
        fillRows(frame, rows);
    return frame;
}

/// DVS frames have no format of their own: a texel is a word.
Surface dvsFrameOf(const TenBitCodes& codes)
{
    const Rows rows = packDvs(codes);
    Surface frame = makeFrame({ARGB, 8, static_cast<unsigned>(rows[0].size() / 4), codes.height()});
    if (frame.getHostImage())
        fillRows(frame, rows);
    return frame;
}

void forEverySize(const std::function<void(const TenBitCodes&, unsigned padding)>& check)
{
    check(TenBitCodes::everyCode(), 0);
    for (unsigned width = 1; width <= 67; ++width) {
        for (const unsigned height : {1U, 2U, 5U}) {
            SCOPED_TRACE(std::to_string(width) + " x " + std::to_string(height));
            check(TenBitCodes::random(width, height), (width + height) % 3);
            if (testing::Test::HasFailure())
                return;
        }
    }
    check(TenBitCodes::random(1920, 1080), 0);
}

FrameSpec yuy2(const TenBitCodes& codes, unsigned depth)
{
    return {YUY2, depth, codes.width, codes.height()};
}

/// Unpacked M101, and the rows of that.
Surface unpackedM101(const Surface& frame, iGPUImage::eFormat format)
{
    const Surface uploaded = frame.uploadToGPU();
    Surface video = uploaded.createDestYUY2GPUSurface(format);
    EXPECT_TRUE(ColourConversion::unpackMatrox10BitFormat(uploaded, video));
    return video;
}

TEST(V210, UnpacksAndPacksEveryCodeUnchangedAtEveryWidth)
{
    forEverySize([](const TenBitCodes& codes, unsigned padding) {
        const Rows packed = packV210(codes);
        const Surface frame = frameOf(V210, codes, packed, padding);
        const Surface video = through("V210toYUYV", frame.uploadToGPU(), yuy2(codes, 16));
        EXPECT_EQ(firstDifference(rowsIn(video.copyToHost(), yuy2(codes, 16)), as16Bits(codes)), "");
        EXPECT_EQ(
            firstDifference(rowsAs({V210, 10, codes.width, codes.height(), false, padding}, video), packed),
            "");
    });
}

TEST(V210, ComesToEightBitsAsTheNearestCode)
{
    forEverySize([](const TenBitCodes& codes, unsigned padding) {
        const Surface frame = frameOf(V210, codes, packV210(codes), padding);
        EXPECT_EQ(firstDifference(rowsAsYUY2("V210toYUYV", frame, 8), as8Bits(codes, true)), "");
    });
}

TEST(V210, IsReorderedAtEitherDepthAsTheCpuPreparesIt)
{
    for (const unsigned width : {2U, 6U, 50U, 1920U}) {
        const TenBitCodes codes = TenBitCodes::random(width, 3);
        Surface uploaded = frameOf(V210, codes, packV210(codes)).uploadToGPU();
        for (const unsigned depth : {8U, 16U}) {
            SCOPED_TRACE(std::to_string(width) + " wide, " + std::to_string(depth) + " bits");
            const Rows wanted = depth == 8 ? as8Bits(codes, true) : as16Bits(codes);
            const Surface video =
                ColourConversion::reorderComponents(uploaded, YUY2, gpuFormatFor(depth)).copyToHost();
            Surface frame = frameOf(V210, codes, packV210(codes));
            const Surface prepared = prepareForGPU(frame, gpuFormatFor(depth));
            EXPECT_EQ(firstDifference(rowsIn(video, yuy2(codes, depth)), wanted), "");
            EXPECT_EQ(firstDifference(rowsIn(prepared, yuy2(codes, depth)), wanted), "");
            EXPECT_EQ(prepared.getDataFormat(), depth == 8 ? YUY2 : Y216);
        }
    }
}

TEST(M101, UnpacksAndPacksEveryCodeUnchangedAtEveryWidth)
{
    forEverySize([](const TenBitCodes& codes, unsigned padding) {
        const Rows packed = packM101(codes);
        const Surface video = unpackedM101(frameOf(M101, codes, packed, padding), iGPUImage::eARGB16);
        EXPECT_EQ(firstDifference(rowsIn(video.copyToHost(), yuy2(codes, 16)), as16Bits(codes)), "");
        EXPECT_EQ(firstDifference(rowsAsM101(video), packed), "");
    });
}

TEST(M101, GivesItsUpperBitsToEightBitsAndTakesEightBitsForUpperOnes)
{
    forEverySize([](const TenBitCodes& codes, unsigned padding) {
        TenBitCodes upper = codes;
        for (auto& row : upper.rows) {
            for (auto& code : row)
                code = static_cast<std::uint16_t>(code & ~3U);
        }
        const Surface video = unpackedM101(frameOf(M102, codes, packM101(codes), padding), iGPUImage::eARGB8);
        EXPECT_EQ(firstDifference(rowsIn(video.copyToHost(), yuy2(codes, 8)), as8Bits(codes, false)), "");
        EXPECT_EQ(firstDifference(rowsAsM101(video), packM101(upper)), "");
    });
}

TEST(M101, IsPackedByTheLibraryInAsManyWordsAsItCounts)
{
    for (const unsigned width : {1U, 2U, 5U, 6U, 8U, 15U, 16U, 50U, 64U, 720U, 1366U, 1920U}) {
        SCOPED_TRACE(width);
        const TenBitCodes codes = TenBitCodes::random(width, 3);
        const Surface video = unpackedM101(frameOf(M101, codes, packM101(codes)), iGPUImage::eARGB16);
        Surface packed;
        ASSERT_TRUE(ColourConversion::packMatrox10BitFormat(video, packed));
        EXPECT_EQ(packed.getDataFormat(), M101);
        const std::size_t words = width * 10 / 16;
        if (words == 0) // no picture can be made of it
            continue;
        Rows wanted = packM101(codes);
        for (auto& row : wanted)
            row.resize(words * 4);
        const FrameSpec asWords{ARGB, 8, static_cast<unsigned>(words), 3};
        packed.setRowPitch(0);
        packed.setDataFormat(ARGB);
        packed.setBitsPerComponent(8);
        packed.setWidth(asWords.width);
        EXPECT_EQ(firstDifference(rowsIn(packed.copyToHost(), asWords), wanted), "");
    }
}

TEST(M101, ReorderedToYuy2KeepsAllTenBits)
{
    const TenBitCodes codes = TenBitCodes::random(50, 5);
    Surface uploaded = frameOf(M101, codes, packM101(codes)).uploadToGPU();
    const Surface video = ColourConversion::reorderComponents(uploaded, YUY2, iGPUImage::eARGB16);
    EXPECT_EQ(video.getBitsPerComponent(), 16);
    EXPECT_EQ(firstDifference(rowsIn(video.copyToHost(), yuy2(codes, 16)), as16Bits(codes)), "");
}

TEST(DvsWords, GiveTheUpperEightBitsOfEveryCode)
{
    forEverySize([](const TenBitCodes& codes, unsigned) {
        const Surface uploaded = dvsFrameOf(codes).uploadToGPU();
        Surface video = makeFrame(yuy2(codes, 8)).createDestYUY2GPUSurface(iGPUImage::eARGB8);
        ASSERT_TRUE(ColourConversion::unpackDvs10BitFormat(uploaded, video));
        EXPECT_EQ(firstDifference(rowsIn(video.copyToHost(), yuy2(codes, 8)), as8Bits(codes, false)), "");
    });
}

TEST(DvsWords, PutTheUpperEightBitsOnTopOfSixteen)
{
    TenBitCodes codes = TenBitCodes::random(50, 3);
    const Surface uploaded = dvsFrameOf(codes).uploadToGPU();
    Surface video = makeFrame(yuy2(codes, 16)).createDestYUY2GPUSurface(iGPUImage::eARGB16);
    ASSERT_TRUE(ColourConversion::unpackDvs10BitFormat(uploaded, video));
    for (auto& row : codes.rows) {
        for (auto& code : row)
            code = static_cast<std::uint16_t>(code & ~3U);
    }
    EXPECT_EQ(firstDifference(rowsIn(video.copyToHost(), yuy2(codes, 16)), as16Bits(codes)), "");
}

/// One kind of packed 4:2:2 in host memory, and how codes lie in it.
struct Packing
{
    FrameSpec spec;
    Rows (*pack)(const TenBitCodes& codes);
};

TEST(ImageConverter, BringsEveryKindOfPackedVideoToEveryOther)
{
    const auto roundedTo8 = [](const TenBitCodes& codes) { return as8Bits(codes, true); };
    for (const unsigned width : {1U, 2U, 5U, 6U, 7U, 16U, 17U, 50U}) {
        const TenBitCodes deep = TenBitCodes::random(width, 3);
        TenBitCodes shallow = deep;
        for (auto& row : shallow.rows) {
            for (auto& code : row)
                code = static_cast<std::uint16_t>(code & ~3U);
        }
        const std::array packings{Packing{{V210, 10, width, 3}, packV210},
                                  Packing{{M101, 10, width, 3}, packM101},
                                  Packing{{Y216, 16, width, 3, false, 2}, as16Bits},
                                  Packing{{YUY2, 16, width, 3}, as16Bits},
                                  Packing{{YUY2, 8, width, 3, false, 1}, roundedTo8},
                                  Packing{{M102, 8, width, 3}, roundedTo8}};
        for (const Packing& from : packings) {
            const TenBitCodes& codes = from.spec.depth == 8 ? shallow : deep;
            Surface source = makeFrame(from.spec);
            fillRows(source, from.pack(codes));
            for (const Packing& to : packings) {
                Surface target = randomFrame(to.spec); // with something to be overwritten
                ASSERT_TRUE(::ImageConverter::convert(source, target));
                EXPECT_EQ(firstDifference(rowsIn(target, to.spec), to.pack(codes)), "")
                    << from.spec.name() << " to " << to.spec.name();
            }
        }
    }
}

} // namespace
} // namespace Qx::Pixels
