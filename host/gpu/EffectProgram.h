#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/gpu/Context.h"

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

    // Where it draws groups: see CompiledEffect::GroupShader.
    std::vector<std::uint32_t> texelBytes;
    std::vector<std::uint32_t> rows;
};

/// One pass, ready for the device.
struct PassProgram : ShaderProgram
{
    FormatPipelines pipelines{};
};

/// A pass that draws groups of texels.
struct GroupProgram : ShaderProgram
{
    VkPipeline pipeline = nullptr;
};

/// A technique, ready for the device.
struct TechniqueProgram
{
    std::vector<PassProgram> passes;
    bool hasPipelines = false; ///< the passes have theirs

    /// The passes by groups of texels.
    struct Groups
    {
        CompiledEffect::GroupShader::Depths depths;
        std::vector<GroupProgram> passes;
    };
    std::vector<Groups> groups; ///< for each pair of depths that each pass can
};

/// A pass that the device does not take.
struct PassRefusal
{
    static constexpr const char* text = "the GPU does not accept the shader";
    std::string technique;
    std::string pass;
};

/// A compiled effect on the device, shared by whoever draws with it. Its pipelines are made here, so that
/// none is at the first frame; where whole pictures are drawn by groups of texels, those for single texels,
/// which few draws need then, are made when the first does.
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

    const TechniqueProgram& technique(std::size_t index) const { return techniques_[index]; }

    /// Makes the pipelines of a technique's passes if they are still to be made. Any thread may call it,
    /// inside an Operation; false when the device does not take them.
    bool makePipelines(std::size_t technique);

private:
    EffectProgram(std::shared_ptr<Context> context, std::shared_ptr<const CompiledEffect> effect)
        : context_(std::move(context)), effect_(std::move(effect))
    {
    }
    bool createTechnique(std::size_t index, PassRefusal& refusal, const Observer& observer);
    bool createPipelinesOf(const CompiledEffect::Pass& pass, PassProgram& program);
    bool createGroups(const CompiledEffect::Technique& technique, TechniqueProgram& program);
    bool createGroup(const CompiledEffect::GroupShader& shader, GroupProgram& program);
    bool createShader(const std::vector<std::uint32_t>& spirv, const std::vector<std::uint32_t>& samplers,
                      ShaderProgram& program);
    bool createLayouts(ShaderProgram& program);

    const std::shared_ptr<Context> context_;
    const std::shared_ptr<const CompiledEffect> effect_;
    std::vector<TechniqueProgram> techniques_;
    std::mutex makingPipelines_;
};

} // namespace Qx::Host::Vulkan
