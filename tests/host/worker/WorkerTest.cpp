#include "tests/host/worker/WorkerFixture.h"

#include "host/effects/archive/EffectArchive.h"

#include <array>
#include <csignal>
#include <fstream>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace Qx::WorkerTests {

namespace {

TEST_F(WorkerTest, AnEffectComesBackAsTheCompilerMadeIt)
{
    write("value.fxh", "static const float4 value = 0.25;\n");
    const auto file =
        write("good.fx", "#include \"value.fxh\"\nfloat gain = 2;\n" + effectText("value * gain"));
    const EffectCompilation compiled = compile(file);
    ASSERT_NE(compiled.effect, nullptr) << compiled.messages;
    EXPECT_EQ(writeEffectArchive(compiled), writeEffectArchive(compileEffect(file, {})));
}

TEST_F(WorkerTest, MessagesAreTheCompilersOwn)
{
    const auto file = write("bad.fx", effectText("nothing"));
    const EffectCompilation compiled = compile(file);
    EXPECT_EQ(compiled.effect, nullptr);
    EXPECT_EQ(compiled.messages, compileEffect(file, {}).messages);
}

TEST_F(WorkerTest, RelativeNamesStartFromTheRequestsDirectory)
{
    write("here.fx", effectText());
    EXPECT_NE(compile("here.fx").effect, nullptr);
    CompileRequest elsewhere = request("here.fx");
    elsewhere.directory = "/";
    EXPECT_EQ(workers().compile(elsewhere).effect, nullptr);
}

TEST_F(WorkerTest, DefinitionsAndIncludeDirectoriesArrive)
{
    std::filesystem::create_directory(folder() / "far");
    write("far/value.fxh", "#define AGAIN VALUE\n");
    CompileRequest wanted = request(write("good.fx", "#include \"value.fxh\"\n" + effectText("AGAIN")));
    EXPECT_EQ(workers().compile(wanted).effect, nullptr);
    wanted.options.includeDirectories = {folder() / "far"};
    wanted.options.definitions = {{"VALUE", "0.5"}};
    const EffectCompilation compiled = workers().compile(wanted);
    EXPECT_NE(compiled.effect, nullptr) << compiled.messages;
}

TEST_F(WorkerTest, OneProcessServesOneEffectAfterAnother)
{
    for (int i = 0; i < 4; ++i) {
        EXPECT_NE(compile(write(std::to_string(i) + ".fx", effectText())).effect, nullptr);
    }
    EXPECT_EQ(workers().processesStarted(), 1U);
    EXPECT_EQ(workers().compilations(), 4U);
}

TEST_F(WorkerTest, TwoThreadsThatWantOneEffectCompileItOnce)
{
    order("compiling:gate");
    const auto file = write("good.fx", effectText());
    EffectCompilation first;
    EffectCompilation second;
    EffectWorkers& both = workers();
    std::thread one([&] { first = both.compile(request(file)); });
    await([&] { return both.compilations() == 1; });
    std::thread other([&] { second = both.compile(request(file)); });
    await([&] { return both.joined() == 1; });
    write("good.fx.go", "");
    one.join();
    other.join();
    EXPECT_EQ(both.compilations(), 1U);
    ASSERT_NE(first.effect, nullptr) << first.messages;
    EXPECT_EQ(first.effect, second.effect);
}

TEST_F(WorkerTest, RequestsForDifferentEffectsDoNotWaitForEachOther)
{
    order("compiling:gate:slow.fx");
    const auto slow = write("slow.fx", effectText());
    EffectCompilation late;
    EffectWorkers& both = workers();
    std::thread one([&] { late = both.compile(request(slow)); });
    await([&] { return both.compilations() == 1; });
    EXPECT_NE(compile(write("quick.fx", effectText())).effect, nullptr);
    write("slow.fx.go", "");
    one.join();
    EXPECT_NE(late.effect, nullptr) << late.messages;
}

TEST_F(WorkerTest, ClosingEndsARequestThatIsUnderWay)
{
    order("compiling:stall");
    const auto file = write("good.fx", effectText());
    EffectCompilation compiled;
    EffectWorkers& closing = workers();
    std::thread one([&] { compiled = closing.compile(request(file)); });
    await([&] { return closing.processesStarted() == 1; });
    closing.close();
    one.join();
    EXPECT_EQ(compiled.effect, nullptr);
    EXPECT_EQ(compiled.messages, file.string() + ":1:1: error: the host is shutting down\n");
    EXPECT_EQ(closing.compile(request(file)).effect, nullptr);
}

/// Waits until a worker has written its process id and the stage that it has reached, and returns the id.
pid_t reached(const std::filesystem::path& log)
{
    pid_t worker = 0;
    std::string stage;
    await([&] { return static_cast<bool>(std::ifstream(log) >> worker >> stage); });
    return worker;
}

TEST_F(WorkerTest, AWorkerThatSomethingElseKilledIsReplacedAndTheEffectCompiles)
{
    for (const int signal : {SIGKILL, SIGTERM}) {
        const std::string name = "compiling" + std::to_string(signal);
        const auto log = folder() / (name + ".log");
        ::setenv("QXFXC_LOG", log.c_str(), 1);
        order("compiling:gate"); // the second worker waits there too
        const auto file = write(name + ".fx", effectText());
        closeWorkers();
        EffectWorkers& theirs = workers();
        EffectCompilation compiled;
        std::thread one([&] { compiled = theirs.compile(request(file)); });
        ::kill(reached(log), signal);
        write(name + ".fx.go", "");
        one.join();
        EXPECT_NE(compiled.effect, nullptr) << name << ": " << compiled.messages;
        EXPECT_EQ(this->log().size(), 0U);
    }
}

TEST_F(WorkerTest, OneThatIsKilledWhileItGreetsTheHostIsReplacedAndTheEffectCompiles)
{
    const auto log = folder() / "greeting.log";
    ::setenv("QXFXC_LOG", log.c_str(), 1);
    order("greeting:gate"); // the second worker waits there too, for a file in this directory
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder());
    const auto file = write("good.fx", effectText());
    EffectWorkers& theirs = workers();
    EffectCompilation compiled;
    std::thread one([&] { compiled = theirs.compile(request(file)); });
    ::kill(reached(log), SIGKILL);
    write(".go", "");
    one.join();
    std::filesystem::current_path(before);
    EXPECT_NE(compiled.effect, nullptr) << compiled.messages;
    EXPECT_EQ(theirs.processesStarted(), 1U) << "the killed one never served";
    EXPECT_EQ(this->log().size(), 0U);
}

TEST_F(WorkerTest, AFileSizeLimitDoesNotEndAWorker)
{
    order("compiling:overrun");
    const EffectCompilation compiled = compile(write("good.fx", effectText()));
    EXPECT_NE(compiled.effect, nullptr) << compiled.messages;
}

TEST_F(WorkerTest, AProcessThatWentWhileItWaitedCostsNothing)
{
    order("waiting:exit");
    for (int i = 0; i < 3; ++i) {
        const EffectCompilation compiled = compile(write(std::to_string(i) + ".fx", effectText()));
        EXPECT_NE(compiled.effect, nullptr) << compiled.messages;
    }
    EXPECT_EQ(log().size(), 0U);
}

TEST_F(WorkerTest, AGrownProcessIsReplaced)
{
    options().limits.memoryBytes = 0; // every process exceeds it at once
    const EffectCompilation compiled = compile(write("good.fx", effectText()));
    EXPECT_EQ(compiled.effect, nullptr);
    EXPECT_NE(compiled.messages.find("took more than 0 MiB of memory"), std::string::npos)
        << compiled.messages;
}

TEST_F(WorkerTest, ItHoldsNoneOfTheHostsDescriptors)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0); // not closed on exec
    EXPECT_NE(compile(write("good.fx", effectText())).effect, nullptr);
    ::close(ends[1]);
    char byte = 0;
    EXPECT_EQ(::read(ends[0], &byte, 1), 0); // would wait forever if the worker had the other end
    ::close(ends[0]);
}

TEST_F(WorkerTest, ChatterDoesNotReachTheHostsOutput)
{
    order("compiling:chatter");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const EffectCompilation compiled = compile(write("good.fx", effectText()));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_NE(compiled.effect, nullptr) << compiled.messages;
}

/// Whether a process runs; a zombie does not.
bool runs(int process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/stat");
    std::string text;
    return std::getline(status, text) && text.find(") Z ") == std::string::npos;
}

TEST_F(WorkerTest, OneThatWasStoppedGoesOn)
{
    for (const char* stage : {"starting:freeze", "greeting:freeze", "compiling:freeze", "answering:freeze"}) {
        closeWorkers();
        order(stage);
        const EffectCompilation compiled = compile(write("good.fx", effectText()));
        EXPECT_NE(compiled.effect, nullptr) << stage << ": " << compiled.messages;
        EXPECT_EQ(workers().processesStarted(), 1U) << stage;
    }
}

class OrphanTest : public WorkerTest, public testing::WithParamInterface<const char*>
{
};

TEST_P(OrphanTest, EndsWhenTheHostIsGone)
{
    const auto file = write("good.fx", effectText());
    const auto log = folder() / "worker.log";
    ::setenv("QXFXC_LOG", log.c_str(), 1);
    order(GetParam());
    std::string program = QX_TEST_ORPHAN;
    std::string worker = QX_TEST_WORKER;
    std::string effect = file.string();
    const std::array<char*, 4> arguments{program.data(), worker.data(), effect.data(), nullptr};
    pid_t host = 0;
    ASSERT_EQ(::posix_spawn(&host, program.c_str(), nullptr, nullptr, arguments.data(), environ), 0);
    int process = 0;
    await([&] { return static_cast<bool>(std::ifstream(log) >> process); });
    EXPECT_TRUE(runs(process));
    ::kill(host, SIGKILL);
    ::waitpid(host, nullptr, 0);
    await([&] { return !runs(process); });
}

INSTANTIATE_TEST_SUITE_P(, OrphanTest,
                         testing::Values("starting:stall", "greeting:stall", "compiling:spin",
                                         "compiling:freeze"));

} // namespace

} // namespace Qx::WorkerTests
