#include "host/gpu/packed/PackedDrawing.h"

#include "host/gpu/packed/PackedViews.h"
#include "host/gpu/shaders/triangle.vert.h"
#include "host/gpu/shaders/triangleWithRows.vert.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace Qx::Host::Vulkan {

namespace {

using PackedShader = CompiledEffect::PackedShader;

constexpr std::size_t rowBytes = 16; // of the uniform buffer

/// Rows of the uniform buffer, which the vertex shader hands on to the fragment shader.
constexpr VkPushConstantRange rowConstants{VK_SHADER_STAGE_VERTEX_BIT, 0, PackedShader::mostRows* rowBytes};

/// A shader for those depths for each pass; fewer if a pass has none.
std::vector<const PackedShader*> shadersFor(const CompiledEffect::Technique& technique,
                                            const PackedShader::Depths& depths)
{
    std::vector<const PackedShader*> shaders;
    for (const CompiledEffect::Pass& pass : technique.passes) {
        const auto found = std::find_if(pass.packed.begin(), pass.packed.end(), [&](const auto& shader) {
            return shader.depths == depths && shader.places.empty();
        });
        if (found != pass.packed.end()) {
            shaders.push_back(&*found);
        }
    }
    return shaders;
}

} // namespace

bool PackedDrawing::createAll(Context& context, const CompiledEffect& effect,
                              const CompiledEffect::Technique& technique,
                              std::vector<std::unique_ptr<TechniqueDrawing>>& drawings)
{
    for (const PackedShader& first : technique.passes.front().packed) {
        const bool isOwnPlace = !first.places.empty();
        const std::vector<const PackedShader*> shaders =
            isOwnPlace ? std::vector{&first} : shadersFor(technique, first.depths);
        if (shaders.size() != technique.passes.size()) {
            continue;
        }
        auto drawing = std::make_unique<PackedDrawing>(context, effect, first.depths);
        PackedDrawing& packed = *drawing;
        // The caller destroys it even after a failure.
        drawings.insert(isOwnPlace ? drawings.begin() : drawings.end(), std::move(drawing));
        if (!packed.add(shaders)) {
            return false;
        }
    }
    return true;
}

bool PackedDrawing::add(const std::vector<const PackedShader*>& shaders)
{
    shaders_ = shaders;
    return std::all_of(shaders.begin(), shaders.end(), [this](const PackedShader* shader) {
        return addPass(shader->spirv, shader->samplers, shader->rows.empty() ? nullptr : &rowConstants);
    });
}

bool PackedDrawing::hasSourceDepth(const Picture* picture) const
{
    return picture != nullptr && picture->hasCompanion && packedBits(picture->key.format) == depths_.source;
}

/// See the conditions of CompiledEffect::PackedShader.
bool PackedDrawing::canDraw(const Draw& draw) const
{
    if (!draw.target.hasCompanion || !draw.coversTarget() ||
        packedBits(draw.target.key.format) != depths_.target) {
        return false;
    }
    for (std::size_t p = 0; p < passCount(); ++p) {
        const ShaderProgram& pass = program(p);
        for (std::size_t i = 0; i < pass.bindings.size(); ++i) {
            const Picture* picture = draw.pictureOf(pass.bindings[i]);
            const bool isVolume = draw.effect.samplers[pass.bindings[i]].dimensions == 3;
            const bool asBuffer = pass.dimensions[i] == 1;
            if (isVolume ? asBuffer && (picture == nullptr || !picture->hasCompanion)
                         : !hasSourceDepth(picture)) {
                return false;
            }
            const std::vector<std::uint32_t>& places = shaders_[p]->places;
            if (!places.empty() && places[i] != PackedShader::noPlace &&
                !draw.isOwnPlace(places[i], *picture)) {
                return false;
            }
        }
    }
    const std::vector<CompiledEffect::Parameter>& parameters = draw.effect.parameters;
    return std::all_of(parameters.begin(), parameters.end(), [&](const CompiledEffect::Parameter& parameter) {
        const Picture* picture = draw.pictureCalled(parameter.semanticTexture);
        return parameter.semantic != CompiledEffect::Semantic::TextureMaxCode || picture == nullptr ||
               picture->key.depth > 0 || hasSourceDepth(picture);
    });
}

bool PackedDrawing::record(Batch& batch, const Draw& draw, PassRange passes) const
{
    fillPackedRows(draw);
    if (!TechniqueDrawing::record(batch, draw, passes)) {
        return false;
    }
    context().pathDraws += passes.end - passes.first;
    return true;
}

void PackedDrawing::useNative(const std::shared_ptr<NativeMaker>& maker, const std::string& technique)
{
    if (passCount() == 1) {
        NativeWish wish;
        wish.technique = technique;
        wish.depths = depths_;
        wish.isOwnPlace = !shaders_.front()->places.empty();
        native_ = std::make_unique<NativeDrawing>(context(), maker, std::move(wish));
    }
}

void fillPackedRows(const Draw& draw)
{
    for (std::size_t i = 0; i < draw.textures.size(); ++i) {
        const PackedViews* views =
            draw.textures[i] != nullptr ? PackedViews::of(*draw.textures[i]->texture()) : nullptr;
        if (views == nullptr) {
            continue;
        }
        std::byte* const place = draw.uniforms.data() + draw.textureUniforms(i);
        const auto rowPacked = static_cast<float>(views->rowPacked());
        std::memcpy(place + offsetof(CompiledEffect::TextureUniforms, rowPacked), &rowPacked,
                    sizeof rowPacked);
        if (draw.textures[i]->key.depth > 0) {
            const auto layerRows = static_cast<float>(views->layerRows());
            std::memcpy(place + offsetof(CompiledEffect::TextureUniforms, maxCode), &layerRows,
                        sizeof layerRows);
        }
    }
}

VkResult PackedDrawing::createPipelines(std::size_t pass, VkShaderModule fragment,
                                        FormatPipelines& pipelines) const
{
    Device& device = context().device();
    const bool takesRows = !shaders_[pass]->rows.empty();
    VkShaderModule vertex = nullptr;
    VkResult result = takesRows ? createShaderModule(device, triangleWithRowsVertexShader, vertex)
                                : createShaderModule(device, triangleVertexShader, vertex);
    for (std::size_t i = 0; i < targetFormats.size() && result == VK_SUCCESS; ++i) {
        if (packedBits(targetFormats.at(i)) == depths_.target) {
            result = createPipeline(device, vertex, fragment, program(pass).layout, Blending::Replace,
                                    packedFormat, pipelines.at(i));
        }
    }
    vkDestroyShaderModule(device.handle(), vertex, nullptr);
    return result;
}

void PackedDrawing::begin(VkCommandBuffer commands, const Texture& target, const Draw&, bool) const
{
    const PackedViews& views = *PackedViews::of(target);
    beginDrawing(commands,
                 {views.target(), target.layoutFor(VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL), views.size()},
                 {{0, 0}, views.size()}, VK_ATTACHMENT_LOAD_OP_DONT_CARE);
}

void PackedDrawing::bind(std::size_t pass, std::size_t binding, const Texture& texture,
                         VkWriteDescriptorSet& write, VkDescriptorImageInfo& image) const
{
    if (program(pass).dimensions[binding] != 1) {
        TechniqueDrawing::bind(pass, binding, texture, write, image);
        return;
    }
    write.descriptorType = VK_DESCRIPTOR_TYPE_UNIFORM_TEXEL_BUFFER;
    write.pTexelBufferView = &PackedViews::of(texture)->texels(
        texture.key.depth > 0 ? packedBytes : shaders_[pass]->texelBytes[binding]);
}

void PackedDrawing::pushConstants(VkCommandBuffer commands, std::size_t pass, const Draw& draw) const
{
    const std::vector<std::uint32_t>& numbers = shaders_[pass]->rows;
    if (numbers.empty()) {
        return;
    }
    std::array<std::byte, rowConstants.size> rows{};
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        std::memcpy(rows.data() + i * rowBytes, draw.uniforms.data() + numbers[i] * rowBytes, rowBytes);
    }
    vkCmdPushConstants(commands, program(pass).layout, rowConstants.stageFlags, rowConstants.offset,
                       rowConstants.size, rows.data());
}

} // namespace Qx::Host::Vulkan
