#include "tests/effects/PackedDrawing.h"

#include "host/effects/EffectCompiler.h"
#include "host/effects/spirv/SpirvModule.h"
#include "tests/TemporaryDirectory.h"
#include "tests/effects/ShaderInterpreter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <utility>

#include <spirv-tools/libspirv.hpp>

namespace Qx::Host::Tests {
namespace {

std::vector<std::byte> uniformsOf(const CompiledEffect& effect, const std::vector<PackedPicture>& pictures)
{
    std::vector<std::byte> uniforms(effect.uniformBytes);
    CompiledEffect::SystemUniforms system;
    system.target[0] = pictures.at(0).bits == 8 ? 255.0F : 65535.0F;
    std::memcpy(uniforms.data(), &system, sizeof system);
    for (const CompiledEffect::Parameter& parameter : effect.parameters) {
        std::copy(parameter.defaultValue.begin(), parameter.defaultValue.end(),
                  uniforms.begin() + parameter.offset);
        if (parameter.semantic == CompiledEffect::Semantic::TextureSize) {
            const float size[2] = {static_cast<float>(PackedPicture::columns),
                                   static_cast<float>(PackedPicture::rows)};
            std::memcpy(uniforms.data() + parameter.offset, size, sizeof size);
        }
    }
    for (std::size_t i = 0; i < effect.textures.size(); ++i) {
        CompiledEffect::TextureUniforms texture;
        const std::size_t rowPacked = PackedPicture::columns * pictures.at(i).texelBytes() / 16;
        texture.rowPacked = static_cast<float>(rowPacked);
        texture.maxCode = system.target[0];
        std::memcpy(uniforms.data() + effect.textureUniforms + i * sizeof texture, &texture, sizeof texture);
    }
    return uniforms;
}

} // namespace

std::shared_ptr<const CompiledEffect> packedEffect(const std::string& text)
{
    const Qx::Test::TemporaryDirectory directory;
    EffectCompilerOptions options;
    options.packed = true;
    const EffectCompilation result = compileEffect(directory.write("effect.fx", text), options);
    EXPECT_NE(result.effect, nullptr) << result.messages;
    if (result.effect == nullptr || result.effect->techniques[0].passes[0].packed.size() != 2) {
        ADD_FAILURE() << "no shaders for packed texels";
        return nullptr;
    }
    return result.effect;
}

PackedPicture::PackedPicture(std::uint32_t componentBits, std::uint32_t seed)
    : bits(componentBits), bytes(columns * rows * texelBytes())
{
    std::uint32_t state = seed;
    for (std::byte& byte : bytes) {
        state = state * 1664525U + 1013904223U; // Numerical Recipes' generator
        byte = static_cast<std::byte>(state >> 24U);
    }
}

std::vector<std::byte> PackedPicture::texel(std::int64_t number) const
{
    std::vector<std::byte> result(texelBytes());
    if (number >= 0 && number < static_cast<std::int64_t>(columns * rows)) {
        const std::size_t first = static_cast<std::size_t>(number) * texelBytes();
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(first), result.size(), result.begin());
    }
    return result;
}

std::vector<std::byte> drawRow(const CompiledEffect& effect, const CompiledEffect::PackedShader& shader,
                               const std::vector<PackedPicture>& pictures, std::uint32_t row,
                               std::uint32_t packed)
{
    FragmentInputs inputs;
    inputs.uniforms = uniformsOf(effect, pictures);
    inputs.rows = shader.rows;
    for (std::size_t i = 0; i < shader.samplers.size(); ++i) {
        const PackedPicture& picture = pictures.at(effect.samplers[shader.samplers[i]].texture);
        const std::uint32_t bytes = shader.texelBytes.at(i);
        inputs.buffers[1 + shader.samplers[i]] = {picture.bytes, bytes,
                                                  bytes == picture.texelBytes() ? picture.bits : 32};
    }
    std::vector<std::byte> drawn;
    for (std::uint32_t column = 0; column < packed; ++column) {
        inputs.position = {static_cast<float>(column) + 0.5F, static_cast<float>(row) + 0.5F};
        const std::array<std::uint32_t, 4> words = runFragment(shader.spirv, inputs);
        const auto made = std::as_bytes(std::span(words));
        drawn.insert(drawn.end(), made.begin(), made.end());
    }
    return drawn;
}

std::size_t countOf(const std::vector<std::uint32_t>& spirv, std::uint32_t op)
{
    std::size_t count = 0;
    Effects::Spirv::forEach(spirv, [&](const Effects::Spirv::Instruction& instruction) {
        count += instruction.op() == op ? 1U : 0U;
    });
    return count;
}

std::size_t fetchesIn(const std::vector<std::uint32_t>& spirv)
{
    std::set<std::pair<std::uint32_t, std::uint32_t>> places;
    Effects::Spirv::forEach(spirv, [&](const Effects::Spirv::Instruction& instruction) {
        if (instruction.op() == spv::OpImageFetch) {
            places.emplace(instruction[3], instruction[4]);
        }
    });
    return places.size();
}

std::string problemsOf(const std::vector<std::uint32_t>& spirv)
{
    std::string problems;
    spvtools::SpirvTools tools(SPV_ENV_VULKAN_1_1);
    tools.SetMessageConsumer([&](spv_message_level_t, const char*, const spv_position_t&,
                                 const char* message) { problems += std::string(message) + '\n'; });
    if (!tools.Validate(spirv) && problems.empty()) {
        problems = "not valid";
    }
    return problems;
}

std::vector<std::uint32_t> assembled(const std::string& text)
{
    std::vector<std::uint32_t> spirv;
    std::string problems;
    spvtools::SpirvTools tools(SPV_ENV_VULKAN_1_1);
    tools.SetMessageConsumer([&](spv_message_level_t, const char*, const spv_position_t&,
                                 const char* message) { problems += message; });
    EXPECT_TRUE(tools.Assemble(text, &spirv)) << problems;
    return spirv;
}

} // namespace Qx::Host::Tests
