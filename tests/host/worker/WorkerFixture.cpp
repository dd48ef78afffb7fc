#include "tests/host/worker/WorkerFixture.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace Qx::WorkerTests {

namespace {

std::size_t openDescriptors()
{
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                                  std::filesystem::directory_iterator()));
}

} // namespace

void WorkerTest::SetUp()
{
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(test->test_suite_name()) + "-" + test->name();
    std::replace(name.begin(), name.end(), '/', '-');
    folder_ =
        std::filesystem::temp_directory_path() / ("qx-worker-" + std::to_string(::getpid()) + "-" + name);
    std::filesystem::create_directories(folder_);
    options_.program = QX_TEST_WORKER;
    options_.log = [this](const std::string& line) {
        const std::lock_guard lock(logMutex_);
        log_.push_back(line);
    };
    descriptors_ = openDescriptors();
}

void WorkerTest::TearDown()
{
    workers_.reset();
    ::unsetenv("QXFXC_TEST");
    ::unsetenv("QXFXC_LOG");
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a process is left";
    EXPECT_EQ(openDescriptors(), descriptors_);
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

EffectWorkers& WorkerTest::workers()
{
    if (workers_ == nullptr) {
        workers_ = std::make_unique<EffectWorkers>(options_);
    }
    return *workers_;
}

void WorkerTest::order(const std::string& text)
{
    ::setenv("QXFXC_TEST", text.c_str(), 1);
}

std::filesystem::path WorkerTest::write(const std::string& name, const std::string& text)
{
    std::ofstream(folder_ / name) << text;
    return folder_ / name;
}

CompileRequest WorkerTest::request(const std::filesystem::path& file) const
{
    return {file, folder_, {}};
}

std::vector<std::string> WorkerTest::log()
{
    const std::lock_guard lock(logMutex_);
    return log_;
}

std::string effectText(const std::string& value)
{
    return "float4 f() : COLOR { return " + value +
           "; }\ntechnique T { pass P { PixelShader = compile ps_3_0 f(); } }\n";
}

void await(const std::function<bool()>& condition)
{
    constexpr std::chrono::milliseconds pause{1};
    while (!condition()) {
        std::this_thread::sleep_for(pause);
    }
}

std::size_t lineCount(const std::string& text)
{
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

} // namespace Qx::WorkerTests
