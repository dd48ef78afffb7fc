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

    /// Calls `done` once, from any thread: with the code, or with null and the reason. Does not block.
    using Done = std::function<void(std::shared_ptr<const Native::Code>, const std::string& problem)>;
    virtual void make(NativeWish wish, Done done) = 0;
};

/// A technique of one pass, drawn by the host's processors in the place of a software device's. Its code is
/// asked for once the technique has drawn some pictures. The first draw with the code is only a check: the
/// device draws too, and what differs by one byte is never drawn by the code.
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
    Way wayOf(const Draw& draw, const ShaderProgram& program);

    /// Records the draw. Returns false if memory is exhausted or the device is lost.
    bool record(const Draw& draw, const ShaderProgram& program) const;

    /// Records the comparison with what the device has drawn. The same.
    bool check(const Draw& draw, const ShaderProgram& program) const;

private:
    enum class State
    {
        Waiting, ///< for draws
        Asked,
        Made,
        Checked, ///< asked for, that is
        Good,
        Refused
    };

    /// What the callers of make() and of works write to; it may outlive the drawing.
    struct Shared
    {
        std::atomic<State> state{State::Waiting};
        std::shared_ptr<const Native::Code> code; ///< from State::Made on
    };

    struct Job;
    using Textures = std::pmr::vector<Texture*>;
    Textures texturesOf(const Draw& draw, const ShaderProgram& program, Texture& target) const;
    std::shared_ptr<Job> jobOf(const Draw& draw, const ShaderProgram& program, const Texture& target) const;
    void ask(const Draw& draw);

    Context& context_;
    const std::shared_ptr<NativeMaker> maker_;
    const NativeWish wish_;
    std::atomic<unsigned> draws_{0};
    const std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
};

} // namespace Qx::Host::Vulkan
