#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Host::Effects {

/// The shader of one text in plain HLSL, with the entry point "main".
struct CompiledShader
{
    struct Message
    {
        std::uint32_t line = 0; ///< of the HLSL text, from 1; 0 if unknown
        std::string text;
    };

    std::vector<std::uint32_t> spirv;      ///< optimized and valid for Vulkan 1.1; empty after an error
    std::vector<std::uint32_t> bindings;   ///< of the samplers and buffers that it reads, ascending
    std::vector<std::uint32_t> texelBytes; ///< with packed texels: see CompiledEffect::PackedShader
    std::vector<std::uint32_t> rows;       ///< the same
    std::vector<std::uint32_t> constants;  ///< numbers of its specialization constants
    bool minglesPixels = false;            ///< it discards pixels or compares neighbours
    std::optional<Message> error;          ///< the first; the compiler's further messages mislead
};

/// Compiles each text, on a few threads of its own whose stacks bear deeply nested input. Blocks until all
/// are compiled. Thread-safe. `packedSourceBits` is given for texts that draw packed texels: the bits of a
/// component of what they read. `reports` is told the index of the text that has been worked on for longest,
/// each time that it is another, by one thread at a time.
std::vector<CompiledShader> compileShaders(const std::vector<std::string>& hlsl,
                                           std::uint32_t packedSourceBits = 0,
                                           const std::function<void(std::size_t)>& reports = {});

/// The versions of the libraries that the shaders come from.
std::string shaderCompilerVersion();

} // namespace Qx::Host::Effects
