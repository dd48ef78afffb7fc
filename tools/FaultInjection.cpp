#include "tools/FaultInjection.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>
#include <unistd.h>

namespace Qx::FaultInjection {

namespace {

[[noreturn]] void spin()
{
    for (volatile unsigned n = 0;;) {
        n = n + 1;
    }
}

} // namespace

Fault faultFrom(const char* variable)
{
    const char* value = std::getenv(variable); // NOLINT(concurrency-mt-unsafe): nothing sets variables
    const std::string text = value != nullptr ? value : "";
    const std::size_t first = std::min(text.find(':'), text.size());
    const std::size_t second = std::min(text.find(':', first + 1), text.size());
    return {text.substr(0, first), first < text.size() ? text.substr(first + 1, second - first - 1) : "",
            second < text.size() ? text.substr(second + 1) : ""};
}

void inject(std::string_view action)
{
    if (action == "stall") {
        stall();
    } else if (action == "spin") {
        spin();
    } else if (action == "crash") {
        std::signal(SIGABRT, SIG_DFL);
        std::abort();
    } else if (action == "kill") {
        std::raise(SIGKILL);
    } else if (action == "exit") {
        constexpr int code = 3;
        ::_exit(code);
    }
}

void stall()
{
    for (;;) {
        std::this_thread::sleep_for(std::chrono::hours(1));
    }
}

} // namespace Qx::FaultInjection
