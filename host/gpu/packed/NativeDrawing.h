#pragma once

#include "host/effects/EffectCompiler.h"
#include "host/gpu/effects/TechniqueDrawing.h"
#include "host/native/NativeCode.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Qx::Host::Vulkan {

/// Has native code made of one effect's shaders. Thread-safe.
class NativeMaker
{
public:
    virtual ~NativeMaker() = default;

    /// Each calls `done` at most once, from any thread: with the code, or with null if there is none. They do
    /// not block.
    using Done = std::function<void(std::shared_ptr<const Native::Code>)>;
    virtual void make(NativeWish wish, Done done) = 0;

    /// Code that an earlier run has left in the cache.
    virtual void find(NativeWish wish, Done done) = 0;
};

/// A technique of one pass, drawn by the host's processors in the place of a software device. Its code is
/// looked for in the cache after a few pictures, and made once the technique has drawn some more. The first
/// draw with the code is only a check: both draw that picture and one of random codes, and code that differs
/// from the device by one byte is not used.
class NativeDrawing
{
public:
    /// `wish` says which shader; its usual frame is filled in here.
    NativeDrawing(Context& context, std::shared_ptr<NativeMaker> maker, NativeWish wish)
        : context_(context), maker_(std::move(maker)), wish_(std::move(wish))
    {
    }

    /// How a draw is to be done.
    enum class Way
    {
        Device,
        DeviceAndCheck, ///< check() is to follow
        Host
    };
    Way wayOf(const Draw& draw, const TechniqueDrawing& drawing);

    /// Records the draw. Returns false if memory is exhausted or the device is lost.
    bool record(const Draw& draw, const TechniqueDrawing& drawing) const;

    /// Records the comparisons with what the device draws, `draw` being the last that it was given. Without
    /// memory for them the device draws on.
    void check(const Draw& draw, const TechniqueDrawing& drawing) const;

private:
    enum class State
    {
        Waiting, ///< for draws
        Asked,   ///< for code that is known, or to be made
        Made,
        Compared, ///< soon
        Good,
        Refused
    };

    /// What code and comparisons are told to; they may outlive the drawing.
    struct Shared
    {
        std::atomic<State> state{State::Waiting};
        std::shared_ptr<const Native::Code> code; ///< from State::Made on
    };

    struct Job;
    void ask(const Draw& draw, const TechniqueDrawing& drawing);
    std::shared_ptr<Job> jobOf(const Draw& draw, const ShaderProgram& program, const Texture& target) const;
    bool checkNoise(const Draw& draw, const TechniqueDrawing& drawing) const;
    bool compare(const Draw& draw, const ShaderProgram& program, bool isLast) const;

    Context& context_;
    const std::shared_ptr<NativeMaker> maker_;
    const NativeWish wish_;
    std::atomic<unsigned> draws_{0};
    const std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
};

} // namespace Qx::Host::Vulkan
