#include "tools/qxfxc/TestAid.h"

#include "host/cache/Bytes.h"
#include "host/effects/worker/Protocol.h"
#include "tools/FaultInjection.h"
#include "tools/qxfxc/Worker.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include <spirv/unified1/spirv.hpp>

namespace Qx::Host::Worker {

namespace {

void sendRaw(std::span<const std::byte> bytes)
{
    static_cast<void>(::send(hostSocket, bytes.data(), bytes.size(), MSG_NOSIGNAL));
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

/// Writes a file beyond the limit on file sizes, as a driver's cache may.
void overrun()
{
    const rlimit small{1, RLIM_INFINITY};
    ::setrlimit(RLIMIT_FSIZE, &small);
    if (std::FILE* file = std::tmpfile()) {
        std::fputs("more than a byte", file);
        std::fclose(file);
    }
}

[[noreturn]] void flood()
{
    Channel channel(::dup(hostSocket));
    const Step step{Stage::Compiling, std::string(256, 't'), std::string(256, 'p')};
    while (channel.send(FrameType::Step, encode(step))) {
    }
    FaultInjection::stall();
}

[[noreturn]] void sendGarbage()
{
    constexpr std::string_view text = "These bytes are no frame, and they are long enough for a header.";
    sendRaw(std::as_bytes(std::span(text)));
    FaultInjection::stall();
}

/// A result that is no archive, or the announcement of one that is too long.
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
    FaultInjection::stall();
}

const FaultInjection::Fault& wantedFault()
{
    static const auto& fault = *new FaultInjection::Fault(FaultInjection::faultFrom("QXFXC_TEST"));
    return fault;
}

} // namespace

std::vector<std::uint32_t> mistaken(std::vector<std::uint32_t> spirv)
{
    constexpr std::size_t headerWords = 5;
    const bool errs = wantedFault().where == "native" && wantedFault().action == "err";
    for (std::size_t i = headerWords; errs && i < spirv.size(); i += spirv[i] >> spv::WordCountShift) {
        if ((spirv[i] & spv::OpCodeMask) == spv::OpFAdd) {
            spirv[i] ^= static_cast<std::uint32_t>(spv::OpFAdd ^ spv::OpFSub);
        }
    }
    return spirv;
}

void injectFault(std::string_view stage, const std::filesystem::path& file)
{
    const FaultInjection::Fault& fault = wantedFault();
    const std::string& action = fault.action;
    if (fault.where != stage || (!fault.which.empty() && file.filename() != fault.which)) {
        return;
    }
    std::fprintf(stderr, "%d %s\n", static_cast<int>(::getpid()), fault.where.c_str());
    std::fflush(stderr);
    if (action == "gate") {
        waitForGate(file);
    } else if (action == "freeze") {
        std::raise(SIGSTOP);
    } else if (action == "memory") {
        takeMemory();
    } else if (action == "chatter") {
        chatter();
    } else if (action == "overrun") {
        overrun();
    } else if (action == "flood") {
        flood();
    } else if (action == "garbage") {
        sendGarbage();
    } else if (action == "lie" || action == "boast") {
        sendResult(action == "boast");
    } else {
        FaultInjection::inject(action);
    }
}

} // namespace Qx::Host::Worker
