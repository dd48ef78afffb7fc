#pragma once

#include "host/effects/framework/EffectSyntax.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
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
    /// It begins with the lines `first`.
    void write(const std::vector<std::string>& first, const std::function<void(std::string_view)>& writeLine,
               const std::function<void(const Tokens&)>& writeTokens) const;

    /// Whether the result is the codes of a colour instead of a colour.
    bool givesCodes() const { return colours_.begin()->second.codes; }

    /// An error for each input that nothing gives. The text has a specialization constant of the number i + 1
    /// for the i-th. A shader that still has the constant when it is compiled reads the input; it is an error
    /// only then.
    const std::vector<CompileError>& missing() const { return missing_; }

    /// Of results that are not drawn.
    std::vector<CompileError> warnings() const;

private:
    struct Argument
    {
        std::string text;
        const Tokens* tokens = nullptr; ///< instead of a text
    };

    /// A result, as an expression after the call.
    struct Colour
    {
        Token name;
        std::string expression;
        bool codes;
    };

    void addParameter(const EffectSyntax::FunctionParameter& parameter);
    void addUniform(const EffectSyntax::FunctionParameter& parameter);
    void addInput(const EffectSyntax::Type& type, const Token& name, std::optional<std::uint32_t> elements,
                  const std::optional<Token>& semantic, const std::string& variable);
    std::string input(const EffectSyntax::Type& type, const Token& name, const std::optional<Token>& semantic,
                      std::size_t row);
    void addResult();
    void addOutput(const EffectSyntax::Type& type, const Token& name, const std::optional<Token>& semantic,
                   const std::string& expression);
    void addResult(const EffectSyntax::Type& type, const Token& name, const std::optional<Token>& semantic,
                   const std::string& expression);
    void chooseColour();
    const EffectSyntax::Piece* structureNamed(const Token& name) const;
    std::string newVariable(const EffectSyntax::Type& type, std::uint32_t elements = 0);

    const EffectSyntax& syntax_;
    const EffectSyntax::Piece& entry_;
    const EffectSyntax::Pass& pass_;
    std::vector<std::string> before_;
    std::vector<Argument> arguments_;
    std::string receiver_;                  ///< "TYPE variable = " before the call
    std::map<std::size_t, Colour> colours_; ///< by the number of their target
    Tokens dropped_;                        ///< names of results that are not drawn
    std::vector<CompileError> missing_;
    std::size_t usedArguments_ = 0;
    std::size_t variables_ = 0;
};

} // namespace Qx::Host::Effects
