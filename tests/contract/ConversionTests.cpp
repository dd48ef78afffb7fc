#include "QxFxResources/GPUColourConverter.h"
#include "QxFxResources/Manager.h"
#include "image/TechniqueApplication.h"
#include "tests/contract/recording/LibraryTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace Qx::Test;
using namespace Qx::Image;
using namespace Qx::Image::ColourConversion;
using Qx::FxResources::Manager;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using Rectangle = std::array<float, 4>;

constexpr std::array gamuts{GamutScaling::Unscaled, GamutScaling::Video};
constexpr std::array colourSpaces{ColourSpace::BT601, ColourSpace::BT709};
const std::map<GamutScaling, std::string> gamutNames{{GamutScaling::Unscaled, "Unscaled"},
                                                     {GamutScaling::Video, "Video"}};
const std::map<ColourSpace, std::string> colourSpaceNames{{ColourSpace::BT601, "BT601"},
                                                          {ColourSpace::BT709, "BT709"}};
const std::map<Filter, std::string> filterNames{{Filter::Point, "Point"},
                                                {Filter::CatmullRom, "CatmullRom"},
                                                {Filter::Mitchell, "Mitchell"},
                                                {Filter::Lanczos, "Lanczos"}};

/// The library with a "ColourConvert.fx" that has every technique, a video surface and an RGB surface.
class Conversion : public LibraryTest
{
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        effect = Qx::makePtr<FakeEffect>("ColourConvert.fx");
        host().addFile(L"/shaders/", L"ColourConvert.fx");
        host().makeEffect = [this](const std::wstring&) { return Qx::Ptr<iShaderEffect>(effect); };
        video.setData(described(YUY2, 16, 3840));
        video.setColourSpace(ColourSpace::BT709);
        video.setGamutScaling(GamutScaling::Video);
        video.setGPUSurface(Qx::makePtr<FakeGPUImage>("video image", XY<int>{960, 1080}));
        rgb.setData(described(ARGB, 32, 7680));
        rgb.setGamutScaling(GamutScaling::Unscaled);
        rgb.setGPUSurface(Qx::makePtr<FakeGPUImage>("rgb image", XY<int>{1920, 1080}));
        getShader(L"ColourConvert.fx"); // the set-up, once per process
        host().journal.clear();
    }

    void TearDown() override
    {
        if (forcing_) {
            toggle_cfgForceUnscaledYCrCb();
        }
        effect.reset();
        video = Surface();
        rgb = Surface();
        LibraryTest::TearDown();
    }

    void force()
    {
        toggle_cfgForceUnscaledYCrCb();
        forcing_ = true;
        host().journal.clear();
    }

    /// Returns the technique that was requested last.
    static std::string technique()
    {
        const std::string beginning = "setTechnique(ColourConvert.fx, ";
        const auto lines = host().journal.linesOf({beginning});
        return lines.empty()
                   ? "none"
                   : lines.back().substr(beginning.size(), lines.back().size() - beginning.size() - 1);
    }

    Qx::Ptr<FakeEffect> effect;
    Surface video;
    Surface rgb;

private:
    static Core::Data described(Format format, std::uint16_t bitsPerPixel, std::uint32_t rowPitch)
    {
        Core::Data data(1920, 1080, format, 8, bitsPerPixel);
        data.rowPitch = rowPitch;
        return data;
    }

    bool forcing_ = false;
};

using Decode = Conversion;
using Encode = Conversion;

} // namespace

TEST_F(Decode, ComposesEachOfItsTwentyFourNames)
{
    std::set<std::string> names;
    for (const GamutScaling from : gamuts) {
        for (const ColourSpace space : colourSpaces) {
            for (const GamutScaling to : gamuts) {
                for (const Filter filter : {Filter::Point, Filter::CatmullRom, Filter::Mitchell}) {
                    video.setGamutScaling(from);
                    video.setColourSpace(space);
                    EXPECT_TRUE(convertYCrCb422ToRGB(video, rgb, to, filter));
                    EXPECT_EQ(technique(), "YCrCb422_" + gamutNames.at(from) + "_" +
                                               colourSpaceNames.at(space) + "_To_RGB_" + gamutNames.at(to) +
                                               "_" + filterNames.at(filter));
                    names.insert(technique());
                }
            }
        }
    }
    EXPECT_THAT(names, SizeIs(24));
}

TEST_F(Encode, ComposesEachOfItsSixteenNames)
{
    std::set<std::string> names;
    for (const GamutScaling from : gamuts) {
        for (const GamutScaling to : gamuts) {
            for (const ColourSpace space : colourSpaces) {
                for (const Filter filter : {Filter::Point, Filter::Lanczos}) {
                    rgb.setGamutScaling(from);
                    video.setGamutScaling(to);
                    video.setColourSpace(space);
                    EXPECT_TRUE(convertRGBToYCrCb422(rgb, video, filter));
                    EXPECT_EQ(technique(), "RGB_" + gamutNames.at(from) + "_To_YCrCb422_" +
                                               gamutNames.at(to) + "_" + colourSpaceNames.at(space) + "_" +
                                               filterNames.at(filter));
                    names.insert(technique());
                }
            }
        }
    }
    EXPECT_THAT(names, SizeIs(16));
}

TEST_F(Decode, SpellsTheNamesOut)
{
    EXPECT_TRUE(convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::CatmullRom));
    EXPECT_EQ(technique(), "YCrCb422_Video_BT709_To_RGB_Unscaled_CatmullRom");
}

TEST_F(Encode, SpellsTheNamesOut)
{
    video.setColourSpace(ColourSpace::BT601);
    EXPECT_TRUE(convertRGBToYCrCb422(rgb, video, Filter::Lanczos));
    EXPECT_EQ(technique(), "RGB_Unscaled_To_YCrCb422_Video_BT601_Lanczos");
}

TEST_F(Decode, LeavesOutTheFragmentOfAValueThatItDoesNotKnow)
{
    for (const unsigned wrong : {0U, 3U, 99U, 0xFFFFFFFFU}) {
        video.setGamutScaling(static_cast<GamutScaling>(wrong));
        convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point);
        EXPECT_EQ(technique(), "BT709_To_RGB_Unscaled_Point");
        video.setGamutScaling(GamutScaling::Video);
        video.setColourSpace(static_cast<ColourSpace>(wrong));
        convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point);
        EXPECT_EQ(technique(), "YCrCb422_Video_To_RGB_Unscaled_Point");
        video.setColourSpace(ColourSpace::BT709);
        convertYCrCb422ToRGB(video, rgb, static_cast<GamutScaling>(wrong), Filter::Point);
        EXPECT_EQ(technique(), "YCrCb422_Video_BT709_Point");
    }
    for (const unsigned wrong : {0U, 4U, 5U, 0xFFFFFFFFU}) {
        convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, static_cast<Filter>(wrong));
        EXPECT_EQ(technique(), "YCrCb422_Video_BT709_To_RGB_Unscaled_");
    }
}

TEST_F(Encode, LeavesOutTheFragmentOfAValueThatItDoesNotKnow)
{
    for (const unsigned wrong : {0U, 3U, 99U, 0xFFFFFFFFU}) {
        rgb.setGamutScaling(static_cast<GamutScaling>(wrong));
        convertRGBToYCrCb422(rgb, video, Filter::Point);
        EXPECT_EQ(technique(), "YCrCb422_Video_BT709_Point");
        rgb.setGamutScaling(GamutScaling::Unscaled);
        video.setGamutScaling(static_cast<GamutScaling>(wrong));
        convertRGBToYCrCb422(rgb, video, Filter::Point);
        EXPECT_EQ(technique(), "RGB_Unscaled_To_BT709_Point");
        video.setGamutScaling(GamutScaling::Video);
        video.setColourSpace(static_cast<ColourSpace>(wrong));
        convertRGBToYCrCb422(rgb, video, Filter::Point);
        EXPECT_EQ(technique(), "RGB_Unscaled_To_YCrCb422_Video_Point");
        video.setColourSpace(ColourSpace::BT709);
    }
    for (const unsigned wrong : {0U, 2U, 3U, 5U, 0xFFFFFFFFU}) {
        convertRGBToYCrCb422(rgb, video, static_cast<Filter>(wrong));
        EXPECT_EQ(technique(), "RGB_Unscaled_To_YCrCb422_Video_BT709_");
    }
}

TEST_F(Decode, NothingKnownComposesTheEmptyName)
{
    video.setGamutScaling(GamutScaling::Unknown);
    video.setColourSpace(ColourSpace::Unknown);
    effect->haveTechniques({"YCrCb422_Video_BT709_To_RGB_Unscaled_Point"});
    EXPECT_FALSE(convertYCrCb422ToRGB(video, rgb, GamutScaling::Unknown, Filter::Lanczos));
    EXPECT_EQ(technique(), "");
}

TEST_F(Decode, ForcingTakesTheSourceAsFullRangeAndLeavesTheArgument)
{
    force();
    EXPECT_TRUE(convertYCrCb422ToRGB(video, rgb, GamutScaling::Video, Filter::Point));
    EXPECT_EQ(technique(), "YCrCb422_Unscaled_BT709_To_RGB_Video_Point");
    video.setGamutScaling(static_cast<GamutScaling>(77));
    EXPECT_TRUE(convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point));
    EXPECT_EQ(technique(), "YCrCb422_Unscaled_BT709_To_RGB_Unscaled_Point");
    EXPECT_EQ(rgb.getGamutScaling(), GamutScaling::Unscaled);
}

TEST_F(Encode, ForcingTakesTheDestinationAsFullRangeAndLeavesTheSource)
{
    force();
    rgb.setGamutScaling(GamutScaling::Video);
    EXPECT_TRUE(convertRGBToYCrCb422(rgb, video, Filter::Lanczos));
    EXPECT_EQ(technique(), "RGB_Video_To_YCrCb422_Unscaled_BT709_Lanczos");
    EXPECT_EQ(video.getGamutScaling(), GamutScaling::Video) << "the surface's own label stays";
}

TEST_F(Decode, ToggleActsFromTheNextConversionOn)
{
    convertYCrCb422ToRGB(video, rgb, GamutScaling::Video, Filter::Point);
    EXPECT_EQ(technique(), "YCrCb422_Video_BT709_To_RGB_Video_Point");
    toggle_cfgForceUnscaledYCrCb();
    convertYCrCb422ToRGB(video, rgb, GamutScaling::Video, Filter::Point);
    EXPECT_EQ(technique(), "YCrCb422_Unscaled_BT709_To_RGB_Video_Point");
    toggle_cfgForceUnscaledYCrCb();
    convertYCrCb422ToRGB(video, rgb, GamutScaling::Video, Filter::Point);
    EXPECT_EQ(technique(), "YCrCb422_Video_BT709_To_RGB_Video_Point");
}

TEST_F(Decode, BindsTheSourceFiveTimesUnderItsNamesInOrder)
{
    ASSERT_TRUE(convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point));
    ASSERT_THAT(effect->drawings(), SizeIs(1));
    const auto drawing = effect->drawings()[0];
    EXPECT_EQ(drawing.target, rgb.getGPUSurface().get());
    std::vector<std::string> names;
    for (const auto& input : drawing.inputs) {
        names.push_back(input.name);
        EXPECT_EQ(input.resource, video.getGPUSurface().get());
    }
    EXPECT_THAT(names, ElementsAre("gSourceImage", "gSourceImage2", "gSourceImage3", "gSourceImage4",
                                   "gIterHelp2Step"));
    EXPECT_THAT(drawing.floats, IsEmpty());
}

TEST_F(Decode, TapsStandAQuarterPixelLeftOfThePixelsAroundTheTarget)
{
    for (const std::uint32_t width : {1U, 2U, 720U, 1440U, 1920U, 4095U}) {
        video.setWidth(width);
        video.setRowPitch(width * 2);
        convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point);
        const auto inputs = effect->drawings().back().inputs;
        ASSERT_THAT(inputs, SizeIs(5));
        const float w = static_cast<float>(width);
        const float firstTap = 0.25F / w + 1.0F / w;
        for (std::size_t i = 0; i < 4; ++i) {
            const float left = static_cast<float>(i) * (1.0F / w) - firstTap;
            EXPECT_EQ(inputs[i].rectangle, (Rectangle{left, 0.0F, left + 1.0F, 1.0F}))
                << width << ", tap " << i;
            EXPECT_NEAR(static_cast<double>(left) * width, static_cast<double>(i) - 1.25, 1e-3);
        }
    }
}

TEST_F(Decode, RectanglesSpanThePicturesShareOfAPaddedRow)
{
    video.setRowPitch(4096); // 2048 pixels
    convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point);
    const auto inputs = effect->drawings().back().inputs;
    ASSERT_THAT(inputs, SizeIs(5));
    EXPECT_EQ(inputs[0].rectangle[0], 0.0F - (0.25F / 1920.0F + 1.0F / 1920.0F));
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(inputs[i].rectangle[2], inputs[i].rectangle[0] + 0.9375F);
    }
}

TEST_F(Decode, PaddedRowLengthIsAnUnsignedIntegerQuotient)
{
    video.setWidth(100);
    video.setBitsPerPixel(20);
    video.setRowPitch(256); // 2048 bits: 102.4 pixels
    convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point);
    const auto r = effect->drawings().back().inputs.at(0).rectangle;
    EXPECT_EQ(r[2], r[0] + 100.0F / 102.0F);
}

TEST_F(Decode, SurfacesThatStateNoRowsOrNoBitsHaveNoPadding)
{
    const auto span = [this] {
        convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point);
        const auto r = effect->drawings().back().inputs.at(0).rectangle;
        return r[2] - r[0];
    };
    video.setRowPitch(0);
    EXPECT_FLOAT_EQ(span(), 1.0F);
    video.setRowPitch(4096);
    video.setBitsPerPixel(0);
    EXPECT_FLOAT_EQ(span(), 1.0F);
}

TEST_F(Decode, SixteenBitRowsHaveHalfThePixels)
{
    video.setBitsPerComponent(16);
    video.setBitsPerPixel(32);
    video.setRowPitch(7680);
    convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point);
    const auto r = effect->drawings().back().inputs.at(0).rectangle;
    EXPECT_EQ(r[2], r[0] + 1.0F);
}

TEST_F(Decode, FifthInputSpansTheDestinationInItsPixels)
{
    rgb.setWidth(1280);
    rgb.setHeight(720);
    convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point);
    EXPECT_EQ(effect->drawings().back().inputs.at(4).rectangle, (Rectangle{0.0F, 0.0F, 1280.0F, 720.0F}));
}

TEST_F(Encode, BindsTheSourceSixTimesUnderItsNamesInOrder)
{
    ASSERT_TRUE(convertRGBToYCrCb422(rgb, video, Filter::Point));
    ASSERT_THAT(effect->drawings(), SizeIs(1));
    const auto drawing = effect->drawings()[0];
    EXPECT_EQ(drawing.target, video.getGPUSurface().get());
    std::vector<std::string> names;
    for (const auto& input : drawing.inputs) {
        names.push_back(input.name);
        EXPECT_EQ(input.resource, rgb.getGPUSurface().get());
    }
    EXPECT_THAT(names, ElementsAre("gSourceImage", "gSourceImage2", "gSourceImage3", "gSourceImage4",
                                   "gSourceImage5", "gSourceImage6"));
    EXPECT_THAT(drawing.floats, IsEmpty());
}

TEST_F(Encode, TapsAreWholePixelShiftsOfTheGpuImagesWidth)
{
    rgb.setWidth(7); // the surface's own width is not used
    ASSERT_TRUE(convertRGBToYCrCb422(rgb, video, Filter::Point));
    const auto inputs = effect->drawings().back().inputs;
    ASSERT_THAT(inputs, SizeIs(6));
    for (std::size_t i = 0; i < 6; ++i) {
        const float left = static_cast<float>(i) / 1920.0F;
        EXPECT_EQ(inputs[i].rectangle, (Rectangle{left, 0.0F, left + 1919.0F / 1920.0F, 1.0F}));
    }
    EXPECT_EQ(inputs[5].rectangle[0], 5.0F / 1920.0F);
    EXPECT_EQ(inputs[5].rectangle[2], 5.0F / 1920.0F + 1919.0F / 1920.0F);
}

TEST_F(Decode, SelectsThenRendersAndNothingElse)
{
    convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point);
    const auto lines = host().journal.lines();
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(lines[0], "setTechnique(ColourConvert.fx, YCrCb422_Video_BT709_To_RGB_Unscaled_Point)");
    EXPECT_TRUE(lines[1].starts_with("render(ColourConvert.fx, rgb image, gSourceImage=video image("));
}

TEST_F(Encode, SelectsThenRendersAndNothingElse)
{
    convertRGBToYCrCb422(rgb, video, Filter::Point);
    const auto lines = host().journal.lines();
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(lines[0], "setTechnique(ColourConvert.fx, RGB_Unscaled_To_YCrCb422_Video_BT709_Point)");
    EXPECT_TRUE(lines[1].starts_with("render(ColourConvert.fx, video image, gSourceImage=rgb image("));
}

TEST_F(Conversion, SucceedsWhateverTheRenderReports)
{
    host().script.fail("render");
    EXPECT_TRUE(convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point));
    EXPECT_TRUE(convertRGBToYCrCb422(rgb, video, Filter::Point));
}

TEST_F(Decode, LabelsTheDestinationWithTheGamutThatWasAskedForInEveryCase)
{
    EXPECT_TRUE(convertYCrCb422ToRGB(video, rgb, GamutScaling::Video, Filter::Point));
    EXPECT_EQ(rgb.getGamutScaling(), GamutScaling::Video);

    effect->haveTechniques({});
    rgb.setGamutScaling(GamutScaling::Unknown);
    EXPECT_FALSE(convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Lanczos));
    EXPECT_EQ(rgb.getGamutScaling(), GamutScaling::Unscaled);
    EXPECT_THAT(effect->drawings(), SizeIs(1)) << "the failed conversion draws nothing";

    Manager::shutdown(Shutdown::NormalExit);
    host().script.fail("loadEffectFile");
    rgb.setGamutScaling(GamutScaling::Unknown);
    EXPECT_FALSE(convertYCrCb422ToRGB(video, rgb, static_cast<GamutScaling>(7), Filter::Point));
    EXPECT_EQ(rgb.getGamutScaling(), static_cast<GamutScaling>(7));
}

TEST_F(Decode, ChangesNothingOfTheDestinationButItsGamut)
{
    video.frame().frameNumber = 12;
    const SignalDescription before = rgb.signal();
    const Core::Data data = rgb.getData();
    convertYCrCb422ToRGB(video, rgb, GamutScaling::Video, Filter::Point);
    rgb.setGamutScaling(before.getGamutScaling());
    EXPECT_EQ(rgb.signal(), before);
    EXPECT_EQ(rgb.frame(), FrameDescription());
    EXPECT_EQ(rgb.getData(), data);
}

TEST_F(Encode, ChangesNothingOfTheDestination)
{
    rgb.frame().frameNumber = 12;
    for (const bool works : {true, false}) {
        if (!works) {
            effect->haveTechniques({});
        }
        const ImageDescriptions before = video.getDescriptions();
        EXPECT_EQ(convertRGBToYCrCb422(rgb, video, Filter::Point), works);
        EXPECT_EQ(video.getDescriptions(), before);
    }
}

TEST_F(Conversion, FailsSilentlyWithoutTheTechnique)
{
    effect->haveTechniques({"Another"});
    EXPECT_FALSE(convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point));
    EXPECT_FALSE(convertRGBToYCrCb422(rgb, video, Filter::Point));
    EXPECT_EQ(host().journal.lines().size(), 2U) << "two selections and nothing else";
}

TEST_F(Conversion, FailsSilentlyWithoutTheEffectAndWorksOnceItCanBeHad)
{
    Manager::shutdown(Shutdown::NormalExit);
    host().script.fail("loadEffectFile", 2);
    EXPECT_FALSE(convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point));
    EXPECT_FALSE(convertRGBToYCrCb422(rgb, video, Filter::Point));
    EXPECT_THAT(host().journal.linesOf({"setTechnique", "render", "vexo_printf", "Log"}), IsEmpty());
    EXPECT_TRUE(convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point));
    EXPECT_TRUE(convertRGBToYCrCb422(rgb, video, Filter::Point));
}

TEST_F(Conversion, PassesMissingImagesOnAsTheyAre)
{
    video.setGPUSurface({});
    EXPECT_TRUE(convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point));
    EXPECT_TRUE(convertRGBToYCrCb422(rgb, video, Filter::Point));
    rgb.setGPUSurface({});
    EXPECT_TRUE(convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point));
    EXPECT_TRUE(convertRGBToYCrCb422(rgb, video, Filter::Point));
    const auto drawings = effect->drawings();
    ASSERT_THAT(drawings, SizeIs(4));
    EXPECT_EQ(drawings[0].inputs.at(0).resource, nullptr);
    EXPECT_EQ(drawings[1].target, nullptr);
    EXPECT_EQ(drawings[3].target, nullptr);
    EXPECT_THAT(drawings[3].inputs, SizeIs(6));
    EXPECT_EQ(drawings[3].inputs.at(5).resource, nullptr);
}

TEST_F(Conversion, SurfacesWithoutSizeOrRowsDoNotStopTheConversion)
{
    EXPECT_TRUE(convertYCrCb422ToRGB(Surface(), rgb, GamutScaling::Unscaled, Filter::Point));
    Surface nothing;
    EXPECT_TRUE(convertRGBToYCrCb422(Surface(), nothing, Filter::Point));
}

TEST_F(Conversion, HoldsTheGpuLockForItsWholeWorkAndEntersItAgain)
{
    std::vector<int> depths;
    for (const char* operation : {"setTechnique", "render"}) {
        host().script.during(operation, [&] { depths.push_back(depthOf(Manager::instance().gpuLock())); });
    }
    convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point);
    convertRGBToYCrCb422(rgb, video, Filter::Point);
    EXPECT_THAT(depths, ElementsAre(1, 1, 1, 1));
    {
        const CriticalSectionScope inside(Manager::instance().gpuLock());
        convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point);
        convertRGBToYCrCb422(rgb, video, Filter::Point);
    }
    EXPECT_THAT(depths, ElementsAre(1, 1, 1, 1, 2, 2, 2, 2));
    EXPECT_EQ(depthOf(Manager::instance().gpuLock()), 0);
}

TEST_F(Conversion, FetchesItsEffectInsideTheGpuLock)
{
    Manager::shutdown(Shutdown::NormalExit);
    std::vector<int> depths;
    host().script.during("loadEffectFile", [&] { depths.push_back(depthOf(Manager::instance().gpuLock())); });
    convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point);
    Manager::shutdown(Shutdown::NormalExit);
    convertRGBToYCrCb422(rgb, video, Filter::Point);
    EXPECT_THAT(depths, ElementsAre(1, 1));
}

TEST_F(Conversion, TakesTurnsWithTechniquesOnOtherThreads)
{
    const auto decode = [this] {
        for (int i = 0; i < 50; ++i) {
            Surface own = rgb;
            EXPECT_TRUE(convertYCrCb422ToRGB(video, own, GamutScaling::Unscaled, Filter::Point));
        }
    };
    const auto encode = [this] {
        for (int i = 0; i < 50; ++i) {
            Surface own = video;
            EXPECT_TRUE(convertRGBToYCrCb422(rgb, own, Filter::Lanczos));
        }
    };
    {
        const std::jthread a(decode);
        const std::jthread b(encode);
        const std::jthread c([this] {
            for (int i = 0; i < 50; ++i) {
                Surface own = rgb;
                EXPECT_TRUE(applyTechnique(Qx::Ptr<iShaderEffect>(effect), rgb, own, "Other", 1920.0F));
            }
        });
    }
    for (const auto& drawing : effect->drawings()) {
        const std::size_t inputs = drawing.technique == "Other"           ? 2
                                   : drawing.technique.starts_with("RGB") ? 6
                                                                          : 5;
        EXPECT_THAT(drawing.inputs, SizeIs(inputs)) << drawing.technique;
    }
}

TEST_F(Conversion, KeepsNoReferences)
{
    convertYCrCb422ToRGB(video, rgb, GamutScaling::Unscaled, Filter::Point);
    convertRGBToYCrCb422(rgb, video, Filter::Point);
    for (Surface* surface : {&video, &rgb}) {
        const Qx::Ptr<iGPUImage> image = surface->getGPUSurface();
        surface->setGPUSurface({});
        EXPECT_TRUE(image.isSoleOwner());
    }
}
