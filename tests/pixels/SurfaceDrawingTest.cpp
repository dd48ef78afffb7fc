// What the surface builders draw, pixel by pixel, against a plain model on the CPU.

#include "image/SurfaceUtilities.h"
#include "tests/pixels/Gpu.h"
#include "tests/pixels/Judge.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

namespace Qx::Pixels {
namespace {

using Image::Raster;
using Image::Surface;

Picture noise(const std::string& name, int width, int height, int depth)
{
    Picture picture = Picture::blank(name, Layout::Rgb, width, height, depth);
    std::mt19937 random(static_cast<std::uint32_t>(width * 31 + height));
    for (auto& code : picture.codes)
        code = static_cast<std::uint16_t>(random() & picture.maxCode());
    return picture;
}

std::optional<Picture> pictureOf(const Qx::Ptr<iGPUImage>& image, const std::string& name)
{
    return image ? download(Image::makeWrapper(image), Layout::Rgb, name) : std::nullopt;
}

iGPUImage::eFormat formatOf(int depth)
{
    return depth == 8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16;
}

/// How much of texel `texel` lies in the footprint of target pixel `pixel` on an axis that shrinks.
double share(int pixel, int texel, double scale)
{
    return std::max(0.0, std::min((pixel + 1) * scale, texel + 1.0) - std::max(pixel * scale, double(texel)));
}

/// Every target pixel is the mean of the source over its footprint.
std::vector<double> averaged(const Picture& source, int width, int height)
{
    const double scaleX = static_cast<double>(source.width) / width;
    const double scaleY = static_cast<double>(source.height) / height;
    std::vector<double> result;
    for (int row = 0; row < height; ++row) {
        for (int x = 0; x < width; ++x) {
            std::array<double, 4> sum{};
            for (int sy = static_cast<int>(row * scaleY);
                 sy < std::min(source.height, static_cast<int>((row + 1) * scaleY) + 1); ++sy) {
                for (int sx = static_cast<int>(x * scaleX);
                     sx < std::min(source.width, static_cast<int>((x + 1) * scaleX) + 1); ++sx) {
                    const double weight = share(x, sx, scaleX) * share(row, sy, scaleY);
                    for (int i = 0; i < 4; ++i)
                        sum.at(static_cast<std::size_t>(i)) += weight * source.at(sx, sy, i);
                }
            }
            for (const double component : sum)
                result.push_back(component / (scaleX * scaleY));
        }
    }
    return result;
}

TEST(BlackSurface, IsBlackAndOpaqueOnlyWhenThatIsAsked)
{
    using Image::TransparencyType;
    for (const XY<int> size : {Image::getBlackGPUSurfaceSize(), XY<int>{37, 5}}) {
        for (const TransparencyType transparency :
             {TransparencyType::Unknown, TransparencyType::Straight, TransparencyType::Opaque}) {
            const Surface black = Image::createBlackGPUSurface(size, transparency);
            EXPECT_EQ(black.getTransparency(), transparency);
            const auto got = download(black, Layout::Rgb, "black");
            ASSERT_TRUE(got);
            EXPECT_EQ(got->width, size.x);
            EXPECT_EQ(got->height, size.y);
            for (std::size_t i = 0; i < got->codes.size(); ++i)
                ASSERT_EQ(got->codes[i], i % 4 == 3 && transparency == TransparencyType::Opaque ? 255 : 0);
        }
    }
}

TEST(ResizedSurface, IsAnExactCopyAtItsOwnSize)
{
    for (const int depth : {8, 16}) {
        const Picture source = noise("copied", 53, 29, depth);
        const auto image = upload(source).getGPUSurface();
        const auto copy = Image::createResizedSurface(image, {53, 29}, formatOf(depth));
        const auto got = pictureOf(copy, source.name);
        ASSERT_TRUE(got);
        EXPECT_NE(copy.get(), image.get());
        EXPECT_EQ(got->codes, source.codes);
    }
}

TEST(ResizedSurface, AveragesTheFootprintOfEachPixelWhenItShrinks)
{
    for (const int depth : {8, 16}) {
        const Picture source = noise("shrunk", 60, 44, depth);
        for (const XY<int> size : {XY<int>{30, 22}, XY<int>{60, 22}, XY<int>{30, 44}, XY<int>{40, 33},
                                   XY<int>{31, 23}, XY<int>{59, 43}, XY<int>{7, 5}, XY<int>{1, 1}}) {
            const std::string trial = "resized-" + std::to_string(size.x) + "x" + std::to_string(size.y);
            const auto got = pictureOf(
                Image::createResizedSurface(upload(source).getGPUSurface(), size, formatOf(depth)), trial);
            ASSERT_TRUE(got);
            const auto exact = averaged(source, size.x, size.y);
            ASSERT_EQ(got->codes.size(), exact.size());
            const Verdict verdict = judge(*got, exact);
            EXPECT_LE(verdict.errors.worst, 1) << verdict.worstSample << "\n"
                                               << leaveBehind(trial, *got, rounded(*got, exact));
        }
    }
}

TEST(ResizedSurface, TurnsTheFinestPatternGreyAtHalfTheSize)
{
    Picture checks = Picture::blank("checks", Layout::Rgb, 64, 48, 8);
    for (int y = 0; y < checks.height; ++y) {
        for (int x = 0; x < checks.width; ++x) {
            for (int i = 0; i < 4; ++i)
                checks.at(x, y, i) = (x + y) % 2 == 0 || i == 3 ? 255 : 0;
        }
    }
    const auto half = pictureOf(
        Image::createResizedSurface(upload(checks).getGPUSurface(), {32, 24}, iGPUImage::eARGB8), "half");
    ASSERT_TRUE(half);
    for (std::size_t i = 0; i < half->codes.size(); ++i)
        ASSERT_NEAR(half->codes[i], i % 4 == 3 ? 255.0 : 127.5, 0.5) << i;
}

TEST(Shrink, IsTheSameAsHalvingStepByStep)
{
    struct Trial
    {
        XY<int> from;
        std::vector<XY<int>> steps;
    };
    for (const Trial& trial :
         {Trial{{192, 108}, {{96, 54}, {48, 27}, {40, 20}}}, Trial{{100, 100}, {{50, 50}, {30, 30}}},
          Trial{{100, 10}, {{50, 10}, {25, 10}}}, Trial{{61, 37}, {{30, 18}, {15, 9}, {7, 8}}},
          Trial{{9, 9}, {{8, 8}}}}) {
        const Picture source = noise("shrunk", trial.from.x, trial.from.y, 8);
        const auto got =
            pictureOf(Image::shrink(upload(source).getGPUSurface(), trial.steps.back(), iGPUImage::eARGB8),
                      source.name);
        Picture step = source;
        std::vector<double> exact;
        for (const XY<int>& size : trial.steps) {
            exact = averaged(step, size.x, size.y);
            step = rounded(Picture::blank("step", Layout::Rgb, size.x, size.y, 8), exact);
        }
        ASSERT_TRUE(got);
        ASSERT_EQ(got->codes.size(), exact.size());
        // Each step rounds, and means of four codes are half way between two often enough.
        const Verdict verdict = judge(*got, exact);
        EXPECT_LE(verdict.errors.worst, 1) << verdict.worstSample << "\n"
                                           << leaveBehind("shrink", *got, rounded(*got, exact));
    }
}

// ---- Fields ----

struct FieldTrial
{
    XY<int> position;
    Raster raster;
    bool blend;
};

/// The destination after a copy: line after line, each from two lines further down the source.
Picture copied(const Picture& source, Picture dest, const FieldTrial& trial)
{
    const auto [px, py] = trial.position;
    const bool field = trial.raster != Raster::Frame;
    int line = py < 0 ? -2 * py : 0;
    int lines = source.height + std::min(py, 0);
    int row = std::max(py, 0);
    if (trial.raster == Raster::LowerField && row % 2 != 0) {
        ++row;
        ++line;
    } else if (trial.raster == Raster::UpperField && row % 2 == 0) {
        ++line;
    }
    if (field)
        lines /= 2;
    for (; lines > 0 && line < source.height; --lines, ++row, line += 2) {
        for (int x = std::max(px, 0); x < std::min(px + source.width, dest.width) && row < dest.height; ++x) {
            if (trial.blend && source.at(x - px, line, 3) == 0)
                continue;
            for (int i = 0; i < 4; ++i)
                dest.at(x, row, i) = source.at(x - px, line, i);
        }
    }
    return dest;
}

/// Alpha is nothing or everything, so that blending is exact.
Picture cutOut(int width, int height)
{
    Picture picture = noise("cut-out", width, height, 8);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            picture.at(x, y, 3) = picture.at(x, y, 3) < 128 ? 0 : 255;
    }
    return picture;
}

TEST(InterlaceCopy, TakesEverySecondLineAtAnyPositionOfEitherFieldAndOfFrames)
{
    const Picture under = noise("under", 50, 24, 8);
    for (const int height : {20, 13, 2, 1}) {
        const Picture source = cutOut(40, height);
        const auto image = upload(source).getGPUSurface();
        for (const Raster raster : {Raster::Frame, Raster::UpperField, Raster::LowerField}) {
            for (const int x : {-45, -40, -39, -10, -1, 0, 1, 10, 11, 30, 49, 50, 70}) {
                for (const int y : {-30, -11, -6, -3, -2, -1, 0, 1, 2, 3, 4, 5, 18, 23, 24, 40}) {
                    for (const bool blend : {false, true}) {
                        const FieldTrial trial{{x, y}, raster, blend};
                        const Surface dest = upload(under);
                        Image::interlaceCopy(image, dest.getGPUSurface(), trial.position, raster, blend);
                        const auto got = download(dest, Layout::Rgb, "field");
                        const Picture wanted = copied(source, under, trial);
                        ASSERT_TRUE(got);
                        ASSERT_EQ(got->codes, wanted.codes)
                            << "at " << x << ", " << y << ", raster " << static_cast<unsigned>(raster)
                            << (blend ? ", blended" : "") << ", " << height << " lines\n"
                            << leaveBehind("interlace", *got, wanted);
                    }
                }
            }
        }
    }
}

TEST(InterlaceCopy, PutsBothFieldsOfAFrameIntoTwoHalves)
{
    const Picture source = noise("frame", 32, 16, 8);
    const auto image = upload(source).getGPUSurface();
    const Surface dest = upload(Picture::blank("halves", Layout::Rgb, 32, 16, 8));
    Image::interlaceCopy(image, dest.getGPUSurface(), {0, 0}, Raster::LowerField, false);
    Image::interlaceCopy(image, dest.getGPUSurface(), {0, 8}, Raster::UpperField, false);
    const auto got = download(dest, Layout::Rgb, "halves");
    ASSERT_TRUE(got);
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 32; ++x)
            ASSERT_EQ(got->at(x, y, 0), source.at(x, y < 8 ? 2 * y : 2 * (y - 8) + 1, 0)) << x << ", " << y;
    }
}

} // namespace
} // namespace Qx::Pixels
