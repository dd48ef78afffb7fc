#include "tests/host/worker/WorkerFixture.h"

#include <gmock/gmock.h>

#include <fstream>
#include <sys/stat.h>

namespace Qx::WorkerTests {

namespace {

struct Mischief
{
    const char* name;
    const char* order;
    const char* message; ///< after "FILE:1:1: error: ", as a regular expression
    std::chrono::milliseconds step{300};
};

void PrintTo(const Mischief& mischief, std::ostream* stream)
{
    *stream << mischief.order;
}

class HostileWorkerTest : public WorkerTest, public testing::WithParamInterface<Mischief>
{
};

TEST_P(HostileWorkerTest, CostsOneMessageAndTheNextEffectCompiles)
{
    options().limits.step = GetParam().step;
    options().limits.memoryBytes = std::uint64_t{1} << 30U;
    options().limits.resultBytes = std::size_t{1} << 20U;
    order(std::string(GetParam().order) + ":hostile.fx");
    const auto good = write("good.fx", effectText());
    const auto hostile = write("hostile.fx", effectText());
    const EffectCompilation before = compile(good);
    EXPECT_NE(before.effect, nullptr) << before.messages;
    const EffectCompilation failed = compile(hostile);
    EXPECT_EQ(failed.effect, nullptr);
    EXPECT_THAT(failed.messages,
                testing::MatchesRegex(".*/hostile.fx:1:1: error: " + std::string(GetParam().message) + "\n"));
    const EffectCompilation after = compile(good);
    EXPECT_NE(after.effect, nullptr) << after.messages;
    const bool killed = std::string(GetParam().order).ends_with(":kill"); // and so tried twice
    EXPECT_EQ(workers().processesStarted(), killed ? 3U : 2U);
    EXPECT_TRUE(log().empty());
}

INSTANTIATE_TEST_SUITE_P(
    , HostileWorkerTest,
    testing::Values(
        Mischief{"Crash", "compiling:crash", "the worker process crashed .SIGABRT. while compiling"},
        Mischief{"Kill", "compiling:kill",
                 "the worker process was killed from outside .SIGKILL. while compiling, twice; .* try again"},
        Mischief{"KillWhenRead", "parsing:kill",
                 "the worker process was killed from outside .SIGKILL. while compiling, twice; .* try again"},
        Mischief{"KillAtTheEnd", "answering:kill",
                 "the worker process was killed from outside .SIGKILL. while compiling, twice; .* try again"},
        Mischief{"Exit", "compiling:exit",
                 "the worker process ended by itself .exit code 3. while compiling"},
        Mischief{"Spin", "compiling:spin",
                 "the worker process did not end within .* and was stopped while compiling; .*, or raise the "
                 "setting effects.seconds"},
        Mischief{
            "Stall", "compiling:stall",
            "the worker process did not end within 7200 ms and was stopped while compiling; the machine may "
            "be busy: try again, or raise the setting effects.seconds"},
        Mischief{
            "Memory", "compiling:memory",
            "the worker process took more than 1024 MiB of memory and was stopped while compiling; simplify "
            "it, or raise the setting effects.memory",
            std::chrono::seconds(10)}, // sanitizers are slow with so much memory
        Mischief{"Flood", "compiling:flood",
                 "the worker process sent an invalid answer and was stopped while compiling\n"
                 "  in technique 't+', pass 'p+'"},
        Mischief{"Garbage", "compiling:garbage",
                 "the worker process sent an invalid answer and was stopped while compiling"},
        Mischief{"Lie", "compiling:lie",
                 "the worker process sent an invalid answer and was stopped while compiling"},
        Mischief{"Boast", "compiling:boast",
                 "the worker process sent an invalid answer and was stopped while compiling"}),
    [](const auto& each) { return std::string(each.param.name); });

using EndlessShaderTest = WorkerTest;

TEST_F(EndlessShaderTest, IsSaidWithItsPlace)
{
    options().limits.step = std::chrono::milliseconds(300);
    order("shaders:spin:endless.fx");
    const auto file =
        write("endless.fx", "float4 f() : COLOR { return 1; }\n"
                            "technique Long\n{\n    pass P { PixelShader = compile ps_3_0 f(); }\n}\n");
    const EffectCompilation failed = compile(file);
    EXPECT_EQ(failed.effect, nullptr);
    EXPECT_THAT(
        failed.messages,
        testing::MatchesRegex(".*/endless.fx:4:43: error: the worker process did not end within .* of "
                              "processor time and was stopped while compiling; simplify its loops and "
                              "calls, or raise the setting effects.seconds\n  in technique 'Long', pass "
                              "'P'\n"));
    ASSERT_EQ(failed.diagnostics.size(), 1U);
    EXPECT_EQ(failed.diagnostics.front().at.line, 4U);
    EXPECT_EQ(failed.diagnostics.front().technique, "Long");
}

/// No worker starts: effects fail, and the log has one message.
class NoWorkerTest : public WorkerTest
{
protected:
    static constexpr const char* advice_ =
        "; install the program again, or correct the setting effects.worker";

    void expectNoWorker(const std::string& reason)
    {
        const auto file = write("good.fx", effectText());
        const std::string start = "the worker process does not start: ";
        for (int i = 0; i < 2; ++i) {
            const EffectCompilation compiled = compile(file);
            EXPECT_EQ(compiled.effect, nullptr);
            EXPECT_EQ(compiled.messages,
                      file.string() + ":1:1: error: it cannot be compiled: " + start + reason + "\n");
        }
        EXPECT_EQ(log(), std::vector<std::string>{"Effects cannot be compiled: " + start + reason});
    }
};

TEST_F(NoWorkerTest, ItIsNotThere)
{
    options().program = folder() / "nowhere";
    expectNoWorker(options().program.string() + ": No such file or directory" + advice_);
}

TEST_F(NoWorkerTest, ItIsNotExecutable)
{
    options().program = write("plain", "text");
    expectNoWorker(options().program.string() + ": Permission denied" + advice_);
}

TEST_F(NoWorkerTest, ItIsADirectory)
{
    options().program = folder();
    expectNoWorker(folder().string() + ": Permission denied" + advice_);
}

TEST_F(NoWorkerTest, ItIsAnotherProgram)
{
    options().program = "/bin/true";
    expectNoWorker(std::string("/bin/true: it ended by itself (exit code 0)") + advice_);
}

TEST_F(NoWorkerTest, ItWritesWithoutEnd)
{
    options().program = "/usr/bin/yes";
    expectNoWorker(std::string("/usr/bin/yes: it is not a worker of this version of the host") + advice_);
}

TEST_F(NoWorkerTest, ItCrashesBeforeItSaysWhatItIs)
{
    order("starting:crash");
    expectNoWorker(std::string(QX_TEST_WORKER) + ": it crashed (SIGABRT)" + advice_);
}

TEST_F(NoWorkerTest, ItCrashesAtTheStart)
{
    order("greeting:crash");
    expectNoWorker(std::string(QX_TEST_WORKER) + ": it crashed (SIGABRT)");
}

TEST_F(NoWorkerTest, ItIsKilledAtTheStartEachTime)
{
    order("greeting:kill");
    const EffectCompilation compiled = compile(write("good.fx", effectText()));
    EXPECT_EQ(compiled.effect, nullptr);
    EXPECT_THAT(compiled.messages,
                testing::MatchesRegex(".*/good.fx:1:1: error: it cannot be compiled: the worker process does "
                                      "not start: .*: it was killed from outside .SIGKILL., "
                                      "twice; .* try again\n"));
    EXPECT_EQ(log().size(), 1U);
}

TEST_F(NoWorkerTest, ItAnswersNonsenseAtTheStart)
{
    order("greeting:garbage");
    expectNoWorker(std::string(QX_TEST_WORKER) + ": it is not a worker of this version of the host");
}

TEST_F(NoWorkerTest, ItComesBackWhenTheProgramDoes)
{
    const auto file = write("good.fx", effectText());
    options().program = folder() / "qxfxc";
    EXPECT_EQ(compile(file).effect, nullptr);
    std::filesystem::create_symlink(QX_TEST_WORKER, folder() / "qxfxc");
    const EffectCompilation compiled = compile(file);
    EXPECT_NE(compiled.effect, nullptr) << compiled.messages;
}

} // namespace

} // namespace Qx::WorkerTests
