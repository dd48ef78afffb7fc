#pragma once

#include "host/effects/framework/EffectSyntax.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Host::Effects {

/// "TEXCOORD3" as its name and 3.
struct IndexedSemantic
{
    std::string_view name;
    std::size_t index = 0;

    explicit IndexedSemantic(std::string_view text);

    bool is(std::string_view word) const { return equalIgnoringCase(name, word); }
};

/// The call of an entry function: the inputs of its semantics, the arguments of its uniform parameters, and
/// its results.
class ShaderCall
{
public:
    using Tokens = std::vector<Token>;
    using WriteLine = std::function<void(std::string_view)>;
    using WriteTokens = std::function<void(const Tokens&)>;

    /// An error for each input that nothing gives. The text has a specialization constant for each; see
    /// writeMissing(). A shader that still has the constant when it is compiled reads the input; it is an
    /// error only then.
    const std::vector<CompileError>& missing() const { return missing_; }

protected:
    /// All live longer than this object. `firstMissing` is the number of the first specialization constant.
    ShaderCall(const EffectSyntax& syntax, const EffectSyntax::Piece& entry,
               const EffectSyntax::Shader& shader, std::size_t firstMissing);
    ShaderCall(const ShaderCall&) = delete;
    ShaderCall& operator=(const ShaderCall&) = delete;
    virtual ~ShaderCall() = default;

    /// Makes the arguments of all parameters. Throws CompileError for invalid semantics, types and arguments.
    void addParameters();
    void addReturned();

    /// The value of an input, or of the row of it that lies `row` places after the first.
    virtual std::string input(const EffectSyntax::Type& type, const Token& name,
                              const std::optional<Token>& semantic, std::size_t row) = 0;
    /// A result, as an expression after the call.
    virtual void addResult(const EffectSyntax::Type& type, const Token& name,
                           std::optional<std::uint32_t> elements, const std::optional<Token>& semantic,
                           const std::string& expression) = 0;
    virtual void refuseInOut(const EffectSyntax::FunctionParameter& parameter) const = 0;

    /// The value of an input that nothing gives.
    std::string missingInput(CompileError error, const NumericType& vector);

    /// The value of an input with two numbers, `pair`, as a vector of the type, padded with 0 and 1.
    static std::string padded(const NumericType& vector, const std::string& pair);
    static std::string spread(const NumericType& vector, const std::string& value);

    /// The parts of a variable that have a semantic's index each: the elements of an array, the rows of a
    /// matrix.
    static std::vector<std::string> partsOf(const EffectSyntax::Type& type, const Token& name,
                                            std::optional<std::uint32_t> elements,
                                            const std::string& variable);

    void writeMissing(const WriteLine& writeLine) const;
    /// The variables, the inputs and the call.
    void writeCall(const WriteLine& writeLine, const WriteTokens& writeTokens) const;

    const EffectSyntax::Piece& entry() const { return entry_; }

private:
    struct Argument
    {
        std::string text;
        const Tokens* tokens = nullptr; ///< instead of a text
    };

    void addParameter(const EffectSyntax::FunctionParameter& parameter);
    void addUniform(const EffectSyntax::FunctionParameter& parameter);
    void addInput(const EffectSyntax::Type& type, const Token& name, std::optional<std::uint32_t> elements,
                  const std::optional<Token>& semantic, const std::string& variable);
    void addOutput(const EffectSyntax::Type& type, const Token& name, std::optional<std::uint32_t> elements,
                   const std::optional<Token>& semantic, const std::string& expression);
    const EffectSyntax::Piece* structureNamed(const Token& name) const;
    std::string newVariable(const EffectSyntax::Type& type, std::uint32_t elements = 0);

    const EffectSyntax& syntax_;
    const EffectSyntax::Piece& entry_;
    const EffectSyntax::Shader& shader_;
    const std::size_t firstMissing_;
    std::vector<std::string> before_;
    std::vector<Argument> arguments_;
    std::string receiver_; ///< "TYPE variable = " before the call
    std::vector<CompileError> missing_;
    std::size_t usedArguments_ = 0;
    std::size_t variables_ = 0;
};

} // namespace Qx::Host::Effects
