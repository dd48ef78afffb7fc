#include "host/effects/hlsl/ParameterLayout.h"

#include "host/core/Suggestion.h"
#include "host/effects/Supplies.h"
#include "host/effects/framework/Limits.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <limits>
#include <utility>

namespace Qx::Host::Effects {
namespace {

using Semantic = CompiledEffect::Semantic;

constexpr std::uint32_t roundUp(std::uint32_t value, std::uint32_t to)
{
    return (value + to - 1) / to * to;
}

std::array<std::byte, 4> encode(double value, CompiledEffect::ScalarType type)
{
    std::array<std::byte, 4> bytes{};
    if (type == CompiledEffect::ScalarType::Float) {
        const auto number = static_cast<float>(value);
        std::memcpy(bytes.data(), &number, sizeof number);
    } else {
        constexpr double least = std::numeric_limits<std::int32_t>::min();
        constexpr double most = std::numeric_limits<std::int32_t>::max();
        const auto number = static_cast<std::int32_t>(std::clamp(value, least, most));
        std::memcpy(bytes.data(), &number, sizeof number);
    }
    return bytes;
}

std::vector<std::byte> encodeDefault(const EffectSyntax::Parameter& syntax,
                                     const CompiledEffect::Parameter& parameter,
                                     const ParameterPlacement& placement)
{
    std::vector<std::byte> bytes(parameter.bytes);
    if (!syntax.defaultValue) {
        return bytes;
    }
    const std::vector<double>& values = syntax.defaultValue->components;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (!(std::abs(values[i]) <= std::numeric_limits<float>::max())) {
            throw CompileError(syntax.name.at,
                               "the default of " + inQuotes(syntax.name.text) + " is not a finite number");
        }
        const std::size_t at = i / parameter.columns * placement.rowStride + i % parameter.columns * 4;
        const std::array<std::byte, 4> encoded = encode(values[i], parameter.type);
        std::copy(encoded.begin(), encoded.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
    }
    return bytes;
}

constexpr std::array<std::string_view, 4> semanticNames{"TEXTURESIZE", "TEXTUREMAXCODE", "TARGETSIZE",
                                                        "TARGETMAXCODE"};

Semantic semanticNamed(std::string_view name)
{
    const auto* const found =
        std::find_if(semanticNames.begin(), semanticNames.end(),
                     [&](std::string_view word) { return equalIgnoringCase(name, word); });
    // The names are in the order of the semantics, which begin with None.
    return found == semanticNames.end() ? Semantic::None
                                        : static_cast<Semantic>(1 + (found - semanticNames.begin()));
}

void warnOfLikelySemantic(const Token& semantic, Problems& problems)
{
    if (isSuppliedSemantic(semantic.text)) {
        return;
    }
    const std::string likely = didYouMean(semantic.text, semanticNames);
    if (!likely.empty()) {
        problems.warn(
            {semantic.at, "semantic " + inQuotes(semantic.text) + " is unknown and is ignored" + likely});
    }
}

std::uint32_t textureNamed(std::string_view name, Location at, const CompiledEffect& effect)
{
    std::vector<std::string_view> known;
    for (std::uint32_t i = 0; i < effect.textures.size(); ++i) {
        if (effect.textures[i].name == name) {
            return i;
        }
        known.push_back(effect.textures[i].name);
    }
    throw CompileError(at, "there is no texture " + inQuotes(name) + didYouMean(name, known));
}

/// Whether a semantic asks for the world's, the view's or the projection's matrix, or a product of them, also
/// inverted or transposed.
bool isTransform(std::string_view semantic)
{
    const auto accept = [&semantic](std::initializer_list<std::string_view> words) {
        const auto* const word = std::find_if(words.begin(), words.end(), [&](std::string_view each) {
            return equalIgnoringCase(semantic.substr(0, each.size()), each);
        });
        semantic.remove_prefix(word == words.end() ? 0 : word->size());
        return word != words.end();
    };
    bool is = false;
    while (accept({"WORLD", "MODEL", "VIEW", "PROJECTION", "PROJ"})) {
        is = true;
    }
    while (accept({"INVERSE", "TRANSPOSE", "IT", "I", "T"})) {
    }
    return is && semantic.empty();
}

/// Makes the default 1 on the diagonal.
void setIdentity(CompiledEffect::Parameter& parameter)
{
    const ParameterPlacement placement = placementOf(parameter);
    const std::array<std::byte, 4> one = encode(1.0, parameter.type);
    for (std::uint32_t i = 0; i < std::min(parameter.rows, parameter.columns); ++i) {
        std::copy(one.begin(), one.end(),
                  parameter.defaultValue.begin() +
                      static_cast<std::ptrdiff_t>(i * (placement.rowStride + sizeof(float))));
    }
}

/// Reports an error in one property and leaves the property as it was.
template <typename Step>
void tolerate(Problems& problems, const Step& step)
{
    try {
        step();
    } catch (const CompileError& error) {
        problems.fail(error);
    }
}

void resolveSemantic(const EffectSyntax::Parameter& syntax, const CompiledEffect& effect,
                     CompiledEffect::Parameter& parameter, Problems& problems)
{
    if (!syntax.semantic) {
        return;
    }
    parameter.semantic = semanticNamed(syntax.semantic->text);
    parameter.semanticName = syntax.semantic->text;
    if (isTransform(syntax.semantic->text) && parameter.rows > 1 && parameter.elements == 0) {
        parameter.semantic = syntax.defaultValue ? Semantic::None : Semantic::Identity;
        return;
    }
    if (parameter.semantic == Semantic::None) {
        warnOfLikelySemantic(*syntax.semantic, problems);
        return; // authors and other programs have semantics of their own
    }
    const std::string semantic = inQuotes(syntax.semantic->text);
    const bool size =
        parameter.semantic == Semantic::TextureSize || parameter.semantic == Semantic::TargetSize;
    const std::uint32_t columns = size ? 2 : 1;
    if (parameter.type != CompiledEffect::ScalarType::Float || parameter.rows != 1 ||
        parameter.elements != 0 || parameter.columns != columns) {
        throw CompileError(syntax.semantic->at,
                           "a parameter with semantic " + semantic + " is a " + (size ? "float2" : "float"));
    }
    if (parameter.semantic == Semantic::TargetSize || parameter.semantic == Semantic::TargetMaxCode) {
        return;
    }
    const auto& annotations = syntax.annotations;
    const auto found = std::find_if(annotations.begin(), annotations.end(), [](const auto& annotation) {
        return equalIgnoringCase(annotation.name.text, "Texture");
    });
    if (found == annotations.end()) {
        throw CompileError(syntax.semantic->at,
                           "semantic " + semantic + " needs an annotation: < string Texture = \"NAME\"; >");
    }
    parameter.semanticTexture = effect.textures[textureNamed(found->value, found->at, effect)].name;
}

void layOutParameter(const EffectSyntax::Parameter& syntax, CompiledEffect& effect, Problems& problems)
{
    CompiledEffect::Parameter parameter;
    const NumericType& type = *syntax.type.numeric;
    parameter.name = syntax.name.text;
    parameter.type = type.scalar == NumericType::Scalar::Int    ? CompiledEffect::ScalarType::Int
                     : type.scalar == NumericType::Scalar::Bool ? CompiledEffect::ScalarType::Bool
                                                                : CompiledEffect::ScalarType::Float;
    parameter.rows = type.rows;
    parameter.columns = type.columns;
    parameter.elements = syntax.elements;
    parameter.place = syntax.place;
    parameter.annotations = plainAnnotations(syntax.annotations);
    tolerate(problems, [&] { resolveSemantic(syntax, effect, parameter, problems); });
    const ParameterPlacement placement = placementOf(parameter);
    parameter.offset = roundUp(effect.uniformBytes, placement.alignment);
    parameter.bytes = placement.bytes;
    tolerate(problems, [&] { parameter.defaultValue = encodeDefault(syntax, parameter, placement); });
    if (syntax.choosesShader && parameter.semantic == Semantic::None) {
        parameter.semantic = Semantic::ShaderNumber;
    }
    if (parameter.semantic == Semantic::Identity) {
        setIdentity(parameter);
    }
    effect.uniformBytes = parameter.offset + parameter.bytes;
    if (effect.uniformBytes > Limits::uniformBytes) {
        throw LimitError(syntax.name.at, "the parameters up to " + inQuotes(syntax.name.text) + " take " +
                                             std::to_string(effect.uniformBytes) + " bytes; the limit is " +
                                             std::to_string(Limits::uniformBytes));
    }
    effect.parameters.push_back(std::move(parameter));
}

bool asksForLevels(const EffectSyntax::Annotation& annotation)
{
    constexpr std::array<std::string_view, 3> names{"Levels", "MipLevels", "MipMapLevels"};
    return std::any_of(names.begin(), names.end(),
                       [&](std::string_view name) { return equalIgnoringCase(annotation.name.text, name); });
}

/// What the annotations say of the texture's levels: 1 without one, all of them for 0.
std::uint32_t levelsOf(const EffectSyntax::Texture& texture, Problems& problems)
{
    for (const EffectSyntax::Annotation& annotation : texture.annotations) {
        if (!asksForLevels(annotation)) {
            continue;
        }
        std::uint32_t levels = 0;
        if (annotation.value == "-1") { // D3DX_DEFAULT
            return CompiledEffect::Texture::mostLevels;
        }
        const char* const end = annotation.value.data() + annotation.value.size();
        const auto read = std::from_chars(annotation.value.data(), end, levels);
        if (read.ec != std::errc() || read.ptr != end || levels > CompiledEffect::Texture::mostLevels) {
            problems.fail({annotation.at, "annotation " + inQuotes(annotation.name.text) +
                                              " has a number of levels, from 1 to " +
                                              std::to_string(CompiledEffect::Texture::mostLevels) +
                                              ", or 0 for all of them; found " + annotation.value});
            return 1;
        }
        return levels == 0 ? CompiledEffect::Texture::mostLevels : levels;
    }
    return 1;
}

/// Levels are for textures that have several and are read by a sampler that reads them.
void matchLevels(CompiledEffect& effect)
{
    std::vector<bool> read(effect.textures.size());
    if (read.empty()) {
        return; // every sampler of an effect without a mistake has a texture
    }
    for (CompiledEffect::Sampler& sampler : effect.samplers) {
        if (sampler.dimensions != 2 || effect.textures[sampler.texture].levels == 1) {
            sampler.mip = CompiledEffect::Mip::None;
        }
        read[sampler.texture] = read[sampler.texture] || sampler.mip != CompiledEffect::Mip::None;
    }
    for (std::size_t i = 0; i < read.size(); ++i) {
        effect.textures[i].levels = read[i] ? effect.textures[i].levels : 1;
    }
}

/// Textures whose levels no sampler reads, though samplers read the textures.
void warnOfIdleLevels(const EffectSyntax& syntax, const CompiledEffect& effect, Problems& problems)
{
    for (std::size_t i = 0; i < effect.textures.size(); ++i) {
        const EffectSyntax::Texture& texture = syntax.textures[i];
        const auto asks = std::find_if(texture.annotations.begin(), texture.annotations.end(), asksForLevels);
        const bool isSampled =
            std::any_of(effect.samplers.begin(), effect.samplers.end(),
                        [i](const auto& sampler) { return sampler.texture == i && sampler.dimensions == 2; });
        if (isSampled && effect.textures[i].levels == 1 && asks != texture.annotations.end() &&
            asks->value != "1") {
            problems.warn({asks->at, "the annotation " + inQuotes(asks->name.text) +
                                         " has no effect: no sampler of " + inQuotes(texture.name.text) +
                                         " reads levels; give one MipFilter = Point or Linear"});
        }
    }
}

/// States that choose among levels, of a sampler that reads none.
void warnOfIdleStates(const EffectSyntax& syntax, const CompiledEffect& effect, Problems& problems)
{
    for (std::size_t i = 0; i < effect.samplers.size(); ++i) {
        const EffectSyntax::Sampler& sampler = syntax.samplers[i];
        if (effect.samplers[i].mip != CompiledEffect::Mip::None || sampler.levels.states.empty()) {
            continue;
        }
        const Token& state = sampler.levels.states.front();
        problems.warn({state.at, "the state " + inQuotes(state.text) +
                                     " has no effect: " + inQuotes(sampler.name.text) +
                                     " reads no levels; that takes a MipFilter, and int MipLevels = 0 among "
                                     "the annotations of the texture"});
    }
}

void resolveSampler(const EffectSyntax::Sampler& syntax, CompiledEffect& effect, Problems& problems)
{
    CompiledEffect::Sampler sampler;
    sampler.name = syntax.name.text;
    tolerate(problems,
             [&] { sampler.texture = textureNamed(syntax.texture.text, syntax.texture.at, effect); });
    sampler.dimensions = syntax.type.dimensions;
    sampler.faces = syntax.type.cube ? 6 : 1;
    sampler.registerIndex = syntax.registerIndex;
    sampler.filter = syntax.filter;
    sampler.mip = syntax.mip;
    sampler.addressU = syntax.addressU;
    sampler.addressV = syntax.addressV;
    effect.samplers.push_back(std::move(sampler));
}

} // namespace

ParameterPlacement placementOf(const CompiledEffect::Parameter& parameter)
{
    const std::uint32_t rowBytes = parameter.columns * 4;
    const bool strided = parameter.rows > 1 || parameter.elements > 0;
    if (strided) {
        return {16, 16, parameter.rows * std::max(parameter.elements, 1U) * 16};
    }
    return {parameter.columns == 1 ? 4U : parameter.columns == 2 ? 8U : 16U, rowBytes, rowBytes};
}

std::vector<CompiledEffect::Annotation>
plainAnnotations(const std::vector<EffectSyntax::Annotation>& annotations)
{
    std::vector<CompiledEffect::Annotation> plain;
    plain.reserve(annotations.size());
    for (const EffectSyntax::Annotation& annotation : annotations) {
        plain.push_back(
            {std::string(annotation.type.text), std::string(annotation.name.text), annotation.value});
    }
    return plain;
}

void layOutParameters(const EffectSyntax& syntax, CompiledEffect& effect, Problems& problems)
{
    for (const EffectSyntax::Texture& texture : syntax.textures) {
        CompiledEffect::Texture& made = effect.textures.emplace_back();
        made.name = texture.name.text;
        made.semantic = texture.semantic ? texture.semantic->text : "";
        made.annotations = plainAnnotations(texture.annotations);
        made.levels = levelsOf(texture, problems);
    }
    for (const EffectSyntax::Sampler& sampler : syntax.samplers) {
        resolveSampler(sampler, effect, problems);
    }
    matchLevels(effect);
    warnOfIdleLevels(syntax, effect, problems);
    warnOfIdleStates(syntax, effect, problems);
    effect.uniformBytes = sizeof(CompiledEffect::SystemUniforms);
    for (const EffectSyntax::Parameter& parameter : syntax.parameters) {
        layOutParameter(parameter, effect, problems);
    }
    effect.textureUniforms = roundUp(effect.uniformBytes, 16);
    const std::size_t bytes =
        effect.textureUniforms + effect.textures.size() * sizeof(CompiledEffect::TextureUniforms);
    if (bytes > Limits::uniformBytes) {
        throw LimitError(syntax.textures.back().name.at, "the parameters and textures of the effect take " +
                                                             std::to_string(bytes) + " bytes; the limit is " +
                                                             std::to_string(Limits::uniformBytes));
    }
    effect.uniformBytes = static_cast<std::uint32_t>(bytes);
}

void giveIdentities(const EffectSyntax& syntax, const std::unordered_set<std::string_view>& names,
                    CompiledEffect& effect)
{
    for (std::size_t i = 0; i < effect.parameters.size(); ++i) {
        CompiledEffect::Parameter& parameter = effect.parameters[i];
        const bool isTransform = parameter.rows == 4 && parameter.columns == 4 && parameter.elements == 0;
        if (isTransform && !syntax.parameters[i].defaultValue && names.count(parameter.name) != 0) {
            setIdentity(parameter);
        }
    }
}

} // namespace Qx::Host::Effects
