#include "host/effects/hlsl/PassText.h"

#include "host/effects/Supplies.h"
#include "host/effects/framework/ParameterRange.h"
#include "host/effects/hlsl/AssignedParameters.h"
#include "host/effects/hlsl/EntryCall.h"
#include "host/effects/hlsl/HlslNames.h"
#include "host/effects/hlsl/PassPrelude.h"
#include "host/effects/hlsl/Remainders.h"
#include "host/effects/spirv/ShaderChecks.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <map>
#include <span>

namespace Qx::Host::Effects {
namespace {

using SystemUniforms = CompiledEffect::SystemUniforms;
using Semantic = CompiledEffect::Semantic;
using Depths = CompiledEffect::PackedShader::Depths;

constexpr std::size_t mostVertexTokens = CallGraph::mostInlinedTokens / 8; // it is called up to seven times
constexpr std::size_t mostPackedTokens = CallGraph::mostInlinedTokens / 4; // it is called up to four times

/// The samplers among the parameters of a function, whose text has its body from `bodyBegin` on.
struct SamplerParameters
{
    std::unordered_set<std::string_view> names;
    std::size_t bodyBegin = 0;
    std::unordered_set<std::size_t> unnamed{}; ///< where the types of those are that have no name
};

SamplerParameters samplerParametersOf(const EffectSyntax::Piece& piece)
{
    SamplerParameters parameters{{}, piece.function.hasBody ? piece.bodyBegin : piece.text.size()};
    for (const EffectSyntax::FunctionParameter& parameter : piece.function.parameters) {
        if (parameter.type.sampler && parameter.type.sampler->dimensions == 2) {
            parameters.names.insert(parameter.name.text);
            if (parameter.name.text.empty()) {
                parameters.unnamed.insert(parameter.typeAt);
            }
        }
    }
    return parameters;
}

/// How the text of one pass refers to the effect's samplers.
class SamplerNames
{
public:
    /// `buffers` marks the samplers that are declared as buffers instead. In a pass that reads levels every
    /// sampler of a picture is followed by what levelReaders take.
    SamplerNames(const EffectSyntax& syntax, const CompiledEffect& effect, std::vector<bool> buffers,
                 bool readsLevels)
        : syntax_(syntax), effect_(effect), buffers_(std::move(buffers)), readsLevels_(readsLevels)
    {
        for (std::size_t i = 0; i < effect.samplers.size(); ++i) {
            indices_[effect.samplers[i].name] = i;
        }
    }

    bool isBuffer(std::size_t sampler) const { return buffers_[sampler]; }
    bool readsLevels() const { return readsLevels_; }

    /// The text for the token at `at` of a function's text or, without `parameters`, of another. A sampler
    /// that is read by the number of a texel is followed by its entry in qxfx_textures, if the function takes
    /// that.
    std::string spelling(const std::vector<Token>& tokens, std::size_t at,
                         const SamplerParameters* parameters) const
    {
        std::string name(hlslName(tokens[at].text));
        const bool codes = isReadBy("tex2Dcodes", tokens, at);
        const auto found = indices_.find(tokens[at].text);
        const bool isParameter =
            readsLevels_ && parameters != nullptr && parameters->names.count(tokens[at].text) != 0;
        if (readsLevels_ && parameters != nullptr && parameters->unnamed.count(at) != 0) {
            return name + ", qxfx_Levels";
        }
        if (isParameter && at < parameters->bodyBegin) {
            return name + ", qxfx_Levels qxfx_of_" + name;
        }
        if (readsLevels_ && takesLevels(tokens, at)) {
            if (isParameter) {
                return name + ", qxfx_of_" + name;
            }
            if (found != indices_.end() && effect_.samplers[found->second].dimensions == 2) {
                return name + ", " + levelsOf(found->second);
            }
        }
        if (found != indices_.end() &&
            (codes ||
             (buffers_[found->second] && (isReadByNumber(tokens, at) || isReadBy("tex2D", tokens, at))))) {
            name += ", qxfx_textures[" + std::to_string(effect_.samplers[found->second].texture) + ']';
        } else if (codes) {
            throw CompileError(tokens[at].at,
                               "tex2Dcodes expects the name of a sampler that the effect declares, not " +
                                   inQuotes(tokens[at].text));
        }
        return name;
    }

    /// Whether the token is the first argument of that function.
    static bool isReadBy(std::string_view function, const std::vector<Token>& tokens, std::size_t at)
    {
        return at >= 2 && tokens[at - 1].is("(") && tokens[at - 2].is(function);
    }

    /// Whether the token is the first argument of a function that reads by the number of a texel.
    static bool isReadByNumber(const std::vector<Token>& tokens, std::size_t at)
    {
        return isReadBy("tex2Dfetch", tokens, at) || isReadBy("tex2Dcodes", tokens, at) ||
               isReadBy("tex3Dfetch", tokens, at);
    }

private:
    /// Whether the token, if it is a sampler, is given to a function of the effect or to one that filters.
    static bool takesLevels(const std::vector<Token>& tokens, std::size_t at)
    {
        const bool begins = at == 0 || tokens[at - 1].is("(") || tokens[at - 1].is(",");
        const bool ends = at + 1 == tokens.size() || tokens[at + 1].is(")") || tokens[at + 1].is(",");
        if (!begins || !ends) {
            return false; // no argument
        }
        if (at < 2 || !tokens[at - 1].is("(")) {
            return true;
        }
        static constexpr std::array<std::string_view, 3> byNumber{"tex2Dfetch", "tex2Dcodes", "qxfx_load2D"};
        return std::find(byNumber.begin(), byNumber.end(), tokens[at - 2].text) == byNumber.end();
    }

    /// A qxfx_Levels.
    std::string levelsOf(std::size_t index) const
    {
        const CompiledEffect::Sampler& sampler = effect_.samplers[index];
        const EffectSyntax::LevelRange& range = syntax_.samplers[index].levels;
        const bool hasLevels = sampler.mip != CompiledEffect::Mip::None;
        const bool filters = hasLevels && sampler.filter == CompiledEffect::Filter::Linear;
        std::string text = "qxfx_levels(qxfx_textures[" + std::to_string(sampler.texture) + "].zw";
        for (const float number : {static_cast<float>(sampler.mip), filters ? 1.0F : 0.0F, range.bias,
                                   std::min(range.first, range.last), range.last,
                                   static_cast<float>(effect_.textures[sampler.texture].levels - 1)}) {
            text += ", " + written(number);
        }
        return text + ')';
    }

    const EffectSyntax& syntax_;
    const CompiledEffect& effect_;
    const std::vector<bool> buffers_;
    const bool readsLevels_;
    std::unordered_map<std::string_view, std::size_t> indices_;
};

/// Whether the readers read a picture's first level.
bool readsFirst(std::string_view readers)
{
    return readers == lineReaders || readers == cubeReaders || readers == methodReaders1D ||
           readers == methodReadersCube;
}

/// Those readers for passes that read levels, in which a sampler of a picture is followed by a qxfx_Levels.
std::string withLevels(std::string_view readers)
{
    constexpr std::string_view sampler = "sampler2D s";
    constexpr std::string_view argument = "(s,";
    std::string text;
    for (std::size_t i = 0; i < readers.size();) {
        const std::string_view rest = readers.substr(i);
        const std::string_view found = rest.starts_with(sampler)    ? sampler
                                       : rest.starts_with(argument) ? argument
                                                                    : rest.substr(0, 1);
        text += found == sampler ? "sampler2D s, qxfx_Levels of" : found == argument ? "(s, of," : found;
        i += found.size();
    }
    return text;
}

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

    void addLines(std::string_view lines, Location at)
    {
        for (std::size_t begin = 0; begin < lines.size();) {
            const std::size_t end = lines.find('\n', begin);
            add(lines.substr(begin, end - begin), at);
            begin = end + 1;
        }
    }

    void add(const std::vector<Token>& tokens, const SamplerParameters* parameters = nullptr)
    {
        for (std::size_t i = 0; i < tokens.size(); ++i) {
            const Token& token = tokens[i];
            token.kind == TokenKind::Identifier ? add(samplers_.spelling(tokens, i, parameters), token.at)
                                                : add(token.text, token.at);
        }
    }

    void addPiece(std::size_t index, const std::vector<Token>& tokens, const SamplerParameters& parameters)
    {
        beginPiece(index);
        add(tokens, &parameters);
    }

    void beginPiece(std::size_t index) { text_.pieces.emplace_back(text_.lines.size() + 1, index); }

    PassText take() { return std::move(text_); }

private:
    const SamplerNames& samplers_;
    PassText text_;
};

/// A variable of the parameter's type.
std::string variable(const CompiledEffect::Parameter& parameter, const std::string& name)
{
    const NumericType type{static_cast<NumericType::Scalar>(parameter.type), parameter.rows,
                           parameter.columns};
    const std::string array = parameter.elements == 0 ? "" : "[" + std::to_string(parameter.elements) + "]";
    return std::string(type.spelling()) + ' ' + name + array;
}

std::string declaration(const CompiledEffect::Parameter& parameter, const std::string& name)
{
    return (parameter.rows > 1 ? "row_major " : "") + variable(parameter, name) + " : packoffset(c" +
           std::to_string(parameter.offset / 16) + '.' + "xyzw"[parameter.offset % 16 / 4] + ");";
}

std::string maxCodeOf(std::uint32_t bits)
{
    return std::to_string((1U << bits) - 1U) + ".0";
}

/// Whether a function keeps a value from one call to the next.
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

/// Whether a sampler reads the texture in three dimensions.
bool isTable(std::string_view texture, const EffectSyntax& syntax, const CompiledEffect& effect)
{
    for (std::size_t i = 0; i < effect.samplers.size(); ++i) {
        if (syntax.samplers[i].type.dimensions == 3 &&
            effect.textures[effect.samplers[i].texture].name == texture) {
            return true;
        }
    }
    return false;
}

/// For each sampler, whether the pass reads it only by the number of a texel.
std::vector<bool> readByNumberOnly(const EffectSyntax::Pass& pass,
                                   const std::unordered_set<std::string_view>& names,
                                   const EffectSyntax& syntax, const CompiledEffect& effect)
{
    std::unordered_set<std::string_view> otherwise;
    const auto look = [&](const std::vector<Token>& tokens) {
        for (std::size_t i = 0; i < tokens.size(); ++i) {
            if (!SamplerNames::isReadByNumber(tokens, i)) {
                otherwise.insert(tokens[i].text);
            }
        }
    };
    std::for_each(pass.shader.arguments.begin(), pass.shader.arguments.end(), look);
    std::for_each(pass.vertex.arguments.begin(), pass.vertex.arguments.end(), look);
    for (const EffectSyntax::Piece& piece : syntax.pieces) {
        if (names.count(piece.name.text) != 0) {
            look(piece.text);
        }
    }
    std::vector<bool> result(effect.samplers.size());
    for (std::size_t i = 0; i < result.size(); ++i) {
        result[i] = otherwise.count(effect.samplers[i].name) == 0;
    }
    return result;
}

/// Whether the i-th token is a sampler in `tex2D(sampler, coordinate)`.
bool isReadAt(const std::unordered_map<std::string_view, std::uint32_t>& coordinates,
              const std::vector<Token>& tokens, std::size_t i)
{
    return SamplerNames::isReadBy("tex2D", tokens, i) && i + 3 < tokens.size() && tokens[i + 1].is(",") &&
           coordinates.count(tokens[i + 2].text) != 0 && tokens[i + 3].is(")");
}

/// The parameters of the entry function that are a TEXCOORDn each and are used for nothing but reading
/// samplers there; with n.
std::unordered_map<std::string_view, std::uint32_t> coordinatesOf(const EffectSyntax::Piece& entry)
{
    std::unordered_map<std::string_view, std::uint32_t> coordinates;
    for (const EffectSyntax::FunctionParameter& parameter : entry.function.parameters) {
        const IndexedSemantic semantic(parameter.semantic ? parameter.semantic->text : std::string_view());
        const std::optional<NumericType>& type = parameter.type.numeric;
        if (semantic.is("TEXCOORD") && semantic.index < SystemUniforms::maxTexCoords && !parameter.uniform &&
            !parameter.output && !parameter.elements && type && type->rows == 1 && type->columns == 2 &&
            type->scalar == NumericType::Scalar::Float) {
            coordinates.emplace(parameter.name.text, static_cast<std::uint32_t>(semantic.index));
        }
    }
    for (std::size_t i = entry.bodyBegin; i < entry.text.size(); ++i) {
        if (coordinates.count(entry.text[i].text) != 0 &&
            (i < 2 || !isReadAt(coordinates, entry.text, i - 2))) {
            coordinates.erase(entry.text[i].text);
        }
    }
    return coordinates;
}

/// For each sampler, the n of the TEXCOORDn at which the pass reads single texels of it, and reads it nowhere
/// else; noPlace for other samplers. Empty if there is none.
std::vector<std::uint32_t> ownPlaces(const EffectSyntax::Pass& pass, const EffectSyntax::Piece& entry,
                                     const std::unordered_set<std::string_view>& names,
                                     const EffectSyntax& syntax, const CompiledEffect& effect)
{
    constexpr std::uint32_t none = CompiledEffect::PackedShader::noPlace;
    if (pass.vertex) {
        return {};
    }
    const auto coordinates = coordinatesOf(entry);
    std::unordered_map<std::string_view, std::uint32_t> places;
    std::unordered_set<std::string_view> otherwise;
    const auto look = [&](const std::vector<Token>& tokens, bool isEntry) {
        for (std::size_t i = 0; i < tokens.size(); ++i) {
            if (!isEntry || !isReadAt(coordinates, tokens, i)) {
                otherwise.insert(tokens[i].text);
            } else if (const std::uint32_t place = coordinates.at(tokens[i + 2].text);
                       !places.emplace(tokens[i].text, place).second && places[tokens[i].text] != place) {
                otherwise.insert(tokens[i].text);
            }
        }
    };
    for (const auto& argument : pass.shader.arguments) {
        look(argument, false);
    }
    for (const EffectSyntax::Piece& piece : syntax.pieces) {
        if (names.count(piece.name.text) != 0) {
            look(piece.text, &piece == &entry);
        }
    }
    std::vector<std::uint32_t> result;
    for (const CompiledEffect::Sampler& sampler : effect.samplers) {
        const auto found = places.find(sampler.name);
        const bool isOwn = found != places.end() && otherwise.count(sampler.name) == 0 &&
                           sampler.dimensions == 2 && sampler.faces == 1 &&
                           sampler.filter == CompiledEffect::Filter::Point &&
                           sampler.mip == CompiledEffect::Mip::None;
        result.push_back(isOwn ? found->second : none);
    }
    const bool any =
        std::any_of(result.begin(), result.end(), [](std::uint32_t place) { return place != none; });
    return any ? result : std::vector<std::uint32_t>();
}

/// Whether a pass that reaches those names reads levels of a texture.
bool readsLevels(const std::unordered_set<std::string_view>& names, const CompiledEffect& effect)
{
    return std::any_of(effect.samplers.begin(), effect.samplers.end(), [&](const auto& sampler) {
        return sampler.mip != CompiledEffect::Mip::None && names.count(sampler.name) != 0;
    });
}

/// Whether a parameter is the size of a picture or a texel.
bool isSize(const CompiledEffect::Parameter& parameter)
{
    const Supply supply = supplyOf(parameter);
    return parameter.semantic == Semantic::TextureSize || parameter.semantic == Semantic::TargetSize ||
           (supply >= Supply::PictureSize && supply <= Supply::TexelHeight) ||
           supply == Supply::PlayerPicture || supply == Supply::PlayerTexel;
}

/// What the uniform buffer holds when a picture of the usual size is drawn with the defaults of all
/// parameters.
std::vector<std::byte> likelyUniforms(const CompiledEffect& effect)
{
    constexpr FrameFacts facts{1.0, 0.04, 25, 1920, 1080};
    std::vector<std::byte> bytes(effect.uniformBytes);
    for (const CompiledEffect::Parameter& parameter : effect.parameters) {
        const std::span<std::byte> place = std::span(bytes).subspan(parameter.offset, parameter.bytes);
        std::copy_n(parameter.defaultValue.begin(), std::min(parameter.defaultValue.size(), place.size()),
                    place.begin());
        std::vector<float> values;
        if (parameter.semantic == Semantic::TextureSize || parameter.semantic == Semantic::TargetSize) {
            values = valuesOf(Supply::PictureSize, parameter, facts);
        } else if (parameter.semantic == Semantic::TextureMaxCode ||
                   parameter.semantic == Semantic::TargetMaxCode) {
            values = {255.0F};
        } else if (const Supply supply = supplyOf(parameter); supply != Supply::None) {
            values = valuesOf(supply, parameter, facts);
        }
        for (std::size_t i = 0; i < values.size() && (i + 1) * sizeof(float) <= place.size(); ++i) {
            const bool isFloat = parameter.type == CompiledEffect::ScalarType::Float;
            const auto bits = isFloat ? std::bit_cast<std::uint32_t>(values[i])
                                      : static_cast<std::uint32_t>(static_cast<std::int32_t>(values[i]));
            std::memcpy(place.data() + i * sizeof bits, &bits, sizeof bits);
        }
    }
    return bytes;
}

/// The values of a matrix that is 1 on its diagonal.
std::string identity(const CompiledEffect::Parameter& parameter)
{
    std::string values;
    for (std::uint32_t i = 0; i < parameter.rows * parameter.columns; ++i) {
        values += i == 0 ? "" : ", ";
        values += i / parameter.columns == i % parameter.columns ? "1.0" : "0.0";
    }
    return "{ " + values + " }";
}

/// The text of one pass in the making.
class Writing
{
public:
    /// `packed` is given for the text of a PackedShader.
    Writing(const EffectSyntax& syntax, const CompiledEffect& effect, const CallGraph& calls,
            const std::unordered_set<std::string_view>& assigned, const EffectSyntax::Pass& pass,
            std::optional<Depths> packed, std::vector<std::uint32_t> places = {},
            PassWriter::Gives gives = PassWriter::Gives::PackedTexel)
        : syntax_(syntax),
          effect_(effect),
          calls_(calls),
          assigned_(assigned),
          pass_(pass),
          packed_(packed),
          places_(std::move(places)),
          gives_(gives),
          names_(calls.namesReachedBy(pass)),
          samplers_(syntax, effect, packed ? readAsBuffers() : std::vector<bool>(effect.samplers.size()),
                    readsLevels(names_, effect)),
          output_(samplers_)
    {
        if (pass.vertex) {
            vertex_.emplace(syntax, calls.entryOf(pass.vertex), pass.vertex);
        }
    }

    /// `form` is that of the pass's vertex shader, if it has one.
    PassText run(const VertexForm& form, const std::set<std::size_t>& withoutBody)
    {
        const EntryCall call = entryCall();
        addPrelude(call.givesCodes());
        addPieces(withoutBody);
        if (vertex_) {
            const auto& used = call.takenOutputs();
            addLines(coordinateBetween);
            addLines(cornerFunctions);
            addLines(shiftFunctions);
            addLines(placeFunctions);
            addVertexFunction();
            vertex_->writeInterpolation(form, used, knowsSizes(), texels(),
                                        [&](std::string_view line) { interpolation_.emplace_back(line); });
            copies_.insert(copies_.begin(), interpolation_.begin(), interpolation_.end());
        }
        if (!places_.empty()) {
            copies_.emplace_back("qxfx_ownTexel = qxfx_texel;");
        }
        call.write(copies_, lineWriter(), tokenWriter());
        addMain(call.givesCodes());
        PassText text = output_.take();
        text.places = places_;
        text.names = std::move(names_);
        if (vertex_) {
            text.missing = vertex_->missing();
        }
        text.missing.insert(text.missing.end(), call.missing().begin(), call.missing().end());
        text.warnings = call.warnings();
        text.warnings.insert(text.warnings.end(), form.warnings.begin(), form.warnings.end());
        text.corners = form.corners;
        return text;
    }

    EntryCall entryCall() const
    {
        return {syntax_, calls_.entryOf(pass_.shader), pass_, vertex_ ? &*vertex_ : nullptr};
    }

    /// A text whose outputs are the vertex shader's.
    std::string runProbe()
    {
        names_ = calls_.namesReachedBy(pass_.vertex);
        addPrelude(false);
        addPieces({});
        addLines(coordinateOfProbe);
        addVertexFunction();
        vertex_->writeProbe(lineWriter());
        return output_.take().hlsl;
    }

    const VertexCall& vertex() const { return *vertex_; }

    /// Whether the vertex shader asks for the size of a picture or a texel.
    bool knowsSizes() const
    {
        const std::unordered_set<std::string_view> names = calls_.namesReachedBy(pass_.vertex);
        return std::any_of(effect_.parameters.begin(), effect_.parameters.end(), [&](const auto& parameter) {
            return names.count(parameter.name) != 0 && isSize(parameter);
        });
    }

    /// The sizes of texels that the vertex shader asks for, as expressions.
    std::vector<std::string> texels() const
    {
        const std::unordered_set<std::string_view> names = calls_.namesReachedBy(pass_.vertex);
        std::vector<std::string> found;
        std::map<Supply, std::string> sides; // that are asked for one by one
        for (const CompiledEffect::Parameter& parameter : effect_.parameters) {
            if (names.count(parameter.name) == 0 || !isSize(parameter) ||
                parameter.semantic == Semantic::TargetSize) {
                continue;
            }
            const std::string name(hlslName(parameter.name));
            const Supply supply = supplyOf(parameter);
            if (parameter.columns == 1) {
                sides.emplace(supply, name);
            } else if (supply == Supply::TexelSize || supply == Supply::PlayerTexel) {
                found.push_back(name + ".xy");
            } else {
                found.push_back("(1.0 / float2(" + name + ".xy))");
            }
        }
        const auto pair = [&](Supply x, Supply y) {
            return sides.count(x) != 0 && sides.count(y) != 0
                       ? "float2(" + sides.at(x) + ", " + sides.at(y) + ')'
                       : std::string();
        };
        if (const std::string size = pair(Supply::PictureWidth, Supply::PictureHeight); !size.empty()) {
            found.push_back("(1.0 / " + size + ')');
        }
        if (const std::string size = pair(Supply::TexelWidth, Supply::TexelHeight); !size.empty()) {
            found.push_back(size);
        }
        return found;
    }

    /// The error for what only pixels can, in the vertex shader.
    CompileError pixelWord() const
    {
        static constexpr std::array<std::string_view, 5> words{"clip", "discard", "ddx", "ddy", "fwidth"};
        const std::unordered_set<std::string_view> names = calls_.namesReachedBy(pass_.vertex);
        Token found = pass_.vertex.entry;
        for (const EffectSyntax::Piece& piece : syntax_.pieces) {
            for (std::size_t i = piece.bodyBegin; i < piece.text.size() && names.count(piece.name.text) != 0;
                 ++i) {
                const bool is = std::find(words.begin(), words.end(), piece.text[i].text) != words.end();
                found = is ? piece.text[i] : found;
            }
        }
        return {found.at, "the vertex shader " + inQuotes(pass_.vertex.entry.text) +
                              " cannot use clip, discard, ddx, ddy or fwidth, which are for pixels; move it "
                              "to the pixel shader"};
    }

private:
    std::vector<bool> readAsBuffers() const
    {
        std::vector<bool> buffers = readByNumberOnly(pass_, names_, syntax_, effect_);
        for (std::size_t i = 0; i < places_.size(); ++i) {
            buffers[i] = buffers[i] || places_[i] != CompiledEffect::PackedShader::noPlace;
        }
        return buffers;
    }

    void add(std::string_view line) { output_.add(line, pass_.shader.entry.at); }
    void addLines(std::string_view lines) { output_.addLines(lines, pass_.shader.entry.at); }

    ShaderCall::WriteLine lineWriter()
    {
        return [this](std::string_view line) { add(line); };
    }
    ShaderCall::WriteTokens tokenWriter()
    {
        return [this](const std::vector<Token>& tokens) { output_.add(tokens); };
    }

    void addPrelude(bool codes)
    {
        addLines(prelude);
        if (samplers_.readsLevels()) {
            addLines(levelReaders);
        }
        if (isUsed("tex3Dfetch")) {
            addLines(volumeFetches);
        }
        if (packed_) {
            addPackedPrelude(codes);
        }
        if (isUsed("qxfx_divisor")) {
            addLines(remainderFunctions);
        }
        addReaders();
        addUniforms();
        addSamplers();
    }

    void addVertexFunction() { vertex_->writeFunction(copies_, lineWriter(), tokenWriter()); }

    bool isUsed(std::string_view name) const { return names_.count(name) != 0; }

    /// The functions that only some effects read textures with.
    void addReaders()
    {
        struct Readers
        {
            std::string_view beginning; ///< of a name
            std::string_view lines;
        };
        static constexpr std::array<Readers, 8> readers{{{"tex3D", volumeReaders},
                                                         {"tex1D", lineReaders},
                                                         {"texCUBE", cubeReaders},
                                                         {"qxfx_levelCUBE", cubeReaders},
                                                         {"qxfx_levelCUBE", methodReadersCube},
                                                         {"qxfx_level1D", methodReaders1D},
                                                         {"qxfx_l", methodReaders2D},
                                                         {"qxfx_l", methodReaders3D}}};
        std::unordered_set<std::string_view> added;
        for (const Readers& some : readers) {
            const bool used = std::any_of(names_.begin(), names_.end(), [&](std::string_view name) {
                return name.substr(0, some.beginning.size()) == some.beginning;
            });
            if (used && added.insert(some.lines).second) {
                if (readsFirst(some.lines) && !samplers_.readsLevels() && added.insert(firstReader).second) {
                    addLines(firstReader);
                }
                addLines(readsFirst(some.lines) && samplers_.readsLevels() ? withLevels(some.lines)
                                                                           : std::string(some.lines));
            }
        }
    }

    void addPackedPrelude(bool codes)
    {
        const std::string targetMaxCode = maxCodeOf(packed_->target);
        add("static const float qxfx_sourceMaxCode = " + maxCodeOf(packed_->source) + ';');
        add("static const float qxfx_maxCode = " + targetMaxCode + ';');
        add("static const int qxfx_texels = " +
            std::to_string(CompiledEffect::PackedShader::texelsOf(packed_->source)) + ';');
        add("static const float qxfx_scale = " + (codes ? "1.0" : targetMaxCode) + ';');
        // Half-way values go to the even code, as the device rounds when it writes single texels.
        add(std::string("float4 qxfx_rounded(float4 c) { return ") + (codes ? "c" : "round(c)") + "; }");
        addLines(packedPrelude);
        if (!places_.empty()) {
            addLines(packedOwnPlace);
        }
        if (isUsed("tex3Dfetch")) {
            addLines(packedVolumes);
        }
    }

    void addUniforms()
    {
        add("cbuffer qxfx_uniforms : register(b0) { float4 qxfx_area : packoffset(c0);");
        add("float4 qxfx_coordinates[" + std::to_string(SystemUniforms::maxTexCoords) +
            "] : packoffset(c1); float4 qxfx_target : packoffset(c" +
            std::to_string(1 + SystemUniforms::maxTexCoords) + ");");
        std::vector<std::string> constants;
        for (std::size_t i = 0; i < effect_.parameters.size(); ++i) {
            const CompiledEffect::Parameter& parameter = effect_.parameters[i];
            const EffectSyntax::Parameter& syntax = syntax_.parameters[i];
            const bool isMember = syntax.structure.kind != TokenKind::End;
            if (!isUsed(isMember ? syntax.structure.text : parameter.name)) {
                continue;
            }
            const std::string name(hlslName(parameter.name));
            const bool assigned = assigned_.count(parameter.name) != 0;
            const std::string given = isMember   ? "qxfx_member" + std::to_string(i)
                                      : assigned ? "qxfx_given_" + parameter.name
                                                 : name;
            if (assigned) {
                constants.push_back("static " + variable(parameter, name) + ';');
                copies_.push_back(name + " = " + given + ';');
            } else if (isMember) {
                copies_.push_back(std::string(hlslName(syntax.structure.text)) + '.' +
                                  std::string(hlslName(syntax.member.text)) + " = " + given + ';');
            }
            if (const std::optional<std::uint32_t> bits = knownBits(parameter)) {
                constants.push_back("static const float " + given + " = " + maxCodeOf(*bits) + ';');
            } else if (parameter.semantic == Semantic::Identity) {
                constants.push_back("static const " + variable(parameter, given) + " = " +
                                    identity(parameter) + ';');
            } else {
                output_.add(declaration(parameter, given), syntax_.parameters[i].name.at);
            }
        }
        if (!effect_.textures.empty()) {
            add("float4 qxfx_textures[" + std::to_string(effect_.textures.size()) + "] : packoffset(c" +
                std::to_string(effect_.textureUniforms / sizeof(CompiledEffect::TextureUniforms)) + ");");
        }
        add("};");
        for (const std::string& constant : constants) {
            add(constant);
        }
    }

    /// The depth whose largest code the parameter is, where the text is for known depths.
    std::optional<std::uint32_t> knownBits(const CompiledEffect::Parameter& parameter) const
    {
        if (packed_ && parameter.semantic == Semantic::TargetMaxCode) {
            return packed_->target;
        }
        if (packed_ && parameter.semantic == Semantic::TextureMaxCode &&
            !isTable(parameter.semanticTexture, syntax_, effect_)) {
            return packed_->source;
        }
        return std::nullopt;
    }

    void addSamplers()
    {
        for (std::size_t i = 0; i < effect_.samplers.size(); ++i) {
            if (!isUsed(effect_.samplers[i].name)) {
                continue;
            }
            const std::string_view type = !samplers_.isBuffer(i) ? syntax_.samplers[i].type.spelling()
                                          : effect_.samplers[i].dimensions == 3 ? "Buffer<float4>"
                                                                                : "Buffer<uint4>";
            output_.add("[[vk::binding(" + std::to_string(i + 1) + ", 0)]] " + std::string(type) + ' ' +
                            std::string(hlslName(effect_.samplers[i].name)) + ";",
                        syntax_.samplers[i].name.at);
        }
    }

    void addPieces(const std::set<std::size_t>& withoutBody)
    {
        for (std::size_t i = 0; i < syntax_.pieces.size(); ++i) {
            const EffectSyntax::Piece& piece = syntax_.pieces[i];
            if (isUsed(piece.name.text)) {
                output_.addPiece(i, withoutBody.count(i) == 0 ? piece.text : declarationOf(piece),
                                 samplerParametersOf(piece));
            }
        }
        output_.beginPiece(syntax_.pieces.size());
    }

    void addMain(bool codes)
    {
        if (packed_) {
            const bool four = CompiledEffect::PackedShader::texelsOf(packed_->target) == 4;
            addLines(codesAt);
            const std::string_view several = four ? mainForFour : mainForTwo;
            addLines(gives_ == PassWriter::Gives::OneTexel ? mainForOne : several);
            return;
        }
        addLines(mainForTexel);
        if (codes) {
            add(colourOfCodes);
        }
        add(returnColour);
    }

    const EffectSyntax& syntax_;
    const CompiledEffect& effect_;
    const CallGraph& calls_;
    const std::unordered_set<std::string_view>& assigned_;
    const EffectSyntax::Pass& pass_;
    const std::optional<Depths> packed_;
    const std::vector<std::uint32_t> places_; ///< as PassText::places
    const PassWriter::Gives gives_;           ///< what a packed main() does
    std::optional<VertexCall> vertex_;
    std::unordered_set<std::string_view> names_;
    const SamplerNames samplers_;
    Output output_;
    std::vector<std::string> copies_;        ///< of parameters that are assigned to, made for each pixel
    std::vector<std::string> interpolation_; ///< of what the vertex shader gives
};

} // namespace

std::optional<std::size_t> PassText::pieceAt(std::size_t line) const
{
    const auto next = std::upper_bound(pieces.begin(), pieces.end(), line,
                                       [](std::size_t at, const auto& piece) { return at < piece.first; });
    return next == pieces.begin() || next == pieces.end() ? std::nullopt : std::optional((next - 1)->second);
}

PassWriter::PassWriter(const EffectSyntax& syntax, const CompiledEffect& effect, Compile compile)
    : syntax_(syntax),
      effect_(effect),
      compile_(std::move(compile)),
      calls_(syntax),
      assigned_(assignedParameters(syntax))
{
}

bool PassWriter::canBePacked(const EffectSyntax::Pass& pass) const
{
    const std::unordered_set<std::string_view> names = calls_.namesReachedBy(pass);
    const bool remembers =
        std::any_of(syntax_.pieces.begin(), syntax_.pieces.end(), [&](const EffectSyntax::Piece& piece) {
            return names.count(piece.name.text) != 0 && hasVariableStatic(piece.text);
        });
    return !remembers && !readsLevels(names, effect_) && calls_.inlinedTokens(pass) <= mostPackedTokens;
}

std::unordered_set<std::string_view> PassWriter::namesOfVertices() const
{
    std::unordered_set<std::string_view> names;
    for (const EffectSyntax::Technique& technique : syntax_.techniques) {
        for (const EffectSyntax::Pass& pass : technique.passes) {
            if (pass.vertex) {
                names.merge(calls_.namesReachedBy(pass.vertex));
            }
        }
    }
    return names;
}

VertexForm PassWriter::formOf(const EffectSyntax::Pass& pass) const
{
    if (!pass.vertex) {
        return {};
    }
    if (calls_.inlinedTokens(pass.vertex) > mostVertexTokens) {
        throw CompileError(pass.vertex.entry.at, "the vertex shader " + inQuotes(pass.vertex.entry.text) +
                                                     " has more than " + std::to_string(mostVertexTokens) +
                                                     " tokens after inlining all that it calls");
    }
    Writing writing(syntax_, effect_, calls_, assigned_, pass, std::nullopt);
    const std::string probe = writing.runProbe();
    auto found = forms_.find(probe);
    if (found == forms_.end()) {
        const std::vector<std::uint32_t> spirv = compile_(probe);
        if (minglesPixels(spirv)) {
            throw writing.pixelWord();
        }
        found =
            forms_
                .emplace(probe, writing.vertex().formOf(spirv, likelyUniforms(effect_), writing.knowsSizes()))
                .first;
    }
    if (found->second.error) {
        throw CompileError(*found->second.error);
    }
    return found->second;
}

PassText PassWriter::write(const EffectSyntax::Pass& pass, const std::set<std::size_t>& withoutBody) const
{
    return Writing(syntax_, effect_, calls_, assigned_, pass, std::nullopt).run(formOf(pass), withoutBody);
}

std::set<std::size_t> PassWriter::resultsOf(const EffectSyntax::Pass& pass) const
{
    return Writing(syntax_, effect_, calls_, assigned_, pass, std::nullopt).entryCall().results();
}

PassText PassWriter::writePacked(const EffectSyntax::Pass& pass, Depths depths, Reads reads,
                                 Gives gives) const
{
    std::vector<std::uint32_t> places;
    if (reads == Reads::OwnPlace) {
        places = ownPlaces(pass, calls_.entryOf(pass.shader), calls_.namesReachedBy(pass), syntax_, effect_);
        if (places.empty()) {
            return {};
        }
    }
    return Writing(syntax_, effect_, calls_, assigned_, pass, depths, std::move(places), gives)
        .run(formOf(pass), {});
}

} // namespace Qx::Host::Effects
