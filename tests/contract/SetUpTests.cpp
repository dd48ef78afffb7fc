#include "QxFxResources/GPUColourConverter.h"
#include "QxFxResources/Manager.h"
#include "image/TechniqueApplication.h"
#include "tests/contract/recording/LibraryTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

// Colour conversion is set up once per process, so each of these tests needs its own process, which CTest
// gives it.

using namespace Qx::Test;
using namespace Qx::Image;
using Qx::FxResources::Manager;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* failureLine =
    "LogBoth(\"Error: Failed to obtain effect 'ColourConvert.fx' - effects will not be shown on output "
    "monitors.\\n\")";

class ConversionSetUp : public LibraryTest
{
protected:
    void SetUp() override
    {
        static bool used = false;
        ASSERT_FALSE(used) << "each of these tests needs a process of its own: run them by ctest";
        used = true;
        LibraryTest::SetUp();
    }

    static void haveEffects()
    {
        host().addFile(L"/shaders/", L"ColourConvert.fx");
        host().addFile(L"/shaders/", L"null.fx");
        Manager::instance();
        host().journal.clear();
    }
};

} // namespace

TEST_F(ConversionSetUp, SucceedsOnceAndIsFalseEverAfter)
{
    haveEffects();
    EXPECT_FALSE(ColourConversion::isInitialised());
    EXPECT_TRUE(ColourConversion::init());
    EXPECT_TRUE(ColourConversion::isInitialised());
    EXPECT_EQ(host().journal.count("loadEffectFile(\"/shaders/ColourConvert.fx\""), 1U);
    host().journal.clear();
    EXPECT_FALSE(ColourConversion::init());
    EXPECT_FALSE(ColourConversion::init());
    EXPECT_THAT(host().journal.lines(), IsEmpty());
}

TEST_F(ConversionSetUp, DoesNotKeepTheEffect)
{
    host().makeEffect = [](const std::wstring&) { return Qx::makePtr<FakeEffect>("effect"); };
    haveEffects();
    ASSERT_TRUE(ColourConversion::init());
    Qx::Ptr<iShaderEffect> effect = Manager::instance().findEffect(L"ColourConvert.fx").getShader();
    Manager::instance().fini();
    EXPECT_TRUE(effect.isSoleOwner());
}

TEST_F(ConversionSetUp, WithoutTheEffectPrintsOneLineAndIsNeverTriedAgain)
{
    host().addFile(L"/shaders/", L"null.fx");
    Manager::instance();
    host().journal.clear();
    EXPECT_FALSE(ColourConversion::init());
    EXPECT_FALSE(ColourConversion::isInitialised());
    EXPECT_THAT(host().journal.linesOf({"Log", "vexo_printf"}), ElementsAre(failureLine));
    host().journal.clear();
    EXPECT_FALSE(ColourConversion::init());
    EXPECT_THAT(host().journal.lines(), IsEmpty());

    Manager::shutdown(Shutdown::NormalExit);
    haveEffects();
    EXPECT_FALSE(ColourConversion::init()) << "also when the effect could be had by now";
    EXPECT_THAT(host().journal.lines(), IsEmpty());
    EXPECT_TRUE(getShader(L"ColourConvert.fx")) << "which the conversions use all the same";
    EXPECT_EQ(host().journal.count("LogBoth"), 0U);
}

TEST_F(ConversionSetUp, IsNotBegunAgainWhileItIsUnderWay)
{
    haveEffects();
    bool within = true;
    host().script.duringNext("loadEffectFile", [&] { within = ColourConversion::init(); });
    EXPECT_TRUE(ColourConversion::init());
    EXPECT_FALSE(within);
    EXPECT_EQ(host().journal.count("loadEffectFile"), 1U);
}

TEST_F(ConversionSetUp, WithAnEffectThatDoesNotCompilePrintsTheLine)
{
    host().compileErrors[L"/shaders/ColourConvert.fx"] = "error";
    haveEffects();
    EXPECT_FALSE(ColourConversion::init());
    EXPECT_THAT(host().journal.linesOf({"Log", "vexo_printf"}), ElementsAre(failureLine));
}

TEST_F(ConversionSetUp, AfterAFailedSetUpConversionsWorkOnceTheEffectCanBeHad)
{
    host().script.fail("loadEffectFile", 1);
    haveEffects();
    EXPECT_FALSE(ColourConversion::init());
    Surface source;
    Surface destination;
    EXPECT_TRUE(ColourConversion::convertRGBToYCrCb422(source, destination, Filter::Point));
}

TEST_F(ConversionSetUp, HappensUnderTheGpuLock)
{
    haveEffects();
    int depth = 0;
    host().script.during("loadEffectFile", [&] { depth = depthOf(Manager::instance().gpuLock()); });
    EXPECT_TRUE(ColourConversion::init());
    EXPECT_EQ(depth, 1);
    EXPECT_EQ(depthOf(Manager::instance().gpuLock()), 0);
}

TEST_F(ConversionSetUp, PrintsItsFailureUnderTheGpuLock)
{
    int depth = 0;
    host().script.during("LogBoth", [&] { depth = depthOf(Manager::instance().gpuLock()); });
    EXPECT_FALSE(ColourConversion::init());
    EXPECT_EQ(depth, 1);
    EXPECT_EQ(depthOf(Manager::instance().gpuLock()), 0);
}

TEST_F(ConversionSetUp, MakesTheManager)
{
    host().addFile(L"/shaders/", L"ColourConvert.fx");
    EXPECT_TRUE(ColourConversion::init());
    EXPECT_EQ(host().journal.count("Shutdown::addCallback(450)"), 1U);
}

TEST_F(ConversionSetUp, ComesBeforeTheFirstShaderAndOnlyThen)
{
    haveEffects();
    EXPECT_TRUE(getShader(L"null.fx"));
    const auto loads = host().journal.linesOf({"loadEffectFile"});
    ASSERT_EQ(loads.size(), 2U);
    EXPECT_TRUE(loads[0].starts_with("loadEffectFile(\"/shaders/ColourConvert.fx\""));
    EXPECT_TRUE(loads[1].starts_with("loadEffectFile(\"/shaders/null.fx\""));
    EXPECT_FALSE(ColourConversion::init()) << "that was done";
    host().journal.clear();
    EXPECT_TRUE(getShader(L"null.fx"));
    EXPECT_THAT(host().journal.lines(), IsEmpty());
}

TEST_F(ConversionSetUp, ThatFailedForTheFirstShaderIsReportedOnceOverManyShaders)
{
    host().addFile(L"/shaders/", L"null.fx");
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(getShader(L"null.fx"));
        EXPECT_FALSE(getShader(L"ColourConvert.fx"));
    }
    EXPECT_EQ(host().journal.count("LogBoth"), 1U);
}

TEST_F(ConversionSetUp, IsEnteredAgainByAConversionThatHoldsTheGpuLock)
{
    haveEffects();
    std::vector<int> depths;
    host().script.during("loadEffectFile", [&] { depths.push_back(depthOf(Manager::instance().gpuLock())); });
    Surface source;
    Surface destination;
    EXPECT_TRUE(
        ColourConversion::convertYCrCb422ToRGB(source, destination, GamutScaling::Video, Filter::Point));
    EXPECT_THAT(depths, ElementsAre(2));
}

TEST_F(ConversionSetUp, DefaultTechniqueSetsUpBeforeItTakesTheLock)
{
    haveEffects();
    std::vector<int> depths;
    host().script.during("loadEffectFile", [&] { depths.push_back(depthOf(Manager::instance().gpuLock())); });
    Surface source;
    Surface destination;
    EXPECT_TRUE(applyTechnique(source, destination, "Null", 1.0F, iGPUImage::eARGB8));
    EXPECT_THAT(depths, ElementsAre(1, 0)); // ColourConvert.fx for the set-up, then null.fx
}

TEST_F(ConversionSetUp, DeInitChangesNothingBeforeAndAfter)
{
    haveEffects();
    ColourConversion::deInit();
    EXPECT_THAT(host().journal.lines(), IsEmpty());
    EXPECT_TRUE(ColourConversion::init());
    ColourConversion::deInit();
    EXPECT_FALSE(ColourConversion::init());
    host().journal.clear();
    EXPECT_TRUE(getShader(L"ColourConvert.fx"));
    EXPECT_THAT(host().journal.lines(), IsEmpty());
}

TEST_F(ConversionSetUp, SurvivesTheManager)
{
    haveEffects();
    EXPECT_TRUE(ColourConversion::init());
    Manager::shutdown(Shutdown::NormalExit);
    EXPECT_FALSE(ColourConversion::init());
}

TEST_F(ConversionSetUp, SucceedsForOneOfManyThreads)
{
    haveEffects();
    std::vector<char> results(8);
    {
        std::vector<std::jthread> threads;
        for (char& result : results) {
            threads.emplace_back([&result] { result = ColourConversion::init() ? 1 : 0; });
        }
    }
    EXPECT_EQ(std::count(results.begin(), results.end(), 1), 1);
    EXPECT_EQ(host().journal.count("loadEffectFile"), 1U);
}

TEST_F(ConversionSetUp, ToggleTellsItsNewState)
{
    toggle_cfgForceUnscaledYCrCb();
    toggle_cfgForceUnscaledYCrCb();
    toggle_cfgForceUnscaledYCrCb();
    EXPECT_THAT(host().journal.lines(), ElementsAre("LogBoth(\"cfgForceUnscaledYCrCb is now ON\\n\")",
                                                    "LogBoth(\"cfgForceUnscaledYCrCb is now OFF\\n\")",
                                                    "LogBoth(\"cfgForceUnscaledYCrCb is now ON\\n\")"));
}
