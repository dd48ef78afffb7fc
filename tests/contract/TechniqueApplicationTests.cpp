#include "QxFxResources/Manager.h"
#include "image/TechniqueApplication.h"
#include "tests/contract/recording/LibraryTest.h"
#include "tests/contract/recording/Surfaces.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <string>
#include <thread>
#include <utility>

using namespace Qx::Test;
using namespace Qx::Image;
using Qx::FxResources::Manager;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using Rectangle = std::array<float, 4>;

/// The library with "null.fx", a source and a destination whose descriptions differ in every attribute.
class TechniqueApplication : public LibraryTest
{
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        effect = Qx::makePtr<FakeEffect>("effect");
        nullEffect = Qx::makePtr<FakeEffect>("null.fx");
        host().addFile(L"/shaders/", L"null.fx");
        host().addFile(L"/shaders/", L"ColourConvert.fx");
        host().makeEffect = [this](const std::wstring& path) -> Qx::Ptr<iShaderEffect> {
            if (path == L"/shaders/null.fx") {
                return nullEffect;
            }
            return Qx::makePtr<FakeEffect>("ColourConvert.fx");
        };
        source.setWidth(1920);
        source.setHeight(1080);
        source.setGPUSurface(Qx::makePtr<FakeGPUImage>("source image", XY<int>{1920, 1080}));
        destination.setWidth(960);
        destination.setHeight(540);
        destination.setGPUSurface(Qx::makePtr<FakeGPUImage>("destination image", XY<int>{960, 540}));
        getShader(L"null.fx"); // sets up colour conversion and loads the effect
        Manager::instance();
        host().journal.clear();
    }

    void TearDown() override
    {
        effect.reset();
        nullEffect.reset();
        source = Surface();
        destination = Surface();
        LibraryTest::TearDown();
    }

    bool applyExplicit(const char* technique, float width)
    {
        return applyTechnique(Qx::Ptr<iShaderEffect>(effect), source, destination, technique, width);
    }
    bool applyDefault(const char* technique, float width, iGPUImage::eFormat format = iGPUImage::eARGB8)
    {
        return applyTechnique(source, destination, technique, width, format);
    }

    Qx::Ptr<FakeEffect> effect;
    Qx::Ptr<FakeEffect> nullEffect;
    Surface source;
    Surface destination;
};

/// Draws nothing and stores nothing; applies itself once while it renders.
class QuietEffect final : public iShaderEffect
{
public:
    bool setTechnique(const LightweightString<char>&) override { return true; }
    Qx::Vector<LightweightString<char>> getTechniqueNames() const override { return {}; }
    Qx::Ptr<iShaderParam> getParam(const char*) override { return {}; }
    bool render(Qx::Ptr<iGPUImage>, const Qx::Vector<Source>& sources) override
    {
        if (const auto within = std::exchange(whileRendering, nullptr)) {
            within();
        }
        EXPECT_THAT(sources, SizeIs(2));
        EXPECT_EQ(sources[0].name.view(), "Input"); // a string would allocate
        EXPECT_TRUE(sources[0].resource);
        ++renders;
        return true;
    }

    std::function<void()> whileRendering;
    int renders = 0;
};

} // namespace

TEST_F(TechniqueApplication, TakesNoMemoryOnceItHasRun)
{
    const auto quiet = Qx::makePtr<QuietEffect>();
    const LightweightString<char> technique("Blur");
    applyTechnique(Qx::Ptr<iShaderEffect>(quiet), source, destination, technique, 2.0F);
    const std::size_t before = host().allocator.allocations();
    applyTechnique(Qx::Ptr<iShaderEffect>(quiet), source, destination, technique, 2.0F);
    EXPECT_EQ(host().allocator.allocations(), before);
    EXPECT_EQ(quiet->renders, 2);
}

TEST_F(TechniqueApplication, KeepsNoImageAlive)
{
    const auto quiet = Qx::makePtr<QuietEffect>();
    ASSERT_TRUE(applyTechnique(Qx::Ptr<iShaderEffect>(quiet), source, destination, "Blur", 2.0F));
    const Qx::Ptr<iGPUImage> image = source.getGPUSurface();
    source = Surface();
    EXPECT_EQ(image->referenceCount(), 1U);
}

TEST_F(TechniqueApplication, MayBeEnteredAgainWhileItRenders)
{
    const auto quiet = Qx::makePtr<QuietEffect>();
    quiet->whileRendering = [&] {
        applyTechnique(Qx::Ptr<iShaderEffect>(quiet), source, destination, "Blur", 2.0F);
    };
    EXPECT_TRUE(applyTechnique(Qx::Ptr<iShaderEffect>(quiet), source, destination, "Blur", 2.0F));
    EXPECT_EQ(quiet->renders, 2);
}

TEST_F(TechniqueApplication, ExplicitFormSelectsSetsAndRendersInThisOrder)
{
    EXPECT_TRUE(applyExplicit("Blur", 1920.0F));
    EXPECT_THAT(
        host().journal.lines(),
        ElementsAre("setTechnique(effect, Blur)", "getParam(effect, _Width)",
                    "setValue(effect, _Width, 1920)", "getParam(effect, _Height)",
                    "setValue(effect, _Height, 1080)",
                    "render(effect, destination image, Input=source image(0 0 1 1), Input=source image(" +
                        number(1.0F / 1920.0F) + " 0 " + number(1.0F + 1.0F / 1920.0F) + " 1))"));
}

TEST_F(TechniqueApplication, DefaultFormSelectsSetsAndRendersInThisOrder)
{
    EXPECT_TRUE(applyDefault("Null", 1920.0F));
    EXPECT_THAT(
        host().journal.lines(),
        ElementsAre("setTechnique(null.fx, Null)", "getParam(null.fx, _Width)",
                    "setValue(null.fx, _Width, 1920)", "getParam(null.fx, _Height)",
                    "setValue(null.fx, _Height, 1080)",
                    "render(null.fx, destination image, Input=source image(0 0 1 1), Input=source image(" +
                        number(-1.0F / 1920.0F) + " 0 " + number(1.0F - 1.0F / 1920.0F) + " 1))"));
}

TEST_F(TechniqueApplication, ExplicitFormShiftsTheSecondInputByATexelOfTheSourceToTheRight)
{
    source.setWidth(720);
    applyExplicit("Blur", 100.0F);
    ASSERT_THAT(effect->drawings(), SizeIs(1));
    const auto inputs = effect->drawings()[0].inputs;
    ASSERT_THAT(inputs, SizeIs(2));
    EXPECT_EQ(inputs[0].name, "Input");
    EXPECT_EQ(inputs[1].name, "Input");
    EXPECT_EQ(inputs[0].resource, source.getGPUSurface().get());
    EXPECT_EQ(inputs[1].resource, source.getGPUSurface().get());
    EXPECT_EQ(inputs[0].rectangle, (Rectangle{0.0F, 0.0F, 1.0F, 1.0F}));
    EXPECT_EQ(inputs[1].rectangle, (Rectangle{1.0F / 720.0F, 0.0F, 1.0F + 1.0F / 720.0F, 1.0F}));
}

TEST_F(TechniqueApplication, DefaultFormShiftsTheSecondInputByATexelOfTheArgumentToTheLeft)
{
    source.setWidth(720);
    applyDefault("Null", 100.0F);
    ASSERT_THAT(nullEffect->drawings(), SizeIs(1));
    const auto inputs = nullEffect->drawings()[0].inputs;
    ASSERT_THAT(inputs, SizeIs(2));
    EXPECT_EQ(inputs[0].name, "Input");
    EXPECT_EQ(inputs[1].name, "Input");
    EXPECT_EQ(inputs[0].rectangle, (Rectangle{0.0F, 0.0F, 1.0F, 1.0F}));
    EXPECT_EQ(inputs[1].rectangle, (Rectangle{-1.0F / 100.0F, 0.0F, 1.0F - 1.0F / 100.0F, 1.0F}));
}

TEST_F(TechniqueApplication, WidthIsTheArgumentAndHeightTheSourcesInBothForms)
{
    source.setWidth(720);
    source.setHeight(486);
    applyExplicit("Blur", 123.5F);
    applyDefault("Null", 0.25F);
    ASSERT_THAT(effect->drawings(), SizeIs(1));
    ASSERT_THAT(nullEffect->drawings(), SizeIs(1));
    EXPECT_THAT(effect->drawings()[0].floats,
                ElementsAre(testing::Pair("_Height", 486.0F), testing::Pair("_Width", 123.5F)));
    EXPECT_THAT(nullEffect->drawings()[0].floats,
                ElementsAre(testing::Pair("_Height", 486.0F), testing::Pair("_Width", 0.25F)));
}

TEST_F(TechniqueApplication, ExplicitFormWithAnUnknownTechniqueTouchesNothing)
{
    effect->haveTechniques({"Blur"});
    source.setDescriptions(unusualDescriptions());
    const ImageDescriptions before = destination.getDescriptions();
    EXPECT_FALSE(applyExplicit("blur", 1920.0F));
    EXPECT_THAT(host().journal.lines(), ElementsAre("setTechnique(effect, blur)"));
    EXPECT_EQ(destination.getDescriptions(), before);
}

TEST_F(TechniqueApplication, DefaultFormWithAnUnknownTechniqueRendersTheCurrentOne)
{
    nullEffect->haveTechniques({"Null"});
    ASSERT_TRUE(nullEffect->setTechnique("Null"));
    source.setDescriptions(unusualDescriptions());
    EXPECT_TRUE(applyDefault("Unknown", 1920.0F));
    ASSERT_THAT(nullEffect->drawings(), SizeIs(1));
    EXPECT_EQ(nullEffect->drawings()[0].technique, "Null");
    EXPECT_EQ(destination.getDescriptions(), unusualDescriptions());
}

TEST_F(TechniqueApplication, DefaultFormIgnoresTheFormat)
{
    for (const auto format : {iGPUImage::eARGB8, iGPUImage::eARGB16, iGPUImage::eARGB10,
                              static_cast<iGPUImage::eFormat>(12345)}) {
        EXPECT_TRUE(applyDefault("Null", 1920.0F, format));
    }
    const auto renders = host().journal.linesOf({"render"});
    ASSERT_THAT(renders, SizeIs(4));
    EXPECT_THAT(renders, testing::Each(renders[0]));
    EXPECT_EQ(host().journal.count("createGPUImage"), 0U);
}

TEST_F(TechniqueApplication, ResultsOfParametersAndRenderAreIgnored)
{
    effect->haveParameters({});
    nullEffect->haveParameters({"_Height"});
    host().script.fail("render");
    host().script.fail("setValue");
    source.setDescriptions(unusualDescriptions());
    EXPECT_TRUE(applyExplicit("Blur", 1920.0F));
    EXPECT_EQ(destination.getDescriptions(), unusualDescriptions());
    destination.setDescriptions({});
    EXPECT_TRUE(applyDefault("Null", 1920.0F));
    EXPECT_EQ(destination.getDescriptions(), unusualDescriptions());
    EXPECT_EQ(host().journal.linesOf({"getParam"}).size(), 4U);
    EXPECT_THAT(host().journal.linesOf({"setValue"}), ElementsAre("setValue(null.fx, _Height, 1080)"));
}

TEST_F(TechniqueApplication, DestinationTakesEveryFieldOfTheSourcesDescriptionAndNothingElse)
{
    source.setDescriptions(unusualDescriptions());
    const Core::Data before = destination.getData();
    const Qx::Ptr<iGPUImage> image = destination.getGPUSurface();
    EXPECT_TRUE(applyExplicit("Blur", 1920.0F));
    const FrameDescription& frame = destination.frame();
    EXPECT_EQ(frame.getTransparency(), TransparencyType::Premultiplied);
    EXPECT_EQ(frame.getPixelAspect(), 1.25F);
    EXPECT_EQ(frame.getRaster(), Raster::LowerField);
    EXPECT_EQ(frame.getRepeated(), 255);
    EXPECT_EQ(frame.frameNumber, 0xFFFFFFFFU);
    EXPECT_EQ(frame.frameRateNumerator, 30000U);
    EXPECT_EQ(frame.frameRateDenominator, 1001U);
    EXPECT_TRUE(frame.dropFrame);
    const SignalDescription& signal = destination.signal();
    EXPECT_EQ(signal.getPolarity(), Polarity::LowerFieldFirst);
    EXPECT_EQ(signal.getColourSpace(), ColourSpace::BT709);
    EXPECT_EQ(signal.getGamutScaling(), GamutScaling::Video);
    EXPECT_EQ(signal.getGuessed(), 1);
    EXPECT_EQ(signal.colourPrimaries, 9U);
    EXPECT_EQ(signal.transferCharacteristics, 14U);
    EXPECT_EQ(signal.matrixCoefficients, 1U);
    EXPECT_TRUE(signal.interlacedChroma);
    EXPECT_EQ(destination.getData(), before);
    EXPECT_EQ(destination.getGPUSurface(), image);
}

TEST_F(TechniqueApplication, DescriptionIsCopiedAfterTheRender)
{
    source.setDescriptions(unusualDescriptions());
    ImageDescriptions during;
    host().script.during("render", [&] { during = destination.getDescriptions(); });
    applyExplicit("Blur", 1920.0F);
    EXPECT_EQ(during, ImageDescriptions());
    destination.setDescriptions({});
    applyDefault("Null", 1920.0F);
    EXPECT_EQ(during, ImageDescriptions());
}

TEST_F(TechniqueApplication, MissingImagesArePassedOnAsTheyAre)
{
    source.setGPUSurface({});
    destination.setGPUSurface({});
    EXPECT_TRUE(applyExplicit("Blur", 2.0F));
    EXPECT_TRUE(applyDefault("Null", 2.0F));
    EXPECT_THAT(host().journal.linesOf({"render"}),
                ElementsAre("render(effect, null, Input=null(0 0 1 1), Input=null(" + number(1.0F / 1920.0F) +
                                " 0 " + number(1.0F + 1.0F / 1920.0F) + " 1))",
                            "render(null.fx, null, Input=null(0 0 1 1), Input=null(-0.5 0 0.5 1))"));
}

TEST_F(TechniqueApplication, WithoutNullFxTheDefaultFormDoesNothing)
{
    Manager::shutdown(Shutdown::NormalExit);
    host().compileErrors[L"/shaders/null.fx"] = "error";
    Manager::instance();
    source.setDescriptions(unusualDescriptions());
    host().journal.clear();
    EXPECT_FALSE(applyDefault("Null", 1920.0F));
    EXPECT_EQ(destination.getDescriptions(), ImageDescriptions());
    EXPECT_THAT(host().journal.linesOf({"setTechnique", "getParam", "render", "vexo_printf", "Log"}),
                IsEmpty());
}

TEST_F(TechniqueApplication, WithoutAnEffectTheExplicitFormDoesNothing)
{
    source.setDescriptions(unusualDescriptions());
    EXPECT_FALSE(applyTechnique(Qx::Ptr<iShaderEffect>(), source, destination, "Blur", 1920.0F));
    EXPECT_EQ(destination.getDescriptions(), ImageDescriptions());
    EXPECT_THAT(host().journal.lines(), IsEmpty());
}

TEST_F(TechniqueApplication, HoldsTheGpuLockFromTheTechniqueToTheRender)
{
    std::vector<int> depths;
    for (const char* operation : {"setTechnique", "getParam", "setValue", "render"}) {
        host().script.during(operation, [&] { depths.push_back(depthOf(Manager::instance().gpuLock())); });
    }
    applyExplicit("Blur", 1920.0F);
    applyDefault("Null", 1920.0F);
    EXPECT_THAT(depths, SizeIs(12));
    EXPECT_THAT(depths, testing::Each(1));
    EXPECT_EQ(depthOf(Manager::instance().gpuLock()), 0);
}

TEST_F(TechniqueApplication, ReleasesTheGpuLockWhenTheTechniqueIsUnknown)
{
    effect->haveTechniques({});
    EXPECT_FALSE(applyExplicit("Blur", 1920.0F));
    EXPECT_EQ(depthOf(Manager::instance().gpuLock()), 0);
}

TEST_F(TechniqueApplication, OtherThreadsWaitForTheGpuLockWhileOneRenders)
{
    std::thread other;
    host().script.during("render", [&] {
        other = std::thread([] {
            const CriticalSectionScope inside(Manager::instance().gpuLock());
            host().journal.record("entered");
        });
        EXPECT_TRUE(waitForBlockedThreads(1));
        host().journal.record("rendered");
    });
    applyExplicit("Blur", 1920.0F);
    other.join();
    EXPECT_THAT(host().journal.linesOf({"entered", "rendered"}), ElementsAre("rendered", "entered"));
}

TEST_F(TechniqueApplication, EntersTheGpuLockAgainForACallerThatHoldsIt)
{
    const CriticalSectionScope inside(Manager::instance().gpuLock());
    int depth = 0;
    host().script.during("render", [&] { depth = depthOf(Manager::instance().gpuLock()); });
    EXPECT_TRUE(applyExplicit("Blur", 1920.0F));
    EXPECT_EQ(depth, 2);
    EXPECT_TRUE(applyDefault("Null", 1920.0F));
    EXPECT_EQ(depth, 2);
}

TEST_F(TechniqueApplication, DefaultFormTakesItsEffectBeforeTheLock)
{
    Manager::shutdown(Shutdown::NormalExit);
    Manager::instance();
    int depth = -1;
    host().script.during("loadEffectFile", [&] { depth = depthOf(Manager::instance().gpuLock()); });
    EXPECT_TRUE(applyDefault("Null", 1920.0F));
    EXPECT_EQ(depth, 0);
}

TEST_F(TechniqueApplication, CallsFromManyThreadsAreNotInterleaved)
{
    const auto run = [this](const char* technique) {
        for (int i = 0; i < 50; ++i) {
            Surface own;
            applyTechnique(Qx::Ptr<iShaderEffect>(effect), source, own, technique, 1920.0F);
        }
    };
    {
        const std::jthread a(run, "A");
        const std::jthread b(run, "B");
        const std::jthread c(run, "C");
    }
    const std::vector<std::string> lines = host().journal.lines();
    ASSERT_THAT(lines, SizeIs(3 * 50 * 6));
    for (std::size_t i = 0; i < lines.size(); i += 6) {
        EXPECT_TRUE(lines[i].starts_with("setTechnique("));
        EXPECT_TRUE(lines[i + 5].starts_with("render("));
    }
    for (const auto& drawing : effect->drawings()) {
        EXPECT_THAT(drawing.inputs, SizeIs(2));
    }
}

TEST_F(TechniqueApplication, KeepsNoReferenceToSurfacesOrEffect)
{
    applyExplicit("Blur", 1920.0F);
    EXPECT_TRUE(effect.isSoleOwner());
    const Qx::Ptr<iGPUImage> image = source.getGPUSurface();
    source.setGPUSurface({});
    EXPECT_TRUE(image.isSoleOwner());
}

TEST_F(TechniqueApplication, ShaderIsFoundByItsFileNameWhateverTheLetterCase)
{
    EXPECT_EQ(getShader(L"NULL.FX"), nullEffect);
    EXPECT_FALSE(getShader(L"null"));
    EXPECT_FALSE(getShader(L"unknown.fx"));
}

TEST_F(TechniqueApplication, ThatIsDrawnDuringAShutdownDoesNotBringTheManagerBack)
{
    for (const std::string operation : {"setTechnique", "getParam", "setValue", "render"}) {
        for (const bool isExplicit : {true, false}) {
            getShader(L"null.fx"); // with a new manager
            bool isGone = false;
            host().script.during(operation, [&] {
                if (!std::exchange(isGone, true)) {
                    std::thread([] { Manager::shutdown(Shutdown::NormalExit); }).join();
                    host().journal.clear();
                }
            });
            EXPECT_TRUE(isExplicit ? applyExplicit("Blur", 1920.0F) : applyDefault("Null", 1920.0F));
            EXPECT_TRUE(isGone);
            EXPECT_THAT(host().journal.linesOf({"getShadersDir", "listDirectory", "queue", "Shutdown"}),
                        IsEmpty())
                << operation;
            host().script.reset();
        }
    }
    for (const Qx::Ptr<FakeEffect>& drawn : {effect, nullEffect}) {
        ASSERT_THAT(drawn->drawings(), SizeIs(4));
        for (const FakeEffect::Drawing& drawing : drawn->drawings()) {
            ASSERT_THAT(drawing.inputs, SizeIs(2));
            EXPECT_EQ(drawing.inputs[1].name, "Input");
            EXPECT_THAT(drawing.floats,
                        ElementsAre(testing::Pair("_Height", 1080.0F), testing::Pair("_Width", 1920.0F)));
        }
    }
}
