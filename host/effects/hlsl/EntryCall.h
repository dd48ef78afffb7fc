#pragma once

#include "host/effects/framework/EffectSyntax.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Host::Effects {

/// The call of a pass's entry function: computes the inputs of its semantics from a pixel's position, and
/// passes the pass's arguments to its uniform parameters.
class EntryCall
{
public:
    using Tokens = std::vector<Token>;

    /// All live longer than this object. Throws CompileError for invalid semantics, types and arguments.
    EntryCall(const EffectSyntax& syntax, const EffectSyntax::Piece& entry, const EffectSyntax::Pass& pass);

    /// Writes the function float4 qxfx_colourAt(int2 qxfx_texel, float2 qxfx_pixel), which returns the entry
    /// function's result for that pixel of the drawn area; its centre is at qxfx_pixel.
    void write(const std::function<void(std::string_view)>& writeLine,
               const std::function<void(const Tokens&)>& writeTokens) const;

    /// Whether the result is the codes of a colour instead of a colour.
    bool givesCodes() const { return givesCodes_; }

private:
    struct Argument
    {
        std::string text;
        const Tokens* tokens = nullptr; ///< instead of a text
    };

    void addParameter(const EffectSyntax::FunctionParameter& parameter);
    void addUniform(const EffectSyntax::FunctionParameter& parameter);
    void addStructure(const EffectSyntax::FunctionParameter& parameter, const EffectSyntax::Piece& structure);
    void addResult();
    void addOutput(const EffectSyntax::Type& type, const Token& name, const std::optional<Token>& semantic,
                   const std::string& expression);
    void addColour(const EffectSyntax::Type& type, const Token& name, const std::optional<Token>& semantic,
                   const std::string& expression);
    std::string input(const EffectSyntax::Type& type, const Token& name, bool array,
                      const std::optional<Token>& semantic) const;
    const EffectSyntax::Piece* structureNamed(const Token& name) const;
    std::string newVariable(const EffectSyntax::Type& type);

    const EffectSyntax& syntax_;
    const EffectSyntax::Piece& entry_;
    const EffectSyntax::Pass& pass_;
    std::vector<std::string> before_;
    std::vector<Argument> arguments_;
    std::string receiver_; ///< "TYPE variable = " before the call
    std::string colour_;   ///< the expression of the result, after the call
    bool givesCodes_ = false;
    std::size_t usedArguments_ = 0;
    std::size_t variables_ = 0;
};

} // namespace Qx::Host::Effects
