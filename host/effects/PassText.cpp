#include "host/effects/PassText.h"

#include "host/core/Suggestion.h"
#include "host/effects/EntryCall.h"
#include "host/effects/HlslNames.h"
#include "host/effects/Preprocessor.h"
#include "host/effects/Remainders.h"

#include <algorithm>

namespace Qx::Host::Effects {
namespace {

using Kind = EffectSyntax::Piece::Kind;

constexpr std::size_t deepestCalls = 256;
// Every call is replaced by the function called, at a price that grows with the square of their number.
constexpr std::size_t mostInlinedTokens = 1U << 17U;
constexpr std::size_t tokensOfCall = 64; // what one costs beside its text
constexpr std::size_t mostNamesakes = 64;

// One level and no coordinates outside the draw: an explicit level 0 is what every sampling means here, and
// it stays defined in branches, where there are no derivatives. The HLSL compiler's own fmod takes the sign
// of the divisor, which is GLSL's mod; HLSL's has the sign of what is divided.
constexpr std::string_view prelude = R"(
[[vk::constant_id(0)]] const bool qxfx_rotate = false;
float4 qxfx_tex2D(sampler2D s, float2 at) { return tex2Dlod(s, float4(at, 0.0, 0.0)); }
float4 qxfx_tex2D(sampler2D s, float2 at, float2 dx, float2 dy) { return tex2Dlod(s, float4(at, 0.0, 0.0)); }
float4 qxfx_tex2Dlod(sampler2D s, float4 at) { return tex2Dlod(s, float4(at.xy, 0.0, 0.0)); }
float4 qxfx_tex2Dbias(sampler2D s, float4 at) { return tex2Dlod(s, float4(at.xy, 0.0, 0.0)); }
float4 qxfx_tex2Dgrad(sampler2D s, float2 at, float2 dx, float2 dy) { return tex2Dlod(s, float4(at, 0.0, 0.0)); }
float4 qxfx_tex2Dproj(sampler2D s, float4 at) { return tex2Dlod(s, float4(at.xy / at.w, 0.0, 0.0)); }
float qxfx_fmod(float x, float y) { return x - y * trunc(x / y); }
float2 qxfx_fmod(float2 x, float2 y) { return x - y * trunc(x / y); }
float3 qxfx_fmod(float3 x, float3 y) { return x - y * trunc(x / y); }
float4 qxfx_fmod(float4 x, float4 y) { return x - y * trunc(x / y); }
float4 qxfx_tex2Dfetch(sampler2D s, int2 texel) { return tex2Dlod(s, float4(float2(texel), 0.0, 0.0)); }
float4 qxfx_tex3Dfetch(sampler3D s, int3 texel) { return tex3Dlod(s, float4(float3(texel), 0.0)); }
)";

class Output
{
public:
    void add(std::string_view line, Location at)
    {
        text_.hlsl += line;
        text_.hlsl += '\n';
        text_.lines.push_back(at);
    }

    void add(const std::vector<Token>& tokens)
    {
        for (const Token& token : tokens) {
            add(token.kind == TokenKind::Identifier ? hlslName(token.text) : token.text, token.at);
        }
    }

    void addPiece(std::size_t index, const std::vector<Token>& tokens)
    {
        beginPiece(index);
        add(tokens);
    }

    void beginPiece(std::size_t index) { text_.pieces.emplace_back(text_.lines.size() + 1, index); }

    PassText take() { return std::move(text_); }

private:
    PassText text_;
};

void writeLines(Output& output, std::string_view lines, Location at)
{
    for (std::size_t begin = 0; begin < lines.size();) {
        const std::size_t end = lines.find('\n', begin);
        output.add(lines.substr(begin, end - begin), at);
        begin = end + 1;
    }
}

std::string declaration(const CompiledEffect::Parameter& parameter)
{
    const NumericType type{static_cast<NumericType::Scalar>(parameter.type), parameter.rows,
                           parameter.columns};
    const std::string array = parameter.elements == 0 ? "" : "[" + std::to_string(parameter.elements) + "]";
    return (parameter.rows > 1 ? "row_major " : "") + std::string(type.spelling()) + ' ' +
           std::string(hlslName(parameter.name)) + array + " : packoffset(c" +
           std::to_string(parameter.offset / 16) + '.' + "xyzw"[parameter.offset % 16 / 4] + ");";
}

std::vector<Token> declarationOf(const EffectSyntax::Piece& function)
{
    std::vector<Token> tokens(function.text.begin(),
                              function.text.begin() + static_cast<std::ptrdiff_t>(function.bodyBegin));
    Token semicolon = function.name;
    semicolon.kind = TokenKind::Punctuator;
    semicolon.text = ";";
    tokens.push_back(semicolon);
    return tokens;
}

} // namespace

PassWriter::PassWriter(const EffectSyntax& syntax, const CompiledEffect& effect)
    : syntax_(syntax), effect_(effect), costs_(syntax.pieces.size())
{
    for (std::size_t i = 0; i < syntax.pieces.size(); ++i) {
        const EffectSyntax::Piece& piece = syntax.pieces[i];
        std::vector<std::size_t>& namesakes = piecesByName_[piece.name.text];
        if (namesakes.size() >= mostNamesakes) {
            throw CompileError(piece.name.at, inQuotes(piece.name.text) + " is declared more than " +
                                                  std::to_string(mostNamesakes) + " times");
        }
        namesakes.push_back(i);
    }
    for (std::size_t i = 0; i < syntax.pieces.size(); ++i) {
        costOf(i, 0);
    }
}

bool PassWriter::mayCall(std::size_t caller, std::size_t callee) const
{
    const EffectSyntax::Piece& piece = syntax_.pieces[callee];
    if (piece.kind != Kind::Function || !piece.function.hasBody) {
        return false;
    }
    const std::vector<std::size_t>& namesakes = piecesByName_.at(piece.name.text);
    if (callee == caller) {
        return namesakes.size() == 1; // else it may be another function of that name that is called
    }
    // A name means what was declared before it.
    return callee < caller || std::any_of(namesakes.begin(), namesakes.end(), [&](std::size_t i) {
               return i < caller && !syntax_.pieces[i].function.hasBody;
           });
}

std::size_t PassWriter::costOf(std::size_t index, std::size_t depth)
{
    const EffectSyntax::Piece& piece = syntax_.pieces[index];
    Cost& cost = costs_[index];
    if (cost.state == Cost::State::Known) {
        return cost.tokens;
    }
    if (cost.state == Cost::State::Open) {
        throw CompileError(piece.name.at, "function " + inQuotes(piece.name.text) +
                                              " calls itself, directly or through others; shaders cannot");
    }
    if (depth > deepestCalls) {
        throw CompileError(piece.name.at, "calls of functions are nested more than " +
                                              std::to_string(deepestCalls) + " deep");
    }
    cost.state = Cost::State::Open;
    std::size_t tokens = piece.text.size();
    for (std::size_t i = piece.bodyBegin; i < piece.text.size(); ++i) {
        const auto found = piecesByName_.find(piece.text[i].text);
        if (piece.kind != Kind::Function || found == piecesByName_.end()) {
            continue;
        }
        std::size_t dearest = 0;
        for (const std::size_t callee : found->second) {
            if (mayCall(index, callee)) {
                dearest = std::max(dearest, costOf(callee, depth + 1) + tokensOfCall);
            }
        }
        tokens += dearest;
        if (tokens > mostInlinedTokens) {
            throw CompileError(piece.name.at, "function " + inQuotes(piece.name.text) +
                                                  " comes to more than " + std::to_string(mostInlinedTokens) +
                                                  " tokens with all that it calls");
        }
    }
    cost = {Cost::State::Known, tokens};
    return tokens;
}

const EffectSyntax::Piece& PassWriter::findEntry(const EffectSyntax::Pass& pass) const
{
    const EffectSyntax::Piece* entry = nullptr;
    if (const auto found = piecesByName_.find(pass.entry.text); found != piecesByName_.end()) {
        for (const std::size_t i : found->second) {
            const EffectSyntax::Piece& piece = syntax_.pieces[i];
            if (piece.kind != Kind::Function || !piece.function.hasBody) {
                continue;
            }
            if (entry != nullptr) {
                throw CompileError(pass.entry.at, "there are two functions " + inQuotes(pass.entry.text) +
                                                      "; a pass needs one of its own name");
            }
            entry = &piece;
        }
    }
    if (entry == nullptr) {
        std::vector<std::string_view> functions;
        for (const EffectSyntax::Piece& piece : syntax_.pieces) {
            if (piece.kind == Kind::Function) {
                functions.push_back(piece.name.text);
            }
        }
        throw CompileError(pass.entry.at, "there is no function " + inQuotes(pass.entry.text) +
                                              didYouMean(pass.entry.text, functions));
    }
    return *entry;
}

std::unordered_set<std::string_view> PassWriter::reachableFrom(const EffectSyntax::Pass& pass) const
{
    std::unordered_set<std::string_view> names{pass.entry.text};
    std::vector<std::string_view> open{pass.entry.text};
    const auto reach = [&](const std::vector<Token>& tokens) {
        for (const Token& token : tokens) {
            if (token.kind == TokenKind::Identifier && names.insert(token.text).second) {
                open.push_back(token.text);
            }
        }
    };
    for (const std::vector<Token>& argument : pass.arguments) {
        reach(argument);
    }
    while (!open.empty()) {
        const auto found = piecesByName_.find(open.back());
        open.pop_back();
        if (found != piecesByName_.end()) {
            for (const std::size_t i : found->second) {
                reach(syntax_.pieces[i].text);
            }
        }
    }
    return names;
}

std::optional<std::size_t> PassText::pieceAt(std::size_t line) const
{
    const auto next = std::upper_bound(pieces.begin(), pieces.end(), line,
                                       [](std::size_t at, const auto& piece) { return at < piece.first; });
    return next == pieces.begin() || next == pieces.end() ? std::nullopt : std::optional((next - 1)->second);
}

PassText PassWriter::write(const EffectSyntax::Pass& pass, const std::set<std::size_t>& withoutBody) const
{
    const EntryCall call(syntax_, findEntry(pass), pass);
    std::unordered_set<std::string_view> names = reachableFrom(pass);
    const auto used = [&](std::string_view name) { return names.count(name) != 0; };
    Output output;
    writeLines(output, prelude, pass.entry.at);
    if (used("qxfx_divisor")) {
        writeLines(output, remainderFunctions, pass.entry.at);
    }
    output.add("cbuffer qxfx_uniforms : register(b0) { float4 qxfx_area : packoffset(c0);", pass.entry.at);
    output.add("float4 qxfx_coordinates[" + std::to_string(CompiledEffect::SystemUniforms::maxTexCoords) +
                   "] : packoffset(c1);",
               pass.entry.at);
    for (std::size_t i = 0; i < effect_.parameters.size(); ++i) {
        if (used(effect_.parameters[i].name)) {
            output.add(declaration(effect_.parameters[i]), syntax_.parameters[i].name.at);
        }
    }
    output.add("};", pass.entry.at);
    for (std::size_t i = 0; i < effect_.samplers.size(); ++i) {
        if (used(effect_.samplers[i].name)) {
            output.add("[[vk::binding(" + std::to_string(i + 1) + ", 0)]] sampler" +
                           std::to_string(syntax_.samplers[i].dimensions) + "D " +
                           std::string(hlslName(effect_.samplers[i].name)) + ";",
                       syntax_.samplers[i].name.at);
        }
    }
    for (std::size_t i = 0; i < syntax_.pieces.size(); ++i) {
        const EffectSyntax::Piece& piece = syntax_.pieces[i];
        if (used(piece.name.text)) {
            withoutBody.count(i) == 0 ? output.addPiece(i, piece.text)
                                      : output.addPiece(i, declarationOf(piece));
        }
    }
    output.beginPiece(syntax_.pieces.size());
    call.write([&](std::string_view line) { output.add(line, pass.entry.at); },
               [&](const std::vector<Token>& tokens) { output.add(tokens); });
    PassText text = output.take();
    text.names = std::move(names);
    return text;
}

} // namespace Qx::Host::Effects
