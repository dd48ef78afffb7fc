#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/effects/hlsl/ShaderCall.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Host::Effects {

/// How the results of a vertex function depend on the corner of the rectangle: as far as the text shows it,
/// and whatever the parameters are.
struct VertexForm
{
    bool keepsPlace = false;      ///< its position is the one that it is given
    bool placeIsAffine = false;   ///< its position is what the function gives at any place between
    bool hasOnePlace = false;     ///< its position is the same for all corners
    bool keepsCoordinate = false; ///< the texture coordinate 0 is the one that it is given
    std::vector<bool> affine;     ///< of each output: it is what the function gives at any place between

    CompiledEffect::Corners corners;

    std::optional<CompileError> error; ///< nothing can be drawn
    std::vector<CompileError> warnings;
};

/// The call of a pass's vertex function for the corners of the rectangle that the pass draws, and what it
/// gives to the pixels between them.
///
/// A corner's position is (-1, 1, 0, 1) at the top left and (1, -1, 0, 1) at the bottom right; its texture
/// coordinates are those of the inputs.
class VertexCall final : public ShaderCall
{
public:
    /// All live longer than this object. Throws CompileError for invalid semantics, types and arguments.
    VertexCall(const EffectSyntax& syntax, const EffectSyntax::Piece& entry,
               const EffectSyntax::Shader& shader);

    struct Output
    {
        std::string_view name; ///< of its semantic
        std::size_t index;     ///< of its semantic
        std::string value;     ///< a float4, after the call
    };
    const std::vector<Output>& outputs() const { return outputs_; }

    /// The index of that output.
    std::optional<std::size_t> outputNamed(const IndexedSemantic& semantic) const;

    std::string_view name() const { return entry().name.text; }

    /// Writes the struct qxfx_Corner, which holds `place` and the outputs `of0`, `of1`, ..., and the function
    /// qxfx_Corner qxfx_cornerAt(float4 qxfx_corner, float2 qxfx_at, uint qxfx_number), which begins with the
    /// lines `first`.
    void writeFunction(const std::vector<std::string>& first, const WriteLine& writeLine,
                       const WriteTokens& writeTokens) const;

    /// Writes a main() whose outputs are those of qxfx_cornerAt, for a corner that is the input: two numbers
    /// of its position and two of its texture coordinates.
    void writeProbe(const WriteLine& writeLine) const;

    /// What outputForms() and tryCorners() of the probe's shader say. `uniforms` is what the uniform buffer
    /// may hold when it is drawn; `knowsSizes` as below.
    VertexForm formOf(const std::vector<std::uint32_t>& spirv, const std::vector<std::byte>& uniforms,
                      bool knowsSizes) const;

    /// Writes the lines that declare `qxfx_Corner qxfx_vertex`, with the values at qxfx_pixel, and leave the
    /// pixel out that the rectangle does not cover. Of the outputs those are written that `used` has.
    /// `knowsSizes`: the function asks for the size of a picture or a texel; `texels` are those sizes of
    /// texels, in texture coordinates.
    void writeInterpolation(const VertexForm& form, const std::vector<bool>& used, bool knowsSizes,
                            const std::vector<std::string>& texels, const WriteLine& writeLine) const;

private:
    std::string input(const EffectSyntax::Type& type, const Token& name, const std::optional<Token>& semantic,
                      std::size_t row) override;
    void addResult(const EffectSyntax::Type& type, const Token& name, std::optional<std::uint32_t> elements,
                   const std::optional<Token>& semantic, const std::string& expression) override;
    void refuseInOut(const EffectSyntax::FunctionParameter&) const override {}
    void judge(const std::vector<std::uint32_t>& spirv, const std::vector<std::byte>& uniforms,
               bool knowsSizes, VertexForm& form) const;

    const EffectSyntax::Shader& shader_;
    std::vector<Output> outputs_;
    std::string place_;     ///< the position, after the call
    Token placeName_;       ///< its name, or that of the function
    bool numbered_ = false; ///< it makes its corners of their numbers
};

} // namespace Qx::Host::Effects
