#include "host/effects/hlsl/PassText.h"

#include "host/core/Suggestion.h"
#include "host/effects/framework/Preprocessor.h"
#include "host/effects/hlsl/EntryCall.h"
#include "host/effects/hlsl/HlslNames.h"
#include "host/effects/hlsl/Remainders.h"

#include <algorithm>

namespace Qx::Host::Effects {
namespace {

using Kind = EffectSyntax::Piece::Kind;
using SystemUniforms = CompiledEffect::SystemUniforms;

constexpr std::size_t deepestCalls = 256;
// Every call is replaced by the function called, at a price that grows with the square of their number.
constexpr std::size_t mostInlinedTokens = 1U << 17U;
constexpr std::size_t tokensOfCall = 64; // what one costs beside its text
constexpr std::size_t mostNamesakes = 64;
constexpr std::size_t mostPackedTokens = mostInlinedTokens / 4; // which is called up to four times

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
float4 qxfx_tex2Dcodes(sampler2D s, float4 of, int2 texel) { return floor(qxfx_tex2Dfetch(s, texel) * of.y + 0.5); }
)";

constexpr std::string_view mainForTexel = R"(
float4 main(float4 qxfx_position : SV_Position) : SV_Target0 {
float2 qxfx_pixel = qxfx_position.xy - qxfx_area.xy;
float4 qxfx_colour = qxfx_colourAt(int2(floor(qxfx_pixel)), qxfx_pixel);
)";
constexpr std::string_view colourOfCodes =
    "qxfx_colour = floor(clamp(qxfx_colour, 0.0, qxfx_target.x)) * (1.0 / qxfx_target.x);";
constexpr std::string_view returnColour = "return qxfx_rotate ? qxfx_colour.wxyz : qxfx_colour; }";

// Textures as rows of texels a, r, g, b. The numbers are signed: their conversions are the cheaper ones. That
// a row is a whole number of groups long shows in the multiplication, for whoever reads several texels at
// once.
constexpr std::string_view packedPrelude = R"(
float4 qxfx_tex2Dcodes(Buffer<uint4> s, float4 of, int2 texel) { return float4(int4(s.Load(texel.y * int(of.x) * qxfx_texels + texel.x))).yzwx; }
float4 qxfx_tex2Dfetch(Buffer<uint4> s, float4 of, int2 texel) { return qxfx_tex2Dcodes(s, of, texel) * (1.0 / qxfx_sourceMaxCode); }
)";
constexpr std::string_view codesAt = R"(
int4 qxfx_codesAt(int x, int y) {
float4 c = qxfx_colourAt(int2(x, y), float2(float(x), float(y)) + 0.5) * qxfx_scale;
return int4(qxfx_rounded(clamp(c, 0.0, qxfx_maxCode))).wxyz; }
)";
constexpr std::string_view mainForFour = R"(
uint qxfx_texel(int x, int y) { int4 c = qxfx_codesAt(x, y); return uint(c.x | c.y << 8 | c.z << 16 | c.w << 24); }
uint4 main(float4 qxfx_position : SV_Position) : SV_Target0 {
int x = int(qxfx_position.x) * 4;
int y = int(qxfx_position.y);
return uint4(qxfx_texel(x, y), qxfx_texel(x + 1, y), qxfx_texel(x + 2, y), qxfx_texel(x + 3, y)); }
)";
constexpr std::string_view mainForTwo = R"(
uint2 qxfx_texel(int x, int y) { int4 c = qxfx_codesAt(x, y); return uint2(c.x | c.y << 16, c.z | c.w << 16); }
uint4 main(float4 qxfx_position : SV_Position) : SV_Target0 {
int x = int(qxfx_position.x) * 2;
int y = int(qxfx_position.y);
return uint4(qxfx_texel(x, y), qxfx_texel(x + 1, y)); }
)";

/// What the text of one pass calls the effect's samplers.
class SamplerNames
{
public:
    /// `buffers` has the samplers that stand for buffers instead.
    SamplerNames(const CompiledEffect& effect, std::vector<bool> buffers)
        : effect_(effect), buffers_(std::move(buffers))
    {
        for (std::size_t i = 0; i < effect.samplers.size(); ++i) {
            indices_[effect.samplers[i].name] = i;
        }
    }

    bool isBuffer(std::size_t sampler) const { return buffers_[sampler]; }

    /// What to write for the token at `at`: a sampler that is read by texel number comes with what is known
    /// of its texture, where the function wants that.
    std::string spelling(const std::vector<Token>& tokens, std::size_t at) const
    {
        std::string name(hlslName(tokens[at].text));
        const bool codes = isReadBy("tex2Dcodes", tokens, at);
        const auto found = indices_.find(tokens[at].text);
        if (found != indices_.end() &&
            (codes || (buffers_[found->second] && isReadBy("tex2Dfetch", tokens, at)))) {
            name += ", qxfx_textures[" + std::to_string(effect_.samplers[found->second].texture) + ']';
        } else if (codes) {
            throw CompileError(tokens[at].at, "tex2Dcodes reads a sampler that the effect declares, by its "
                                              "name; " +
                                                  inQuotes(tokens[at].text) + " is none");
        }
        return name;
    }

    /// Whether the token is the first argument of that function.
    static bool isReadBy(std::string_view function, const std::vector<Token>& tokens, std::size_t at)
    {
        return at >= 2 && tokens[at - 1].is("(") && tokens[at - 2].is(function);
    }

private:
    const CompiledEffect& effect_;
    const std::vector<bool> buffers_;
    std::unordered_map<std::string_view, std::size_t> indices_;
};

class Output
{
public:
    explicit Output(const SamplerNames& samplers) : samplers_(samplers) {}

    void add(std::string_view line, Location at)
    {
        text_.hlsl += line;
        text_.hlsl += '\n';
        text_.lines.push_back(at);
    }

    void add(const std::vector<Token>& tokens)
    {
        for (std::size_t i = 0; i < tokens.size(); ++i) {
            const Token& token = tokens[i];
            token.kind == TokenKind::Identifier ? add(samplers_.spelling(tokens, i), token.at)
                                                : add(token.text, token.at);
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
    const SamplerNames& samplers_;
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

std::string maxCodeOf(std::uint32_t bits)
{
    return std::to_string((1U << bits) - 1U) + ".0";
}

/// Whether something is kept from one call to the next.
bool hasVariableStatic(const std::vector<Token>& tokens)
{
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        const bool before = i > 0 && tokens[i - 1].is("const");
        const bool after = i + 1 < tokens.size() && tokens[i + 1].is("const");
        if (tokens[i].is("static") && !before && !after) {
            return true;
        }
    }
    return false;
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

bool PassWriter::canBePacked(const EffectSyntax::Pass& pass) const
{
    const std::unordered_set<std::string_view> names = reachableFrom(pass);
    const bool remembers =
        std::any_of(syntax_.pieces.begin(), syntax_.pieces.end(), [&](const EffectSyntax::Piece& piece) {
            return names.count(piece.name.text) != 0 && hasVariableStatic(piece.text);
        });
    const auto entry = static_cast<std::size_t>(&findEntry(pass) - syntax_.pieces.data());
    return !remembers && costs_[entry].tokens <= mostPackedTokens;
}

bool PassWriter::isTable(std::string_view texture) const
{
    for (std::size_t i = 0; i < effect_.samplers.size(); ++i) {
        if (syntax_.samplers[i].dimensions == 3 &&
            effect_.textures[effect_.samplers[i].texture].name == texture) {
            return true;
        }
    }
    return false;
}

std::vector<bool> PassWriter::readByNumberOnly(const EffectSyntax::Pass& pass,
                                               const std::unordered_set<std::string_view>& names) const
{
    std::unordered_set<std::string_view> otherwise;
    const auto look = [&](const std::vector<Token>& tokens) {
        for (std::size_t i = 0; i < tokens.size(); ++i) {
            if (!SamplerNames::isReadBy("tex2Dfetch", tokens, i) &&
                !SamplerNames::isReadBy("tex2Dcodes", tokens, i)) {
                otherwise.insert(tokens[i].text);
            }
        }
    };
    std::for_each(pass.arguments.begin(), pass.arguments.end(), look);
    for (const EffectSyntax::Piece& piece : syntax_.pieces) {
        if (names.count(piece.name.text) != 0) {
            look(piece.text);
        }
    }
    std::vector<bool> result(effect_.samplers.size());
    for (std::size_t i = 0; i < result.size(); ++i) {
        result[i] = syntax_.samplers[i].dimensions == 2 && otherwise.count(effect_.samplers[i].name) == 0;
    }
    return result;
}

PassText PassWriter::write(const EffectSyntax::Pass& pass, const std::set<std::size_t>& withoutBody) const
{
    return write(pass, withoutBody, std::nullopt);
}

PassText PassWriter::writePacked(const EffectSyntax::Pass& pass,
                                 CompiledEffect::PackedShader::Depths depths) const
{
    return write(pass, {}, depths);
}

PassText PassWriter::write(const EffectSyntax::Pass& pass, const std::set<std::size_t>& withoutBody,
                           std::optional<CompiledEffect::PackedShader::Depths> grouped) const
{
    const EntryCall call(syntax_, findEntry(pass), pass);
    std::unordered_set<std::string_view> names = reachableFrom(pass);
    const auto used = [&](std::string_view name) { return names.count(name) != 0; };
    const SamplerNames samplers(effect_, grouped ? readByNumberOnly(pass, names)
                                                 : std::vector<bool>(effect_.samplers.size()));
    Output output(samplers);
    const std::string sourceMaxCode = grouped ? maxCodeOf(grouped->source) : "";
    const std::string targetMaxCode = grouped ? maxCodeOf(grouped->target) : "";
    writeLines(output, prelude, pass.entry.at);
    if (grouped) {
        output.add("static const float qxfx_sourceMaxCode = " + sourceMaxCode + ';', pass.entry.at);
        output.add("static const float qxfx_maxCode = " + targetMaxCode + ';', pass.entry.at);
        output.add("static const int qxfx_texels = " +
                       std::to_string(CompiledEffect::PackedShader::texelsOf(grouped->source)) + ';',
                   pass.entry.at);
        output.add("static const float qxfx_scale = " + (call.givesCodes() ? "1.0" : targetMaxCode) + ';',
                   pass.entry.at);
        // To the even code where two are as near, as the device rounds what it writes by single texels.
        output.add(std::string("float4 qxfx_rounded(float4 c) { return ") +
                       (call.givesCodes() ? "c" : "round(c)") + "; }",
                   pass.entry.at);
        writeLines(output, packedPrelude, pass.entry.at);
    }
    if (used("qxfx_divisor")) {
        writeLines(output, remainderFunctions, pass.entry.at);
    }
    output.add("cbuffer qxfx_uniforms : register(b0) { float4 qxfx_area : packoffset(c0);", pass.entry.at);
    output.add("float4 qxfx_coordinates[" + std::to_string(SystemUniforms::maxTexCoords) +
                   "] : packoffset(c1); float4 qxfx_target : packoffset(c" +
                   std::to_string(1 + SystemUniforms::maxTexCoords) + ");",
               pass.entry.at);
    std::vector<std::pair<std::string_view, std::string_view>> constants;
    for (std::size_t i = 0; i < effect_.parameters.size(); ++i) {
        const CompiledEffect::Parameter& parameter = effect_.parameters[i];
        const bool ofTarget = parameter.semantic == CompiledEffect::Semantic::TargetMaxCode;
        const bool ofSource = parameter.semantic == CompiledEffect::Semantic::TextureMaxCode &&
                              !isTable(parameter.semanticTexture);
        if (used(parameter.name) && grouped && (ofTarget || ofSource)) {
            constants.emplace_back(parameter.name, ofTarget ? targetMaxCode : sourceMaxCode);
        } else if (used(parameter.name)) {
            output.add(declaration(parameter), syntax_.parameters[i].name.at);
        }
    }
    if (!effect_.textures.empty()) {
        output.add("float4 qxfx_textures[" + std::to_string(effect_.textures.size()) + "] : packoffset(c" +
                       std::to_string(effect_.textureUniforms / sizeof(CompiledEffect::TextureUniforms)) +
                       ");",
                   pass.entry.at);
    }
    output.add("};", pass.entry.at);
    for (const auto& [name, maxCode] : constants) {
        output.add("static const float " + std::string(hlslName(name)) + " = " + std::string(maxCode) + ';',
                   pass.entry.at);
    }
    for (std::size_t i = 0; i < effect_.samplers.size(); ++i) {
        if (used(effect_.samplers[i].name)) {
            const std::string type = samplers.isBuffer(i)
                                         ? "Buffer<uint4> "
                                         : "sampler" + std::to_string(syntax_.samplers[i].dimensions) + "D ";
            output.add("[[vk::binding(" + std::to_string(i + 1) + ", 0)]] " + type +
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
    if (grouped) {
        writeLines(output, codesAt, pass.entry.at);
        writeLines(output,
                   CompiledEffect::PackedShader::texelsOf(grouped->target) == 4 ? mainForFour : mainForTwo,
                   pass.entry.at);
    } else {
        writeLines(output, mainForTexel, pass.entry.at);
        if (call.givesCodes()) {
            output.add(colourOfCodes, pass.entry.at);
        }
        output.add(returnColour, pass.entry.at);
    }
    PassText text = output.take();
    text.names = std::move(names);
    return text;
}

} // namespace Qx::Host::Effects
