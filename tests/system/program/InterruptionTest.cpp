#include "tools/qxhost/console/Interruption.h"
#include "tools/qxhost/console/ExitCode.h"
#include "tools/qxhost/console/FailureReport.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <system_error>
#include <unistd.h>

namespace Qx::Program {

namespace {

constexpr int interruptedCode = static_cast<int>(ExitCode::interrupted);

void tellRemoval()
{
    [[maybe_unused]] const ssize_t written = ::write(2, "removed;", 8);
}

/// Work that cannot be broken off. A test that would wait for ever is ended by a signal instead.
void workOn()
{
    ::alarm(20);
    while (true) {
        ::pause();
    }
}

TEST(Interruption, does_not_wait_for_work_that_does_not_end)
{
    const auto program = [] {
        const Interruption interruption([] { std::fputs("stopped;", stderr); }, tellRemoval,
                                        [] { std::fputs("late;", stderr); }, std::chrono::milliseconds(10));
        std::raise(SIGTERM);
        workOn();
    };
    EXPECT_EXIT(program(), testing::ExitedWithCode(interruptedCode), "stopped;late;removed;");
}

TEST(Interruption, lets_work_end_that_does)
{
    const auto program = [] {
        {
            const Interruption interruption([] {}, tellRemoval, [] { std::fputs("late;", stderr); });
            std::raise(SIGTERM);
        }
        std::fputs("done;", stderr);
        std::_Exit(7);
    };
    EXPECT_EXIT(program(), testing::ExitedWithCode(7), "^done;$");
}

TEST(Failures, for_want_of_a_thread_say_what_to_do)
{
    const std::system_error error(std::make_error_code(std::errc::resource_unavailable_try_again));
    EXPECT_NE(failureText(error).find("ulimit -u"), std::string::npos) << failureText(error);
    EXPECT_EQ(failureText(std::runtime_error("something else")), "something else");
}

} // namespace

} // namespace Qx::Program
