#include "tools/qxfxc/Worker.h"

#include "host/effects/EffectArchive.h"
#include "host/effects/worker/Protocol.h"
#include "tools/qxfxc/Device.h"
#include "tools/qxfxc/TestAid.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <malloc.h>
#include <poll.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace Qx::Host::Worker {

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif

/// The address space that this process has taken, in bytes.
std::uint64_t addressSpace()
{
    unsigned long long pages = 0;
    if (std::FILE* file = std::fopen("/proc/self/statm", "re")) {
        if (std::fscanf(file, "%llu", &pages) != 1) {
            pages = 0;
        }
        std::fclose(file);
    }
    return pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

/// What the kernel can refuse at once is not left to the host, which looks from time to time. Drivers reserve
/// much more than they use, and the compiler's threads have large stacks, so that the bound is a wide one
/// above what is taken already.
void limitAddressSpace(std::uint64_t memoryBytes)
{
    const std::uint64_t taken = addressSpace();
    if (sanitized || taken == 0) {
        return;
    }
    constexpr std::uint64_t factor = 4;
    const rlimit limit{taken + factor * memoryBytes, RLIM_INFINITY};
    ::setrlimit(RLIMIT_AS, &limit);
}

/// Ends the process when the host is gone while an effect is being worked on, which may never end. A worker
/// that only waits notices by itself.
class Watch
{
public:
    Watch()
    {
        std::thread([this] { run(); }).detach();
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    std::atomic<bool> busy{false};

private:
    [[noreturn]] void run() const
    {
        pollfd waiting{hostSocket, POLLRDHUP, 0};
        while (::poll(&waiting, 1, -1) < 0 && errno == EINTR) {
        }
        constexpr std::chrono::milliseconds pause{10};
        for (;; std::this_thread::sleep_for(pause)) {
            if (busy) {
                ::_exit(1);
            }
        }
    }
};

/// One greeted worker.
class Service
{
public:
    Service(Channel& channel, const Hello& hello) : channel_(channel)
    {
        if (hello.device) {
            device_ = TrialDevice::open(*hello.device, hello.validation, problem_);
        }
        limitAddressSpace(hello.memoryBytes);
    }

    const std::string& problem() const { return problem_; }

    EffectCompilation work(const CompileRequest& request)
    {
        const auto step = [&](const Step& next) {
            channel_.send(FrameType::Step, encode(next));
            static constexpr const char* stages[] = {"compiling", "pipelines", "drawing"};
            misbehave(stages[static_cast<std::size_t>(next.stage)], request.file);
        };
        step({Stage::Compiling, {}, {}});
        if (::chdir(request.directory.c_str()) != 0) {
            EffectCompilation failure;
            refuse(failure, request.file,
                   "the directory " + request.directory.string() + " cannot be entered");
            return failure;
        }
        EffectCompilation compilation = compileEffect(request.file, request.options);
        if (compilation.effect != nullptr && device_ != nullptr) {
            device_->tryOut(compilation, request.file, step);
        }
        // A directory in use cannot be unmounted.
        static_cast<void>(::chdir("/") == 0);
        misbehave("answering", request.file);
        return compilation;
    }

    /// Whether there is use in another request.
    bool works() const { return device_ == nullptr || !device_->isLost(); }

private:
    Channel& channel_;
    std::unique_ptr<TrialDevice> device_;
    std::string problem_;
};

EffectCompilation workSafely(Service& service, const CompileRequest& request)
{
    try {
        return service.work(request);
    } catch (const std::exception& error) {
        EffectCompilation failure;
        refuse(failure, request.file, std::string("the effect could not be compiled: ") + error.what());
        return failure;
    }
}

int serve(Channel& channel, Watch& watch)
{
    Frame frame;
    if (channel.receive(frame, mostRequestBytes) != Channel::Answer::Frame ||
        frame.type != FrameType::Hello) {
        return 1;
    }
    const std::optional<Hello> hello = decodeHello(frame.payload);
    if (!hello || hello->version != protocolVersion) {
        channel.send(FrameType::Ready, encode(Ready{protocolVersion, "the host is of another version"}));
        return 1;
    }
    watch.busy = true;
    misbehave("greeting", {});
    Service service(channel, *hello);
    channel.send(FrameType::Ready, encode(Ready{protocolVersion, service.problem()}));
    while (service.works()) {
        watch.busy = false;
        if (channel.receive(frame, mostRequestBytes) != Channel::Answer::Frame) {
            return 0;
        }
        watch.busy = true;
        const std::optional<CompileRequest> request =
            frame.type == FrameType::Compile ? decodeRequest(frame.payload) : std::nullopt;
        if (!request || !channel.send(FrameType::Result, writeEffectArchive(workSafely(service, *request)))) {
            return 1;
        }
        misbehave("waiting", request->file);
    }
    watch.busy = false;
    return 0;
}

} // namespace

int serveHost()
{
    // Each thread's own arena would reserve address space that nobody uses.
    constexpr int arenas = 2;
    ::mallopt(M_ARENA_MAX, arenas);
    Channel channel(hostSocket);
    static Watch& watch = *new Watch; // its thread runs to the end
    try {
        return serve(channel, watch);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "qxfxc: %s\n", error.what());
        return 1;
    }
}

} // namespace Qx::Host::Worker
