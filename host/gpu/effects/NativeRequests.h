#pragma once

#include "host/effects/worker/EffectWorkers.h"
#include "host/gpu/packed/NativeDrawing.h"

#include <memory>
#include <string>

namespace Qx::Host {

/// Has workers make native code, one after the other, in a thread of its own, which starts with the first
/// request. Thread-safe.
class NativeQueue
{
public:
    explicit NativeQueue(std::shared_ptr<Worker::EffectWorkers> workers) : workers_(std::move(workers)) {}
    ~NativeQueue() { stop(); }
    NativeQueue(const NativeQueue&) = delete;
    NativeQueue& operator=(const NativeQueue&) = delete;

    /// The maker of an effect's code. `request` is what compiled the effect.
    std::shared_ptr<Vulkan::NativeMaker> makerFor(const Worker::CompileRequest& request,
                                                  std::shared_ptr<const CompiledEffect> effect);

    /// What makes the code, or why nothing does, for people.
    static std::string description();

    /// Drops what waits. What is being made is made in vain.
    void close();

    /// Ends the thread, after close(). The workers must have been closed.
    void stop();

private:
    class Maker;
    struct Requests;

    const std::shared_ptr<Worker::EffectWorkers> workers_;
    std::shared_ptr<Requests> requests_ = std::make_shared<Requests>();
};

} // namespace Qx::Host
