#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Qx::Host {

/// What the effect compiler makes of one effect file: everything that a GPU service needs to run its
/// techniques, and nothing that depends on a device. Plain data, freely copied and shared between threads.
///
/// Interface of the generated SPIR-V (Vulkan 1.1, one fragment entry point a pass, named "main"):
/// - descriptor set 0, binding 0: a uniform buffer of `uniformBytes` bytes, holding SystemUniforms at offset
///   0, the effect's parameters behind it at their `offset`s (std140 rules), and behind those, at
///   `textureUniforms`, TextureUniforms for each of the effect's textures;
/// - descriptor set 0, binding 1 + i: a combined image sampler for samplers[i];
/// - location 0: the colour output;
/// - specialization constant 0 (bool): true when the target stores c0..c3 = a, r, g, b, so that the pass must
///   write its result rotated to (a, r, g, b); false for targets that hold r, g, b, a as such;
/// - no inputs: texture coordinates are derived from the fragment's position and SystemUniforms.
///
/// A pass may come a second time as shaders for packed texels: see PackedShader.
struct CompiledEffect
{
    /// One float4 an entry, so that the layout is the same in C++ and in the shader.
    struct SystemUniforms
    {
        static constexpr std::size_t maxTexCoords = 8;

        /// x, y: the top left corner of the drawn area in the target, in pixels; z, w: 1 / its size.
        std::array<float, 4> area{0.0F, 0.0F, 1.0F, 1.0F};
        /// TEXCOORDi runs over the drawn area from (x, y) at its top left to (z, w) at its bottom right
        /// corner.
        std::array<std::array<float, 4>, maxTexCoords> texCoords{};
        /// x: the largest code of a component of the target.
        std::array<float, 4> target{};
    };

    /// What the shaders are told of a texture.
    struct TextureUniforms
    {
        float rowPacked = 0; ///< 16 bytes from a texel to the one below it, where it is read as a buffer
        float maxCode = 0;   ///< the largest code of a component
        std::array<float, 2> unused{};
    };

    enum class ScalarType : std::uint8_t
    {
        Float,
        Int,
        Bool
    };

    /// Who gives a parameter its value.
    enum class Semantic : std::uint8_t
    {
        None,           ///< the caller; the default stands until it does
        TextureSize,    ///< the host: width, height of the bound texture in texels (float2)
        TextureMaxCode, ///< the host: the largest code of a component of the bound texture: 255, 1023 or
                        ///< 65535
        TargetSize,     ///< the host: width, height of the target in texels (float2)
        TargetMaxCode,  ///< the host: the largest code of a component of the target
    };

    struct Annotation
    {
        std::string type; ///< as written: "string", "float", "int", "bool"
        std::string name;
        std::string value; ///< text without its quotes, or the number as written
    };

    /// A parameter outside any function. Floats, ints and bools take 4 bytes a component in the uniform
    /// buffer.
    struct Parameter
    {
        std::string name;
        ScalarType type = ScalarType::Float;
        std::uint32_t rows = 1;     ///< more than 1 for matrices
        std::uint32_t columns = 1;  ///< components of a scalar or vector, columns of a matrix
        std::uint32_t elements = 0; ///< of an array; 0 when it is none
        std::uint32_t offset = 0;   ///< in the uniform buffer, in bytes
        std::uint32_t bytes =
            0; ///< that it takes there, padding between array elements and matrix rows included
        std::vector<std::byte>
            defaultValue; ///< `bytes` bytes, laid out as in the uniform buffer; zeros without one
        Semantic semantic = Semantic::None;
        std::string semanticTexture; ///< the texture that a texture semantic speaks of
        std::vector<Annotation> annotations;
    };

    struct Texture
    {
        std::string name; ///< what iShaderEffect::Source::name binds
        std::vector<Annotation> annotations;
    };

    enum class Filter : std::uint8_t
    {
        Point,
        Linear
    };
    enum class Address : std::uint8_t
    {
        Clamp,
        Wrap,
        Mirror,
        Border
    };

    struct Sampler
    {
        std::string name;
        std::uint32_t texture = 0; ///< index into textures
        Filter filter = Filter::Point;
        Address addressU = Address::Clamp;
        Address addressV = Address::Clamp;
    };

    /// A pass each of whose fragments makes 16 bytes of the target at once, for devices that pay for each
    /// fragment rather than for its work: a group of neighbouring texels of a row.
    /// It makes what the pass makes, under these conditions:
    /// - the whole target is drawn, seen as one of R32G32B32A32_UINT of as many texels as there are groups in
    ///   a row; what a row has behind its last texel is overwritten;
    /// - the target has components of `depths.target` bits in the order a, r, g, b; each two-dimensional
    ///   texture that it reads, and each that a parameter with Semantic::TextureMaxCode speaks of, has such
    ///   of `depths.source` bits.
    /// The interface is that of a pass, except that
    /// - the output is a uint4, and there is no specialization constant;
    /// - some bindings are uniform texel buffers over the texture's memory instead of combined image
    /// samplers,
    ///   as the SPIR-V says. `texelBytes` says how: as texels of the source's components, or as texels of 8
    ///   or 16 bytes of 32-bit ones, all without a sign;
    /// - rows of 16 bytes of the uniform buffer come as flat inputs of four floats.
    struct PackedShader
    {
        /// Bits of a component, 8 or 16.
        struct Depths
        {
            std::uint32_t source = 0;
            std::uint32_t target = 0;

            friend bool operator==(const Depths&, const Depths&) = default;

            bool areMixed() const { return source != target; }
        };

        Depths depths;
        std::vector<std::uint32_t> spirv;
        std::vector<std::uint32_t> samplers;   ///< as a pass's
        std::vector<std::uint32_t> texelBytes; ///< for each of them, if it is a buffer
        std::vector<std::uint32_t> rows;       ///< of the uniform buffer, by the location of the input

        static constexpr std::size_t mostRows = 8;
        static constexpr std::uint32_t texelsOf(std::uint32_t componentBits) { return 32 / componentBits; }
    };

    struct Pass
    {
        std::string name;
        std::vector<std::uint32_t> spirv;
        std::vector<std::uint32_t> samplers; ///< indices of the samplers that the pass reads, ascending
        std::vector<PackedShader> packed;    ///< one for each pair of depths that there is one for
    };

    struct Technique
    {
        std::string name;
        std::vector<Pass> passes; ///< run one after the other over the same target; at least one
        std::vector<Annotation> annotations;
    };

    std::vector<Parameter> parameters;
    std::vector<Texture> textures;
    std::vector<Sampler> samplers;
    std::vector<Technique> techniques; ///< in the file's order; the first is current until another is chosen
    std::uint32_t uniformBytes = 0;
    std::uint32_t textureUniforms = 0; ///< offset of the TextureUniforms in the uniform buffer
};

} // namespace Qx::Host
