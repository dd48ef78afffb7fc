#pragma once

#include "host/effects/CompiledEffect.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Qx::Host::Tests {

/// Compiles an effect of one pass, with its shaders for packed texels. Returns null, with a failed
/// expectation, if it does not compile.
std::shared_ptr<const CompiledEffect> packedEffect(const std::string& text);

/// A picture of known, different bytes. A row is a whole number of packed texels.
struct PackedPicture
{
    static constexpr std::size_t columns = 64;
    static constexpr std::size_t rows = 3;

    PackedPicture(std::uint32_t bits, std::uint32_t seed);

    std::uint32_t texelBytes() const { return bits / 2; }
    /// The texel of that number, counted through the rows as a shader does; zeros outside the picture.
    std::vector<std::byte> texel(std::int64_t number) const;

    std::uint32_t bits;
    std::vector<std::byte> bytes;
};

/// Draws a row with a shader for packed texels and returns its bytes: those of the fragments 0 to `packed`
/// - 1. `pictures` are the effect's textures. The uniforms are the parameters' defaults and the values that a
/// host sets for the pictures.
std::vector<std::byte> drawRow(const CompiledEffect& effect, const CompiledEffect::PackedShader& shader,
                               const std::vector<PackedPicture>& pictures, std::uint32_t row,
                               std::uint32_t packed);

/// The number of instructions with that opcode.
std::size_t countOf(const std::vector<std::uint32_t>& spirv, std::uint32_t op);

/// The number of fetches; several of one texel of one image count once.
std::size_t fetchesIn(const std::vector<std::uint32_t>& spirv);

/// The errors that SPIRV-Tools finds; empty if the shader is valid.
std::string problemsOf(const std::vector<std::uint32_t>& spirv);

/// The module of a text in SPIR-V's assembly language; with a failed expectation if it is wrong.
std::vector<std::uint32_t> assembled(const std::string& text);

} // namespace Qx::Host::Tests
