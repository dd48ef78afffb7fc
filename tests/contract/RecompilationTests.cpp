#include "QxFxResources/Manager.h"
#include "tests/contract/recording/LibraryTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using namespace Qx::Test;
using Qx::FxResources::Manager;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class Recompilation : public LibraryTest
{
protected:
    /// Starts the library with a.fx and B.fx, stamps 1 and 2, and compiles both.
    void SetUp() override
    {
        LibraryTest::SetUp();
        host().addFile(L"/shaders/", L"a.fx", 1);
        host().addFile(L"/templates/", L"B.fx", 2);
        Manager::instance();
        runTasks();
        host().journal.clear();
    }

    static std::vector<std::string> printed() { return host().journal.linesOf({"vexo_printf", "Log"}); }
};

} // namespace

TEST_F(Recompilation, OfAnUnchangedTreeCompilesAndPrintsNothing)
{
    Manager::instance().recompileAll();
    EXPECT_THAT(host().journal.lines(), ElementsAre("getShadersDir()", "getFXTemplatesDirectory(0)",
                                                    "listDirectory(\"/shaders/*.fx\", 1, 0)",
                                                    "listDirectory(\"/templates/*.fx\", 1, 0)"));
}

TEST_F(Recompilation, OfAnEditedFilePassesNoDefinitionsAndPrintsOneLine)
{
    const Qx::Ptr<iShaderEffect> old = Manager::instance().findEffect(L"B.fx").getShader();
    host().addFile(L"/templates/", L"B.fx", 3);
    Manager::instance().recompileAll();
    EXPECT_THAT(
        host().journal.linesOf({"compileEffectFile", "loadEffectFile", "vexo_printf"}),
        ElementsAre("compileEffectFile(\"/templates/B.fx\", {})", "vexo_printf(\"Recompiled B.fx\\n\")"));
    EXPECT_TRUE(Manager::instance().effects()[1].effect);
    EXPECT_FALSE(Manager::instance().effects()[1].effect == old);
    EXPECT_EQ(Manager::instance().effects()[1].timeStamp, 3U);
    host().journal.clear();
    Manager::instance().recompileAll();
    EXPECT_THAT(printed(), IsEmpty());
}

TEST_F(Recompilation, TakesAnOlderStampForAChange)
{
    host().addFile(L"/templates/", L"B.fx", 1);
    Manager::instance().recompileAll();
    EXPECT_THAT(printed(), ElementsAre("vexo_printf(\"Recompiled B.fx\\n\")"));
    EXPECT_EQ(Manager::instance().effects()[1].timeStamp, 1U);
}

TEST_F(Recompilation, OfABrokenEditPrintsTheErrorsAndKeepsTheOldEffectAndStamp)
{
    const Qx::Ptr<iShaderEffect> old = Manager::instance().effects()[0].effect;
    host().addFile(L"/shaders/", L"a.fx", 7);
    host().compileErrors[L"/shaders/a.fx"] = "a.fx(2,5): error: no\na.fx(3,1): 100% wrong";
    Manager::instance().recompileAll();
    EXPECT_THAT(printed(),
                ElementsAre("vexo_printf(\"Failed to recompile a.fx\\n\")",
                            "vexo_printf(\"   a.fx(2,5): error: no\\na.fx(3,1): 100% wrong\\n\")"));
    EXPECT_EQ(Manager::instance().effects()[0].effect, old);
    EXPECT_EQ(Manager::instance().effects()[0].timeStamp, 1U);
    Manager::instance().recompileAll();
    EXPECT_THAT(printed(), SizeIs(4)) << "it is tried again";
}

TEST_F(Recompilation, ThatFailsWithoutErrorTextPrintsOneLine)
{
    host().addFile(L"/shaders/", L"a.fx", 7);
    host().script.fail("compileEffectFile");
    Manager::instance().recompileAll();
    EXPECT_THAT(printed(), ElementsAre("vexo_printf(\"Failed to recompile a.fx\\n\")"));
}

TEST_F(Recompilation, AppendsANewFileCompiledWithTheDefinitionsAndPrintsNothing)
{
    host().addFile(L"/shaders/", L"new.fx", 5);
    Manager::instance().recompileAll();
    EXPECT_THAT(host().journal.linesOf({"compileEffectFile", "loadEffectFile", "vexo_printf"}),
                ElementsAre("loadEffectFile(\"/shaders/new.fx\", {_OUTPUTWIDTH=1, _OUTPUTHEIGHT=1, "
                            "_OUTPUTASPECTRATIO=1, _PROGRESS=1, _OUTPUTFPS=1, _LENGTH=1, _LENGTHFRAMES=1})"));
    const auto& effects = Manager::instance().effects();
    ASSERT_THAT(effects, SizeIs(3));
    EXPECT_EQ(text(effects[2].name), "new.fx");
    EXPECT_EQ(text(effects[2].directory), "/shaders/");
    EXPECT_EQ(effects[2].timeStamp, 5U);
    EXPECT_TRUE(effects[2].effect);
}

TEST_F(Recompilation, LoadsANewFileAsAForegroundLoad)
{
    host().addFile(L"/shaders/", L"new.fx", 5);
    host().watchCountersIn(&Manager::instance(), sizeof(Manager));
    Manager::instance().recompileAll();
    EXPECT_THAT(host().journal.linesOf({"atomic", "loadEffectFile"}),
                ElementsAre("atomicIncrement() = 1",
                            testing::StartsWith("loadEffectFile(\"/shaders/new.fx\""),
                            "atomicDecrement() = 0"));
}

TEST_F(Recompilation, HoldsNoLockOfTheCatalogueWhileItReplacesAndAppends)
{
    host().addFile(L"/shaders/", L"a.fx", 7);
    host().addFile(L"/templates/", L"new.fx", 1);
    host().recordReleases = true;
    std::vector<std::string> depths;
    for (const std::string operation : {"compileEffectFile", "released", "vexo_printf", "loadEffectFile"}) {
        host().script.during(operation, [&depths, operation] {
            const int loading = depthOfLockEnteredBy([] { Manager::instance().waitForEffectsToLoad(); });
            const int record = depthOf(Manager::instance().effects()[0].lock);
            depths.push_back(operation + " " + std::to_string(loading) + " " + std::to_string(record));
        });
    }
    Manager::instance().recompileAll();
    EXPECT_THAT(depths, ElementsAre("compileEffectFile 0 0", "released 0 0", "vexo_printf 0 0",
                                    "loadEffectFile 0 0"));
    host().script.reset();
    EXPECT_THAT(Manager::instance().effects(), SizeIs(3));
}

TEST_F(Recompilation, DropsANewFileThatDoesNotCompile)
{
    host().addFile(L"/shaders/", L"n\u00E9w.fx", 5);
    host().compileErrors[L"/shaders/n\u00E9w.fx"] = "error";
    Manager::instance().recompileAll();
    EXPECT_THAT(printed(), ElementsAre("vexo_printf(\"Failed to compile n\u00E9w.fx\\n\")"));
    EXPECT_THAT(Manager::instance().effects(), SizeIs(2));
}

TEST_F(Recompilation, PrintsNamesInUtf8)
{
    host().addFile(L"/shaders/", L"\u4E2D\U0001F3A5.fx", 1);
    Manager::instance().recompileAll();
    host().addFile(L"/shaders/", L"\u4E2D\U0001F3A5.fx", 2);
    Manager::instance().recompileAll();
    EXPECT_THAT(printed(), ElementsAre("vexo_printf(\"Recompiled \u4E2D\U0001F3A5.fx\\n\")"));
}

TEST_F(Recompilation, KnowsAFileByNameAndDirectoryWhateverTheirLetterCase)
{
    host().removeFiles();
    host().shadersDirectory = L"/SHADERS/";
    host().addFile(L"/SHADERS/", L"A.FX", 1);
    Manager::instance().recompileAll();
    EXPECT_THAT(printed(), IsEmpty());
    EXPECT_THAT(Manager::instance().effects(), SizeIs(2));
    host().addFile(L"/SHADERS/", L"A.FX", 9);
    Manager::instance().recompileAll();
    EXPECT_THAT(
        host().journal.linesOf({"compileEffectFile", "vexo_printf"}),
        ElementsAre("compileEffectFile(\"/SHADERS/A.FX\", {})", "vexo_printf(\"Recompiled A.FX\\n\")"));
    EXPECT_EQ(text(Manager::instance().effects()[0].name), "a.fx") << "the record keeps its name";
}

TEST_F(Recompilation, TakesTheSameNameInTheOtherDirectoryForANewFile)
{
    host().addFile(L"/templates/", L"a.fx", 1);
    Manager::instance().recompileAll();
    ASSERT_THAT(Manager::instance().effects(), SizeIs(3));
    EXPECT_EQ(text(Manager::instance().effects()[2].directory), "/templates/");
    EXPECT_EQ(text(Manager::instance().findEffect(L"a.fx").directory), "/shaders/");
}

TEST_F(Recompilation, KeepsRecordsWhoseFilesAreGone)
{
    host().removeFiles();
    host().addFile(L"/shaders/", L"a.fx", 1);
    Manager::instance().recompileAll();
    EXPECT_THAT(Manager::instance().effects(), SizeIs(2));
    EXPECT_THAT(printed(), IsEmpty());
    host().removeFiles();
    Manager::instance().recompileAll();
    EXPECT_THAT(Manager::instance().effects(), SizeIs(2));
    EXPECT_EQ(host().journal.count("showMessage"), 0U);
}

TEST_F(Recompilation, GoesThroughTheFilesInScanOrder)
{
    host().removeFiles();
    host().addFile(L"/templates/", L"z.fx", 1);
    host().addFile(L"/templates/", L"B.fx", 9);
    host().addFile(L"/shaders/", L"y.fx", 1);
    host().addFile(L"/shaders/", L"a.fx", 9);
    host().compileErrors[L"/shaders/y.fx"] = "error";
    Manager::instance().recompileAll();
    EXPECT_THAT(printed(),
                ElementsAre("vexo_printf(\"Failed to compile y.fx\\n\")",
                            "vexo_printf(\"Recompiled a.fx\\n\")", "vexo_printf(\"Recompiled B.fx\\n\")"));
    ASSERT_THAT(Manager::instance().effects(), SizeIs(3));
    EXPECT_EQ(text(Manager::instance().effects()[2].name), "z.fx");
}

TEST_F(Recompilation, FillsARecordThatNeverCompiledOnceItsFileIsMended)
{
    Manager::shutdown(Shutdown::NormalExit);
    host().compileErrors[L"/shaders/a.fx"] = "error";
    Manager::instance();
    runTasks();
    ASSERT_FALSE(Manager::instance().effects()[0].effect);
    host().compileErrors.clear();
    host().addFile(L"/shaders/", L"a.fx", 8);
    host().journal.clear();
    Manager::instance().recompileAll();
    EXPECT_THAT(printed(), ElementsAre("vexo_printf(\"Recompiled a.fx\\n\")"));
    EXPECT_TRUE(Manager::instance().effects()[0].effect);
}

TEST_F(Recompilation, WaitsForTheFirstPass)
{
    Manager::shutdown(Shutdown::NormalExit);
    Manager::instance();
    const auto tasks = host().takeTasks();
    ASSERT_THAT(tasks, SizeIs(1));
    host().journal.clear();
    Gate compiling = host().script.hold("loadEffectFile");
    std::jthread background([&] { tasks[0]->run(); });
    ASSERT_TRUE(compiling.waitUntilReached());
    std::jthread again([] { Manager::instance().recompileAll(); });
    EXPECT_TRUE(waitForBlockedThreads(1));
    EXPECT_EQ(host().journal.count("getShadersDir"), 0U);
    compiling.release();
    background.join();
    again.join();
    EXPECT_EQ(host().journal.lines().back(), "listDirectory(\"/templates/*.fx\", 1, 0)");
}
