#include "QxFxResources/GPUColourConverter.h"
#include "QxFxResources/Manager.h"
#include "image/TechniqueApplication.h"
#include "tests/contract/recording/Surfaces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>

// The result of each format is in FormatTableTests.cpp.

using namespace Qx::Test;
using namespace Qx::Image;
using namespace Qx::Image::ColourConversion;
using Qx::FxResources::Manager;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class CopyToHost : public FormatTest
{
};

using CopyToHostYUV = CopyToHost;
using CopyToHostRGB = CopyToHost;

Surface rendered(unsigned width = 1920, unsigned bits = 8)
{
    Surface result = onGPU(ARGB, bits, width, 1080);
    result.setDescriptions(unusualDescriptions());
    return result;
}

Core::Data request(Format format, unsigned bits, unsigned width = 1920)
{
    return {width, 1080, format, static_cast<std::uint16_t>(bits), 0};
}

} // namespace

TEST_F(CopyToHostYUV, EncodesReordersAndCopiesInThisOrder)
{
    const Surface result = copyToHostSurface(rendered(720), request(UYVY, 8, 720), Polarity::UpperFieldFirst);
    EXPECT_THAT(host().journal.linesOf({"create", "setTechnique", "setValue", "render", "download"}),
                ElementsAre("createGPUImage(360x1080, 0)",
                            "setTechnique(ColourConvert.fx, RGB_Unscaled_To_YCrCb422_Video_BT601_Point)",
                            testing::StartsWith("render(ColourConvert.fx, created, gSourceImage=source("),
                            "createGPUImage(360x1080, 0)", "setTechnique(null.fx, UYVYtoYUYV)",
                            "setValue(null.fx, _Width, 360)", "setValue(null.fx, _Height, 1080)",
                            testing::StartsWith("render(null.fx, created, Input=created("),
                            "downloadImage(360x1080, 0)"));
    EXPECT_EQ(describe(result), "UYVY 720x1080 8/16 1440");
    EXPECT_TRUE(result.getHostImage());
}

/// Between two steps, each of which could ask for a manager.
TEST_F(CopyToHost, ThatIsUnderWayDuringAShutdownEndsWithoutBringingTheManagerBack)
{
    for (const auto& [format, bits] : {std::pair{YUY2, 8U},
                                       {UYVY, 8U},
                                       {UYVY, 16U},
                                       {V216, 16U},
                                       {M101, 10U},
                                       {BGR24, 8U},
                                       {B64A, 16U},
                                       {ARGB10, 10U}}) {
        for (const std::string operation : {"createGPUImage", "setTechnique", "setValue", "render"}) {
            getShader(L"null.fx"); // with a new manager
            getShader(L"ColourConvert.fx");
            host().journal.clear();
            // Before the first image there is no step.
            int calls = operation == "createGPUImage" ? -1 : 0;
            host().script.during(operation, [&] {
                if (calls++ == 0) {
                    std::thread([] { Manager::shutdown(Shutdown::NormalExit); }).join();
                }
            });
            const Surface result =
                copyToHostSurface(rendered(), request(format, bits), Polarity::Progressive);
            const std::string what =
                operation + " of format " + std::to_string(format) + ", " + std::to_string(bits);
            EXPECT_THAT(host().journal.linesOf({"getShadersDir", "listDirectory", "queue"}), IsEmpty())
                << what;
            EXPECT_EQ(result.getDataFormat(), format) << what;
            EXPECT_TRUE(result.getHostImage()) << what;
            host().script.reset();
        }
    }
}

TEST_F(CopyToHostYUV, YUY2IsNotReordered)
{
    copyToHostSurface(rendered(1280), request(YUY2, 8, 1280), Polarity::Progressive);
    EXPECT_THAT(host().journal.linesOf({"setTechnique"}),
                ElementsAre("setTechnique(ColourConvert.fx, RGB_Unscaled_To_YCrCb422_Video_BT709_Point)"));
}

TEST_F(CopyToHostYUV, ColourSpaceIsChosenByTheWidthAlone)
{
    for (const unsigned width : {2U, 719U, 720U, 721U, 1920U}) {
        Surface source = rendered(width);
        source.setHeight(width == 2U ? 4320 : 16);
        const Surface result = copyToHostSurface(source, request(YUY2, 8, width), Polarity::Progressive);
        EXPECT_EQ(result.getColourSpace(), width >= 721U ? ColourSpace::BT709 : ColourSpace::BT601) << width;
        EXPECT_EQ(convertFx->drawings().back().technique, width >= 721U
                                                              ? "RGB_Unscaled_To_YCrCb422_Video_BT709_Point"
                                                              : "RGB_Unscaled_To_YCrCb422_Video_BT601_Point");
    }
}

TEST_F(CopyToHostYUV, WidthOfTheIntermediateIsHalfRoundedDown)
{
    copyToHostSurface(rendered(1919), request(YUY2, 8, 1919), Polarity::Progressive);
    EXPECT_EQ(host().journal.count("createGPUImage(959x1080, 0)"), 1U);
    host().journal.clear();
    copyToHostSurface(rendered(1), request(YUY2, 8, 1), Polarity::Progressive);
    EXPECT_EQ(host().journal.count("createGPUImage(0x1080, 0)"), 1U);
}

TEST_F(CopyToHostYUV, IntermediateHasTheSizeOfTheSurfaceAndNotOfItsImage)
{
    Surface source = rendered();
    pad(source, iGPUImage::eARGB8);
    for (const auto& [format, bits] : {std::pair{YUY2, 8U}, {UYVY, 16U}, {M101, 10U}}) {
        host().journal.clear();
        const Surface result = copyToHostSurface(source, request(format, bits), Polarity::Progressive);
        const std::string pairs = "createGPUImage(960x1080, " + std::string(bits == 8 ? "0)" : "1)");
        EXPECT_EQ(host().journal.linesOf({"createGPUImage"}).at(0), pairs);
        EXPECT_EQ(result.getWidth(), 1920U);
        EXPECT_EQ(result.getHeight(), 1080U);
    }
}

TEST_F(CopyToHostYUV, IsTopDownWhateverTheSourceIs)
{
    const Surface source = onGPU(ARGB, 8, 1920, 1080, false);
    for (const auto& [format, bits] : {std::pair{YUY2, 8U}, {UYVY, 8U}, {V216, 16U}, {M101, 10U}}) {
        EXPECT_TRUE(copyToHostSurface(source, request(format, bits), Polarity::Progressive).isTopDown());
    }
}

TEST_F(CopyToHostYUV, EveryDepthButEightIsSixteenOnTheGPU)
{
    for (const unsigned bits : {0U, 1U, 7U, 8U, 9U, 12U, 16U}) {
        host().journal.clear();
        const Surface result = copyToHostSurface(rendered(), request(YUY2, bits), Polarity::Progressive);
        EXPECT_EQ(
            host().journal.count(bits == 8 ? "createGPUImage(960x1080, 0)" : "createGPUImage(960x1080, 1)"),
            1U);
        EXPECT_EQ(result.getBitsPerComponent(), bits == 8 ? 8 : 16);
        EXPECT_EQ(result.getBitsPerPixel(), bits == 0 ? 32 : 2 * bits) << "0 is filled in by the host";
    }
}

TEST_F(CopyToHostYUV, CarriesTheFrameRecordAndASignalRecordOfItsOwn)
{
    for (const Polarity polarity : {Polarity::UpperFieldFirst, Polarity::Progressive}) {
        for (const Format format : {YUY2, UYVY, M101}) {
            const Surface result =
                copyToHostSurface(rendered(), request(format, format == M101 ? 10 : 8), polarity);
            EXPECT_EQ(result.frame(), unusualDescriptions().frame);
            SignalDescription expected;
            expected.setPolarity(polarity);
            expected.setColourSpace(ColourSpace::BT709);
            expected.setGamutScaling(GamutScaling::Video);
            EXPECT_EQ(result.signal(), expected);
        }
    }
}

TEST_F(CopyToHostYUV, TakesTheSourceAsFullRangeWhateverItSaysAndLeavesTheCallersAlone)
{
    const Surface source = rendered();
    ASSERT_EQ(source.getGamutScaling(), GamutScaling::Video);
    copyToHostYUVSurface(source, request(YUY2, 8), Polarity::Progressive);
    EXPECT_EQ(convertFx->drawings().back().technique, "RGB_Unscaled_To_YCrCb422_Video_BT709_Point");
    EXPECT_EQ(source.getGamutScaling(), GamutScaling::Video);
}

TEST_F(CopyToHostYUV, AFailedEncodingIsAssertedAndTheRestGoesOn)
{
    restartWithout(L"ColourConvert.fx");
    Surface result;
    EXPECT_EQ(printedDuring(
                  [&] { result = copyToHostSurface(rendered(), request(UYVY, 8), Polarity::Progressive); }),
              "assertion failed success at QxFxResources/GPUColourConverter line 886\n");
    EXPECT_THAT(host().journal.linesOf({"setTechnique", "downloadImage"}),
                ElementsAre("setTechnique(null.fx, UYVYtoYUYV)", "downloadImage(960x1080, 0)"));
    EXPECT_EQ(describe(result), "UYVY 1920x1080 8/16 3840");
}

TEST_F(CopyToHostYUV, AFailedPackingIsAssertedAndTheUnpackedFrameGoesOn)
{
    convertFx->haveTechniques({"RGB_Unscaled_To_YCrCb422_Video_BT709_Point"});
    Surface result;
    EXPECT_EQ(printedDuring(
                  [&] { result = copyToHostSurface(rendered(), request(M101, 10), Polarity::Progressive); }),
              "assertion failed false at QxFxResources/GPUColourConverter line 897\n"
              "assertion failed source.getBitsPerComponent() == 8 at QxFxResources/GPUColourConverter line "
              "252\n");
    EXPECT_EQ(describe(result), "YUY2 1920x1080 16/20 7680");
    EXPECT_EQ(host().journal.count("downloadImage(960x1080, 1)"), 1U);
}

TEST_F(CopyToHostYUV, TenBitM101LeavesPackedAndIsNotUnpackedAgain)
{
    const Surface result = copyToHostSurface(rendered(), request(M101, 10), Polarity::Progressive);
    EXPECT_THAT(host().journal.linesOf({"setTechnique"}),
                ElementsAre("setTechnique(ColourConvert.fx, RGB_Unscaled_To_YCrCb422_Video_BT709_Point)",
                            "setTechnique(ColourConvert.fx, PackMatrox10Bit)"));
    EXPECT_EQ(describe(result), "M101 1920x1080 10/20 4800");
}

TEST_F(CopyToHostYUV, WithoutMemoryTheResultHasNoPixels)
{
    host().script.fail("createGPUImage");
    const Surface result = copyToHostSurface(rendered(), request(YUY2, 10), Polarity::Progressive);
    EXPECT_FALSE(result.getHostImage());
    EXPECT_FALSE(result.getGPUSurface());
    EXPECT_EQ(host().journal.count("setTechnique(ColourConvert.fx, PackMatrox10Bit)"), 0U)
        << "nothing has 16 bits";
}

TEST_F(CopyToHostYUV, ReordersAtTheDepthOfTheIntermediatesImage)
{
    copyToHostSurface(rendered(), request(UYVY, 12), Polarity::Progressive);
    EXPECT_EQ(host().journal.count("createGPUImage(960x1080, 1)"), 2U);
}

TEST_F(CopyToHost, NeitherRGBNorYUVIsAssertedAndTreatedAsYUV)
{
    const Core::Data fmt = request(static_cast<Format>(0x31323334), 8);
    EXPECT_EQ(printedDuring([&] { copyToHostSurface(rendered(), fmt, Polarity::Progressive); }),
              "assertion failed isYUV( fmt.getDataFormat() ) at QxFxResources/GPUColourConverter line 825\n"
              "assertion failed destFormat == YUY2 at QxFxResources/GPUColourConverter line 267\n");
    EXPECT_EQ(host().journal.count("setTechnique(ColourConvert.fx, RGB_Unscaled_To"), 1U);
}

TEST_F(CopyToHost, HoldsTheGpuLockWhileTechniquesRunAndNotWhileItCopies)
{
    watchLock({"createGPUImage", "setTechnique", "render", "downloadImage", "createHostImage"});
    copyToHostSurface(rendered(), request(M101, 10), Polarity::Progressive);
    EXPECT_THAT(lockDepths, ElementsAre("createGPUImage 0", "setTechnique 1", "render 1", "setTechnique 1",
                                        "createGPUImage 1", "render 1", "downloadImage 0"));
    lockDepths.clear();
    copyToHostSurface(rendered(), request(BGR24, 8), Polarity::Progressive);
    EXPECT_THAT(lockDepths, ElementsAre("createGPUImage 0", "setTechnique 1", "render 1", "downloadImage 0",
                                        "createHostImage 0"));
    EXPECT_EQ(depthOf(Manager::instance().gpuLock()), 0);
}

TEST_F(CopyToHostRGB, AppliesTheTechniqueByTheExplicitForm)
{
    copyToHostSurface(rendered(), request(B48R, 16), Polarity::Progressive);
    EXPECT_THAT(host().journal.linesOf({"create", "setTechnique", "setValue", "render", "download"}),
                ElementsAre("createGPUImage(1920x1080, 1)", "setTechnique(null.fx, ARGBtoRGB)",
                            "setValue(null.fx, _Width, 1920)", "setValue(null.fx, _Height, 1080)",
                            "render(null.fx, created, Input=source(0 0 1 1), Input=source(" +
                                number(1.0F / 1920.0F) + " 0 " + number(1.0F + 1.0F / 1920.0F) + " 1))",
                            "downloadImage(1920x1080, 1)", "createHostImage(1440x1080, 1)"));
}

TEST_F(CopyToHostRGB, AppliesTheTechniqueOfTenBitsByTheExplicitFormToo)
{
    copyToHostSurface(rendered(), request(ARGB10, 10), Polarity::Progressive);
    EXPECT_THAT(host().journal.linesOf({"render"}),
                ElementsAre("render(null.fx, created, Input=source(0 0 1 1), Input=source(" +
                            number(1.0F / 1920.0F) + " 0 " + number(1.0F + 1.0F / 1920.0F) + " 1))"));
}

TEST_F(CopyToHostRGB, WithoutTheTechniqueOfTenBitsTheUnconvertedFrameIsCopied)
{
    nullFx->haveTechniques({});
    const Surface result = copyToHostSurface(rendered(), request(ARGB10, 10), Polarity::Progressive);
    EXPECT_THAT(host().journal.linesOf({"render"}), IsEmpty());
    EXPECT_EQ(describe(result), "ARGB 1920x1080 8/32 7680");
}

TEST_F(CopyToHostRGB, EveryDepthButEightAndTenIsSixteenOnTheGPU)
{
    for (const unsigned bits : {0U, 1U, 7U, 9U, 12U, 16U}) {
        host().journal.clear();
        copyToHostSurface(rendered(), request(ARGB, bits), Polarity::Progressive);
        EXPECT_THAT(host().journal.linesOf({"createGPUImage"}), ElementsAre("createGPUImage(1920x1080, 1)"))
            << bits;
    }
}

TEST_F(CopyToHostRGB, TargetHasTheSizeOfTheSurfaceAndNotOfItsImage)
{
    Surface source = rendered();
    pad(source, iGPUImage::eARGB8);
    for (const auto& [fmt, image] : {std::pair{request(B48R, 16), "1"}, {request(ARGB10, 10), "2101010"}}) {
        host().journal.clear();
        copyToHostSurface(source, fmt, Polarity::Progressive);
        EXPECT_THAT(host().journal.linesOf({"createGPUImage", "setValue"}),
                    ElementsAre("createGPUImage(1920x1080, " + std::string(image) + ")",
                                "setValue(null.fx, _Width, 1920)", "setValue(null.fx, _Height, 1080)"));
    }
}

TEST_F(CopyToHostRGB, DepthsAreComparedWithTheSurfacesAndNotWithItsImages)
{
    Surface shallow = rendered(1920, 8);
    pad(shallow, iGPUImage::eARGB16);
    copyToHostSurface(shallow, request(ARGB, 8), Polarity::Progressive);
    EXPECT_EQ(host().journal.count("createGPUImage"), 0U);
    copyToHostSurface(shallow, request(ARGB, 16), Polarity::Progressive);
    EXPECT_EQ(host().journal.count("createGPUImage(1920x1080, 1)"), 1U);

    Surface tenBits = rendered(1920, 8);
    pad(tenBits, iGPUImage::eARGB10);
    host().journal.clear();
    copyToHostSurface(tenBits, request(ARGB10, 10), Polarity::Progressive);
    EXPECT_EQ(host().journal.count("createGPUImage(1920x1080, 2101010)"), 1U);
}

TEST_F(CopyToHostRGB, FetchesTheEffectBeforeTheTenBitImageAndAfterAnyOther)
{
    restart();
    copyToHostSurface(rendered(), request(ARGB10, 10), Polarity::Progressive);
    EXPECT_THAT(host().journal.linesOf({"loadEffectFile", "createGPUImage"}),
                ElementsAre(testing::StartsWith("loadEffectFile(\"/shaders/null.fx\""),
                            "createGPUImage(1920x1080, 2101010)"));
    restart();
    copyToHostSurface(rendered(), request(ARGB, 16), Polarity::Progressive);
    EXPECT_THAT(host().journal.linesOf({"loadEffectFile", "createGPUImage"}),
                ElementsAre("createGPUImage(1920x1080, 1)",
                            testing::StartsWith("loadEffectFile(\"/shaders/null.fx\"")));
}

TEST_F(CopyToHostRGB, TheSameFormatAndDepthIsCopiedWithItsOwnDescription)
{
    Core::Data fmt = request(ARGB, 8, 17); // only the request's format and depth are used
    fmt.topDown = 0;
    fmt.rowPitch = 9000;
    const Surface result = copyToHostSurface(rendered(), fmt, Polarity::UpperFieldFirst);
    EXPECT_THAT(host().journal.lines(), ElementsAre("downloadImage(1920x1080, 0)"));
    EXPECT_EQ(describe(result), "ARGB 1920x1080 8/32 7680");
    EXPECT_EQ(result.getDescriptions(), unusualDescriptions());
}

TEST_F(CopyToHostRGB, AConvertedFrameTakesTheWholeRequestedDescription)
{
    Core::Data fmt(1280, 720, BGR24, 8, 24);
    fmt.topDown = 0;
    fmt.rowPitch = 3848;
    const Surface result = copyToHostSurface(rendered(), fmt, Polarity::UpperFieldFirst);
    EXPECT_EQ(result.getData(), fmt);
    fmt.format = ARGB10;
    fmt.bitsPerComponent = 10;
    fmt.bitsPerPixel = 32;
    fmt.rowPitch = 5200;
    EXPECT_EQ(copyToHostSurface(rendered(), fmt, Polarity::Progressive).getData(), fmt);
}

TEST_F(CopyToHostRGB, PolarityIsNotUsedAndTheRecordsStay)
{
    for (const Core::Data& fmt : {request(ARGB, 16), request(ARGB10, 10), request(ARGB, 8)}) {
        const Surface result = copyToHostRGBSurface(rendered(), fmt, Polarity::UpperFieldFirst);
        EXPECT_EQ(result.getDescriptions(), unusualDescriptions());
    }
}

TEST_F(CopyToHostRGB, LeavesTheCallersSurfaceAlone)
{
    const Surface source = rendered();
    const Core::Data data = source.getData();
    const auto image = source.getGPUSurface();
    copyToHostSurface(source, request(B48R, 16), Polarity::Progressive);
    EXPECT_EQ(source.getData(), data);
    EXPECT_EQ(source.getGPUSurface(), image);
}

TEST_F(CopyToHostRGB, TenBitsUnderAnotherCodeThan35AreAssertedAndLabelledAsAsked)
{
    for (const Format format : {B48R, B64A, ARGB}) {
        host().journal.clear();
        Surface result;
        EXPECT_EQ(printedDuring([&] {
                      result = copyToHostSurface(rendered(), request(format, 10), Polarity::Progressive);
                  }),
                  "assertion failed fmt.getDataFormat() == ARGB10 at QxFxResources/GPUColourConverter line "
                  "921\n");
        EXPECT_THAT(host().journal.linesOf({"createGPUImage", "setTechnique"}),
                    ElementsAre("createGPUImage(1920x1080, 2101010)", "setTechnique(null.fx, Null)"));
        EXPECT_EQ(result.getDataFormat(), format);
        EXPECT_EQ(result.getBitsPerComponent(), 10);
    }
}

TEST_F(CopyToHostRGB, WithoutNullFxTheUnconvertedFrameIsCopiedUnderItsOwnName)
{
    restartWithout(L"null.fx");
    for (const Core::Data& fmt : {request(B48R, 16), request(ARGB10, 10)}) {
        host().journal.clear();
        Surface result;
        EXPECT_EQ(printedDuring([&] { result = copyToHostSurface(rendered(), fmt, Polarity::Progressive); }),
                  "");
        EXPECT_THAT(host().journal.linesOf({"setTechnique", "render", "download"}),
                    ElementsAre("downloadImage(1920x1080, 0)"));
        EXPECT_EQ(describe(result), "ARGB 1920x1080 8/32 7680");
    }
}

TEST_F(CopyToHostRGB, WithoutItsTechniqueTheUnconvertedFrameIsCopiedUnderItsOwnName)
{
    nullFx->haveTechniques({"Null"});
    const Surface result = copyToHostSurface(rendered(), request(B48R, 16), Polarity::Progressive);
    EXPECT_THAT(host().journal.linesOf({"render", "download"}), ElementsAre("downloadImage(1920x1080, 0)"));
    EXPECT_EQ(describe(result), "ARGB 1920x1080 8/32 7680");
}

TEST_F(CopyToHostRGB, WithoutMemoryTheResultHasNoPixels)
{
    host().script.fail("createGPUImage");
    const Surface result = copyToHostSurface(rendered(), request(B48R, 16), Polarity::Progressive);
    EXPECT_FALSE(result.getHostImage());
    EXPECT_FALSE(result.getGPUSurface());
    EXPECT_EQ(result.getDataFormat(), B48R);
}
