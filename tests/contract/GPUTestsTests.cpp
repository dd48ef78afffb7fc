#include "gputests/GPUTests.h"

#include "QxFxResources/Manager.h"
#include "tests/contract/recording/LibraryTest.h"

#include <gmock/gmock.h>
#include <string>
#include <vector>

namespace Qx::Test {

namespace {

using FxResources::Manager;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using Lines = std::vector<std::string>;

/// Writes the suite's lines to the host's journal, between the host's calls.
class JournalLogger final : public LoggerBase
{
public:
    void logLine(const LightweightString<wchar_t>& line, int category) override
    {
        host().call("logLine", Test::inQuotes(text(line)) + ", " + std::to_string(category));
    }
    void beginTests(int count) override { host().call("beginTests", std::to_string(count)); }
    void endTests() override { host().call("endTests"); }
    void endTest() override { host().call("endTest"); }
};

/// Time passes only in operations to which a test assigns a cost. The effect is already compiled.
class DiagnosticSuite : public LibraryTest
{
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        host().addFile(L"/shaders/", L"cc3.fx");
        host().clockStep = 0;
        host().recordReleases = true;
        EXPECT_TRUE(effectRecord().getShader());
        host().recordClock = true;
        host().journal.clear();
    }

    static const FxResources::ShaderEffectInfo& effectRecord()
    {
        return Manager::instance().findEffect(L"cc3.fx");
    }

    /// Returns the journal's lines that the suite wrote to its logger.
    static Lines logged() { return host().journal.linesOf({"logLine", "beginTests", "endTest"}); }

    static Lines everything() { return host().journal.lines(); }

    /// Replaces the catalogue's effect.
    static void replaceEffect(const char* name) { effectRecord().effect = Qx::makePtr<FakeEffect>(name); }

    JournalLogger log;
};

using Preamble = DiagnosticSuite;
using HostToGPU = DiagnosticSuite;
using GPUToHost = DiagnosticSuite;
using TimedLoop = DiagnosticSuite;
using ShaderPerformance = DiagnosticSuite;
using Combined = DiagnosticSuite;
using WholeSuite = DiagnosticSuite;

const std::string testDrawing =
    "(0 0 1920 1080), effect cc3.fx, blend 0, mode 0, further 0, layer 1)"; // follows the source's name

const std::string loading =
    R"(loadEffectFile("/shaders/cc3.fx", {_OUTPUTWIDTH=1, _OUTPUTHEIGHT=1, _OUTPUTASPECTRATIO=1, )"
    "_PROGRESS=1, _OUTPUTFPS=1, _LENGTH=1, _LENGTHFRAMES=1})";

// The suite's lines as in the journal.

std::string heading(const std::string& line)
{
    return "logLine(" + Test::inQuotes(line) + ", 5)";
}

std::string result(const std::string& line)
{
    return "logLine(" + Test::inQuotes(line) + ", 0)";
}

std::string failure(const std::string& line)
{
    return "logLine(" + Test::inQuotes(line) + ", 4)";
}

std::string drawing(const std::string& target, const std::string& source)
{
    return "drawImageEx(" + target + "(0 0 1920 1080), " + source + testDrawing;
}

} // namespace

TEST_F(DiagnosticSuite, TestImagesAreOfFullHDSize)
{
    EXPECT_EQ(GPUTests::testImageSize(), (XY<int>{1920, 1080}));
    EXPECT_THAT(everything(), IsEmpty());
}

// Preamble

TEST_F(Preamble, ShowsTheThirdMemoryFigureThenTheSecondThenProcessorsAndRights)
{
    host().memory = {11, 4000, 3000};
    host().processors = 12;
    GPUTests::preamble(log);
    EXPECT_THAT(everything(),
                ElementsAre("memoryStatus()", "bytesAsString(3000, true)", "bytesAsString(4000, true)",
                            result("Memory : 3000 bytes / 4000 bytes"), "cpuCount()",
                            "WStringFromInteger(12)", result("CPUs   : 12"), "isAdministrator()",
                            result("Admin  : Yes")));
}

TEST_F(Preamble, SaysNoWithoutAdministratorRights)
{
    host().script.fail("isAdministrator");
    GPUTests::preamble(log);
    EXPECT_EQ(logged().back(), result("Admin  : No"));
}

TEST_F(Preamble, ASecondFigureOfFiveGibibytesIsShownAsOne)
{
    host().memory = {0, 5ULL << 30, 6ULL << 30};
    GPUTests::preamble(log);
    EXPECT_EQ(logged().front(), result("Memory : 6442450944 bytes / 1073741824 bytes"))
        << "the third figure is shown whole";
}

TEST_F(Preamble, ASecondFigureAboveHalfTheRangeStaysPositive)
{
    host().memory = {0, 0xFFFFFFFFU, 0};
    GPUTests::preamble(log);
    EXPECT_EQ(logged().front(), result("Memory : 0 bytes / 4294967295 bytes"));
}

// Transfers

TEST_F(HostToGPU, UploadsOneHostImageUntilTheTimeIsUp)
{
    host().costs["uploadImage"] = 2500;
    GPUTests::hostToGPUTransferTest(log);
    EXPECT_THAT(everything(),
                ElementsAre(heading("Testing host to GPU transfer"), "createHostImage(1920x1080, 0)",
                            "millisecondsPrecise()", "uploadImage(1920x1080, 0, 0)", "released(uploaded 1)",
                            "millisecondsPrecise()", "uploadImage(1920x1080, 0, 0)", "released(uploaded 2)",
                            "millisecondsPrecise()", "uploadImage(1920x1080, 0, 0)", "released(uploaded 3)",
                            "millisecondsPrecise()", "millisecondsPrecise()",
                            "WStringFromFloat(0.26666666666666666, 2, true)",
                            result("0.26666666666666666fps"), "endTest()", "released(host image)"));
}

TEST_F(HostToGPU, WithoutATestImageSaysSoAndEnds)
{
    host().script.fail("createHostImage");
    GPUTests::hostToGPUTransferTest(log);
    EXPECT_THAT(everything(),
                ElementsAre(heading("Testing host to GPU transfer"), "createHostImage(1920x1080, 0)",
                            failure("Failed to create test image"), "endTest()"));
}

TEST_F(HostToGPU, AllUploadsFailingSaysFailedAfterTheFirst)
{
    host().script.fail("uploadImage");
    GPUTests::hostToGPUTransferTest(log);
    EXPECT_THAT(everything(),
                ElementsAre(heading("Testing host to GPU transfer"), "createHostImage(1920x1080, 0)",
                            "millisecondsPrecise()", "uploadImage(1920x1080, 0, 0)", "millisecondsPrecise()",
                            failure("Failed"), "endTest()", "released(host image)"));
}

TEST_F(HostToGPU, FailingAtThe37thUploadSaysFailedAndNoRate)
{
    host().costs["uploadImage"] = 1;
    host().script.failAt("uploadImage", 37);
    GPUTests::hostToGPUTransferTest(log);
    EXPECT_EQ(host().journal.count("uploadImage"), 37U);
    EXPECT_EQ(host().journal.count("millisecondsPrecise"), 1U + 37U) << "no time is taken for a rate";
    EXPECT_THAT(logged(),
                ElementsAre(heading("Testing host to GPU transfer"), failure("Failed"), "endTest()"));
}

TEST_F(GPUToHost, DownloadsOneGPUImageUntilTheTimeIsUp)
{
    host().costs["downloadImage"] = 4000;
    GPUTests::GPUToHostTransferTest(log);
    EXPECT_THAT(everything(),
                ElementsAre(heading("Testing GPU to host transfer"), "createGPUImage(1920x1080, 0)",
                            "millisecondsPrecise()", "downloadImage(1920x1080, 0)", "released(host image)",
                            "millisecondsPrecise()", "downloadImage(1920x1080, 0)", "released(host image)",
                            "millisecondsPrecise()", "millisecondsPrecise()",
                            "WStringFromFloat(0.125, 2, true)", result("0.125fps"), "endTest()",
                            "released(created 1)"));
}

TEST_F(GPUToHost, WithoutATestImageSaysSoAndEnds)
{
    host().script.fail("createGPUImage");
    GPUTests::GPUToHostTransferTest(log);
    EXPECT_THAT(everything(),
                ElementsAre(heading("Testing GPU to host transfer"), "createGPUImage(1920x1080, 0)",
                            failure("Failed to create test image"), "endTest()"));
}

TEST_F(GPUToHost, AllDownloadsFailingSaysFailedAfterTheFirst)
{
    host().script.fail("downloadImage");
    GPUTests::GPUToHostTransferTest(log);
    EXPECT_THAT(everything(),
                ElementsAre(heading("Testing GPU to host transfer"), "createGPUImage(1920x1080, 0)",
                            "millisecondsPrecise()", "downloadImage(1920x1080, 0)", "millisecondsPrecise()",
                            failure("Failed"), "endTest()", "released(created 1)"));
}

// The timed loop, by the transfers

TEST_F(TimedLoop, OfOneMillisecondTransfersStopsAt2000)
{
    host().costs["uploadImage"] = 1;
    GPUTests::hostToGPUTransferTest(log);
    EXPECT_EQ(host().journal.count("uploadImage"), 2000U);
    EXPECT_EQ(host().journal.count("millisecondsPrecise"), 1U + 2000U + 1U);
    EXPECT_THAT(logged(), Contains(result("1000fps")));
}

TEST_F(TimedLoop, OfA6000MillisecondTransferCountsNothingAndShowsZero)
{
    host().costs["downloadImage"] = 6000;
    GPUTests::GPUToHostTransferTest(log);
    EXPECT_EQ(host().journal.count("downloadImage"), 1U);
    EXPECT_THAT(logged(), Contains(result("0fps")));
}

TEST_F(TimedLoop, OfThirtySevenIterationsIn5012MillisecondsShowsTheirRate)
{
    // 37 of 135 ms take 4995 ms, so the 38th, which is not counted, must take 17 ms.
    std::size_t calls = 0;
    host().script.during("uploadImage", [&calls] { host().pass(++calls <= 37 ? 135 : 17); });
    GPUTests::hostToGPUTransferTest(log);
    EXPECT_EQ(calls, 38U);
    EXPECT_THAT(host().journal.linesOf({"WStringFromFloat"}),
                ElementsAre("WStringFromFloat(" + number(37 / 5.012) + ", 2, true)"));
    EXPECT_THAT(logged(), Contains(result(number(37 / 5.012) + "fps")));
}

TEST_F(TimedLoop, DoesNotStopAtExactlyFiveSeconds)
{
    std::size_t calls = 0;
    host().script.during("uploadImage", [&calls] { host().pass(++calls == 1 ? 5000.0 : 0.5); });
    GPUTests::hostToGPUTransferTest(log);
    EXPECT_EQ(calls, 2U);
    EXPECT_THAT(logged(), Contains(result(number(1 / 5.0005) + "fps")));
}

TEST_F(TimedLoop, FailureBeatsTimeInTheSameIteration)
{
    host().costs["uploadImage"] = 6000;
    host().script.fail("uploadImage");
    GPUTests::hostToGPUTransferTest(log);
    EXPECT_EQ(host().journal.count("uploadImage"), 1U);
    EXPECT_THAT(logged(),
                ElementsAre(heading("Testing host to GPU transfer"), failure("Failed"), "endTest()"));
}

TEST_F(TimedLoop, FailureAtThe2000thIsAFailure)
{
    host().script.failAt("uploadImage", 2000);
    GPUTests::hostToGPUTransferTest(log);
    EXPECT_EQ(host().journal.count("uploadImage"), 2000U);
    EXPECT_THAT(logged(), Contains(failure("Failed")));
    EXPECT_EQ(host().journal.count("WStringFromFloat"), 0U);
}

TEST_F(TimedLoop, RateCountsTheTimeUntilAllIterationsAreOver)
{
    // Each reading of the clock takes time: the last is number 2002 (2 + 2000).
    host().clockStep = 0.25;
    GPUTests::hostToGPUTransferTest(log);
    EXPECT_THAT(logged(), Contains(result(number(2000 / (2001 * 0.25 / 1000)) + "fps")));
}

TEST_F(TimedLoop, SetUpBeforeItIsNotTimed)
{
    host().costs["createHostImage"] = 9000;
    host().costs["uploadImage"] = 1;
    GPUTests::hostToGPUTransferTest(log);
    EXPECT_THAT(logged(), Contains(result("1000fps")));
}

// Shader

TEST_F(ShaderPerformance, Draws2000TimesAndReleasesAllBeforeItEnds)
{
    host().costs["drawImageEx"] = 0.4;
    GPUTests::shaderPerformanceTest(log);
    Lines expected{heading("Testing shader performance"), "createGPUImage(1920x1080, 0)",
                   "createGPUImage(1920x1080, 0)", "getPrimitivesRenderer(created 1, 1)",
                   "millisecondsPrecise()"};
    expected.insert(expected.end(), 2000, drawing("created 1", "created 2"));
    const Lines lines = everything();
    ASSERT_GT(lines.size(), expected.size());
    EXPECT_EQ(Lines(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(expected.size())), expected);
    const Lines rest(lines.begin() + static_cast<std::ptrdiff_t>(expected.size()), lines.end());
    ASSERT_EQ(rest.size(), 7U);
    EXPECT_EQ(rest[0], "millisecondsPrecise()") << "read once, after the last draw";
    EXPECT_THAT(Lines(rest.begin() + 3, rest.end()),
                ElementsAre("released(renderer of created 1)", "released(created 2)", "released(created 1)",
                            "endTest()"));
}

TEST_F(ShaderPerformance, Of2000DrawsIn800MillisecondsIs2500)
{
    std::size_t draws = 0;
    host().script.during("drawImageEx", [&draws] { host().pass(++draws == 1 ? 800 : 0); });
    GPUTests::shaderPerformanceTest(log);
    EXPECT_EQ(draws, 2000U);
    EXPECT_THAT(host().journal.linesOf({"WStringFromFloat"}), ElementsAre("WStringFromFloat(2500, 2, true)"));
    EXPECT_THAT(logged(), ElementsAre(heading("Testing shader performance"), result("2500fps"), "endTest()"));
}

TEST_F(ShaderPerformance, HasNoLimitOfTime)
{
    host().costs["drawImageEx"] = 1000;
    GPUTests::shaderPerformanceTest(log);
    EXPECT_EQ(host().journal.count("drawImageEx"), 2000U);
    EXPECT_THAT(logged(), Contains(result("1fps")));
}

TEST_F(ShaderPerformance, DoesNotLookAtWhatDrawsAnswer)
{
    host().costs["drawImageEx"] = 1;
    host().script.fail("drawImageEx");
    GPUTests::shaderPerformanceTest(log);
    EXPECT_EQ(host().journal.count("drawImageEx"), 2000U);
    EXPECT_THAT(logged(), Contains(result("1000fps")));
}

TEST_F(ShaderPerformance, LeavesSetUpOutOfTheTime)
{
    host().costs = {{"createGPUImage", 500}, {"getPrimitivesRenderer", 500}, {"drawImageEx", 1}};
    GPUTests::shaderPerformanceTest(log);
    EXPECT_THAT(logged(), Contains(result("1000fps")));
}

TEST_F(ShaderPerformance, WithoutAShaderCreatesNoImages)
{
    Manager::shutdown(Shutdown::NormalExit);
    host().compileErrors[L"/shaders/cc3.fx"] = "cc3.fx:1: error";
    Manager::startup(false);
    host().journal.clear();
    host().recordClock = false;
    GPUTests::shaderPerformanceTest(log);
    EXPECT_THAT(everything(), ElementsAre(heading("Testing shader performance"), loading,
                                          failure("Failed to load shader"), "endTest()"));
}

TEST_F(ShaderPerformance, WithoutTheEffectInTheCatalogueFailsAsWithoutAShader)
{
    Manager::shutdown(Shutdown::NormalExit);
    host().removeFiles();
    Manager::startup(false);
    GPUTests::shaderPerformanceTest(log);
    EXPECT_THAT(logged(), ElementsAre(heading("Testing shader performance"), failure("Failed to load shader"),
                                      "endTest()"));
}

TEST_F(ShaderPerformance, MakesTheManagerWhenThereIsNone)
{
    Manager::shutdown(Shutdown::NormalExit);
    host().costs["drawImageEx"] = 1;
    GPUTests::shaderPerformanceTest(log);
    EXPECT_THAT(logged(), Contains(result("1000fps")));
}

TEST_F(ShaderPerformance, WithoutATargetStillAsksForTheSourceAndSaysFailed)
{
    host().script.failAt("createGPUImage", 1);
    GPUTests::shaderPerformanceTest(log);
    EXPECT_THAT(everything(),
                ElementsAre(heading("Testing shader performance"), "createGPUImage(1920x1080, 0)",
                            "createGPUImage(1920x1080, 0)", failure("Failed to create test images"),
                            "released(created 1)", "endTest()"));
}

TEST_F(ShaderPerformance, WithoutASourceSaysFailed)
{
    host().script.failAt("createGPUImage", 2);
    GPUTests::shaderPerformanceTest(log);
    EXPECT_THAT(everything(),
                ElementsAre(heading("Testing shader performance"), "createGPUImage(1920x1080, 0)",
                            "createGPUImage(1920x1080, 0)", failure("Failed to create test images"),
                            "released(created 1)", "endTest()"));
}

TEST_F(ShaderPerformance, WithATargetThatCannotBeDrawnIntoHasNoTestImages)
{
    host().script.fail("getPrimitivesRenderer");
    GPUTests::shaderPerformanceTest(log);
    EXPECT_THAT(logged(), ElementsAre(heading("Testing shader performance"),
                                      failure("Failed to create test images"), "endTest()"));
}

TEST_F(ShaderPerformance, AsksForTheShaderAgainOnceTheRendererIsThereAndThenKeepsIt)
{
    host().script.during("getPrimitivesRenderer", [] { replaceEffect("second.fx"); });
    host().script.during("drawImageEx", [] {
        if (host().journal.count("drawImageEx") == 1) {
            replaceEffect("third.fx");
        }
    });
    GPUTests::shaderPerformanceTest(log);
    const Lines draws = host().journal.linesOf({"drawImageEx"});
    EXPECT_EQ(draws.size(), 2000U);
    EXPECT_THAT(draws, Each(testing::HasSubstr("effect second.fx,")));
    const Lines end = host().journal.linesOf({"released(second.fx)", "released(renderer", "endTest"});
    EXPECT_THAT(end, ElementsAre("released(second.fx)", "released(renderer of created 1)", "endTest()"))
        << "the description goes first";
}

TEST_F(ShaderPerformance, LoadsTheShaderAgainThatIsGoneWhenItIsAskedForAgain)
{
    host().script.during("getPrimitivesRenderer", [] { effectRecord().effect.reset(); });
    GPUTests::shaderPerformanceTest(log);
    EXPECT_EQ(host().journal.count("loadEffectFile"), 1U);
    EXPECT_THAT(host().journal.linesOf({"drawImageEx"}), Each(drawing("created 1", "created 2")));
}

// Playback and render

TEST_F(Combined, PlaybackUploadsAndDrawsIntoANewImageEachTime)
{
    host().costs["uploadImage"] = 3000;
    GPUTests::combinedTestWithoutReadback(log);
    EXPECT_THAT(everything(),
                ElementsAre(heading("Testing playback performance"), "createHostImage(1920x1080, 0)",
                            "millisecondsPrecise()",
                            // the first
                            "uploadImage(1920x1080, 0, 0)", "createGPUImage(1920x1080, 0)",
                            "getPrimitivesRenderer(created 2, 1)", drawing("created 2", "uploaded 1"),
                            "released(renderer of created 2)", "millisecondsPrecise()",
                            "released(uploaded 1)", "released(created 2)",
                            // the second, which exceeds the limit and is not counted
                            "uploadImage(1920x1080, 0, 0)", "createGPUImage(1920x1080, 0)",
                            "getPrimitivesRenderer(created 4, 1)", drawing("created 4", "uploaded 3"),
                            "released(renderer of created 4)", "millisecondsPrecise()",
                            "released(uploaded 3)", "released(created 4)",
                            // the rate
                            "millisecondsPrecise()", "WStringFromFloat(" + number(1 / 6.0) + ", 2, true)",
                            result(number(1 / 6.0) + "fps"), "released(host image)", "endTest()"));
}

TEST_F(Combined, RenderReadsEachResultBackAndReleasesItAtOnce)
{
    host().costs["downloadImage"] = 6000;
    GPUTests::combinedTestWithReadBack(log);
    EXPECT_THAT(everything(),
                ElementsAre(heading("Testing render performance"), "createHostImage(1920x1080, 0)",
                            "millisecondsPrecise()", "uploadImage(1920x1080, 0, 0)",
                            "createGPUImage(1920x1080, 0)", "getPrimitivesRenderer(created 2, 1)",
                            drawing("created 2", "uploaded 1"), "released(renderer of created 2)",
                            "downloadImage(1920x1080, 0)", "released(host image)", "millisecondsPrecise()",
                            "released(uploaded 1)", "released(created 2)", "millisecondsPrecise()",
                            "WStringFromFloat(0, 2, true)", result("0fps"), "released(host image)",
                            "endTest()"));
}

TEST_F(Combined, StopsAt2000Frames)
{
    host().costs["drawImageEx"] = 2;
    GPUTests::combinedTest(log, true);
    EXPECT_EQ(host().journal.count("uploadImage"), 2000U);
    EXPECT_EQ(host().journal.count("downloadImage"), 2000U);
    EXPECT_THAT(logged(), ElementsAre(heading("Testing render performance"), result("500fps"), "endTest()"));
}

TEST_F(Combined, WithoutAShaderCreatesNoImages)
{
    effectRecord().effect.reset();
    host().compileErrors[L"/shaders/cc3.fx"] = "cc3.fx:1: error";
    host().recordClock = false;
    host().journal.clear();
    for (const bool readBack : {false, true}) {
        GPUTests::combinedTest(log, readBack);
    }
    EXPECT_THAT(everything(), ElementsAre(heading("Testing playback performance"), loading,
                                          failure("Failed to load shader"), "endTest()",
                                          heading("Testing render performance"), loading,
                                          failure("Failed to load shader"), "endTest()"));
}

TEST_F(Combined, WithoutAHostImageSaysTestImages)
{
    host().script.fail("createHostImage");
    GPUTests::combinedTest(log, true);
    EXPECT_THAT(everything(),
                ElementsAre(heading("Testing render performance"), "createHostImage(1920x1080, 0)",
                            failure("Failed to create test images"), "endTest()"));
}

TEST_F(Combined, AFirstUploadThatFailsStopsAfterTheFirstIterationWithoutARate)
{
    host().script.fail("uploadImage");
    GPUTests::combinedTest(log, true);
    EXPECT_THAT(everything(),
                ElementsAre(heading("Testing render performance"), "createHostImage(1920x1080, 0)",
                            "millisecondsPrecise()", "uploadImage(1920x1080, 0, 0)",
                            "createGPUImage(1920x1080, 0)", "millisecondsPrecise()", "released(created 1)",
                            failure("Failed"), "released(host image)", "endTest()"));
}

TEST_F(Combined, ATargetThatCannotBeCreatedIsAFailure)
{
    host().script.fail("createGPUImage");
    GPUTests::combinedTest(log, false);
    EXPECT_THAT(everything(),
                ElementsAre(heading("Testing playback performance"), "createHostImage(1920x1080, 0)",
                            "millisecondsPrecise()", "uploadImage(1920x1080, 0, 0)",
                            "createGPUImage(1920x1080, 0)", "millisecondsPrecise()", "released(uploaded 1)",
                            failure("Failed"), "released(host image)", "endTest()"));
}

TEST_F(Combined, ATargetThatCannotBeDrawnIntoIsAFailure)
{
    host().script.fail("getPrimitivesRenderer");
    GPUTests::combinedTest(log, true);
    EXPECT_EQ(host().journal.count("uploadImage"), 1U);
    EXPECT_EQ(host().journal.count("downloadImage"), 0U);
    EXPECT_THAT(logged(), Contains(failure("Failed")));
}

TEST_F(Combined, DoesNotLookAtWhatDrawsAndDownloadsAnswer)
{
    host().costs["uploadImage"] = 1;
    host().script.fail("drawImageEx");
    host().script.fail("downloadImage");
    GPUTests::combinedTest(log, true);
    EXPECT_EQ(host().journal.count("downloadImage"), 2000U);
    EXPECT_THAT(logged(), Contains(result("1000fps")));
}

TEST_F(Combined, LetsGoOfTheShaderAfterLookingForIt)
{
    bool alone = false;
    host().script.during("createHostImage", [&alone] { alone = effectRecord().effect.isSoleOwner(); });
    GPUTests::combinedTest(log, false);
    EXPECT_TRUE(alone);
}

TEST_F(Combined, AsksForTheShaderAgainInEveryIterationOnceTheRendererIsThere)
{
    host().costs["uploadImage"] = 2000;
    host().script.during("getPrimitivesRenderer", [] {
        const std::string name = std::to_string(host().journal.count("getPrimitivesRenderer")) + ".fx";
        replaceEffect(name.c_str());
    });
    GPUTests::combinedTest(log, false);
    const Lines draws = host().journal.linesOf({"drawImageEx"});
    ASSERT_EQ(draws.size(), 3U);
    for (std::size_t i = 0; i < draws.size(); ++i) {
        EXPECT_THAT(draws[i], testing::HasSubstr("effect " + std::to_string(i + 1) + ".fx,"));
    }
}

TEST_F(Combined, LooksTheEffectUpOnceAndOutsideTheTime)
{
    effectRecord().effect.reset();
    host().costs = {{"loadEffectFile", 9000}, {"createHostImage", 9000}, {"uploadImage", 1}};
    GPUTests::combinedTest(log, false);
    EXPECT_EQ(host().journal.count("loadEffectFile"), 1U);
    EXPECT_THAT(logged(), Contains(result("1000fps")));
}

// The whole suite

TEST_F(WholeSuite, RunsInItsOrderUnderLifeSupport)
{
    host().memory = {1, 2, 3};
    host().costs = {{"uploadImage", 0.5}, {"downloadImage", 0.5}, {"drawImageEx", 1}};
    GPUTests::runAllTests(log);
    EXPECT_THAT(host().journal.linesOf({"SystemWatchdog", "logLine", "beginTests", "endTest"}),
                ElementsAre("SystemWatchdog::beginLifeSupport()", result("Memory : 3 bytes / 2 bytes"),
                            result("CPUs   : 8"), result("Admin  : Yes"), "beginTests(5)",
                            heading("Testing host to GPU transfer"), result("2000fps"), "endTest()",
                            heading("Testing GPU to host transfer"), result("2000fps"), "endTest()",
                            heading("Testing shader performance"), result("1000fps"), "endTest()",
                            heading("Testing playback performance"), result(number(2000.0 / 3) + "fps"),
                            "endTest()", heading("Testing render performance"), result("500fps"), "endTest()",
                            "endTests()", heading("Tests complete"), "SystemWatchdog::endLifeSupport()"));
    EXPECT_EQ(everything().front(), "SystemWatchdog::beginLifeSupport()");
    EXPECT_EQ(everything().back(), "SystemWatchdog::endLifeSupport()");
}

TEST_F(WholeSuite, GoesOnAfterEveryTestThatFails)
{
    for (const char* operation : {"createHostImage", "createGPUImage"}) {
        host().script.fail(operation);
    }
    GPUTests::runAllTests(log);
    const Lines lines = logged();
    EXPECT_THAT(
        Lines(lines.begin() + 3, lines.end()),
        ElementsAre(
            "beginTests(5)", heading("Testing host to GPU transfer"), failure("Failed to create test image"),
            "endTest()", heading("Testing GPU to host transfer"), failure("Failed to create test image"),
            "endTest()", heading("Testing shader performance"), failure("Failed to create test images"),
            "endTest()", heading("Testing playback performance"), failure("Failed to create test images"),
            "endTest()", heading("Testing render performance"), failure("Failed to create test images"),
            "endTest()", "endTests()", heading("Tests complete")));
    EXPECT_EQ(everything().back(), "SystemWatchdog::endLifeSupport()");
}

TEST_F(WholeSuite, GoesOnWithADeviceThatDiesAtThe37thUpload)
{
    std::size_t uploads = 0;
    host().script.during("uploadImage", [&uploads] {
        if (++uploads == 36) {
            for (const char* operation : {"uploadImage", "downloadImage", "createGPUImage"}) {
                host().script.fail(operation);
            }
        }
    });
    GPUTests::runAllTests(log);
    EXPECT_EQ(uploads, 37U + 2U) << "playback and render try one each";
    const Lines lines = logged();
    EXPECT_THAT(Lines(lines.begin() + 3, lines.end()),
                ElementsAre("beginTests(5)", heading("Testing host to GPU transfer"), failure("Failed"),
                            "endTest()", heading("Testing GPU to host transfer"),
                            failure("Failed to create test image"), "endTest()",
                            heading("Testing shader performance"), failure("Failed to create test images"),
                            "endTest()", heading("Testing playback performance"), failure("Failed"),
                            "endTest()", heading("Testing render performance"), failure("Failed"),
                            "endTest()", "endTests()", heading("Tests complete")));
}

TEST_F(WholeSuite, MeasuresADeviceThatGetsSlowerEachFrame)
{
    // The k-th upload takes k ms: 99 of them take 4950 ms, and the hundredth ends at 5050 ms.
    double cost = 0;
    host().script.during("uploadImage", [&cost] { host().pass(++cost); });
    GPUTests::hostToGPUTransferTest(log);
    EXPECT_THAT(logged(), Contains(result(number(99 / 5.05) + "fps")));
}

} // namespace Qx::Test
