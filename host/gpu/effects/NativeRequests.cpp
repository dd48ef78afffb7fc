#include "host/gpu/effects/NativeRequests.h"

#include "host/effects/worker/WorkerProgram.h"
#include "host/gpu/device/Report.h"
#include "host/native/NativeCode.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

namespace Qx::Host {

namespace {

/// Whether the uniforms, textures and samplers of both are the same.
bool areAlike(const CompiledEffect& a, const CompiledEffect& b)
{
    const auto alike = [](const auto& some, const auto& others, auto same) {
        return std::equal(some.begin(), some.end(), others.begin(), others.end(), same);
    };
    return a.uniformBytes == b.uniformBytes && a.textureUniforms == b.textureUniforms &&
           alike(a.parameters, b.parameters,
                 [](const CompiledEffect::Parameter& p, const CompiledEffect::Parameter& q) {
                     return p.name == q.name && p.offset == q.offset && p.bytes == q.bytes;
                 }) &&
           alike(a.textures, b.textures, [](const auto& t, const auto& u) { return t.name == u.name; }) &&
           alike(a.samplers, b.samplers,
                 [](const CompiledEffect::Sampler& s, const CompiledEffect::Sampler& t) {
                     return s.texture == t.texture && s.dimensions == t.dimensions;
                 });
}

const Native::Library* installedLibrary(std::string& problem)
{
    return Native::library(Worker::installedWorker().parent_path(), problem);
}

/// The shader that was wished for; null if there is none.
const CompiledEffect::PackedShader* shaderIn(const CompiledEffect& effect)
{
    const bool isOne = effect.techniques.size() == 1 && effect.techniques[0].passes.size() == 1 &&
                       effect.techniques[0].passes[0].packed.size() == 1;
    return isOne ? effect.techniques[0].passes[0].packed.data() : nullptr;
}

} // namespace

struct NativeQueue::Requests
{
    std::atomic<bool> isClosed{false};
    std::mutex mutex; // guards all below
    std::condition_variable changed;
    std::deque<std::function<void()>> waiting;
    std::thread thread;

    void add(std::function<void()> request)
    {
        const std::lock_guard lock(mutex);
        if (isClosed) {
            return;
        }
        if (!thread.joinable()) {
            thread = std::thread([this] { run(); });
        }
        waiting.push_back(std::move(request));
        changed.notify_one();
    }

    void run()
    {
        for (;;) {
            std::unique_lock lock(mutex);
            changed.wait(lock, [this] { return isClosed || !waiting.empty(); });
            if (isClosed) {
                return;
            }
            const std::function<void()> request = std::move(waiting.front());
            waiting.pop_front();
            lock.unlock();
            Vulkan::guarded(false, [&] {
                request();
                return true;
            });
        }
    }
};

class NativeQueue::Maker final : public Vulkan::NativeMaker
{
public:
    Maker(std::shared_ptr<Worker::EffectWorkers> workers, std::shared_ptr<Requests> requests,
          Worker::CompileRequest request, std::shared_ptr<const CompiledEffect> effect)
        : workers_(std::move(workers)),
          requests_(std::move(requests)),
          request_(std::move(request)),
          effect_(std::move(effect))
    {
    }

    void make(NativeWish wish, Done done) override
    {
        add(std::move(wish), std::move(done),
            [](Worker::EffectWorkers& workers, const Worker::CompileRequest& request) {
                return std::optional(workers.compile(request));
            });
    }

    void find(NativeWish wish, Done done) override
    {
        add(std::move(wish), std::move(done),
            [](Worker::EffectWorkers& workers, const Worker::CompileRequest& request) {
                return workers.known(request);
            });
    }

private:
    using Get = std::optional<EffectCompilation> (*)(Worker::EffectWorkers&, const Worker::CompileRequest&);

    void add(NativeWish wish, Done done, Get get)
    {
        Worker::CompileRequest request = request_;
        request.options.native = std::move(wish);
        try {
            requests_->add([requests = requests_.get(), workers = workers_, effect = effect_, get,
                            request = std::move(request), done = std::move(done)]() mutable {
                done(codeOf(*requests, *workers, *effect, request, get));
            });
        } catch (const std::system_error&) {
            return; // no thread: the device draws on
        }
    }

    /// Null if there is no such code.
    static std::shared_ptr<const Native::Code> codeOf(const Requests& requests,
                                                      Worker::EffectWorkers& workers,
                                                      const CompiledEffect& effect,
                                                      Worker::CompileRequest& request, Get get)
    {
        std::string problem;
        NativeWish& wish = *request.options.native;
        try {
            const Native::Library* const library = installedLibrary(problem);
            if (library == nullptr) {
                return nullptr;
            }
            wish.target = library->target();
            const std::optional<EffectCompilation> compilation = get(workers, request);
            if (!compilation) {
                return nullptr;
            }
            if (compilation->effect != nullptr) {
                const CompiledEffect::PackedShader* const shader = shaderIn(*compilation->effect);
                const bool isUsable =
                    shader != nullptr && !shader->code.empty() && areAlike(effect, *compilation->effect);
                return isUsable ? library->load(shader->code, problem) : nullptr;
            }
            problem = compilation->messages;
        } catch (const std::exception& failure) {
            problem = failure.what();
        }
        if (!requests.isClosed) {
            Vulkan::report("GPU: technique \"" + wish.technique +
                           "\": native code could not be made: " + problem);
        }
        return nullptr;
    }

    const std::shared_ptr<Worker::EffectWorkers> workers_;
    const std::shared_ptr<Requests> requests_;
    const Worker::CompileRequest request_;
    const std::shared_ptr<const CompiledEffect> effect_;
};

std::shared_ptr<Vulkan::NativeMaker> NativeQueue::makerFor(const Worker::CompileRequest& request,
                                                           std::shared_ptr<const CompiledEffect> effect)
{
    return std::make_shared<Maker>(workers_, requests_, request, std::move(effect));
}

std::string NativeQueue::description()
{
    std::string problem;
    const Native::Library* const library = installedLibrary(problem);
    return library != nullptr
               ? library->compiler() + ", " + std::to_string(library->lanes()) + " texels at a time"
               : "none (" + problem + ")";
}

void NativeQueue::close()
{
    {
        const std::lock_guard lock(requests_->mutex);
        requests_->isClosed = true;
        requests_->waiting.clear();
    }
    requests_->changed.notify_all();
}

void NativeQueue::stop()
{
    close();
    if (requests_->thread.joinable()) {
        requests_->thread.join();
    }
}

} // namespace Qx::Host
