#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/gpu/effects/TechniqueDrawing.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Qx::Host::Vulkan {

/// The format of a texture that passes draw into; undefined if it is that of the caller's target.
VkFormat ownFormat(const Device& device, CompiledEffect::TargetFormat format);

/// Consecutive passes of a technique that draw into one target, on the device.
struct StageProgram
{
    std::uint32_t target = CompiledEffect::Pass::callersTarget; ///< as CompiledEffect::Pass::target
    std::size_t firstPass = 0;
    std::unique_ptr<TechniqueDrawing> usual;
    std::vector<std::unique_ptr<TechniqueDrawing>> faster; ///< by the device's DrawingPath

    bool drawsForCaller() const { return target == CompiledEffect::Pass::callersTarget; }

    /// The fastest drawing that is right for that draw.
    TechniqueDrawing& drawingFor(const Draw& draw) const;
};

/// A technique on the device. The last stage draws for the caller.
struct TechniqueProgram
{
    std::vector<StageProgram> stages;
};

/// A pass that the device refuses.
struct PassRefusal
{
    static constexpr const char* text = "the GPU does not accept the shader";
    std::string technique;
    std::string pass;
};

/// A compiled effect on the device, shared by everything that draws with it. A pipeline is created when the
/// first draw needs it, or before.
class EffectProgram final : public DeviceObject
{
public:
    /// Null, with the refusal, if the device refuses the effect. Inside an Operation.
    static std::shared_ptr<EffectProgram> create(std::shared_ptr<Context> context,
                                                 std::shared_ptr<const CompiledEffect> effect,
                                                 PassRefusal& refusal);

    /// Called for each pass before its pipelines are created, with the indices of the technique and of the
    /// pass in it.
    using Observer = std::function<void(std::size_t technique, std::size_t pass)>;

    /// Creates the pipelines that draws of whole pictures need. Where the device's DrawingPath draws these,
    /// the usual pipelines, which few draws need, are left to the first of them. Returns false, with the
    /// refusal, if the device refuses. Thread-safe; inside an Operation.
    bool createPipelines(PassRefusal& refusal, const Observer& observer = {});

    /// Lets the host's processors draw where that is possible. Before any draw.
    void useNative(const std::shared_ptr<NativeMaker>& maker);

    ~EffectProgram();
    EffectProgram(const EffectProgram&) = delete;
    EffectProgram& operator=(const EffectProgram&) = delete;

    void destroyDeviceObjects(Device& device) override;

    Context& context() const { return *context_; }
    const CompiledEffect& effect() const { return *effect_; }

    const TechniqueProgram& technique(std::size_t index) const { return (*techniques_)[index]; }

private:
    EffectProgram(std::shared_ptr<Context> context, std::shared_ptr<const CompiledEffect> effect)
        : context_(std::move(context)),
          effect_(std::move(effect)),
          techniques_(std::make_shared<std::vector<TechniqueProgram>>(effect_->techniques.size()))
    {
    }
    bool createTechnique(std::size_t index, PassRefusal& refusal);
    StageProgram& stageFor(TechniqueProgram& program, std::uint32_t target, std::size_t pass) const;
    bool createPipelines(std::size_t technique, std::size_t pass);

    const std::shared_ptr<Context> context_;
    const std::shared_ptr<const CompiledEffect> effect_;
    const std::shared_ptr<std::vector<TechniqueProgram>> techniques_; // may outlive this: see the destructor
};

} // namespace Qx::Host::Vulkan
