#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

namespace Qx::Host::Tests {

/// The inputs of one fragment of a shader for packed texels.
struct FragmentInputs
{
    struct Buffer
    {
        std::span<const std::byte> bytes;
        std::uint32_t texelBytes = 0;
        std::uint32_t componentBits = 0; ///< 8 or 16 for texels as the image has them, else 32
    };

    std::array<float, 2> position{};
    std::vector<std::byte> uniforms;
    std::vector<std::uint32_t> rows;         ///< of the uniforms, by the location of the input
    std::map<std::uint32_t, Buffer> buffers; ///< by binding; bytes outside of one are 0
};

/// Runs a shader for one fragment by interpreting its SPIR-V: an independent check of the passes over it.
/// Supports the instructions of small shaders only; throws std::runtime_error for others.
std::array<std::uint32_t, 4> runFragment(const std::vector<std::uint32_t>& spirv,
                                         const FragmentInputs& inputs);

} // namespace Qx::Host::Tests
