#include "tools/qxfxc/Worker.h"

#include "host/effects/archive/EffectArchive.h"
#include "host/effects/worker/Protocol.h"
#include "tools/qxfxc/Device.h"
#include "tools/qxfxc/NativeMaking.h"
#include "tools/qxfxc/TestAid.h"

#include <cstdio>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

namespace Qx::Host::Worker {

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif

/// The address space of this process, in bytes.
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

/// The kernel refuses an excess at once, while the host only checks from time to time. The limit is well
/// above the address space in use: drivers reserve much more than they use, and the compiler's threads have
/// large stacks.
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

/// A worker after its greeting.
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
            injectFault(next.at.file.empty() ? stages[static_cast<std::size_t>(next.stage)] : "shaders",
                        request.file);
        };
        step({Stage::Compiling, {}, {}, {}});
        if (::chdir(request.directory.c_str()) != 0) {
            EffectCompilation failure;
            refuse(failure, {request.file.native()},
                   "cannot change to the directory " + request.directory.string());
            return failure;
        }
        const auto whenRead = [&](const std::vector<EffectInput>& inputs) {
            EffectCompilation read;
            read.inputs = inputs;
            channel_.send(FrameType::Inputs, writeEffectArchive(read));
            injectFault("parsing", request.file);
        };
        std::size_t reported = 0;
        const auto whenShader = [&](const Diagnostic::Place& at, std::string_view technique,
                                    std::string_view pass) {
            const Step next{Stage::Compiling, std::string(technique), std::string(pass), at};
            reported += encode(next).size();
            if (reported <= mostShaderReports) {
                step(next);
            }
        };
        EffectCompilation compilation = compileEffect(request.file, request.options, {whenRead, whenShader});
        if (request.options.native) {
            injectFault("native", request.file);
            makeNativeCode(compilation, *request.options.native);
        } else if (compilation.effect != nullptr && device_ != nullptr) {
            device_->tryOut(compilation, request.file, step);
        }
        // A directory in use cannot be unmounted.
        static_cast<void>(::chdir("/") == 0);
        injectFault("answering", request.file);
        return compilation;
    }

    /// Whether another request can succeed.
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
        refuse(failure, {request.file.native()},
               std::string("the effect could not be compiled: ") + error.what());
        return failure;
    }
}

int serve(Channel& channel)
{
    injectFault("starting", {});
    channel.send(FrameType::Ready, encode(Ready{}));
    Frame frame;
    if (channel.receive(frame, mostRequestBytes) != Channel::Answer::Frame ||
        frame.type != FrameType::Hello) {
        return 1;
    }
    const std::optional<Hello> hello = decodeHello(frame.payload);
    if (!hello || hello->version != protocolVersion) {
        channel.send(FrameType::Ready, encode(Ready{protocolVersion, "the host has another version"}));
        return 1;
    }
    injectFault("greeting", {});
    Service service(channel, *hello);
    channel.send(FrameType::Ready, encode(Ready{protocolVersion, service.problem()}));
    while (service.works()) {
        if (channel.receive(frame, mostRequestBytes) != Channel::Answer::Frame) {
            return 0;
        }
        const std::optional<CompileRequest> request =
            frame.type == FrameType::Compile ? decodeRequest(frame.payload) : std::nullopt;
        if (!request || !channel.send(FrameType::Result, writeEffectArchive(workSafely(service, *request)))) {
            return 1;
        }
        injectFault("waiting", request->file);
    }
    return 0;
}

} // namespace

int serveHost()
{
    // An arena for each thread would reserve address space without use.
    constexpr int arenas = 2;
    ::mallopt(M_ARENA_MAX, arenas);
    Channel channel(hostSocket);
    try {
        return serve(channel);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "qxfxc: %s\n", error.what());
        return 1;
    }
}

} // namespace Qx::Host::Worker
