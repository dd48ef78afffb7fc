#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/gpu/Context.h"

#include <memory>

namespace Qx::Host::Vulkan {

/// One pass, ready for the device.
struct PassProgram
{
    VkDescriptorSetLayout setLayout = nullptr;
    VkPipelineLayout layout = nullptr;
    FormatPipelines pipelines{};
    std::vector<VkSampler> samplers;       ///< one for each of the pass's samplers
    std::vector<std::uint32_t> dimensions; ///< 2 or 3, of the texture that each of them reads
    bool discards = false;                 ///< it may leave pixels as they are
};

/// A pass that the device does not take.
struct PassRefusal
{
    static constexpr const char* text = "the GPU does not accept the shader";
    std::string technique;
    std::string pass;
};

/// A compiled effect on the device: constant once it is made, shared by whoever draws with it. Its pipelines
/// are made here, so that none is at the first frame.
class EffectProgram final : public DeviceObject
{
public:
    /// Told of each pass before its pipelines are made: indices of the technique and of the pass in it.
    using Observer = std::function<void(std::size_t technique, std::size_t pass)>;

    /// Null, with the refusal, when the device does not take the effect. Inside an Operation.
    static std::shared_ptr<EffectProgram> create(std::shared_ptr<Context> context,
                                                 std::shared_ptr<const CompiledEffect> effect,
                                                 PassRefusal& refusal, const Observer& observer = {});
    ~EffectProgram();
    EffectProgram(const EffectProgram&) = delete;
    EffectProgram& operator=(const EffectProgram&) = delete;

    void destroyDeviceObjects(Device& device) override;

    Context& context() const { return *context_; }
    const CompiledEffect& effect() const { return *effect_; }

    /// The passes of a technique by its index.
    const std::vector<PassProgram>& passes(std::size_t technique) const { return techniques_[technique]; }

private:
    EffectProgram(std::shared_ptr<Context> context, std::shared_ptr<const CompiledEffect> effect)
        : context_(std::move(context)), effect_(std::move(effect))
    {
    }
    bool createPass(const CompiledEffect::Pass& pass, PassProgram& program);
    bool createLayouts(const CompiledEffect::Pass& pass, PassProgram& program);

    const std::shared_ptr<Context> context_;
    const std::shared_ptr<const CompiledEffect> effect_;
    std::vector<std::vector<PassProgram>> techniques_;
};

} // namespace Qx::Host::Vulkan
