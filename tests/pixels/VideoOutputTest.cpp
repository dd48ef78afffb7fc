// RGB that leaves as YCrCb, in every layout, against arithmetic in double precision.

#include "QxFxResources/GPUColourConverter.h"
#include "tests/pixels/FfmpegJudge.h"
#include "tests/pixels/Gpu.h"
#include "tests/pixels/Judge.h"
#include "tests/pixels/Rearrangements.h"
#include "tests/pixels/Reference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace Qx::Pixels {
namespace {

using namespace Image;

constexpr unsigned widestStandardDefinition = 720;

/// The output path encodes full-range RGB to video range, by the matrix that goes with the width.
Conversion encodingFor(const Picture& picture)
{
    const bool wide = static_cast<unsigned>(picture.width) > widestStandardDefinition;
    return {Direction::Encode, Range::Full, Range::Video, wide ? Matrix::Bt709 : Matrix::Bt601,
            Pixels::Filter::Point};
}

/// Exact values in codes of 8, 10 or 16 bits. Video's steps are powers of two from depth to depth.
std::vector<double> exactFor(const Picture& picture, int depth)
{
    std::vector<double> exact = exactConversion(encodingFor(picture), picture, depth == 8 ? 8 : 16);
    if (depth == 10) {
        for (double& value : exact)
            value = std::min(value / 64.0, 1023.0);
    }
    return exact;
}

/// Pictures of both matrices. The library's own path makes pairs of pixels, so widths are even.
std::vector<Picture> picturesAt(int depth)
{
    std::vector<Picture> pictures = trialPictures(Layout::Rgb, depth);
    std::erase_if(pictures, [](const Picture& picture) { return picture.width % 2 != 0; });
    pictures.push_back(naturalPicture(Layout::Rgb, depth, 736, 24));
    return pictures;
}

/// All pictures of a test, each compared as it comes. Ten bits come by way of sixteen, and what is rounded
/// twice goes the other way once in 128 times.
class Encoded : public testing::Test
{
protected:
    void expectEncoded(const std::string& trial, const Picture& got, const Picture& source)
    {
        const std::vector<double> exact = exactFor(source, got.depth);
        ASSERT_EQ(got.codes.size(), exact.size()) << trial;
        const Verdict verdict = judge(got, exact);
        EXPECT_LE(verdict.errors.worst, 1) << trial << ": " << verdict.worstSample << "\n"
                                           << leaveBehind(trial, got, rounded(got, exact));
        total_ += verdict.errors;
        wanted_ = got.depth == 10 ? 99.0 : 99.99;
    }

    void TearDown() override
    {
        EXPECT_GE(total_.correctPercent(), wanted_)
            << total_.misrounded << " of " << total_.samples << " samples are not the nearest code";
        EXPECT_GT(total_.samples, 10000U);
    }

private:
    Errors total_;
    double wanted_ = 100.0;
};

/// Rows of four components, 8 or 16 bits; `places` says where Y0 Cb Y1 Cr lie.
Picture pictureFrom(const Rows& rows, const Picture& source, int depth,
                    const std::array<std::size_t, 4>& places)
{
    Picture picture = Picture::blank(source.name, Layout::Packed422, source.width, source.height, depth);
    const std::size_t bytes = depth == 8 ? 1 : 2;
    for (int y = 0; y < picture.height && !rows.empty(); ++y) {
        const auto& row = rows[static_cast<std::size_t>(y)];
        for (int texel = 0; texel < picture.texels(); ++texel) {
            for (int component = 0; component < 4; ++component) {
                const std::size_t at =
                    4 * static_cast<std::size_t>(texel) + places.at(static_cast<std::size_t>(component));
                std::memcpy(&picture.at(texel, y, component), &row[at * bytes], bytes);
            }
        }
    }
    return picture;
}

Picture pictureFrom(const TenBitCodes& codes, const Picture& source)
{
    Picture picture = Picture::blank(source.name, Layout::Packed422, source.width, source.height, 10);
    picture.codes.clear();
    for (const auto& row : codes.rows)
        picture.codes.insert(picture.codes.end(), row.begin(), row.end());
    return picture;
}

FrameSpec specOf(Format format, unsigned depth, const Picture& picture)
{
    return {format, depth, static_cast<unsigned>(picture.width), static_cast<unsigned>(picture.height)};
}

Rows leavingAs(const FrameSpec& spec, const Picture& picture)
{
    const Core::Data wanted(spec.width, spec.height, spec.format, static_cast<std::uint16_t>(spec.depth), 0);
    return rowsIn(ColourConversion::copyToHostSurface(upload(picture), wanted, Polarity::Progressive), spec);
}

/// The same picture as YUY2 on the GPU, as a program makes it for the techniques that finish its output.
Surface encoded(const Picture& picture, iGPUImage::eFormat format)
{
    Surface source = upload(picture);
    source.setGamutScaling(GamutScaling::Unscaled);
    Surface video = source.createDestYUY2GPUSurface(format);
    video.setGamutScaling(GamutScaling::Video);
    video.setColourSpace(encodingFor(picture).matrix == Matrix::Bt709 ? ColourSpace::BT709
                                                                      : ColourSpace::BT601);
    EXPECT_TRUE(ColourConversion::convertRGBToYCrCb422(source, video, Image::Filter::Point));
    return video;
}

constexpr std::array<std::size_t, 4> yuy2Places{0, 1, 2, 3};
constexpr std::array<std::size_t, 4> uyvyPlaces{1, 0, 3, 2};
constexpr std::array<std::size_t, 4> yvyuPlaces{0, 3, 2, 1};
constexpr std::array<std::size_t, 4> vyuyPlaces{3, 2, 1, 0};

struct WordLayout
{
    Format format;
    unsigned depth;
    std::array<std::size_t, 4> places;
};

TEST_F(Encoded, InEveryOrderOfTheLibraryIsWithinACodeOfExactArithmetic)
{
    for (const int sourceDepth : {8, 16}) {
        for (const Picture& picture : picturesAt(sourceDepth)) {
            for (const auto& [format, depth, places] :
                 {WordLayout{YUY2, 8, yuy2Places}, WordLayout{UYVY, 8, uyvyPlaces},
                  WordLayout{YUY2, 16, yuy2Places}, WordLayout{UYVY, 16, uyvyPlaces},
                  WordLayout{Y216, 16, yuy2Places}, WordLayout{V216, 16, yuy2Places}}) {
                const FrameSpec spec = specOf(format, depth, picture);
                const Rows rows = leavingAs(spec, picture);
                ASSERT_FALSE(rows.empty()) << spec.name();
                expectEncoded(spec.name(), pictureFrom(rows, picture, static_cast<int>(depth), places),
                              picture);
            }
        }
    }
}

TEST_F(Encoded, InEveryOtherOrderIsWithinACodeOfExactArithmetic)
{
    for (const Picture& picture : picturesAt(16)) {
        for (const unsigned depth : {8U, 16U}) {
            const Surface video = encoded(picture, gpuFormatFor(depth));
            for (const auto& [format, places] : {std::pair{YVYU, yvyuPlaces}, std::pair{VYUY, vyuyPlaces}}) {
                const FrameSpec spec = specOf(format, depth, picture);
                expectEncoded(spec.name(),
                              pictureFrom(rowsAs(spec, video), picture, static_cast<int>(depth), places),
                              picture);
            }
        }
    }
}

/// FFmpeg unpacks what the library packs. Blocks that are cut short have lost their lower bits.
TEST_F(Encoded, AsM101OfWholeBlocksIsWithinACodeOfExactArithmetic)
{
    for (const int sourceDepth : {8, 16}) {
        for (const Picture& picture : picturesAt(sourceDepth)) {
            if (picture.width % 16 != 0)
                continue;
            const FrameSpec spec = specOf(M101, 10, picture);
            const Rows rows = leavingAs(spec, picture);
            ASSERT_FALSE(rows.empty()) << spec.name();
            std::vector<std::byte> bytes;
            for (const auto& row : rows)
                bytes.insert(bytes.end(), row.begin(), row.end());
            const TenBitCodes codes =
                decodedByFfmpeg("m101", bytes, spec.width, spec.height, m101Extradata(10, rows[0].size()));
            expectEncoded(spec.name(), pictureFrom(codes, picture), picture);
        }
    }
}

TEST_F(Encoded, AsV210IsWithinACodeOfExactArithmetic)
{
    for (const Picture& picture : picturesAt(16)) {
        const FrameSpec spec = specOf(V210, 10, picture);
        const Surface video = encoded(picture, iGPUImage::eARGB16);
        std::vector<std::byte> bytes;
        for (auto row : rowsAs(spec, video)) {
            row.resize((spec.width + 47) / 48 * 128);
            bytes.insert(bytes.end(), row.begin(), row.end());
        }
        const TenBitCodes codes = decodedByFfmpeg("v210", bytes, spec.width, spec.height, {});
        expectEncoded(spec.name(), pictureFrom(codes, picture), picture);
    }
}

TEST(Yv12Output, HasTheMeanOfTwoLinesInEitherChromaPlane)
{
    for (const Picture& picture : picturesAt(8)) {
        const FrameSpec spec = specOf(YV12, 8, picture);
        const Rows rows = rowsAs(spec, encoded(picture, iGPUImage::eARGB8));
        const std::vector<double> exact = exactFor(picture, 8);
        const std::size_t texels = spec.width / 2;
        const std::size_t chromaRows = (spec.height + 1) / 2;
        ASSERT_EQ(rows.size(), spec.height + 2 * chromaRows);
        const auto near = [&](std::size_t row, std::size_t x, double wanted) {
            // Rounding twice: half a code in 4:2:2, half in the mean.
            EXPECT_NEAR(std::to_integer<int>(rows[row][x]), wanted, 1.0 + Errors::tie)
                << picture.name << ", row " << row << ", sample " << x;
        };
        for (std::size_t y = 0; y < spec.height; ++y) {
            for (std::size_t x = 0; x < spec.width; ++x)
                near(y, x, exact[(y * texels + x / 2) * 4 + x % 2 * 2]);
        }
        for (std::size_t y = 0; y < chromaRows; ++y) {
            const std::size_t lower = std::min<std::size_t>(2 * y + 1, spec.height - 1);
            for (std::size_t x = 0; x < texels; ++x) {
                const auto mean = [&](std::size_t component) {
                    return (exact[(2 * y * texels + x) * 4 + component] +
                            exact[(lower * texels + x) * 4 + component]) /
                           2;
                };
                near(spec.height + y, x, mean(3));
                near(spec.height + chromaRows + y, x, mean(1));
            }
        }
        if (HasFailure())
            return;
    }
}

} // namespace
} // namespace Qx::Pixels
