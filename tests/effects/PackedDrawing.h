#pragma once

#include "host/effects/CompiledEffect.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Qx::Host::Tests {

/// An effect of one pass, with its shaders for packed texels. Null, and a failed expectation, when it does
/// not compile.
std::shared_ptr<const CompiledEffect> packedEffect(const std::string& text);

/// A picture of known bytes that differ, in rows of whole groups.
struct PackedPicture
{
    static constexpr std::size_t columns = 64;
    static constexpr std::size_t rows = 3;

    PackedPicture(std::uint32_t bits, std::uint32_t seed);

    std::uint32_t texelBytes() const { return bits / 2; }
    /// Counted through the rows, as a shader does; zeros outside.
    std::vector<std::byte> texel(std::int64_t number) const;

    std::uint32_t bits;
    std::vector<std::byte> bytes;
};

/// What a group shader makes of a row: the texels of the fragments 0 to `groups` - 1. `pictures` are those of
/// the effect's textures. The uniforms are the parameters' defaults and what a host says of the pictures.
std::vector<std::byte> drawRow(const CompiledEffect& effect, const CompiledEffect::PackedShader& shader,
                               const std::vector<PackedPicture>& pictures, std::uint32_t row,
                               std::uint32_t packed);

/// Instructions of that number in the shader.
std::size_t countOf(const std::vector<std::uint32_t>& spirv, std::uint32_t op);

/// Fetches of texels in the shader, those of one texel of one image counted once.
std::size_t fetchesIn(const std::vector<std::uint32_t>& spirv);

/// What SPIRV-Tools finds wrong with it; nothing when it is valid.
std::string problemsOf(const std::vector<std::uint32_t>& spirv);

} // namespace Qx::Host::Tests
