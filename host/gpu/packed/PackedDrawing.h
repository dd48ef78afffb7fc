#pragma once

#include "host/gpu/effects/TechniqueDrawing.h"

#include <memory>
#include <vector>

namespace Qx::Host::Vulkan {

/// A technique drawn by packed texels, for one pair of depths of source and target.
class PackedDrawing final : public TechniqueDrawing
{
public:
    /// Appends a drawing for each pair of depths for which every pass has a shader. Returns false if the
    /// device refuses one.
    static bool createAll(Context& context, const CompiledEffect& effect,
                          const CompiledEffect::Technique& technique,
                          std::vector<std::unique_ptr<TechniqueDrawing>>& drawings);

    PackedDrawing(Context& context, const CompiledEffect& effect, CompiledEffect::PackedShader::Depths depths)
        : TechniqueDrawing(context, effect), depths_(depths)
    {
    }

    bool canDraw(const Draw& draw) const override;
    bool mixesDepths() const override { return depths_.areMixed(); }
    bool record(Batch& batch, const Draw& draw, PassRange passes) const override;

private:
    bool add(const std::vector<const CompiledEffect::PackedShader*>& shaders);
    bool hasSourceDepth(const Picture* picture) const;
    void fillRows(const Draw& draw) const;

    VkResult createPipelines(std::size_t pass, VkShaderModule fragment,
                             FormatPipelines& pipelines) const override;
    void begin(VkCommandBuffer commands, const Texture& target, const Draw& draw,
               bool replacesAll) const override;
    void bind(std::size_t pass, std::size_t binding, const Texture& texture, VkWriteDescriptorSet& write,
              VkDescriptorImageInfo& image) const override;
    void pushConstants(VkCommandBuffer commands, std::size_t pass, const Draw& draw) const override;

    const CompiledEffect::PackedShader::Depths depths_;
    std::vector<const CompiledEffect::PackedShader*> shaders_; ///< of each pass
};

} // namespace Qx::Host::Vulkan
