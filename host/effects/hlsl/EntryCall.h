#pragma once

#include "host/effects/hlsl/ShaderCall.h"
#include "host/effects/hlsl/VertexCall.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Qx::Host::Effects {

/// The call of a pass's entry function: computes the inputs of its semantics from a pixel's position, and
/// passes the pass's arguments to its uniform parameters.
class EntryCall final : public ShaderCall
{
public:
    /// All live longer than this object. `vertex` is null for a pass without a vertex shader. Throws
    /// CompileError for invalid semantics, types and arguments.
    EntryCall(const EffectSyntax& syntax, const EffectSyntax::Piece& entry, const EffectSyntax::Pass& pass,
              const VertexCall* vertex);

    /// Writes the function float4 qxfx_colourAt(int2 qxfx_texel, float2 qxfx_pixel), which returns the entry
    /// function's result for that pixel of the drawn area; its centre is at qxfx_pixel.
    /// It begins with the lines `first`, which may use qxfx_uv: the place in the area.
    void write(const std::vector<std::string>& first, const WriteLine& writeLine,
               const WriteTokens& writeTokens) const;

    /// Whether the result is the codes of a colour instead of a colour.
    bool givesCodes() const { return drawn_->second.codes; }

    /// The numbers of the colours.
    std::set<std::size_t> results() const;

    /// For each output of the vertex shader, whether the entry function takes it.
    const std::vector<bool>& takenOutputs() const { return taken_; }

    /// Of results that are not drawn.
    std::vector<CompileError> warnings() const;

private:
    /// A result, as an expression after the call.
    struct Colour
    {
        Token name;
        std::string expression;
        bool codes;
    };

    std::string input(const EffectSyntax::Type& type, const Token& name, const std::optional<Token>& semantic,
                      std::size_t row) override;
    void addResult(const EffectSyntax::Type& type, const Token& name, std::optional<std::uint32_t> elements,
                   const std::optional<Token>& semantic, const std::string& expression) override;
    void refuseInOut(const EffectSyntax::FunctionParameter& parameter) const override;
    void chooseColour(const EffectSyntax::Pass& pass);

    const VertexCall* const vertex_;
    std::vector<bool> taken_;
    std::map<std::size_t, Colour> colours_;                 ///< by the number of their target
    std::map<std::size_t, Colour>::const_iterator drawn_{}; ///< the pass's own
    Tokens dropped_;                                        ///< names of results that are not drawn
};

} // namespace Qx::Host::Effects
