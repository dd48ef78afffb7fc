#include "host/effects/hlsl/HlslHints.h"

#include "host/core/Suggestion.h"

#include <algorithm>
#include <array>
#include <vector>

namespace Qx::Host::Effects {
namespace {

using Kind = EffectSyntax::Piece::Kind;

constexpr std::array<std::string_view, 62> intrinsics{
    "abs",        "acos",       "all",      "any",       "asin",        "atan",      "atan2", "ceil",
    "clamp",      "clip",       "cos",      "cosh",      "cross",       "ddx",       "ddy",   "degrees",
    "distance",   "dot",        "exp",      "exp2",      "faceforward", "floor",     "fmod",  "frac",
    "fwidth",     "isinf",      "isnan",    "ldexp",     "length",      "lerp",      "log",   "log10",
    "log2",       "max",        "min",      "modf",      "mul",         "normalize", "pow",   "radians",
    "reflect",    "refract",    "round",    "rsqrt",     "saturate",    "sign",      "sin",   "sincos",
    "sinh",       "smoothstep", "sqrt",     "step",      "tan",         "tanh",      "tex2D", "tex2Dbias",
    "tex2Dfetch", "tex2Dgrad",  "tex2Dlod", "tex2Dproj", "transpose",   "trunc"};

/// The text in the quotes at the beginning of the message.
std::string_view quotedName(std::string_view message)
{
    const std::size_t end = message.find('\'', 1);
    return message.empty() || message[0] != '\'' || end == std::string_view::npos
               ? std::string_view()
               : message.substr(1, end - 1);
}

/// Adds the function's parameters, and each name after the name of a type in its body.
void addLocals(const EffectSyntax::Piece& function, std::vector<std::string_view>& names)
{
    for (const EffectSyntax::FunctionParameter& parameter : function.function.parameters) {
        names.push_back(parameter.name.text);
    }
    for (std::size_t i = function.bodyBegin + 1; i < function.text.size(); ++i) {
        const Token& before = function.text[i - 1];
        const bool declared =
            before.kind == TokenKind::Identifier && !before.is("return") && !before.is("else");
        if (declared && function.text[i].kind == TokenKind::Identifier) {
            names.push_back(function.text[i].text);
        }
    }
}

template <typename Things>
void addNames(const Things& things, std::vector<std::string_view>& names)
{
    for (const auto& thing : things) {
        names.push_back(thing.name.text);
    }
}

/// Whether "for (int NAME" is part of the text.
bool countsLoop(const std::vector<Token>& text, std::string_view name)
{
    for (std::size_t i = 3; i < text.size(); ++i) {
        if (text[i].text == name && text[i - 2].is("(") && text[i - 3].is("for")) {
            return true;
        }
    }
    return false;
}

std::string hintForVariable(std::string_view name, const EffectSyntax& syntax,
                            std::optional<std::size_t> piece)
{
    const auto isIt = [&](const auto& thing) { return thing.name.text == name; };
    if (std::any_of(syntax.textures.begin(), syntax.textures.end(), isIt)) {
        const auto sampler =
            std::find_if(syntax.samplers.begin(), syntax.samplers.end(),
                         [&](const auto& candidate) { return candidate.texture.text == name; });
        return "; it is a texture, which is read through a sampler of it" +
               (sampler == syntax.samplers.end() ? std::string()
                                                 : ", such as " + inQuotes(sampler->name.text));
    }
    if (piece && countsLoop(syntax.pieces[*piece].text, name)) {
        return "; it ends with the loop that declares it: declare it before that";
    }
    std::vector<std::string_view> names;
    if (piece && syntax.pieces[*piece].kind == Kind::Function) {
        addLocals(syntax.pieces[*piece], names);
    }
    addNames(syntax.parameters, names);
    addNames(syntax.samplers, names);
    for (const EffectSyntax::Piece& candidate : syntax.pieces) {
        if (candidate.kind == Kind::Constant) {
            names.push_back(candidate.name.text);
        }
    }
    return didYouMean(name, names);
}

std::string hintForFunction(std::string_view name, const EffectSyntax& syntax,
                            std::optional<std::size_t> piece)
{
    std::vector<std::string_view> names;
    bool below = false;
    for (std::size_t i = 0; i < syntax.pieces.size(); ++i) {
        const EffectSyntax::Piece& candidate = syntax.pieces[i];
        if (candidate.kind != Kind::Function) {
            continue;
        }
        if (candidate.name.text == name && piece && i < *piece) {
            return {}; // it is known, and called with wrong arguments
        }
        below = below || (candidate.name.text == name && piece && i > *piece);
        names.push_back(candidate.name.text);
    }
    if (below) {
        return "; it is declared further down: declare it before its use";
    }
    names.insert(names.end(), intrinsics.begin(), intrinsics.end());
    return std::find(names.begin(), names.end(), name) == names.end() ? didYouMean(name, names)
                                                                      : std::string();
}

} // namespace

std::string hintFor(std::string_view message, const EffectSyntax& syntax, std::optional<std::size_t> piece)
{
    const std::string_view name = quotedName(message);
    if (name.empty()) {
        return {};
    }
    if (message.find("undeclared identifier") != std::string_view::npos ||
        message.find("unknown variable") != std::string_view::npos) {
        return hintForVariable(name, syntax, piece);
    }
    if (message.find("no matching overloaded function") != std::string_view::npos) {
        return hintForFunction(name, syntax, piece);
    }
    return {};
}

} // namespace Qx::Host::Effects
