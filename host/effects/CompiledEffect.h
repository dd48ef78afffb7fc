#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Qx::Host {

/// The result of compiling one effect file: everything that a GPU service needs to run its techniques, and
/// nothing that depends on a device. Plain data, freely copied and shared between threads.
///
/// Interface of the generated SPIR-V (Vulkan 1.1, one fragment entry point a pass, named "main"):
/// - descriptor set 0, binding 0: a uniform buffer of `uniformBytes` bytes, holding SystemUniforms at offset
///   0, then the effect's parameters at their `offset`s (std140 rules), then, at `textureUniforms`,
///   TextureUniforms for each of the effect's textures;
/// - descriptor set 0, binding 1 + i: a combined image sampler for samplers[i];
/// - location 0: the colour output;
/// - specialization constant 0 (bool): true if the target stores c0..c3 = a, r, g, b, so that the pass must
///   write its result rotated to (a, r, g, b); false for targets that store r, g, b, a;
/// - no inputs: texture coordinates are derived from the fragment's position and SystemUniforms.
///
/// A pass may have additional shaders for packed texels: see PackedShader.
struct CompiledEffect
{
    /// Each entry is one float4, so that the layout is the same in C++ and in the shader.
    struct SystemUniforms
    {
        static constexpr std::size_t maxTexCoords = 8; ///< TEXCOORD0 to TEXCOORD7

        /// x, y: the top left corner of the drawn area in the target, in pixels; z, w: 1 / its size.
        std::array<float, 4> area{0.0F, 0.0F, 1.0F, 1.0F};
        /// TEXCOORDi runs over the drawn area from (x, y) at its top left to (z, w) at its bottom right
        /// corner.
        std::array<std::array<float, 4>, maxTexCoords> texCoords{};
        /// Of codes that are a result: x the largest code of a component of the target, y and z what they are
        /// clamped to; w: 0 if they are truncated, else 1.
        std::array<float, 4> target{};
    };

    /// What the shaders know about a texture.
    struct TextureUniforms
    {
        float rowPacked = 0; ///< pitch in units of 16 bytes, if the texture is read as a buffer
        float maxCode = 0;   ///< the largest code of a component; of a volume that is read as a buffer
                             ///< the rows from one layer to the next
        std::array<float, 2> size{}; ///< width and height in texels
    };

    /// The type of a component of a parameter.
    enum class ScalarType : std::uint8_t
    {
        Float,
        Int,
        Bool
    };

    /// Who sets a parameter's value.
    enum class Semantic : std::uint8_t
    {
        None,           ///< the caller; until then the default applies
        TextureSize,    ///< the host: width, height of the bound texture in texels (float2)
        TextureMaxCode, ///< the host: the largest code of a component of the bound texture: 255, 1023 or
                        ///< 65535
        TargetSize,     ///< the host: width, height of the target in texels (float2)
        TargetMaxCode,  ///< the host: the largest code of a component of the target
        Identity,       ///< nobody: a matrix that is 1 on its diagonal, in the shaders as a constant
        ShaderNumber,   ///< nobody: its default has chosen the shader of a pass
    };

    /// A note that the file gives to a parameter, a texture or a technique.
    struct Annotation
    {
        std::string type;  ///< as written: "string", "float", "int", "bool"
        std::string name;  ///< its name in the file
        std::string value; ///< text without its quotes, or the number as written
    };

    /// A parameter outside any function. Floats, ints and bools take 4 bytes a component in the uniform
    /// buffer.
    struct Parameter
    {
        std::string name;                    ///< its name in the file
        ScalarType type = ScalarType::Float; ///< of a component
        std::uint32_t rows = 1;              ///< more than 1 for matrices
        std::uint32_t columns = 1;           ///< components of a scalar or vector, columns of a matrix
        std::uint32_t elements = 0;          ///< of an array; 0 if it is not one
        std::uint32_t offset = 0;            ///< in the uniform buffer, in bytes
        std::uint32_t bytes = 0; ///< its size there, including padding between array elements and matrix rows
        std::vector<std::byte>
            defaultValue; ///< `bytes` bytes, laid out as in the uniform buffer; zeros without one
        Semantic semantic = Semantic::None;  ///< who sets it
        std::string semanticName;            ///< as written; empty without one
        std::string semanticTexture;         ///< the texture of a texture semantic
        std::string place;                   ///< "c4": the register that the file gives it; it has no effect
        std::vector<Annotation> annotations; ///< in the file's order
    };

    /// A component of a texture that passes draw into.
    enum class TargetFormat : std::uint8_t
    {
        Same, ///< as of the caller's target
        Bits8,
        Bits10,
        Bits16,
        Half ///< a float of 16 bits, neither clamped nor rounded to codes
    };

    /// How large a texture that passes draw into is.
    struct TargetSize
    {
        static constexpr std::uint32_t whole = 65536; ///< a ratio of 1

        std::uint32_t width = 0;      ///< in texels; 0: by the ratio
        std::uint32_t height = 0;     ///< in texels; 0: by the ratio
        std::uint32_t ratioX = whole; ///< of the caller's target, in 65536ths
        std::uint32_t ratioY = whole; ///< as ratioX, of the height
    };

    /// A texture that the effect declares, or what a sampler without a texture reads: that has the sampler's
    /// name.
    struct Texture
    {
        static constexpr std::uint32_t mostLevels = 16; ///< of a side of 32768 texels

        std::string name;                               ///< the name that iShaderEffect::Source::name binds
        std::string semantic;                           ///< as written; empty without one
        std::vector<Annotation> annotations;            ///< in the file's order
        TargetSize targetSize{};                        ///< if a pass draws into it
        TargetFormat targetFormat = TargetFormat::Same; ///< if a pass draws into it
        /// How many levels samplers read, its own size included, and fewer where one texel is reached before.
        /// The host makes them: each texel is the average of four of the level above.
        std::uint32_t levels = 1;
    };

    /// How a sampler reads between texels.
    enum class Filter : std::uint8_t
    {
        Point,
        Linear
    };
    /// How a sampler reads smaller levels.
    enum class Mip : std::uint8_t
    {
        None,  ///< not at all
        Point, ///< the nearest one
        Linear ///< mixes two
    };
    /// What a sampler reads outside a texture.
    enum class Address : std::uint8_t
    {
        Clamp,
        Wrap,
        Mirror,
        Border
    };

    /// One sampler of the effect.
    struct Sampler
    {
        static constexpr std::uint32_t noRegister = 0xFFFFFFFF; ///< the file gives it no register

        std::string name;                         ///< its name in the file
        std::uint32_t texture = 0;                ///< index into textures
        std::uint32_t registerIndex = noRegister; ///< N of its register(sN), or its texture's tN
        std::uint32_t dimensions = 2;             ///< of its texture: 2, or 3 for a volume
        std::uint32_t faces = 1; ///< square pictures side by side that its texture is: 6 for a cube
        Filter filter =
            Filter::Point;   ///< of a sampler with a Mip the shaders filter: the device takes points
        Mip mip = Mip::None; ///< another only if its texture has levels
        Address addressU = Address::Clamp; ///< across
        Address addressV = Address::Clamp; ///< down
    };

    /// A pass whose fragments draw packed texels: each writes 16 bytes of the target, several neighbouring
    /// texels of a row, for devices whose cost is the number of fragments rather than their work.
    /// It draws the same as the pass under these conditions:
    /// - the whole target is drawn, as an image of R32G32B32A32_UINT with one texel for each 16 bytes of a
    ///   row; the padding after the last texel of a row is overwritten;
    /// - the target has components of `depths.target` bits in the order a, r, g, b. Each two-dimensional
    ///   texture that the pass reads, or that a parameter with Semantic::TextureMaxCode names, has components
    ///   of `depths.source` bits.
    /// The interface is that of a pass, except that
    /// - the output is a uint4, and there is no specialization constant;
    /// - some bindings are uniform texel buffers over the texture's memory instead of combined image
    /// samplers,
    ///   as the SPIR-V declares. `texelBytes` gives their texels: those of the source, or texels of 8 or 16
    ///   bytes with components of 32 bits, all unsigned. The texels of volumes are four floats;
    /// - rows of 16 bytes of the uniform buffer are flat inputs of four floats.
    struct PackedShader
    {
        /// Bits of a component, 8 or 16.
        struct Depths
        {
            std::uint32_t source = 0; ///< of what it reads
            std::uint32_t target = 0; ///< of what it draws into

            /// Compares all members.
            friend bool operator==(const Depths&, const Depths&) = default;

            bool areMixed() const { return source != target; } ///< whether they differ
        };

        Depths depths;                         ///< for which the shader is
        std::vector<std::uint32_t> spirv;      ///< a module of one entry point, "main"
        std::vector<std::uint32_t> samplers;   ///< as in Pass
        std::vector<std::uint32_t> texelBytes; ///< of each sampler that is a buffer
        std::vector<std::uint32_t> rows;       ///< of the uniform buffer, by the location of the input
        /// Empty, or for each sampler the number n of the TEXCOORDn at which it is read, or noPlace. The
        /// shader then takes the texel at the fragment's own place instead: TEXCOORDn has to run over the
        /// whole of a texture of the target's size.
        std::vector<std::uint32_t> places;

        /// An object file of native code that draws the same (host/native/NativeCode.h), if that was asked
        /// for: then `spirv` gives single texels and reads all uniforms from the buffer, and there are no
        /// `rows`.
        std::vector<std::byte> code{};
        std::string codeProblem{}; ///< why there is no `code`, if that was asked for

        static constexpr std::uint32_t noPlace = 0xFFFFFFFF; ///< reads at computed places

        static constexpr std::size_t mostRows = 8; ///< of `rows`
        /// Returns how many texels 16 bytes are.
        static constexpr std::uint32_t texelsOf(std::uint32_t componentBits) { return 32 / componentBits; }
    };

    /// Where a vertex shader places the corners of the rectangle that a pass draws.
    struct Corners
    {
        std::string shader; ///< its name in the file
        std::vector<std::uint32_t>
            spirv;               ///< what Spirv::tryCorners() runs; empty if parameters change nothing
        std::uint32_t count = 4; ///< 3 for a triangle that is continued
        /// What the coordinates of corners count.
        enum class Positions : std::uint8_t
        {
            OfSpace,
            MayBePixels ///< as those of sprites are
        };
        Positions positions = Positions::OfSpace; ///< what its results are
    };

    /// One pass of a technique.
    struct Pass
    {
        /// `target` of a pass that draws into the caller's target.
        static constexpr std::uint32_t callersTarget = 0xFFFFFFFF;
        static constexpr std::size_t results = 4; ///< COLOR0 to COLOR3

        /// All results into the caller's target.
        static constexpr std::array<std::uint32_t, results> noTargets()
        {
            return {callersTarget, callersTarget, callersTarget, callersTarget};
        }

        std::string name;                    ///< its name in the file; may be empty
        std::vector<std::uint32_t> spirv;    ///< a module of one entry point, "main"
        std::vector<std::uint32_t> samplers; ///< indices of the samplers that the pass reads, ascending
        /// At most one without and, after them, one with `places` for each pair of depths.
        std::vector<PackedShader> packed;
        /// The texture that it draws into, all of it; it is not one that it reads.
        std::uint32_t target = callersTarget;
        /// The number N of the result COLORN that it draws, 0 for the first colour. A pass of a file that
        /// draws several results is as many passes, that of the first colour last.
        std::uint32_t result = 0;
        Corners corners; ///< of its vertex shader, if it has one
    };

    /// One technique of the effect.
    struct Technique
    {
        std::string name; ///< case-sensitive
        std::vector<Pass>
            passes; ///< drawn one after the other; at least one, the last into the caller's target
        std::vector<Annotation> annotations; ///< in the file's order
    };

    /// Whether a picture of that size can be what the sampler reads: a cube is about six times as wide as
    /// high.
    static bool fits(const Sampler& sampler, std::uint32_t width, std::uint32_t height)
    {
        const std::uint64_t wide = width;
        const std::uint64_t high = height;
        return sampler.faces != 6 || (wide * 10 >= high * 55 && wide * 10 <= high * 65);
    }

    std::vector<Parameter> parameters; ///< in the file's order
    std::vector<Texture> textures;     ///< in the file's order
    std::vector<Sampler> samplers;     ///< by binding
    std::vector<Technique> techniques; ///< in the file's order; the first is the current one at first
    std::uint32_t uniformBytes = 0;    ///< of the uniform buffer
    std::uint32_t textureUniforms = 0; ///< offset of the TextureUniforms in the uniform buffer
};

} // namespace Qx::Host
