#include "QxFxResources/Manager.h"
#include "image/SurfaceUtilities.h"
#include "tests/contract/recording/Surfaces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>

using namespace Qx::Test;
using namespace Qx::Image;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class SurfaceUtilities : public FormatTest
{
};

using BlackSurface = SurfaceUtilities;
using PrepareForGPU = SurfaceUtilities;
using ResizedSurface = SurfaceUtilities;
using Shrink = SurfaceUtilities;

Qx::Ptr<iGPUImage> image(int width, int height, const char* name = "source")
{
    return Qx::makePtr<FakeGPUImage>(name, XY<int>{width, height});
}

/// Draws images of the given sizes and reads the drawing from the journal.
class InterlaceCopy : public SurfaceUtilities
{
protected:
    void SetUp() override
    {
        SurfaceUtilities::SetUp();
        source = image(100, 80);
        dest = image(200, 60, "dest");
    }

    /// Returns "source rectangle -> destination rectangle" of the single drawing.
    std::string copy(XY<int> position, unsigned raster, bool blend = false)
    {
        host().journal.clear();
        interlaceCopy(source, dest, position, static_cast<Raster>(raster), blend);
        const auto lines = host().journal.linesOf({"drawImageEx"});
        if (lines.size() != 1) {
            return std::to_string(lines.size()) + " drawings";
        }
        const std::string& line = lines[0];
        const auto rectangleAfter = [&](const std::string& name) {
            const std::size_t begin = line.find(name) + name.size();
            return line.substr(begin, line.find(')', begin) - begin + 1);
        };
        return rectangleAfter(", source") + " -> " + rectangleAfter("drawImageEx(dest");
    }

    void TearDown() override
    {
        source.reset();
        dest.reset();
        SurfaceUtilities::TearDown();
    }

    Qx::Ptr<iGPUImage> source;
    Qx::Ptr<iGPUImage> dest;
};

} // namespace

TEST_F(BlackSurface, PublishedSizeIsOneTexelPair)
{
    EXPECT_EQ(getBlackGPUSurfaceSize(), (XY<int>{2, 1}));
    EXPECT_THAT(host().journal.lines(), IsEmpty());
}

TEST_F(BlackSurface, OpaqueIsDrawnWithFullAlpha)
{
    const Surface black = createBlackGPUSurface({720, 576}, TransparencyType::Opaque);
    EXPECT_THAT(
        host().journal.lines(),
        ElementsAre("createGPUImage(720x576, 0)", "getPrimitivesRenderer(created, 1)",
                    "drawRect(created(0 0 720 576), colours (0 0 0 1) (0 0 0 1), border 0, layer 1)"));
    EXPECT_EQ(describe(black), "ARGB 720x576 8/32 2880");
    EXPECT_TRUE(black.getGPUSurface());
    EXPECT_EQ(black.getTransparency(), TransparencyType::Opaque);
}

TEST_F(BlackSurface, EveryOtherTransparencyIsDrawnWithoutAlphaAndKept)
{
    for (const unsigned value : {0U, 1U, 2U, 4U, 99U, 0xFFFFFFFFU}) {
        host().journal.clear();
        const Surface black = createBlackGPUSurface({2, 1}, static_cast<TransparencyType>(value));
        EXPECT_THAT(
            host().journal.linesOf({"drawRect"}),
            ElementsAre("drawRect(created(0 0 2 1), colours (0 0 0 0) (0 0 0 0), border 0, layer 1)"));
        EXPECT_EQ(black.getTransparency(), static_cast<TransparencyType>(value));
    }
}

TEST_F(BlackSurface, WithoutMemoryWrapsNothingAndSaysNothing)
{
    host().script.fail("createGPUImage");
    const Surface black = createBlackGPUSurface({720, 576}, TransparencyType::Opaque);
    EXPECT_THAT(host().journal.lines(), ElementsAre("createGPUImage(720x576, 0)"));
    EXPECT_FALSE(black.getGPUSurface());
    EXPECT_EQ(black.getWidth(), 0U);
    EXPECT_EQ(black.getTransparency(), TransparencyType::Opaque);
}

TEST_F(BlackSurface, AnImageThatCannotBeDrawnIntoIsWrappedAllTheSame)
{
    host().script.fail("getPrimitivesRenderer");
    EXPECT_TRUE(createBlackGPUSurface({2, 1}, TransparencyType::Opaque).getGPUSurface());
    EXPECT_EQ(host().journal.count("drawRect"), 0U);
}

namespace {

Surface v210Frame()
{
    Surface frame(1920, 4, V210, false, 10, 0, 0);
    frame.setDescriptions(unusualDescriptions());
    EXPECT_TRUE(frame.allocateHost());
    host().journal.clear();
    return frame;
}

} // namespace

TEST_F(PrepareForGPU, V210BecomesYUY2OfEightBitsForFormatZero)
{
    Surface frame = v210Frame();
    const Surface result = prepareForGPU(frame, iGPUImage::eARGB8);
    EXPECT_EQ(describe(result), "YUY2 1920x4 8/16 3840");
    EXPECT_THAT(host().journal.linesOf({"create"}), ElementsAre("createHostImage(960x4, 0)"));
    EXPECT_EQ(result.getDescriptions(), unusualDescriptions());
}

TEST_F(PrepareForGPU, V210BecomesY216ForEveryOtherFormat)
{
    for (const auto format : {iGPUImage::eARGB16, iGPUImage::eARGB10, static_cast<iGPUImage::eFormat>(7)}) {
        Surface frame = v210Frame();
        const Surface result = prepareForGPU(frame, format);
        EXPECT_EQ(describe(result), "Y216 1920x4 16/32 7680");
        EXPECT_THAT(host().journal.linesOf({"create"}), ElementsAre("createHostImage(960x4, 1)"));
        EXPECT_EQ(result.getDescriptions(), unusualDescriptions());
    }
}

TEST_F(PrepareForGPU, ArgumentBecomesWhatIsReturned)
{
    Surface frame = v210Frame();
    const Surface result = prepareForGPU(frame, iGPUImage::eARGB16);
    EXPECT_EQ(frame.getData(), result.getData());
    EXPECT_EQ(frame.getHostImage(), result.getHostImage());
    EXPECT_EQ(frame.getDescriptions(), result.getDescriptions());
}

TEST_F(PrepareForGPU, ConverterGetsATargetThatIsAlreadyDescribedLikeTheSource)
{
    ImageDescriptions described;
    host().convertImage = [&](const Surface&, Surface& to) {
        described = to.getDescriptions();
        return to.allocateHost();
    };
    Surface frame = v210Frame();
    prepareForGPU(frame, iGPUImage::eARGB8);
    EXPECT_EQ(described, unusualDescriptions());
}

TEST_F(PrepareForGPU, ResultIsTopDownWhateverTheSourceIs)
{
    Surface frame(1920, 4, V210, true, 10, 0, 0);
    ASSERT_TRUE(frame.allocateHost());
    EXPECT_TRUE(prepareForGPU(frame, iGPUImage::eARGB8).isTopDown());
}

TEST_F(PrepareForGPU, AFailedConversionLeavesTheSurfaceAsItWas)
{
    Surface frame = v210Frame();
    const Core::Data before = frame.getData();
    const auto pixels = frame.getHostImage();
    host().script.fail("ImageConverter::convert");
    const Surface result = prepareForGPU(frame, iGPUImage::eARGB8);
    for (const Surface* surface : {&result, static_cast<const Surface*>(&frame)}) {
        EXPECT_EQ(surface->getData(), before);
        EXPECT_EQ(surface->getHostImage(), pixels);
        EXPECT_EQ(surface->getDescriptions(), unusualDescriptions());
    }
    EXPECT_THAT(host().journal.linesOf({"Log", "vexo_printf"}), IsEmpty());
}

TEST_F(PrepareForGPU, EveryOtherFormatIsReturnedUnchanged)
{
    for (const Format format : {YUY2, UYVY, Y216, V216, YV12, M101, ARGB, B64A, UnknownFormat}) {
        Surface frame(64, 2, format, true, 8, 0, 0);
        frame.setDescriptions(unusualDescriptions());
        const bool hasPixels = frame.allocateHost();
        const Core::Data before = frame.getData();
        const auto pixels = frame.getHostImage();
        EXPECT_EQ(static_cast<bool>(pixels), hasPixels);
        host().journal.clear();
        const Surface result = prepareForGPU(frame, iGPUImage::eARGB8);
        EXPECT_EQ(result.getData(), before);
        EXPECT_EQ(result.getHostImage(), pixels);
        EXPECT_EQ(result.getDescriptions(), unusualDescriptions());
        EXPECT_EQ(frame.getData(), before);
        EXPECT_THAT(host().journal.lines(), IsEmpty());
    }
}

TEST_F(ResizedSurface, OfNothingIsNothingAndLogsNothing)
{
    EXPECT_FALSE(createResizedSurface({}, {10, 10}, iGPUImage::eARGB8));
    EXPECT_THAT(host().journal.lines(), IsEmpty());
}

TEST_F(ResizedSurface, StretchesTheWholeSourceOverTheWholeImage)
{
    const auto source = image(1920, 1080);
    const auto result = createResizedSurface(source, {640, 350}, iGPUImage::eARGB16);
    EXPECT_THAT(host().journal.lines(),
                ElementsAre("createGPUImage(640x350, 1)", "getPrimitivesRenderer(created, 1)",
                            "drawImage(created(0 0 640 350), source(0 0 1920 1080), blend 0, weight 1, "
                            "layer 1)"));
    EXPECT_EQ(result->getSize(), (XY<int>{640, 350}));
    EXPECT_EQ(result->getFormat(), iGPUImage::eARGB16);
}

TEST_F(ResizedSurface, OfTheSameSizeIsAFreshCopy)
{
    const auto source = image(64, 64);
    const auto result = createResizedSurface(source, {64, 64}, iGPUImage::eARGB8);
    EXPECT_NE(result, source);
    EXPECT_EQ(host().journal.count("drawImage"), 1U);
}

TEST_F(ResizedSurface, WithoutMemoryLogsAndReturnsTheSource)
{
    host().script.fail("createGPUImage");
    const auto source = image(64, 64);
    EXPECT_EQ(createResizedSurface(source, {32, 32}, iGPUImage::eARGB8), source);
    EXPECT_THAT(host().journal.lines(),
                ElementsAre("createGPUImage(32x32, 0)", R"(LogBoth("Failed to create GPU surface\n"))"));
}

TEST_F(Shrink, NeverEnlargesEitherDirection)
{
    const auto source = image(100, 100);
    for (const XY<int> size : {XY<int>{101, 50}, XY<int>{50, 101}, XY<int>{200, 200}}) {
        EXPECT_FALSE(shrink(source, size, iGPUImage::eARGB8));
    }
    EXPECT_FALSE(shrink({}, {1, 1}, iGPUImage::eARGB8));
    EXPECT_THAT(host().journal.lines(), IsEmpty());
}

TEST_F(Shrink, ASizeThatIsNotPositiveGivesNothing)
{
    const auto source = image(100, 100);
    for (const XY<int> size : {XY<int>{0, 50}, XY<int>{50, 0}, XY<int>{-1, 50}, XY<int>{50, -1}}) {
        EXPECT_FALSE(shrink(source, size, iGPUImage::eARGB8));
    }
    EXPECT_THAT(host().journal.lines(), IsEmpty());
}

TEST_F(Shrink, OneTexelIsTheSmallestSize)
{
    for (const XY<int> size : {XY<int>{1, 2}, XY<int>{2, 1}, XY<int>{1, 1}}) {
        const auto result = shrink(image(4, 4), size, iGPUImage::eARGB8);
        ASSERT_TRUE(result);
        EXPECT_EQ(result->getSize(), size);
    }
}

TEST_F(Shrink, ToItsOwnSizeIsTheSourceItself)
{
    const auto source = image(100, 60);
    EXPECT_EQ(shrink(source, {100, 60}, iGPUImage::eARGB16), source);
    EXPECT_THAT(host().journal.lines(), IsEmpty());
}

TEST_F(Shrink, StepsHalveUntilTheTargetIsNearerThanHalf)
{
    const auto result = shrink(image(1000, 1000), {300, 300}, iGPUImage::eARGB16);
    EXPECT_THAT(
        host().journal.linesOf({"createGPUImage", "drawImage"}),
        ElementsAre("createGPUImage(500x500, 1)",
                    "drawImage(created(0 0 500 500), source(0 0 1000 1000), blend 0, weight 1, layer 1)",
                    "createGPUImage(300x300, 1)",
                    "drawImage(created(0 0 300 300), created(0 0 500 500), blend 0, weight 1, layer 1)"));
    EXPECT_EQ(result->getSize(), (XY<int>{300, 300}));
}

TEST_F(Shrink, DirectionsAreSteppedIndependently)
{
    shrink(image(1000, 100), {250, 100}, iGPUImage::eARGB8);
    EXPECT_THAT(host().journal.linesOf({"createGPUImage"}),
                ElementsAre("createGPUImage(500x100, 0)", "createGPUImage(250x100, 0)"));
    host().journal.clear();
    shrink(image(1920, 1080), {400, 200}, iGPUImage::eARGB8);
    EXPECT_THAT(host().journal.linesOf({"createGPUImage"}),
                ElementsAre("createGPUImage(960x540, 0)", "createGPUImage(480x270, 0)",
                            "createGPUImage(400x200, 0)"));
}

TEST_F(Shrink, HalvesRoundDownAndNeverPassTheTarget)
{
    shrink(image(7, 5), {3, 2}, iGPUImage::eARGB8);
    EXPECT_THAT(host().journal.linesOf({"createGPUImage"}), ElementsAre("createGPUImage(3x2, 0)"));
    host().journal.clear();
    shrink(image(5, 9), {1, 9}, iGPUImage::eARGB8);
    EXPECT_THAT(host().journal.linesOf({"createGPUImage"}),
                ElementsAre("createGPUImage(2x9, 0)", "createGPUImage(1x9, 0)"));
}

TEST_F(Shrink, AStepWithoutMemoryFallsBackAndTheNextScalesFromTheLargerImage)
{
    host().script.fail("createGPUImage", 1);
    const auto result = shrink(image(1000, 1000), {300, 300}, iGPUImage::eARGB8);
    EXPECT_THAT(
        host().journal.linesOf({"createGPUImage", "drawImage", "LogBoth"}),
        ElementsAre("createGPUImage(500x500, 0)", R"(LogBoth("Failed to create GPU surface\n"))",
                    "createGPUImage(300x300, 0)",
                    "drawImage(created(0 0 300 300), source(0 0 1000 1000), blend 0, weight 1, layer 1)"));
    EXPECT_EQ(result->getSize(), (XY<int>{300, 300}));
}

TEST_F(Shrink, ALastStepWithoutMemoryLeavesAnImageThatIsTooLarge)
{
    // The first allocation succeeds, the second fails.
    host().script.during("createGPUImage", [] { host().script.fail("createGPUImage", 1); });
    const auto result = shrink(image(1000, 1000), {300, 300}, iGPUImage::eARGB8);
    EXPECT_EQ(result->getSize(), (XY<int>{500, 500}));
    EXPECT_EQ(host().journal.count("LogBoth"), 1U);
}

TEST_F(InterlaceCopy, DrawsTheWholeSourceAtThePosition)
{
    interlaceCopy(source, dest, {10, 5}, Raster::Frame, false);
    EXPECT_THAT(
        host().journal.lines(),
        ElementsAre("getPrimitivesRenderer(dest, 1)",
                    "drawImageEx(dest(10 5 110 85), source(0 0 100 80), effect none, blend 0, mode 1, "
                    "further 0, layer 1)"));
}

TEST_F(InterlaceCopy, PassesTheFlagOnAsBlend)
{
    interlaceCopy(source, dest, {0, 0}, Raster::LowerField, true);
    EXPECT_THAT(host().journal.linesOf({"drawImageEx"}),
                ElementsAre("drawImageEx(dest(0 0 100 40), source(0 0 100 80), effect none, blend 1, mode 1, "
                            "further 0, layer 1)"));
}

TEST_F(InterlaceCopy, OfOrIntoNothingDoesNothing)
{
    interlaceCopy({}, dest, {0, 0}, Raster::Frame, false);
    interlaceCopy(source, {}, {0, 0}, Raster::Frame, false);
    interlaceCopy({}, {}, {0, 0}, Raster::Frame, false);
    EXPECT_THAT(host().journal.lines(), IsEmpty());
}

TEST_F(InterlaceCopy, ClipsAtBothEdgesAtOnce)
{
    dest = image(50, 60, "dest");
    EXPECT_EQ(copy({-10, 0}, 0), "(10 0 60 80) -> (0 0 50 80)");
}

TEST_F(InterlaceCopy, ClipsAtTheLeftEdge)
{
    EXPECT_EQ(copy({-10, 0}, 0), "(10 0 100 80) -> (0 0 90 80)");
}

TEST_F(InterlaceCopy, ClipsAtTheRightEdge)
{
    EXPECT_EQ(copy({150, 0}, 0), "(0 0 50 80) -> (150 0 200 80)");
    EXPECT_EQ(copy({100, 0}, 0), "(0 0 100 80) -> (100 0 200 80)");
    EXPECT_EQ(copy({101, 0}, 0), "(0 0 99 80) -> (101 0 200 80)");
}

TEST_F(InterlaceCopy, DoesNotClipAtTheBottom)
{
    EXPECT_EQ(copy({0, 50}, 0), "(0 0 100 80) -> (0 50 100 130)");
    EXPECT_EQ(copy({0, 1000}, 0), "(0 0 100 80) -> (0 1000 100 1080)");
}

TEST_F(InterlaceCopy, AboveTheTopSkipsTwoSourceLinesForOneOnEveryRaster)
{
    EXPECT_EQ(copy({0, -7}, 0), "(0 14 100 87) -> (0 0 100 73)");
    EXPECT_EQ(copy({0, -7}, 1), "(0 15 100 88) -> (0 0 100 36)");
    EXPECT_EQ(copy({0, -7}, 2), "(0 14 100 87) -> (0 0 100 36)");
}

TEST_F(InterlaceCopy, LowerFieldStartsOnAnEvenLineAndOneLineOn)
{
    EXPECT_EQ(copy({0, 3}, 2), "(0 1 100 81) -> (0 4 100 44)");
    EXPECT_EQ(copy({0, 4}, 2), "(0 0 100 80) -> (0 4 100 44)");
}

TEST_F(InterlaceCopy, UpperFieldStartsOneSourceLineOnWhenTheLineIsEven)
{
    EXPECT_EQ(copy({0, 4}, 1), "(0 1 100 81) -> (0 4 100 44)");
    EXPECT_EQ(copy({0, 3}, 1), "(0 0 100 80) -> (0 3 100 43)");
}

TEST_F(InterlaceCopy, EveryOtherRasterIsAWholeFrame)
{
    for (const unsigned raster : {0U, 3U, 4U, 99U, 0xFFFFFFFFU}) {
        EXPECT_EQ(copy({0, 3}, raster), "(0 0 100 80) -> (0 3 100 83)");
        EXPECT_EQ(copy({0, 4}, raster), "(0 0 100 80) -> (0 4 100 84)");
    }
}

TEST_F(InterlaceCopy, HalfOfAnOddHeightIsTruncated)
{
    source = image(100, 81);
    EXPECT_EQ(copy({0, 3}, 1), "(0 0 100 81) -> (0 3 100 43)");
    EXPECT_EQ(copy({0, -86}, 1), "(0 173 100 168) -> (0 0 100 -2)") << "towards zero";
}

TEST_F(InterlaceCopy, APositionBesideTheDestinationIsPassedOnAsItComesOut)
{
    EXPECT_EQ(copy({-130, 0}, 0), "(130 0 100 80) -> (0 0 -30 80)");
    EXPECT_EQ(copy({230, 0}, 0), "(0 0 -30 80) -> (230 0 200 80)");
}

TEST_F(InterlaceCopy, TheFarthestPositionsAreNumbersLikeOthers)
{
    constexpr int lowest = std::numeric_limits<int>::min();
    constexpr int highest = std::numeric_limits<int>::max();
    EXPECT_NE(copy({lowest, lowest}, 2), "0 drawings");
    EXPECT_NE(copy({highest, highest}, 2), "0 drawings");
}

TEST_F(SurfaceUtilities, EnterNoLockOfTheLibrary)
{
    watchLock({"createGPUImage", "createHostImage", "getPrimitivesRenderer", "drawRect", "drawImage",
               "drawImageEx"});
    Surface frame = v210Frame();
    createBlackGPUSurface({2, 1}, TransparencyType::Opaque);
    prepareForGPU(frame, iGPUImage::eARGB8);
    createResizedSurface(image(4, 4), {2, 2}, iGPUImage::eARGB8);
    interlaceCopy(image(4, 4), image(4, 4), {0, 0}, Raster::Frame, false);
    EXPECT_THAT(lockDepths, testing::SizeIs(testing::Ge(8U)));
    EXPECT_THAT(lockDepths, testing::Each(testing::EndsWith(" 0")));
}
