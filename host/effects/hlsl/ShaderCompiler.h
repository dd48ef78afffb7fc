#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Host::Effects {

/// One pixel shader in plain HLSL, with the entry point "main".
struct CompiledShader
{
    struct Message
    {
        std::uint32_t line = 0; ///< of the HLSL text, from 1; 0 when unknown
        std::string text;
    };

    std::vector<std::uint32_t> spirv;      ///< optimized and valid for Vulkan 1.1; empty after an error
    std::vector<std::uint32_t> bindings;   ///< of the samplers and buffers that it reads, ascending
    std::vector<std::uint32_t> texelBytes; ///< with groups: see CompiledEffect::PackedShader
    std::vector<std::uint32_t> rows;       ///< the same
    bool minglesPixels = false;   ///< it drops pixels or compares neighbours: no other can stand in for one
    std::optional<Message> error; ///< the first; what compilers say after it misleads
};

/// Names of the functions `float4 qxfx_tex2Dfetch(sampler2D s, int2 texel)` and its like for three
/// dimensions, which the text declares with a body of one tex2Dlod or tex3Dlod: the compiler turns that
/// sampling into an unfiltered fetch of the texel.
inline constexpr const char* fetchFunctions[] = {"qxfx_tex2Dfetch", "qxfx_tex3Dfetch"};

/// Compiles each text, on a few threads of its own whose stacks bear deeply nested input. Any thread may call
/// it, several at once. Texts that draw packed texels come with the bits of a component of
/// what they read.
std::vector<CompiledShader> compileShaders(const std::vector<std::string>& hlsl,
                                           std::uint32_t packedSourceBits = 0);

/// The versions of the libraries that the shaders come from.
std::string shaderCompilerVersion();

} // namespace Qx::Host::Effects
