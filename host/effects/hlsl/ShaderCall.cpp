#include "host/effects/hlsl/ShaderCall.h"

#include "host/effects/hlsl/HlslNames.h"

#include <algorithm>
#include <array>
#include <utility>

namespace Qx::Host::Effects {
namespace {

constexpr std::uint32_t mostElements = 16; // of an array of inputs; there are 16 texture coordinates

std::string missingName(std::size_t number)
{
    return "qxfx_missing" + std::to_string(number);
}

/// The name of a type for the HLSL compiler.
std::string spellingOf(const EffectSyntax::Type& type)
{
    const bool plain = type.numeric && type.numeric->scalar != NumericType::Scalar::Other;
    return std::string(plain ? type.numeric->spelling() : hlslName(type.tokens[0].text));
}

} // namespace

IndexedSemantic::IndexedSemantic(std::string_view text) : name(text)
{
    constexpr std::size_t most = 2; // digits
    std::size_t digits = 0;
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    while (digits < std::min(most, text.size()) && isDigit(text[text.size() - 1 - digits])) {
        ++digits;
    }
    name.remove_suffix(digits);
    for (const char c : text.substr(name.size())) {
        index = index * 10 + static_cast<std::size_t>(c - '0');
    }
}

ShaderCall::ShaderCall(const EffectSyntax& syntax, const EffectSyntax::Piece& entry,
                       const EffectSyntax::Shader& shader, std::size_t firstMissing)
    : syntax_(syntax), entry_(entry), shader_(shader), firstMissing_(firstMissing)
{
}

void ShaderCall::addParameters()
{
    for (const EffectSyntax::FunctionParameter& parameter : entry_.function.parameters) {
        addParameter(parameter);
    }
    if (usedArguments_ < shader_.arguments.size()) {
        const std::size_t given = shader_.arguments.size();
        throw CompileError(shader_.entry.at, inQuotes(shader_.entry.text) + " takes " +
                                                 std::to_string(usedArguments_) +
                                                 (usedArguments_ == 1 ? " argument; " : " arguments; ") +
                                                 std::to_string(given) + (given == 1 ? " is" : " are") +
                                                 " given for uniform parameters");
    }
}

const EffectSyntax::Piece* ShaderCall::structureNamed(const Token& name) const
{
    const auto found = std::find_if(syntax_.pieces.begin(), syntax_.pieces.end(), [&](const auto& piece) {
        return piece.kind == EffectSyntax::Piece::Kind::Struct && piece.name.text == name.text;
    });
    return found == syntax_.pieces.end() ? nullptr : &*found;
}

std::string ShaderCall::newVariable(const EffectSyntax::Type& type, std::uint32_t elements)
{
    std::string name = "qxfx_value" + std::to_string(variables_++);
    before_.push_back(spellingOf(type) + ' ' + name +
                      (elements == 0 ? "" : '[' + std::to_string(elements) + ']') + ';');
    return name;
}

void ShaderCall::addReturned()
{
    const EffectSyntax::Function& function = entry_.function;
    const EffectSyntax::Type& type = function.result;
    if (type.tokens[0].is("void")) {
        return;
    }
    receiver_ = spellingOf(type) + " qxfx_result = ";
    addOutput(type, entry_.name, std::nullopt, function.semantic, "qxfx_result");
}

/// A result, or a struct of results.
void ShaderCall::addOutput(const EffectSyntax::Type& type, const Token& name,
                           std::optional<std::uint32_t> elements, const std::optional<Token>& semantic,
                           const std::string& expression)
{
    const EffectSyntax::Piece* const structure = structureNamed(type.tokens[0]);
    if (structure == nullptr) {
        addResult(type, name, elements, semantic, expression);
        return;
    }
    for (const EffectSyntax::Member& member : structure->members) {
        addResult(member.type, member.name, member.elements, member.semantic,
                  expression + '.' + std::string(hlslName(member.name.text)));
    }
}

void ShaderCall::addParameter(const EffectSyntax::FunctionParameter& parameter)
{
    if (parameter.uniform) {
        addUniform(parameter);
    } else if (parameter.output) {
        if (parameter.input) {
            refuseInOut(parameter);
        }
        const std::string variable = newVariable(parameter.type, parameter.elements.value_or(0));
        if (parameter.input) {
            addInput(parameter.type, parameter.name, parameter.elements, parameter.semantic, variable);
        }
        addOutput(parameter.type, parameter.name, parameter.elements, parameter.semantic, variable);
        arguments_.push_back({variable, nullptr});
    } else if (structureNamed(parameter.type.tokens[0]) != nullptr || parameter.elements ||
               (parameter.type.numeric && parameter.type.numeric->rows > 1)) {
        const std::string variable = newVariable(parameter.type, parameter.elements.value_or(0));
        addInput(parameter.type, parameter.name, parameter.elements, parameter.semantic, variable);
        arguments_.push_back({variable, nullptr});
    } else {
        arguments_.push_back({input(parameter.type, parameter.name, parameter.semantic, 0), nullptr});
    }
}

void ShaderCall::addUniform(const EffectSyntax::FunctionParameter& parameter)
{
    if (usedArguments_ < shader_.arguments.size()) {
        arguments_.push_back({{}, &shader_.arguments[usedArguments_++]});
    } else if (!parameter.defaultValue.empty()) {
        arguments_.push_back({{}, &parameter.defaultValue});
    } else {
        throw CompileError(shader_.entry.at, "no argument is given for the uniform parameter " +
                                                 inQuotes(parameter.name.text) + " of " +
                                                 inQuotes(shader_.entry.text));
    }
}

/// Gives a variable, or each of its parts, its value.
void ShaderCall::addInput(const EffectSyntax::Type& type, const Token& name,
                          std::optional<std::uint32_t> elements, const std::optional<Token>& semantic,
                          const std::string& variable)
{
    const EffectSyntax::Piece* const structure = structureNamed(type.tokens[0]);
    if (elements && structure != nullptr) {
        throw CompileError(name.at, "the input " + inQuotes(name.text) + " is an array of 1 to " +
                                        std::to_string(mostElements) + " numbers or vectors");
    }
    if (structure != nullptr) {
        for (const EffectSyntax::Member& member : structure->members) {
            addInput(member.type, member.name, member.elements, member.semantic,
                     variable + '.' + std::string(hlslName(member.name.text)));
        }
        return;
    }
    const std::vector<std::string> parts = partsOf(type, name, elements, variable);
    for (std::size_t i = 0; i < parts.size(); ++i) {
        before_.push_back(parts[i] + " = " + input(type, name, semantic, i) + ';');
    }
}

std::vector<std::string> ShaderCall::partsOf(const EffectSyntax::Type& type, const Token& name,
                                             std::optional<std::uint32_t> elements,
                                             const std::string& variable)
{
    if (elements && (*elements == 0 || *elements > mostElements)) {
        throw CompileError(name.at, "the input " + inQuotes(name.text) + " is an array of 1 to " +
                                        std::to_string(mostElements) + " numbers or vectors");
    }
    const std::uint32_t rows = type.numeric ? type.numeric->rows : 1;
    std::vector<std::string> parts;
    for (std::uint32_t i = 0; i < elements.value_or(1) * rows; ++i) {
        std::string part = variable;
        if (elements) {
            part.append(1, '[').append(std::to_string(i / rows)).append(1, ']');
        }
        if (rows > 1) {
            part.append(1, '[').append(std::to_string(i % rows)).append(1, ']');
        }
        parts.push_back(std::move(part));
    }
    return parts;
}

std::string ShaderCall::padded(const NumericType& vector, const std::string& pair)
{
    constexpr std::array<std::string_view, 4> rest{".x)", ")", ", 0.0)", ", 0.0, 1.0)"};
    return std::string(vector.spelling()) + '(' + pair + std::string(rest.at(vector.columns - 1));
}

std::string ShaderCall::spread(const NumericType& vector, const std::string& value)
{
    return '(' + std::string(vector.spelling()) + ')' + value;
}

std::string ShaderCall::missingInput(CompileError error, const NumericType& vector)
{
    missing_.push_back(std::move(error));
    return spread(vector, missingName(firstMissing_ + missing_.size() - 1));
}

void ShaderCall::writeMissing(const WriteLine& writeLine) const
{
    for (std::size_t i = firstMissing_; i < firstMissing_ + missing_.size(); ++i) {
        writeLine("[[vk::constant_id(" + std::to_string(i) + ")]] const float " + missingName(i) + " = 0.0;");
    }
}

void ShaderCall::writeCall(const WriteLine& writeLine, const WriteTokens& writeTokens) const
{
    for (const std::string& line : before_) {
        writeLine(line);
    }
    writeLine(receiver_ + std::string(hlslName(entry_.name.text)) + '(');
    for (std::size_t i = 0; i < arguments_.size(); ++i) {
        if (i > 0) {
            writeLine(",");
        }
        if (arguments_[i].tokens != nullptr) {
            writeTokens(*arguments_[i].tokens);
        } else {
            writeLine(arguments_[i].text);
        }
    }
    writeLine(");");
}

} // namespace Qx::Host::Effects
