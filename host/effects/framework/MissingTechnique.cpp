#include "host/effects/framework/MissingTechnique.h"

#include <algorithm>
#include <set>
#include <string_view>

namespace Qx::Host::Effects {
namespace {

bool isColour(const std::optional<Token>& semantic)
{
    return semantic && (equalIgnoringCase(semantic->text.substr(0, 5), "COLOR") ||
                        equalIgnoringCase(semantic->text.substr(0, 9), "SV_Target"));
}

/// Whether a type is a struct with such a member.
bool hasColour(const EffectSyntax& syntax, const EffectSyntax::Type& type)
{
    return std::any_of(syntax.pieces.begin(), syntax.pieces.end(), [&](const EffectSyntax::Piece& piece) {
        return piece.kind == EffectSyntax::Piece::Kind::Struct && piece.name.text == type.tokens[0].text &&
               std::any_of(piece.members.begin(), piece.members.end(),
                           [](const auto& member) { return isColour(member.semantic); });
    });
}

bool givesColour(const EffectSyntax::Function& function)
{
    return isColour(function.semantic) ||
           std::any_of(function.parameters.begin(), function.parameters.end(), [](const auto& parameter) {
               return parameter.output && isColour(parameter.semantic);
           });
}

/// The last function that returns a colour; or else one that returns a struct with one, as the vertex shaders
/// before it may, too.
const EffectSyntax::Function* lastShader(const EffectSyntax& syntax)
{
    const auto last = [&](const auto& gives) -> const EffectSyntax::Function* {
        const auto found =
            std::find_if(syntax.pieces.rbegin(), syntax.pieces.rend(), [&](const EffectSyntax::Piece& piece) {
                return piece.function.hasBody && gives(piece.function);
            });
        return found == syntax.pieces.rend() ? nullptr : &found->function;
    };
    const EffectSyntax::Function* const found = last(givesColour);
    return found != nullptr ? found : last([&](const EffectSyntax::Function& function) {
        return hasColour(syntax, function.result);
    });
}

std::string typeOf(const EffectSyntax::Type& type)
{
    return std::string(type.sampler ? type.sampler->spelling()
                       : type.numeric && type.numeric->scalar != NumericType::Scalar::Other
                           ? type.numeric->spelling()
                           : type.tokens[0].text);
}

/// Makes the arguments of one function.
class MissingArguments
{
public:
    explicit MissingArguments(const EffectSyntax& syntax) : syntax_(syntax)
    {
        const auto take = [this](const auto& things) {
            for (const auto& thing : things) {
                taken_.emplace(thing.name.text);
            }
        };
        take(syntax.pieces);
        take(syntax.parameters);
        take(syntax.textures);
        take(syntax.samplers);
    }

    void add(const EffectSyntax::FunctionParameter& parameter)
    {
        std::string name(parameter.name.text.empty() ? "argument" : parameter.name.text);
        if (!isDeclared(parameter)) {
            while (taken_.count(name) != 0) {
                name += '_';
            }
            declarations += typeOf(parameter.type) + ' ' + name +
                            (parameter.elements ? '[' + std::to_string(*parameter.elements) + ']' : "") +
                            "; ";
            taken_.insert(name);
        }
        list += (list.empty() ? "" : ", ") + name;
    }

    std::string declarations;
    std::string list;

private:
    /// Whether the effect declares the same at the top: a program that takes the function alone has both.
    bool isDeclared(const EffectSyntax::FunctionParameter& parameter) const
    {
        const auto isSampler = [&](const EffectSyntax::Sampler& sampler) {
            return parameter.type.sampler && sampler.name.text == parameter.name.text &&
                   sampler.type.dimensions == parameter.type.sampler->dimensions;
        };
        const auto isParameter = [&](const EffectSyntax::Parameter& declared) {
            return declared.name.text == parameter.name.text && !parameter.type.sampler &&
                   typeOf(declared.type) == typeOf(parameter.type) &&
                   declared.elements == parameter.elements.value_or(0);
        };
        return std::any_of(syntax_.samplers.begin(), syntax_.samplers.end(), isSampler) ||
               std::any_of(syntax_.parameters.begin(), syntax_.parameters.end(), isParameter);
    }

    const EffectSyntax& syntax_;
    std::set<std::string, std::less<>> taken_;
};

} // namespace

bool looksLikeGlsl(const EffectSyntax& syntax)
{
    static constexpr std::array<std::string_view, 5> words{"vec2", "vec3", "vec4", "gl_FragColor",
                                                           "gl_FragCoord"};
    return std::any_of(syntax.pieces.begin(), syntax.pieces.end(), [](const EffectSyntax::Piece& piece) {
        return std::any_of(piece.text.begin(), piece.text.end(), [](const Token& token) {
            return std::find(words.begin(), words.end(), token.text) != words.end();
        });
    });
}

std::string missingTechnique(const EffectSyntax& syntax)
{
    const EffectSyntax::Function* const shader = lastShader(syntax);
    if (shader == nullptr) {
        return {};
    }
    MissingArguments arguments(syntax);
    for (const EffectSyntax::FunctionParameter& parameter : shader->parameters) {
        if (parameter.uniform && parameter.defaultValue.empty()) { // those with a default are the last
            arguments.add(parameter);
        }
    }
    return arguments.declarations + "technique Main { pass { PixelShader = compile ps_3_0 " +
           std::string(shader->name.text) + '(' + arguments.list + "); } }";
}

} // namespace Qx::Host::Effects
