#include "host/effects/framework/TextureMethods.h"

#include <algorithm>
#include <array>

namespace Qx::Host::Effects {
namespace {

using TextureKind = EffectSyntax::TextureKind;

struct Method
{
    std::string_view name;
    std::array<std::string_view, 4> functions; ///< by the kind of texture
    std::size_t arguments;                     ///< without an offset
};

constexpr std::array<Method, 5> methods{
    {{"Sample", {"tex2D", "tex1D", "tex3D", "texCUBE"}, 2},
     {"SampleGrad", {"tex2Dgrad", "tex1Dgrad", "tex3Dgrad", "texCUBEgrad"}, 4},
     {"SampleLevel", {"qxfx_level2D", "qxfx_level1D", "qxfx_level3D", "qxfx_levelCUBE"}, 3},
     {"SampleBias", {"qxfx_lbias2D", "qxfx_level1D", "qxfx_level3D", "qxfx_levelCUBE"}, 3},
     {"Load", {"qxfx_load2D", "", "qxfx_load3D", ""}, 1}}};

const Method* methodNamed(std::string_view name)
{
    const auto* const found = std::find_if(methods.begin(), methods.end(),
                                           [&](const Method& candidate) { return candidate.name == name; });
    return found == methods.end() ? nullptr : found;
}

/// Of the call whose parenthesis opens at `open`.
std::size_t argumentsOf(const std::vector<Token>& body, std::size_t open)
{
    std::size_t depth = 0;
    std::size_t commas = 0;
    for (std::size_t i = open; i < body.size(); ++i) {
        const bool opens = body[i].is("(") || body[i].is("[") || body[i].is("{");
        const bool closes = body[i].is(")") || body[i].is("]") || body[i].is("}");
        depth = depth + (opens ? 1U : 0U) - (closes ? 1U : 0U);
        if (depth == 0) {
            break;
        }
        commas += depth == 1 && body[i].is(",") ? 1U : 0U;
    }
    return commas + 1;
}

} // namespace

std::string_view functionOfMethod(std::string_view method, TextureKind kind)
{
    const Method* const found = methodNamed(method);
    return found == nullptr ? std::string_view() : found->functions.at(static_cast<std::size_t>(kind));
}

std::vector<Token>
withoutMethods(const std::vector<Token>& body,
               const std::function<std::optional<TextureKind>(const Token&)>& kindOf,
               const std::function<Token(const Token& texture, const Token* sampler)>& both)
{
    std::vector<Token> result;
    result.reserve(body.size());
    for (std::size_t i = 0; i < body.size(); ++i) {
        const bool selects = body[i].kind == TokenKind::Identifier && i + 5 < body.size() &&
                             body[i + 1].is(".") && body[i + 3].is("(") && (i == 0 || !body[i - 1].is("."));
        const std::optional<TextureKind> kind = selects ? kindOf(body[i]) : std::nullopt;
        if (!kind) {
            result.push_back(body[i]);
            continue;
        }
        Token function = body[i + 2];
        function.text = functionOfMethod(body[i + 2].text, *kind);
        if (function.text.empty()) {
            throw CompileError(
                body[i + 2].at,
                "a texture has no method " + inQuotes(body[i + 2].text) +
                    " here; there are Sample, SampleLevel, SampleBias, SampleGrad and Load, and "
                    "parameters with the semantic TEXTURESIZE");
        }
        if (argumentsOf(body, i + 3) > methodNamed(body[i + 2].text)->arguments) {
            throw CompileError(
                body[i + 2].at,
                inQuotes(body[i + 2].text) +
                    " takes no offset here; add it to the place, divided by the texture's size "
                    "for coordinates (a float2 parameter with the semantic TEXTURESIZE)");
        }
        const bool texels = body[i + 2].is("Load");
        if (!texels && !body[i + 5].is(",")) {
            throw CompileError(body[i + 4].at, "the first argument of " + inQuotes(body[i + 2].text) +
                                                   " is the name of a sampler");
        }
        result.push_back(function);
        result.push_back(body[i + 3]);
        result.push_back(both(body[i], texels ? nullptr : &body[i + 4]));
        if (texels) {
            Token comma = body[i + 3];
            comma.text = ",";
            result.push_back(comma);
        }
        i += texels ? 3 : 4;
    }
    return result;
}

} // namespace Qx::Host::Effects
