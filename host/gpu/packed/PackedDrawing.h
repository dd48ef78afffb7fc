#pragma once

#include "host/gpu/effects/TechniqueDrawing.h"
#include "host/gpu/packed/NativeDrawing.h"

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
    void useNative(const std::shared_ptr<NativeMaker>& maker, const std::string& technique) override;
    NativeDrawing* native() const override { return native_.get(); }

private:
    bool add(const std::vector<const CompiledEffect::PackedShader*>& shaders);
    bool hasSourceDepth(const Picture* picture) const;

    VkResult createPipelines(std::size_t pass, VkShaderModule fragment,
                             FormatPipelines& pipelines) const override;
    void begin(VkCommandBuffer commands, const Texture& target, const Draw& draw,
               bool replacesAll) const override;
    void bind(std::size_t pass, std::size_t binding, const Texture& texture, VkWriteDescriptorSet& write,
              VkDescriptorImageInfo& image) const override;
    void pushConstants(VkCommandBuffer commands, std::size_t pass, const Draw& draw) const override;

    const CompiledEffect::PackedShader::Depths depths_;
    std::vector<const CompiledEffect::PackedShader*> shaders_; ///< of each pass
    std::unique_ptr<NativeDrawing> native_;
};

/// Fills in what shaders for packed texels know of the textures' rows.
void fillPackedRows(const Draw& draw);

} // namespace Qx::Host::Vulkan
