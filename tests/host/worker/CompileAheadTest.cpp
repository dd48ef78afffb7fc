#include "tests/host/worker/WorkerFixture.h"

#include <thread>

namespace Qx::WorkerTests {

namespace {

class CompileAheadTest : public WorkerTest
{
protected:
    /// Three effects, compiled ahead: three compilations.
    void compileThreeAhead()
    {
        write("value.fxh", "#define VALUE 0.25\n");
        for (const char* name : {"a.fx", "b.fx", "c.fx"}) {
            write(name, "#include \"value.fxh\"\n" + effectText("VALUE"));
        }
        workers().compileAhead(
            {request(folder() / "a.fx"), request(folder() / "b.fx"), request(folder() / "c.fx")});
        await([this] { return workers().compilations() == 3; });
    }
};

TEST_F(CompileAheadTest, WhatIsAskedForIsThereAlready)
{
    compileThreeAhead();
    for (const char* name : {"a.fx", "b.fx", "c.fx"}) {
        const EffectCompilation compiled = compile(folder() / name);
        EXPECT_NE(compiled.effect, nullptr) << compiled.messages;
    }
    EXPECT_EQ(workers().compilations(), 3U);
}

TEST_F(CompileAheadTest, AResultIsHandedOutOnce)
{
    compileThreeAhead();
    compile(folder() / "a.fx");
    compile(folder() / "a.fx");
    EXPECT_EQ(workers().compilations(), 4U);
}

TEST_F(CompileAheadTest, AnEditedFileIsCompiledAgain)
{
    compileThreeAhead();
    write("a.fx", effectText("oops"));
    EXPECT_EQ(compile(folder() / "a.fx").effect, nullptr);
    EXPECT_EQ(workers().compilations(), 4U);
    EXPECT_NE(compile(folder() / "b.fx").effect, nullptr);
    EXPECT_EQ(workers().compilations(), 4U);
}

TEST_F(CompileAheadTest, AnEditedIncludeCountsToo)
{
    compileThreeAhead();
    write("value.fxh", "#define VALUE oops\n");
    EXPECT_EQ(compile(folder() / "a.fx").effect, nullptr);
    EXPECT_EQ(workers().compilations(), 4U);
}

TEST_F(CompileAheadTest, OtherDefinitionsAreAnotherRequest)
{
    compileThreeAhead();
    CompileRequest other = request(folder() / "a.fx");
    other.options.definitions = {{"_LENGTH", "1"}};
    EXPECT_NE(workers().compile(other).effect, nullptr);
    EXPECT_EQ(workers().compilations(), 4U);
}

TEST_F(CompileAheadTest, ABrokenEffectSaysNothingUntilItIsAskedFor)
{
    const auto file = write("bad.fx", effectText("oops"));
    workers().compileAhead({request(file)});
    await([this] { return workers().compilations() == 1; });
    EXPECT_TRUE(log().empty());
    EXPECT_EQ(compile(file).messages, compileEffect(file, {}).messages);
    EXPECT_EQ(workers().compilations(), 1U);
}

TEST_F(CompileAheadTest, WhatNoWorkerSurvivesIsNotTriedAgain)
{
    order("parsing:crash:bad.fx");
    write("value.fxh", "#define VALUE 0.25\n");
    const auto file = write("bad.fx", "#include \"value.fxh\"\n" + effectText("VALUE"));
    workers().compileAhead({request(file)});
    await([this] { return workers().compilations() == 1; });
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(compile(file).messages,
                  file.string() + ":1:1: error: the worker process crashed (SIGABRT) while compiling\n");
    }
    EXPECT_EQ(workers().compilations(), 1U);
    write("value.fxh", "#define VALUE 0.5\n");
    EXPECT_EQ(lineCount(compile(file).messages), 1U);
    EXPECT_EQ(workers().compilations(), 2U);
    EXPECT_TRUE(log().empty());
}

TEST_F(CompileAheadTest, WhatSomebodyKilledIsTriedAgain)
{
    order("parsing:kill:bad.fx");
    const auto file = write("bad.fx", effectText());
    workers().compileAhead({request(file)});
    await([this] { return workers().compilations() == 1; });
    compile(file); // may have joined the running compilation
    EXPECT_EQ(lineCount(compile(file).messages), 1U);
    EXPECT_GE(workers().compilations(), 2U);
}

TEST_F(CompileAheadTest, WhatNoWorkerCouldReadIsTriedAgain)
{
    order("compiling:crash:bad.fx");
    const auto file = write("bad.fx", effectText());
    workers().compileAhead({request(file)});
    await([this] { return workers().compilations() == 1; });
    EXPECT_EQ(lineCount(compile(file).messages), 1U);
    EXPECT_TRUE(log().empty());
}

TEST_F(CompileAheadTest, ARequestGoesBeforeWhatWaits)
{
    options().cores = 1;
    order("compiling:gate:a.fx");
    const auto a = write("a.fx", effectText());
    const auto z = write("z.fx", effectText());
    workers().compileAhead({request(a), request(z)});
    await([this] { return workers().compilations() == 1; });
    EXPECT_NE(compile(z).effect, nullptr); // while the only core is busy
    write("a.fx.go", "");
    EXPECT_NE(compile(a).effect, nullptr);
    EXPECT_EQ(workers().compilations(), 2U);
}

TEST_F(CompileAheadTest, ClosingDoesNotWaitForIt)
{
    order("compiling:stall");
    std::vector<CompileRequest> requests;
    for (int i = 0; i < 20; ++i) {
        requests.push_back(request(write(std::to_string(i) + ".fx", effectText())));
    }
    workers().compileAhead(requests);
    await([this] { return workers().compilations() > 0; });
    closeWorkers();
}

} // namespace

} // namespace Qx::WorkerTests
