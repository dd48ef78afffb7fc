#include "tools/qxhost/diagnose/TestAid.h"

#include "host/gpu/GPUService.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>
#include <unistd.h>

namespace Qx::Diagnosis {

namespace {

[[noreturn]] void hang()
{
    for (;;) {
        std::this_thread::sleep_for(std::chrono::hours(1));
    }
}

[[noreturn]] void spin()
{
    for (volatile unsigned n = 0;;) {
        n = n + 1;
    }
}

void misbehave(std::string_view action)
{
    if (action == "hang") {
        hang();
    } else if (action == "spin") {
        spin();
    } else if (action == "abort") {
        std::abort();
    } else if (action == "kill") {
        std::raise(SIGKILL);
    } else if (action == "exit") {
        constexpr int code = 3;
        ::_exit(code);
    } else if (action == "lose") {
        Host::gpuService().loseDevice();
    }
}

} // namespace

TestAid::TestAid()
{
    const char* value = std::getenv("QXHOST_DIAGNOSE_TEST"); // NOLINT(concurrency-mt-unsafe): nobody sets any
    const std::string text = value != nullptr ? value : "";
    const std::size_t first = std::min(text.find(':'), text.size());
    const std::size_t second = std::min(text.find(':', first + 1), text.size());
    step_ = text.substr(0, first);
    action_ = first < text.size() ? text.substr(first + 1, second - first - 1) : "";
    if (second < text.size()) {
        std::from_chars(text.data() + second + 1, text.data() + text.size(), number_);
    }
}

bool TestAid::permits(std::string_view step, std::uint64_t operation)
{
    if (step_ != step) {
        return true;
    }
    if (action_ == "slow") {
        constexpr std::chrono::microseconds unit{100};
        std::this_thread::sleep_for(unit * (operation * number_));
        return true;
    }
    if (action_ == "fail") {
        return operation < number_;
    }
    if (operation == number_) {
        misbehave(action_);
    }
    return true;
}

} // namespace Qx::Diagnosis
