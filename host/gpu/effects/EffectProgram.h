#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/gpu/device/Context.h"

#include <memory>
#include <mutex>

namespace Qx::Host::Vulkan {

/// One shader of a pass, ready for the device.
struct ShaderProgram
{
    VkDescriptorSetLayout setLayout = nullptr;
    VkPipelineLayout layout = nullptr;
    std::vector<std::uint32_t> bindings;   ///< indices of the effect's samplers that it reads, ascending
    std::vector<VkSampler> samplers;       ///< one for each of them
    std::vector<std::uint32_t> dimensions; ///< 2 or 3, of the texture that each reads; 1: as texels in a row
    bool discards = false;                 ///< it may leave pixels as they are

    // Where it draws groups: see CompiledEffect::PackedShader.
    std::vector<std::uint32_t> texelBytes;
    std::vector<std::uint32_t> rows;
};

/// One pass on the device.
struct PassProgram : ShaderProgram
{
    FormatPipelines pipelines{};
    bool hasPipelines = false;
};

/// A pass that draws packed texels.
struct PackedProgram : ShaderProgram
{
    const CompiledEffect::PackedShader* shader = nullptr;
    VkPipeline pipeline = nullptr; ///< null until it is made
};

/// A technique on the device.
struct TechniqueProgram
{
    std::vector<PassProgram> passes;

    /// The passes by packed texels.
    struct Packed
    {
        CompiledEffect::PackedShader::Depths depths;
        std::vector<PackedProgram> passes;
    };
    std::vector<Packed> packed; ///< for each pair of depths that each pass can
};

/// A pass that the device does not take.
struct PassRefusal
{
    static constexpr const char* text = "the GPU does not accept the shader";
    std::string technique;
    std::string pass;
};

/// A compiled effect on the device, shared by whoever draws with it. A pipeline is made when the first draw
/// needs it, or before.
class EffectProgram final : public DeviceObject
{
public:
    /// Null, with the refusal, when the device does not take the effect. Inside an Operation.
    static std::shared_ptr<EffectProgram> create(std::shared_ptr<Context> context,
                                                 std::shared_ptr<const CompiledEffect> effect,
                                                 PassRefusal& refusal);

    /// Told of each pass before its pipelines are made: indices of the technique and of the pass in it.
    using Observer = std::function<void(std::size_t technique, std::size_t pass)>;

    /// Makes the pipelines that draws of whole pictures need. Where these are drawn by packed texels, few
    /// draws are by single texels, whose pipelines are left to the first of them. False, with the refusal,
    /// when the device does not take them. Any thread may call it, inside an Operation.
    bool makeReady(PassRefusal& refusal, const Observer& observer = {});
    ~EffectProgram();
    EffectProgram(const EffectProgram&) = delete;
    EffectProgram& operator=(const EffectProgram&) = delete;

    void destroyDeviceObjects(Device& device) override;

    Context& context() const { return *context_; }
    const CompiledEffect& effect() const { return *effect_; }

    const TechniqueProgram& technique(std::size_t index) const { return techniques_[index]; }

    /// Makes the pipelines of a technique's passes, by single texels or by the groups of that index, if they
    /// are still to be made. Any thread may call it, inside an Operation; false when the device does not take
    /// them.
    bool makePipelines(std::size_t technique);
    bool makePackedPipelines(std::size_t technique, std::size_t packed);

private:
    EffectProgram(std::shared_ptr<Context> context, std::shared_ptr<const CompiledEffect> effect)
        : context_(std::move(context)), effect_(std::move(effect))
    {
    }
    bool createTechnique(std::size_t index, PassRefusal& refusal);
    bool createPacked(const CompiledEffect::Technique& technique, TechniqueProgram& program);
    bool makeReady(std::size_t technique, std::size_t pass);
    bool makePipelines(const CompiledEffect::Pass& pass, PassProgram& program);
    bool makePipeline(PackedProgram& program);
    bool createShader(const std::vector<std::uint32_t>& spirv, const std::vector<std::uint32_t>& samplers,
                      ShaderProgram& program);
    bool createLayouts(ShaderProgram& program);

    const std::shared_ptr<Context> context_;
    const std::shared_ptr<const CompiledEffect> effect_;
    std::vector<TechniqueProgram> techniques_;
    std::mutex making_; // held while pipelines are made
};

} // namespace Qx::Host::Vulkan
