#include "tools/qxfxc/TestAid.h"

#include "host/cache/Bytes.h"
#include "host/effects/worker/Protocol.h"
#include "tools/qxfxc/Worker.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace Qx::Host::Worker {

namespace {

struct Order
{
    std::string stage;
    std::string action;
    std::string file;
};

Order orderOfEnvironment()
{
    const char* value = std::getenv("QXFXC_TEST"); // NOLINT(concurrency-mt-unsafe): nobody sets variables
    const std::string text = value != nullptr ? value : "";
    const std::size_t first = std::min(text.find(':'), text.size());
    const std::size_t second = std::min(text.find(':', first + 1), text.size());
    return {text.substr(0, first), first < text.size() ? text.substr(first + 1, second - first - 1) : "",
            second < text.size() ? text.substr(second + 1) : ""};
}

void sendRaw(std::span<const std::byte> bytes)
{
    static_cast<void>(::send(hostSocket, bytes.data(), bytes.size(), MSG_NOSIGNAL));
}

[[noreturn]] void stall()
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

[[noreturn]] void takeMemory()
{
    constexpr std::size_t block = std::size_t{16} << 20U;
    for (;;) {
        if (void* memory = std::malloc(block)) {
            std::memset(memory, 1, block);
        }
    }
}

void waitForGate(const std::filesystem::path& file)
{
    constexpr std::chrono::milliseconds pause{5};
    while (!std::filesystem::exists(file.native() + ".go")) {
        std::this_thread::sleep_for(pause);
    }
}

void chatter()
{
    const std::string line(1000, 'x');
    for (int i = 0; i < 10'000; ++i) {
        std::puts(line.c_str());
        std::fputs(line.c_str(), stderr);
    }
    std::fflush(stdout);
}

[[noreturn]] void flood()
{
    Channel channel(::dup(hostSocket));
    while (channel.send(FrameType::Step, encode(Step{}))) {
    }
    stall();
}

[[noreturn]] void sendGarbage()
{
    constexpr std::string_view text = "This is what no host understands, and long enough for a header.";
    sendRaw(std::as_bytes(std::span(text)));
    stall();
}

/// The result that is none, or the announcement of one that is too long.
[[noreturn]] void sendResult(bool tooLong)
{
    constexpr std::uint32_t mark = 0x43467851;
    constexpr std::uint32_t most = 0xFFFFFFFF;
    Cache::ByteWriter bytes;
    bytes.number(mark);
    bytes.enumeration(FrameType::Result);
    bytes.number(tooLong ? most : std::uint32_t{sizeof most});
    bytes.number(most);
    sendRaw(bytes.bytes());
    stall();
}

} // namespace

void misbehave(std::string_view stage, const std::filesystem::path& file)
{
    static const Order& order = *new Order(orderOfEnvironment());
    const std::string& action = order.action;
    if (order.stage != stage || (!order.file.empty() && file.filename() != order.file)) {
        return;
    }
    std::fprintf(stderr, "%d %s\n", static_cast<int>(::getpid()), order.stage.c_str());
    std::fflush(stderr);
    if (action == "stall") {
        stall();
    } else if (action == "gate") {
        waitForGate(file);
    } else if (action == "spin") {
        spin();
    } else if (action == "freeze") {
        std::raise(SIGSTOP);
    } else if (action == "crash") {
        std::signal(SIGABRT, SIG_DFL);
        std::abort();
    } else if (action == "kill") {
        std::raise(SIGKILL);
    } else if (action == "exit") {
        constexpr int code = 3;
        ::_exit(code);
    } else if (action == "memory") {
        takeMemory();
    } else if (action == "chatter") {
        chatter();
    } else if (action == "flood") {
        flood();
    } else if (action == "garbage") {
        sendGarbage();
    } else if (action == "lie" || action == "boast") {
        sendResult(action == "boast");
    }
}

} // namespace Qx::Host::Worker
