#include "QxFxResources/GPUColourConverter.h"
#include "QxFxResources/Manager.h"
#include "tests/contract/recording/Surfaces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>

// Which technique each format takes, and the result's label, is in FormatTableTests.cpp.

using namespace Qx::Test;
using namespace Qx::Image;
using namespace Qx::Image::ColourConversion;
using Qx::FxResources::Manager;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class ReorderComponents : public FormatTest
{
};

class ConvertToRGBA : public FormatTest
{
};

class ChannelExpand : public FormatTest
{
};

Surface frame(Format format, unsigned bits, unsigned width = 1920, bool topDown = true)
{
    Surface result = onGPU(format, bits, width, 1080, topDown);
    result.setDescriptions(unusualDescriptions());
    return result;
}

} // namespace

TEST_F(ReorderComponents, CreatesThenAppliesTheTechniqueWithHalfTheWidth)
{
    Surface source = frame(UYVY, 8);
    const Surface result = reorderComponents(source, YUY2, iGPUImage::eARGB8);
    EXPECT_THAT(host().journal.lines(),
                ElementsAre("createGPUImage(960x1080, 0)", "setTechnique(null.fx, UYVYtoYUYV)",
                            "getParam(null.fx, _Width)", "setValue(null.fx, _Width, 960)",
                            "getParam(null.fx, _Height)", "setValue(null.fx, _Height, 1080)",
                            "render(null.fx, created, Input=source(0 0 1 1), Input=source(" +
                                number(-1.0F / 960.0F) + " 0 " + number(1.0F - 1.0F / 960.0F) + " 1))"));
    EXPECT_EQ(describe(result), "YUY2 1920x1080 8/16 3840");
    EXPECT_EQ(result.getGPUSurface().get(), nullFx->drawings().back().target);
    EXPECT_EQ(result.getDescriptions(), unusualDescriptions());
}

TEST_F(ReorderComponents, LeavesTheSourceAsItWas)
{
    Surface source = frame(UYVY, 8);
    const Core::Data data = source.getData();
    const auto image = source.getGPUSurface();
    reorderComponents(source, YUY2, iGPUImage::eARGB8);
    EXPECT_EQ(source.getData(), data);
    EXPECT_EQ(source.getGPUSurface(), image);
}

TEST_F(ReorderComponents, HalfOfAnOddWidthIsTruncated)
{
    Surface source = frame(UYVY, 8, 1919);
    const Surface result = reorderComponents(source, YUY2, iGPUImage::eARGB8);
    EXPECT_EQ(host().journal.count("createGPUImage(959x1080, 0)"), 1U);
    EXPECT_EQ(nullFx->drawings().back().floats.at("_Width"), 959.0F);
    EXPECT_EQ(result.getWidth(), 1919U);
}

TEST_F(ReorderComponents, SizeAndDepthAreTheSurfacesAndNotItsImages)
{
    for (const unsigned bits : {8U, 16U}) {
        host().journal.clear();
        Surface source = frame(UYVY, bits);
        pad(source, bits == 8 ? iGPUImage::eARGB16 : iGPUImage::eARGB8);
        reorderComponents(source, YUY2, iGPUImage::eARGB16);
        EXPECT_THAT(host().journal.linesOf({"createGPUImage", "setValue"}),
                    ElementsAre(bits == 8 ? "createGPUImage(960x1080, 0)" : "createGPUImage(960x1080, 1)",
                                "setValue(null.fx, _Width, 960)", "setValue(null.fx, _Height, 1080)"));
    }
}

TEST_F(ReorderComponents, TenBitM101IsJudgedByTheSurfaceAndNotByItsImage)
{
    Surface source = frame(M101, 10);
    pad(source, iGPUImage::eARGB16);
    reorderComponents(source, YUY2, iGPUImage::eARGB8);
    EXPECT_THAT(host().journal.linesOf({"createGPUImage", "setTechnique"}),
                ElementsAre("createGPUImage(960x1080, 0)",
                            "setTechnique(ColourConvert.fx, UnpackMatrox10Bit_BaseOnly)"));
}

TEST_F(ReorderComponents, OfAFrameOnePixelWideReturnsTheSource)
{
    for (const Format format : {UYVY, YVYU, VYUY, YV12}) {
        Surface source = frame(format, 8, 1);
        const Surface result = reorderComponents(source, YUY2, iGPUImage::eARGB8);
        EXPECT_EQ(result.getGPUSurface(), source.getGPUSurface());
        EXPECT_EQ(result.getData(), source.getData());
    }
    EXPECT_THAT(host().journal.lines(), IsEmpty());
}

TEST_F(ReorderComponents, PrintsTheUnconditionalAssertionForEveryV210Frame)
{
    const std::string line = "assertion failed false at QxFxResources/GPUColourConverter line 230\n";
    for (const Format requested : {YUY2, UYVY, V210}) {
        Surface source = frame(V210, 10);
        EXPECT_EQ(printedDuring([&] { reorderComponents(source, requested, iGPUImage::eARGB16); }), line);
    }
    EXPECT_THAT(nullFx->drawings(), testing::SizeIs(3)) << "and converts it all the same";
    Surface narrow = frame(V210, 10, 1);
    EXPECT_EQ(printedDuring([&] { reorderComponents(narrow, YUY2, iGPUImage::eARGB16); }), line);
}

TEST_F(ReorderComponents, SixteenBitsAreKeptForSourcesOfMoreThanEight)
{
    for (const unsigned bits : {8U, 9U, 10U, 16U}) {
        for (const auto wanted : {iGPUImage::eARGB8, iGPUImage::eARGB16, iGPUImage::eARGB10}) {
            host().journal.clear();
            Surface source = frame(UYVY, bits);
            reorderComponents(source, YUY2, wanted);
            const bool deep = wanted == iGPUImage::eARGB16 && bits > 8;
            EXPECT_THAT(host().journal.linesOf({"createGPUImage"}),
                        ElementsAre(deep ? "createGPUImage(960x1080, 1)" : "createGPUImage(960x1080, 0)"));
        }
    }
}

TEST_F(ReorderComponents, TakesOverTheDescriptionButThePitchOfTheRows)
{
    Surface source = frame(UYVY, 8, 1920, false);
    source.setRowPitch(4096);
    const Surface result = reorderComponents(source, YUY2, iGPUImage::eARGB8);
    EXPECT_EQ(describe(result), "YUY2 1920x1080 8/16 3840 bottom-up")
        << "the rows of the new image have no padding";
}

TEST_F(ReorderComponents, WithoutItsEffectTheResultIsTheWrapperOfTheNewImage)
{
    restartWithout(L"null.fx");
    Surface source = frame(UYVY, 8);
    const Surface result = reorderComponents(source, YUY2, iGPUImage::eARGB8);
    EXPECT_EQ(describe(result), "ARGB 960x1080 8/32 3840");
    EXPECT_TRUE(result.getGPUSurface());
    EXPECT_EQ(result.getDescriptions(), ImageDescriptions());
}

TEST_F(ReorderComponents, WithoutMemoryTheResultIsDescribedAndEmpty)
{
    host().script.fail("createGPUImage");
    Surface source = frame(UYVY, 8);
    const Surface result = reorderComponents(source, YUY2, iGPUImage::eARGB8);
    EXPECT_FALSE(result.getGPUSurface());
    EXPECT_EQ(host().journal.count("render(null.fx, null"), 1U);
    EXPECT_EQ(describe(result), "YUY2 1920x1080 8/16 0");
}

TEST_F(ReorderComponents, ATechniqueThatTheEffectLacksIsRenderedWithTheCurrentOne)
{
    nullFx->haveTechniques({});
    Surface source = frame(UYVY, 8);
    const Surface result = reorderComponents(source, YUY2, iGPUImage::eARGB8);
    EXPECT_THAT(nullFx->drawings(), testing::SizeIs(1));
    EXPECT_EQ(describe(result), "YUY2 1920x1080 8/16 3840");
}

TEST_F(ReorderComponents, YUY2RequestedAsYUY2IsReturnedInSilenceAtEveryDepth)
{
    for (const unsigned bits : {8U, 10U, 16U}) {
        Surface source = frame(YUY2, bits);
        Surface result;
        EXPECT_EQ(printedDuring([&] { result = reorderComponents(source, YUY2, iGPUImage::eARGB16); }), "");
        EXPECT_EQ(result.getData(), source.getData());
        EXPECT_EQ(result.getGPUSurface(), source.getGPUSurface());
    }
}

TEST_F(ReorderComponents, ANameChangesTheResultAndNotTheSource)
{
    Surface source = frame(YUY2, 16);
    const Surface result = reorderComponents(source, V216, iGPUImage::eARGB16);
    EXPECT_EQ(result.getDataFormat(), V216);
    EXPECT_EQ(source.getDataFormat(), YUY2);
    EXPECT_EQ(result.getGPUSurface(), source.getGPUSurface());
    EXPECT_EQ(result.getDescriptions(), unusualDescriptions());
    EXPECT_THAT(host().journal.lines(), IsEmpty());
}

TEST_F(ReorderComponents, TenBitM101IsUnpackedAtTheDepthThatIsWanted)
{
    Surface source = frame(M101, 10);
    const Surface result = reorderComponents(source, YUY2, iGPUImage::eARGB16);
    EXPECT_THAT(host().journal.linesOf({"createGPUImage", "setTechnique", "render"}),
                ElementsAre("createGPUImage(960x1080, 1)",
                            "setTechnique(ColourConvert.fx, UnpackMatrox10Bit)",
                            "render(ColourConvert.fx, created, gSourceImage=source(0 0 960 1))"));
    EXPECT_EQ(result.getDescriptions(), unusualDescriptions());
}

TEST_F(ReorderComponents, TenBitM101ThatCannotBeUnpackedIsAnUnfilledSurface)
{
    convertFx->haveTechniques({});
    Surface source = frame(M101, 10);
    const Surface result = reorderComponents(source, YUY2, iGPUImage::eARGB8);
    EXPECT_NE(result.getGPUSurface(), source.getGPUSurface());
    EXPECT_EQ(describe(result), "YUY2 1920x1080 8/16 3840");
    EXPECT_EQ(host().journal.count("render"), 0U);
}

TEST_F(ReorderComponents, TenBitM101IsNotUnpackedInto10BitWords)
{
    Surface source = frame(M101, 10);
    EXPECT_FALSE(reorderComponents(source, YUY2, iGPUImage::eARGB10).getGPUSurface())
        << "the format is the host's to refuse";
    EXPECT_EQ(host().journal.count("createGPUImage"), 0U);
}

TEST_F(ReorderComponents, M101OfOtherDepthsIsReturnedAsItIs)
{
    for (const unsigned bits : {8U, 9U, 12U, 16U}) {
        Surface source = frame(M101, bits);
        EXPECT_EQ(reorderComponents(source, YUY2, iGPUImage::eARGB8).getGPUSurface(), source.getGPUSurface());
    }
    EXPECT_THAT(host().journal.lines(), IsEmpty());
}

TEST_F(ReorderComponents, HoldsTheGpuLockWhileItsTechniqueRuns)
{
    watchLock({"createGPUImage", "setTechnique", "setValue", "render"});
    Surface source = frame(UYVY, 8);
    reorderComponents(source, YUY2, iGPUImage::eARGB8);
    EXPECT_THAT(lockDepths,
                ElementsAre("createGPUImage 0", "setTechnique 1", "setValue 1", "setValue 1", "render 1"));
    EXPECT_EQ(depthOf(Manager::instance().gpuLock()), 0);
}

TEST_F(ConvertToRGBA, AppliesTheTechniqueWithTheSourcesWidth)
{
    Surface source = frame(ARGB, 8, 1920, false);
    const Surface result = convertToRGBA(source, iGPUImage::eARGB8);
    EXPECT_THAT(host().journal.lines(),
                ElementsAre("createGPUImage(1920x1080, 0)", "setTechnique(null.fx, FlipVertical)",
                            "getParam(null.fx, _Width)", "setValue(null.fx, _Width, 1920)",
                            "getParam(null.fx, _Height)", "setValue(null.fx, _Height, 1080)",
                            "render(null.fx, created, Input=source(0 0 1 1), Input=source(" +
                                number(-1.0F / 1920.0F) + " 0 " + number(1.0F - 1.0F / 1920.0F) + " 1))"));
    EXPECT_EQ(result.getDescriptions(), unusualDescriptions());
    EXPECT_FALSE(source.isTopDown());
    EXPECT_EQ(source.getGPUSurface()->getSize(), (XY<int>{1920, 1080}));
}

TEST_F(ConvertToRGBA, SizeAndDepthAreTheSurfacesAndNotItsImages)
{
    for (const Format format : {RGBA, BGRA, YUY2}) {
        for (const unsigned bits : {8U, 16U}) {
            host().journal.clear();
            Surface source = frame(format, bits);
            pad(source, bits == 8 ? iGPUImage::eARGB16 : iGPUImage::eARGB8);
            const Surface result = convertToRGBA(source, iGPUImage::eARGB16);
            EXPECT_EQ(describe(result),
                      bits == 8 ? "ARGB 1920x1080 8/32 7680" : "ARGB 1920x1080 16/64 15360");
            const auto width = format == RGBA   ? "setValue(null.fx, _Width, 1920)"
                               : format == BGRA ? "drawImageEx(created(0 0 1920 1080), source(0 0 1920 1080)"
                                                : "render(ColourConvert.fx, created, gSourceImage=source(";
            EXPECT_EQ(host().journal.count(width), 1U);
            EXPECT_EQ(host().journal.count("createGPUImage(1920x1080, "), 1U);
        }
    }
}

TEST_F(ConvertToRGBA, TenBitsAreTheSurfacesAndNotItsImages)
{
    for (const unsigned bits : {8U, 10U}) {
        host().journal.clear();
        Surface source = frame(RGBA, bits);
        pad(source, bits == 8 ? iGPUImage::eARGB10 : iGPUImage::eARGB8);
        convertToRGBA(source, iGPUImage::eARGB10);
        EXPECT_THAT(
            host().journal.linesOf({"createGPUImage"}),
            ElementsAre(bits == 8 ? "createGPUImage(1920x1080, 0)" : "createGPUImage(1920x1080, 2101010)"));
    }
}

TEST_F(ConvertToRGBA, OfTopDownARGBIsTheSource)
{
    for (const Format format : {ARGB, ARGB10}) {
        Surface source = frame(format, 8);
        const Surface result = convertToRGBA(source, iGPUImage::eARGB8);
        EXPECT_EQ(result.getGPUSurface(), source.getGPUSurface());
        EXPECT_EQ(result.getData(), source.getData());
        EXPECT_EQ(result.getDescriptions(), unusualDescriptions());
    }
    EXPECT_THAT(host().journal.lines(), IsEmpty());
}

TEST_F(ConvertToRGBA, DeepFormatsAreKeptForSourcesOfThatDepthAlone)
{
    for (const unsigned bits : {8U, 10U, 12U, 16U}) {
        for (const auto wanted : {iGPUImage::eARGB8, iGPUImage::eARGB16, iGPUImage::eARGB10,
                                  static_cast<iGPUImage::eFormat>(7)}) {
            for (const Format format : {RGBA, BGRA, YUY2}) {
                host().journal.clear();
                Surface source = frame(format, bits);
                printedDuring([&] { convertToRGBA(source, wanted); });
                const bool kept = (wanted == iGPUImage::eARGB16 && bits == 16) ||
                                  (wanted == iGPUImage::eARGB10 && bits == 10);
                EXPECT_THAT(host().journal.linesOf({"createGPUImage"}),
                            ElementsAre("createGPUImage(1920x1080, " +
                                        std::to_string(kept ? static_cast<int>(wanted) : 0) + ")"))
                    << bits << " bits";
            }
        }
    }
}

TEST_F(ConvertToRGBA, OfAFrameWithoutWidthIsTheSource)
{
    Surface source = frame(RGBA, 8);
    source.setWidth(0);
    const Surface result = convertToRGBA(source, iGPUImage::eARGB8);
    EXPECT_EQ(result.getGPUSurface(), source.getGPUSurface());
    EXPECT_THAT(host().journal.lines(), IsEmpty());
}

TEST_F(ConvertToRGBA, WithoutNullFxATechniqueLeavesAnUnfilledImage)
{
    restartWithout(L"null.fx");
    Surface source = frame(RGBA, 8);
    const Surface result = convertToRGBA(source, iGPUImage::eARGB8);
    EXPECT_TRUE(result.getGPUSurface());
    EXPECT_NE(result.getGPUSurface(), source.getGPUSurface());
    EXPECT_EQ(host().journal.count("render"), 0U);
}

TEST_F(ConvertToRGBA, BlueFirstIsDrawnAsOneImageThroughTheEffect)
{
    for (const Format format : {BGRA, BGRA32}) {
        host().journal.clear();
        Surface source = frame(format, 8);
        const Surface result = convertToRGBA(source, iGPUImage::eARGB8);
        EXPECT_THAT(host().journal.lines(),
                    ElementsAre("createGPUImage(1920x1080, 0)",
                                "setTechnique(null.fx, ReverseComponentOrder)",
                                "getPrimitivesRenderer(created, 1)",
                                "drawImageEx(created(0 0 1920 1080), source(0 0 1920 1080), effect null.fx, "
                                "blend 0, mode 0, further 0, layer 1)"));
        EXPECT_EQ(describe(result), "ARGB 1920x1080 8/32 7680");
        EXPECT_EQ(result.getDescriptions(), unusualDescriptions());
    }
}

TEST_F(ConvertToRGBA, BlueFirstIsDrawnUnderTheGpuLock)
{
    restart();
    watchLock({"loadEffectFile", "createGPUImage", "setTechnique", "getPrimitivesRenderer", "drawImageEx"});
    Surface source = frame(BGRA, 8);
    convertToRGBA(source, iGPUImage::eARGB8);
    EXPECT_THAT(lockDepths, ElementsAre("loadEffectFile 0", "createGPUImage 0", "setTechnique 1",
                                        "getPrimitivesRenderer 1", "drawImageEx 1"));
    EXPECT_EQ(depthOf(Manager::instance().gpuLock()), 0);
}

TEST_F(ConvertToRGBA, BlueFirstWithoutNullFxIsTheSource)
{
    restartWithout(L"null.fx");
    Surface source = frame(BGRA, 8);
    const Surface result = convertToRGBA(source, iGPUImage::eARGB8);
    EXPECT_EQ(result.getGPUSurface(), source.getGPUSurface());
    EXPECT_EQ(result.getDataFormat(), BGRA);
    EXPECT_EQ(host().journal.count("createGPUImage"), 0U);
}

TEST_F(ConvertToRGBA, BlueFirstWithoutMemoryOrRendererDrawsNothing)
{
    Surface source = frame(BGRA, 8);
    host().script.fail("getPrimitivesRenderer", 1);
    EXPECT_TRUE(convertToRGBA(source, iGPUImage::eARGB8).getGPUSurface());
    host().script.fail("createGPUImage", 1);
    EXPECT_FALSE(convertToRGBA(source, iGPUImage::eARGB8).getGPUSurface());
    EXPECT_EQ(host().journal.count("drawImageEx"), 0U);
}

TEST_F(ConvertToRGBA, VideoIsDecodedToUnscaledRGBByPointWhateverItsRange)
{
    for (const GamutScaling gamut : {GamutScaling::Unscaled, GamutScaling::Video}) {
        Surface source = frame(YUY2, 8);
        source.setGamutScaling(gamut);
        source.setColourSpace(ColourSpace::BT601);
        const Surface result = convertToRGBA(source, iGPUImage::eARGB8);
        EXPECT_EQ(convertFx->drawings().back().technique,
                  gamut == GamutScaling::Video ? "YCrCb422_Video_BT601_To_RGB_Unscaled_Point"
                                               : "YCrCb422_Unscaled_BT601_To_RGB_Unscaled_Point");
        EXPECT_EQ(convertFx->drawings().back().target, result.getGPUSurface().get());
        EXPECT_EQ(result.getGamutScaling(), GamutScaling::Unscaled);
    }
}

TEST_F(ConvertToRGBA, VideoThatCannotBeDecodedIsAnUnfilledImage)
{
    convertFx->haveTechniques({});
    Surface source = frame(YUY2, 8);
    const Surface result = convertToRGBA(source, iGPUImage::eARGB8);
    EXPECT_NE(result.getGPUSurface(), source.getGPUSurface());
    EXPECT_EQ(describe(result), "ARGB 1920x1080 8/32 7680");
    EXPECT_EQ(host().journal.count("render"), 0U);
}

TEST_F(ChannelExpand, IsFourTimesAsWideAndTellsTheEffectSo)
{
    const auto image = Qx::makePtr<FakeGPUImage>("single", XY<int>{480, 270});
    Qx::Ptr<iGPUImage> result;
    EXPECT_EQ(printedDuring([&] { result = channelExpand(image, iGPUImage::eARGB8); }), "");
    EXPECT_THAT(host().journal.lines(),
                ElementsAre("createGPUImage(1920x270, 0)", "setTechnique(null.fx, ChannelExpand)",
                            "getParam(null.fx, _Width)", "setValue(null.fx, _Width, 1920)",
                            "render(null.fx, created, Input=single(0 0 1 1))"));
    EXPECT_EQ(result->getSize(), (XY<int>{1920, 270}));
}

TEST_F(ChannelExpand, EveryWidthIsTakenFourTimes)
{
    for (const int width : {1, 3, 481}) {
        const auto image = Qx::makePtr<FakeGPUImage>("single", XY<int>{width, 7});
        EXPECT_EQ(channelExpand(image, iGPUImage::eARGB8)->getSize(), (XY<int>{4 * width, 7}));
        EXPECT_EQ(nullFx->drawings().back().floats.at("_Width"), static_cast<float>(4 * width));
    }
}

TEST_F(ChannelExpand, OtherFormatsAreAssertedAndUsed)
{
    const auto image = Qx::makePtr<FakeGPUImage>("single", XY<int>{480, 270});
    for (const auto format : {iGPUImage::eARGB16, iGPUImage::eARGB10}) {
        host().journal.clear();
        EXPECT_EQ(printedDuring([&] { channelExpand(image, format); }),
                  "assertion failed fmt == iGPUImage::eARGB8 at QxFxResources/GPUColourConverter line 788\n");
        EXPECT_THAT(
            host().journal.linesOf({"createGPUImage"}),
            ElementsAre("createGPUImage(1920x270, " + std::to_string(static_cast<int>(format)) + ")"));
    }
}

TEST_F(ChannelExpand, OfNothingIsNothingAfterItsAssertion)
{
    EXPECT_EQ(printedDuring([&] { EXPECT_FALSE(channelExpand({}, iGPUImage::eARGB8)); }), "");
    EXPECT_EQ(printedDuring([&] { EXPECT_FALSE(channelExpand({}, iGPUImage::eARGB16)); }),
              assertionLine("fmt == iGPUImage::eARGB8", 788));
    EXPECT_THAT(host().journal.lines(), IsEmpty());
}

TEST_F(ChannelExpand, WithoutMemoryIsNothing)
{
    host().script.fail("createGPUImage");
    const auto image = Qx::makePtr<FakeGPUImage>("single", XY<int>{480, 270});
    EXPECT_FALSE(channelExpand(image, iGPUImage::eARGB8));
    EXPECT_EQ(host().journal.count("render"), 0U);
}

TEST_F(ChannelExpand, WithoutItsTechniqueReturnsTheNewImageUnfilled)
{
    nullFx->haveTechniques({});
    const auto image = Qx::makePtr<FakeGPUImage>("single", XY<int>{480, 270});
    EXPECT_EQ(channelExpand(image, iGPUImage::eARGB8)->getSize(), (XY<int>{1920, 270}));
    EXPECT_THAT(host().journal.linesOf({"getParam", "setValue", "render"}), IsEmpty());
}

TEST_F(ChannelExpand, WithoutNullFxReturnsTheNewImageUnfilled)
{
    restartWithout(L"null.fx");
    const auto image = Qx::makePtr<FakeGPUImage>("single", XY<int>{480, 270});
    EXPECT_TRUE(channelExpand(image, iGPUImage::eARGB8));
    EXPECT_THAT(host().journal.linesOf({"setTechnique", "render"}), IsEmpty());
}

TEST_F(ChannelExpand, HoldsTheGpuLockFromFetchingTheEffectToTheRender)
{
    restart();
    watchLock({"createGPUImage", "loadEffectFile", "setTechnique", "setValue", "render"});
    const auto image = Qx::makePtr<FakeGPUImage>("single", XY<int>{480, 270});
    channelExpand(image, iGPUImage::eARGB8);
    EXPECT_THAT(lockDepths, ElementsAre("createGPUImage 0", "loadEffectFile 1", "setTechnique 1",
                                        "setValue 1", "render 1"));
    EXPECT_EQ(depthOf(Manager::instance().gpuLock()), 0);
}
