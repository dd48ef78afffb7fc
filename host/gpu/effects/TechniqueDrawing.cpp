#include "host/gpu/effects/TechniqueDrawing.h"

#include "host/gpu/drawing/Areas.h"

#include <algorithm>

namespace Qx::Host::Vulkan {

bool Draw::coversTarget() const
{
    return coversAll(pixels, target.key);
}

bool Draw::isOwnPlace(std::size_t coordinate, const Picture& picture) const
{
    const TextureKey& key = target.key;
    constexpr std::array<float, 4> whole{0.0F, 0.0F, 1.0F, 1.0F};
    return area.x0 == 0.0F && area.y0 == 0.0F && area.x1 == static_cast<float>(key.width) &&
           area.y1 == static_cast<float>(key.height) && picture.key.width == key.width &&
           picture.key.height == key.height &&
           (coordinate >= sources.size() || sources[coordinate].texCoords == whole);
}

const Picture* Draw::pictureCalled(std::string_view name) const
{
    const std::size_t index = textureIndex(effect, name);
    return index < textures.size() ? textures[index] : nullptr;
}

std::size_t textureIndex(const CompiledEffect& effect, std::string_view name)
{
    const auto found = std::find_if(effect.textures.begin(), effect.textures.end(),
                                    [name](const auto& texture) { return texture.name == name; });
    return static_cast<std::size_t>(found - effect.textures.begin());
}

bool TechniqueDrawing::addPass(std::span<const std::uint32_t> spirv,
                               const std::vector<std::uint32_t>& samplers,
                               const VkPushConstantRange* pushConstants)
{
    Pass& pass = passes_.emplace_back();
    pass.spirv = spirv;
    return createShaderProgram(context_, effect_, {spirv, samplers, pushConstants}, pass.program);
}

void TechniqueDrawing::destroy(Device& device)
{
    for (Pass& pass : passes_) {
        destroyPipelines(device, pass.pipelines);
        destroyPipelines(device, pass.ofFloats);
        destroyShaderProgram(device, pass.program);
    }
}

bool TechniqueDrawing::createPipelines()
{
    if (std::all_of(passes_.begin(), passes_.end(),
                    [](const Pass& pass) { return pass.hasPipelines.load(); })) {
        return true;
    }
    const std::lock_guard lock(creating_);
    for (std::size_t p = 0; p < passes_.size(); ++p) {
        if (!createMissing(p)) {
            return false;
        }
    }
    return true;
}

bool TechniqueDrawing::createPipelines(std::size_t pass)
{
    const std::lock_guard lock(creating_);
    return createMissing(pass);
}

template <class Create>
bool TechniqueDrawing::createOnce(std::span<const std::uint32_t> spirv, FormatPipelines& pipelines,
                                  std::atomic<bool>& exist, Create create)
{
    if (exist) {
        return true;
    }
    Device& device = context_.device();
    destroyPipelines(device, pipelines); // of an attempt that failed
    VkShaderModule module = nullptr;
    VkResult result = createShaderModule(device, spirv, module);
    if (result == VK_SUCCESS) {
        result = create(module);
        vkDestroyShaderModule(device.handle(), module, nullptr);
    }
    exist = device.succeeded(result, "creating an effect's pipeline");
    return exist;
}

bool TechniqueDrawing::createMissing(std::size_t index)
{
    Pass& pass = passes_[index];
    return createOnce(pass.spirv, pass.pipelines, pass.hasPipelines,
                      [&](VkShaderModule module) { return createPipelines(index, module, pass.pipelines); });
}

bool TechniqueDrawing::createPipelinesFor(VkFormat format)
{
    if (format != floatFormat) {
        return createPipelines();
    }
    const std::lock_guard lock(creating_);
    for (std::size_t p = 0; p < passes_.size(); ++p) {
        if (!createMissingOfFloats(p)) {
            return false;
        }
    }
    return true;
}

bool TechniqueDrawing::createMissingOfFloats(std::size_t index)
{
    Pass& pass = passes_[index];
    return createOnce(pass.spirv, pass.ofFloats, pass.hasOfFloats, [&](VkShaderModule module) {
        return Vulkan::createPipelines(context_.device(), module, pass.program.layout, pass.ofFloats,
                                       floatFormats);
    });
}

VkResult TechniqueDrawing::createPipelines(std::size_t pass, VkShaderModule fragment,
                                           FormatPipelines& pipelines) const
{
    return Vulkan::createPipelines(context_.device(), fragment, program(pass).layout, pipelines, formats_);
}

VkPipeline TechniqueDrawing::pipelineOf(const Pass& pass, VkFormat format)
{
    return pipelineFor(format == floatFormat ? pass.ofFloats : pass.pipelines, format);
}

bool TechniqueDrawing::record(Batch& batch, const Draw& draw, PassRange passes) const
{
    VkDescriptorBufferInfo uniforms;
    if (!batch.uniform(draw.uniforms, uniforms)) {
        return false;
    }
    auto sets = draw.memory.list<VkDescriptorSet>(passes_.size());
    for (std::size_t p = passes.first; p < passes.end; ++p) {
        sets[p] = describe(batch, draw, p, uniforms);
        if (sets[p] == nullptr) {
            return false;
        }
    }
    const bool replacesAll =
        passes.first == 0 && draw.coversTarget() && (draw.clears || !passes_.front().program.discards);
    Texture* const target = draw.target.forWriting(batch, replacesAll);
    if (target == nullptr) {
        return false;
    }
    announce(batch, draw, passes, *target, replacesAll);
    begin(batch.commands(), *target, draw, replacesAll);
    for (std::size_t p = passes.first; p < passes.end; ++p) {
        vkCmdBindPipeline(batch.commands(), VK_PIPELINE_BIND_POINT_GRAPHICS,
                          pipelineOf(passes_[p], draw.target.key.format));
        vkCmdBindDescriptorSets(batch.commands(), VK_PIPELINE_BIND_POINT_GRAPHICS, program(p).layout, 0, 1,
                                &sets[p], 0, nullptr);
        pushConstants(batch.commands(), p, draw);
        vkCmdDraw(batch.commands(), 3, 1, 0, 0);
    }
    vkCmdEndRendering(batch.commands());
    context_.draws += passes.end - passes.first;
    return true;
}

VkDescriptorSet TechniqueDrawing::describe(Batch& batch, const Draw& draw, std::size_t pass,
                                           const VkDescriptorBufferInfo& uniforms) const
{
    const ShaderProgram& shader = program(pass);
    VkDescriptorSet set = batch.descriptorSet(shader.setLayout);
    if (set == nullptr) {
        return nullptr;
    }
    auto images = draw.memory.list<VkDescriptorImageInfo>(shader.bindings.size());
    auto writes = draw.memory.list<VkWriteDescriptorSet>(1 + shader.bindings.size());
    for (VkWriteDescriptorSet& write : writes) {
        write.sType = VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET;
        write.dstSet = set;
        write.descriptorCount = 1;
    }
    writes[0].descriptorType = VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER;
    writes[0].pBufferInfo = &uniforms;
    for (std::size_t i = 0; i < shader.bindings.size(); ++i) {
        writes[1 + i].dstBinding = 1 + shader.bindings[i];
        bind(pass, i, *draw.pictureOf(shader.bindings[i])->texture(), writes[1 + i], images[i]);
    }
    vkUpdateDescriptorSets(context_.device().handle(), static_cast<std::uint32_t>(writes.size()),
                           writes.data(), 0, nullptr);
    return set;
}

void TechniqueDrawing::bind(std::size_t pass, std::size_t binding, const Texture& texture,
                            VkWriteDescriptorSet& write, VkDescriptorImageInfo& image) const
{
    image = {program(pass).samplers[binding], texture.sampled,
             texture.layoutFor(VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL)};
    write.descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
    write.pImageInfo = &image;
}

void TechniqueDrawing::announce(Batch& batch, const Draw& draw, PassRange passes, Texture& target,
                                bool replacesAll) const
{
    for (std::size_t p = passes.first; p < passes.end; ++p) {
        for (const std::uint32_t sampler : program(p).bindings) {
            batch.sample(*draw.pictureOf(sampler)->texture());
        }
    }
    batch.renderTo(target, replacesAll);
    batch.flush();
}

void TechniqueDrawing::begin(VkCommandBuffer commands, const Texture& target, const Draw& draw,
                             bool replacesAll) const
{
    beginDrawing(commands, target, draw.pixels,
                 !replacesAll  ? VK_ATTACHMENT_LOAD_OP_LOAD
                 : draw.clears ? VK_ATTACHMENT_LOAD_OP_CLEAR
                               : VK_ATTACHMENT_LOAD_OP_DONT_CARE);
}

} // namespace Qx::Host::Vulkan
