#include "QxFxResources/GPUColourConverter.h"
#include "QxFxResources/Manager.h"
#include "tests/contract/recording/Surfaces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>

using namespace Qx::Test;
using namespace Qx::Image;
using namespace Qx::Image::ColourConversion;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class PackedTenBit : public FormatTest
{
};

using UnpackDvs = PackedTenBit;
using UnpackMatrox = PackedTenBit;
using PackMatrox = PackedTenBit;

/// A frame of 10-bit M101 with unusual descriptions: 1200 words per row.
Surface packedFrame()
{
    Surface frame = onGPU(M101, 10, 1920, 1080);
    frame.setDescriptions(unusualDescriptions());
    return frame;
}

Surface yuy2Frame(unsigned width = 1920, unsigned height = 1080)
{
    Surface frame = onGPU(YUY2, 8, width, height);
    frame.setDescriptions(unusualDescriptions());
    return frame;
}

Surface unpacked(unsigned bits, iGPUImage::eFormat texels)
{
    Surface dest = target(960, 1080, texels);
    dest.setWidth(1920);
    dest.setBitsPerComponent(static_cast<std::uint16_t>(bits));
    return dest;
}

} // namespace

TEST_F(UnpackDvs, SelectsSetsAndRendersInThisOrder)
{
    const Surface source = packedFrame();
    Surface dest = target(960, 1080, iGPUImage::eARGB8);
    EXPECT_TRUE(unpackDvs10BitFormat(source, dest));
    EXPECT_THAT(host().journal.lines(),
                ElementsAre("setTechnique(ColourConvert.fx, UnpackDvs10Bit_BaseOnly)",
                            "getParam(ColourConvert.fx, pSourceImageTotalWidthInDWORDs)",
                            "setValue(ColourConvert.fx, pSourceImageTotalWidthInDWORDs, 1200)",
                            "render(ColourConvert.fx, target, gSourceImage=source(0 0 1 1))"));
}

TEST_F(UnpackDvs, IsBaseOnlyAtEveryDepthAndPrintsNothing)
{
    for (const unsigned bits : {8U, 10U, 12U, 16U}) {
        const Surface source = packedFrame();
        Surface dest = unpacked(bits, bits == 8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16);
        EXPECT_EQ(printedDuring([&] { EXPECT_TRUE(unpackDvs10BitFormat(source, dest)); }), "");
        EXPECT_EQ(convertFx->drawings().back().technique, "UnpackDvs10Bit_BaseOnly");
    }
}

TEST_F(UnpackDvs, GivesTheDestinationTheDescriptionsAndNothingElse)
{
    const Surface source = packedFrame();
    Surface dest = onGPU(UYVY, 16, 1917, 1000, false);
    const Core::Data data = dest.getData();
    const auto image = dest.getGPUSurface();
    EXPECT_TRUE(unpackDvs10BitFormat(source, dest));
    EXPECT_EQ(dest.getData(), data);
    EXPECT_EQ(dest.getGPUSurface(), image);
    EXPECT_EQ(dest.getDescriptions(), unusualDescriptions());
}

TEST_F(UnpackMatrox, SelectsSetsAndRendersInThisOrder)
{
    const Surface source = packedFrame();
    Surface dest = unpacked(8, iGPUImage::eARGB8);
    EXPECT_TRUE(unpackMatrox10BitFormat(source, dest));
    EXPECT_THAT(host().journal.lines(),
                ElementsAre("setTechnique(ColourConvert.fx, UnpackMatrox10Bit_BaseOnly)",
                            "getParam(ColourConvert.fx, pSourceImageTotalWidthInDWORDs)",
                            "setValue(ColourConvert.fx, pSourceImageTotalWidthInDWORDs, 1200)",
                            "render(ColourConvert.fx, target, gSourceImage=source(0 0 960 1))"));
}

TEST_F(UnpackMatrox, RectangleEndsAtTheDestinationsImagesWidthInTexels)
{
    const Surface source = packedFrame();
    Surface dest = target(137, 1080, iGPUImage::eARGB8);
    dest.setWidth(1920);
    EXPECT_TRUE(unpackMatrox10BitFormat(source, dest));
    EXPECT_EQ(convertFx->drawings().back().inputs.at(0).rectangle, (std::array{0.0F, 0.0F, 137.0F, 1.0F}));
}

TEST_F(UnpackMatrox, IntoEightBitsIsBaseOnlyAndPrintsNothing)
{
    const Surface source = packedFrame();
    Surface dest = unpacked(8, iGPUImage::eARGB8);
    EXPECT_EQ(printedDuring([&] { EXPECT_TRUE(unpackMatrox10BitFormat(source, dest)); }), "");
    EXPECT_EQ(convertFx->drawings().back().technique, "UnpackMatrox10Bit_BaseOnly");
    EXPECT_EQ(describe(dest), "YUY2 1920x1080 8/16 3840");
}

TEST_F(UnpackMatrox, IntoSixteenBitsIsFullAndPrintsNothing)
{
    const Surface source = packedFrame();
    Surface dest = unpacked(16, iGPUImage::eARGB16);
    EXPECT_EQ(printedDuring([&] { EXPECT_TRUE(unpackMatrox10BitFormat(source, dest)); }), "");
    EXPECT_EQ(convertFx->drawings().back().technique, "UnpackMatrox10Bit");
    EXPECT_EQ(describe(dest), "YUY2 1920x1080 16/32 7680");
}

TEST_F(UnpackMatrox, IntoAnyOtherDepthPrintsTheAssertionAndIsFull)
{
    for (const unsigned bits : {0U, 9U, 10U, 12U, 32U}) {
        const Surface source = packedFrame();
        Surface dest = unpacked(bits, iGPUImage::eARGB16);
        EXPECT_EQ(printedDuring([&] { EXPECT_TRUE(unpackMatrox10BitFormat(source, dest)); }),
                  "assertion failed dest.getBitsPerComponent() == 16 at QxFxResources/GPUColourConverter "
                  "line 674\n");
        EXPECT_EQ(convertFx->drawings().back().technique, "UnpackMatrox10Bit");
    }
}

TEST_F(UnpackMatrox, AssertsBeforeItSelectsTheTechnique)
{
    const Surface source = packedFrame();
    Surface dest = unpacked(12, iGPUImage::eARGB16);
    convertFx->haveTechniques({});
    EXPECT_EQ(printedDuring([&] { EXPECT_FALSE(unpackMatrox10BitFormat(source, dest)); }),
              assertionLine("dest.getBitsPerComponent() == 16", 674));
}

TEST_F(UnpackMatrox, DescribesTheDestinationByItsImageWhateverItWas)
{
    const Surface source = packedFrame();
    Surface dest = unpacked(8, iGPUImage::eARGB16); // its image is deeper than its description
    dest.setDataFormat(UYVY);
    dest.setTopDown(false);
    dest.setRowPitch(5);
    EXPECT_TRUE(unpackMatrox10BitFormat(source, dest));
    EXPECT_EQ(describe(dest), "YUY2 1920x1080 16/32 7680 bottom-up");
    EXPECT_EQ(dest.getDescriptions(), unusualDescriptions());
}

TEST_F(UnpackMatrox, RowPitchIsAnIntegerQuotientOfTheDestinationsWidth)
{
    const Surface source = packedFrame();
    Surface dest = unpacked(8, iGPUImage::eARGB8);
    dest.setWidth(0x10000001);
    EXPECT_TRUE(unpackMatrox10BitFormat(source, dest));
    EXPECT_EQ(dest.getRowPitch(), 0x20000002U);
}

TEST_F(PackMatrox, SelectsCreatesSetsAndRendersInThisOrder)
{
    const Surface source = yuy2Frame();
    Surface dest;
    EXPECT_TRUE(packMatrox10BitFormat(source, dest));
    EXPECT_THAT(host().journal.lines(),
                ElementsAre("setTechnique(ColourConvert.fx, PackMatrox10Bit)", "createGPUImage(1200x1080, 0)",
                            "getParam(ColourConvert.fx, pSourceImageTotalWidthInDWORDs)",
                            "setValue(ColourConvert.fx, pSourceImageTotalWidthInDWORDs, 960)",
                            "getParam(ColourConvert.fx, DestImageWidth)",
                            "setValue(ColourConvert.fx, DestImageWidth, 1200)",
                            "render(ColourConvert.fx, created, gSourceImage=source(0 0 1 1))"));
}

TEST_F(PackMatrox, MakesTheDestinationAnewAsM101)
{
    const Surface source = yuy2Frame();
    Surface dest = onGPU(UYVY, 16, 10, 10, false);
    EXPECT_EQ(printedDuring([&] { EXPECT_TRUE(packMatrox10BitFormat(source, dest)); }), "");
    EXPECT_EQ(describe(dest), "M101 1920x1080 10/20 4800");
    EXPECT_EQ(dest.getGPUSurface().get(), convertFx->drawings().back().target);
    EXPECT_EQ(dest.getDescriptions(), unusualDescriptions());
}

TEST_F(PackMatrox, IsTopDownWhateverTheSourceIs)
{
    const Surface source = onGPU(YUY2, 8, 1920, 1080, false);
    Surface dest;
    EXPECT_TRUE(packMatrox10BitFormat(source, dest));
    EXPECT_EQ(describe(dest), "M101 1920x1080 10/20 4800");
}

TEST_F(PackMatrox, SizesAreTheSurfacesAndNotItsImages)
{
    Surface source = yuy2Frame();
    pad(source, iGPUImage::eARGB8);
    Surface dest;
    EXPECT_TRUE(packMatrox10BitFormat(source, dest));
    EXPECT_THAT(host().journal.linesOf({"createGPUImage", "setValue"}),
                ElementsAre("createGPUImage(1200x1080, 0)",
                            "setValue(ColourConvert.fx, pSourceImageTotalWidthInDWORDs, 960)",
                            "setValue(ColourConvert.fx, DestImageWidth, 1200)"));
}

TEST_F(PackMatrox, TruncatesTheWidthInWords)
{
    struct Case
    {
        unsigned width;
        const char* size;
        float words;
    };
    for (const auto& [width, size, words] :
         {Case{1366, "853x4", 683.0F}, Case{720, "450x4", 360.0F}, Case{1, "0x4", 0.5F}, Case{2, "1x4", 1.0F},
          Case{7, "4x4", 3.5F}, Case{16, "10x4", 8.0F}, Case{4095, "2559x4", 2047.5F}}) {
        const Surface source = yuy2Frame(width, 4);
        Surface dest;
        host().journal.clear();
        EXPECT_TRUE(packMatrox10BitFormat(source, dest));
        EXPECT_THAT(host().journal.linesOf({"createGPUImage"}),
                    ElementsAre("createGPUImage(" + std::string(size) + ", 0)"));
        const auto floats = convertFx->drawings().back().floats;
        EXPECT_EQ(floats.at("pSourceImageTotalWidthInDWORDs"), words);
        EXPECT_EQ(floats.at("DestImageWidth"), static_cast<float>(std::stoi(size)));
        EXPECT_EQ(dest.getWidth(), width);
    }
}

TEST_F(PackMatrox, PacksASurfaceIntoItself)
{
    Surface frame = yuy2Frame();
    EXPECT_TRUE(packMatrox10BitFormat(frame, frame));
    EXPECT_EQ(describe(frame), "M101 1920x1080 10/20 4800");
    EXPECT_EQ(frame.getDescriptions(), unusualDescriptions());
}

TEST_F(PackMatrox, WithoutMemoryRendersIntoNothingAndSucceeds)
{
    host().script.fail("createGPUImage");
    const Surface source = yuy2Frame();
    Surface dest;
    EXPECT_TRUE(packMatrox10BitFormat(source, dest));
    EXPECT_THAT(host().journal.linesOf({"render", "setValue"}),
                ElementsAre("setValue(ColourConvert.fx, pSourceImageTotalWidthInDWORDs, 960)",
                            "setValue(ColourConvert.fx, DestImageWidth, 0)",
                            "render(ColourConvert.fx, null, gSourceImage=source(0 0 1 1))"));
    EXPECT_EQ(describe(dest), "M101 1920x1080 10/20 4800");
    EXPECT_FALSE(dest.getGPUSurface());
}

TEST_F(PackedTenBit, MissingImagesArePassedOnAsTheyAre)
{
    Surface source = packedFrame();
    source.setGPUSurface({});
    Surface dest;
    EXPECT_TRUE(unpackDvs10BitFormat(source, dest));
    EXPECT_TRUE(unpackMatrox10BitFormat(source, dest));
    EXPECT_EQ(describe(dest), "YUY2 0x0 0/0 0");
    EXPECT_TRUE(packMatrox10BitFormat(source, dest));
    EXPECT_THAT(host().journal.linesOf({"render"}),
                ElementsAre("render(ColourConvert.fx, null, gSourceImage=null(0 0 1 1))",
                            "render(ColourConvert.fx, null, gSourceImage=null(0 0 0 1))",
                            "render(ColourConvert.fx, created, gSourceImage=null(0 0 1 1))"));
}

TEST_F(PackedTenBit, IsTrueWhateverTheRenderReports)
{
    host().script.fail("render");
    const Surface source = packedFrame();
    Surface dest = unpacked(8, iGPUImage::eARGB8);
    EXPECT_TRUE(unpackDvs10BitFormat(source, dest));
    EXPECT_TRUE(unpackMatrox10BitFormat(source, dest));
    EXPECT_TRUE(packMatrox10BitFormat(source, dest));
}

TEST_F(PackedTenBit, ParameterThatTheEffectLacksIsPassedOver)
{
    convertFx->haveParameters({});
    const Surface source = packedFrame();
    Surface dest = unpacked(8, iGPUImage::eARGB8);
    EXPECT_TRUE(unpackDvs10BitFormat(source, dest));
    EXPECT_TRUE(unpackMatrox10BitFormat(source, dest));
    EXPECT_TRUE(packMatrox10BitFormat(source, dest));
    EXPECT_THAT(convertFx->drawings(), SizeIs(3));
}

TEST_F(PackedTenBit, WithoutItsTechniqueLeavesTheDestinationAsItWas)
{
    convertFx->haveTechniques({});
    const Surface source = packedFrame();
    Surface dest = unpacked(8, iGPUImage::eARGB8);
    const auto image = dest.getGPUSurface();
    const std::string before = describe(dest);
    EXPECT_EQ(printedDuring([&] {
                  EXPECT_FALSE(unpackDvs10BitFormat(source, dest));
                  EXPECT_FALSE(unpackMatrox10BitFormat(source, dest));
                  EXPECT_FALSE(packMatrox10BitFormat(source, dest));
              }),
              "");
    EXPECT_THAT(host().journal.linesOf({"getParam", "render", "createGPUImage", "Log", "vexo_printf"}),
                IsEmpty());
    EXPECT_EQ(describe(dest), before);
    EXPECT_EQ(dest.getGPUSurface(), image);
    EXPECT_EQ(dest.getDescriptions(), ImageDescriptions());
}

TEST_F(PackedTenBit, WithoutItsEffectLeavesTheDestinationAsItWas)
{
    restartWithout(L"ColourConvert.fx");
    const Surface source = packedFrame();
    Surface dest = unpacked(12, iGPUImage::eARGB16);
    const auto image = dest.getGPUSurface();
    const std::string before = describe(dest);
    EXPECT_EQ(printedDuring([&] {
                  EXPECT_FALSE(unpackDvs10BitFormat(source, dest));
                  EXPECT_FALSE(unpackMatrox10BitFormat(source, dest));
                  EXPECT_FALSE(packMatrox10BitFormat(source, dest));
              }),
              "");
    EXPECT_THAT(host().journal.linesOf({"setTechnique", "render", "createGPUImage"}), IsEmpty());
    EXPECT_EQ(describe(dest), before);
    EXPECT_EQ(dest.getGPUSurface(), image);
    EXPECT_EQ(dest.getDescriptions(), ImageDescriptions());
}

TEST_F(PackedTenBit, HoldsTheGpuLockFromFetchingTheEffectToTheEnd)
{
    watchLock({"loadEffectFile", "setTechnique", "createGPUImage", "getParam", "setValue", "render"});
    const Surface source = packedFrame();
    Surface dest = unpacked(8, iGPUImage::eARGB8);
    restart();
    EXPECT_TRUE(unpackDvs10BitFormat(source, dest));
    EXPECT_THAT(lockDepths, SizeIs(5));
    restart();
    EXPECT_TRUE(unpackMatrox10BitFormat(source, dest));
    EXPECT_THAT(lockDepths, SizeIs(10));
    restart();
    EXPECT_TRUE(packMatrox10BitFormat(source, dest));
    EXPECT_THAT(lockDepths, SizeIs(18));
    EXPECT_THAT(lockDepths, Each(EndsWith(" 1")));
    EXPECT_EQ(depthOf(Qx::FxResources::Manager::instance().gpuLock()), 0);
}

TEST_F(PackedTenBit, LeavesTheGpuLockWhenItFails)
{
    convertFx->haveTechniques({});
    const Surface source = packedFrame();
    Surface dest;
    EXPECT_FALSE(unpackDvs10BitFormat(source, dest));
    EXPECT_FALSE(unpackMatrox10BitFormat(source, dest));
    EXPECT_FALSE(packMatrox10BitFormat(source, dest));
    EXPECT_EQ(depthOf(Qx::FxResources::Manager::instance().gpuLock()), 0);
}
