#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/gpu/device/Context.h"

#include <cstdint>
#include <span>
#include <vector>

namespace Qx::Host::Vulkan {

/// One fragment shader of an effect on the device, without its pipelines.
struct ShaderProgram
{
    VkDescriptorSetLayout setLayout = nullptr;
    VkPipelineLayout layout = nullptr;
    std::vector<std::uint32_t> bindings;   ///< indices of the effect's samplers that it reads, ascending
    std::vector<VkSampler> samplers;       ///< one for each of them
    std::vector<std::uint32_t> dimensions; ///< 2 or 3, of the texture that each reads; 1: a texel buffer
    bool discards = false;                 ///< it may leave pixels as they are
};

/// What a ShaderProgram is created from.
struct ShaderSource
{
    std::span<const std::uint32_t> spirv;
    const std::vector<std::uint32_t>& samplers;         ///< indices into the effect's
    const VkPushConstantRange* pushConstants = nullptr; ///< null: none
};

/// Returns false if the device refuses the shader; `program` is to be destroyed in either case. Inside an
/// Operation.
bool createShaderProgram(Context& context, const CompiledEffect& effect, const ShaderSource& source,
                         ShaderProgram& program);
void destroyShaderProgram(Device& device, ShaderProgram& program);

} // namespace Qx::Host::Vulkan
