// Textures and samplers.

#include "host/effects/framework/EffectParser.h"

#include "host/effects/framework/EffectStates.h"
#include "host/effects/framework/TextureMethods.h"
#include "host/effects/framework/TokenLists.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace Qx::Host::Effects {

namespace {

using TextureKind = EffectSyntax::TextureKind;

TextureKind kindNamed(std::string_view type)
{
    return equalIgnoringCase(type, "texture1D")     ? TextureKind::Line
           : equalIgnoringCase(type, "texture3D")   ? TextureKind::Volume
           : equalIgnoringCase(type, "textureCUBE") ? TextureKind::Cube
                                                    : TextureKind::Picture;
}

} // namespace

void EffectParser::parseTexture()
{
    const TextureKind kind = kindNamed(reader_.take().text);
    if (reader_.accept("<")) { // Texture2D<float4>
        reader_.takeUntil(">", "the type of the texture");
        reader_.expect(">", "after the type of the texture");
    }
    do {
        const Token name = reader_.expectName("the name of the texture");
        claimName(name);
        const std::vector<Token> names = reader_.peek().is("[") ? claimElements(name) : std::vector{name};
        const Suffixes suffixes = parseSuffixes();
        EffectSyntax::Texture texture;
        texture.registerIndex = registerIndexOf(suffixes, 't');
        texture.semantic = suffixes.semantic;
        texture.annotations = parseAnnotations();
        for (const Token& each : names) {
            textureKinds_[each.text] = kind;
            texture.name = each;
            effect_.textures.push_back(texture);
            texture.registerIndex += texture.registerIndex == CompiledEffect::Sampler::noRegister ? 0 : 1;
        }
    } while (reader_.accept(","));
    reader_.expect(";", "after the texture");
}

void EffectParser::parseSamplers()
{
    const Token word = reader_.take();
    Token name;
    do {
        name = reader_.expectName("the name of the sampler");
        parseSampler(SamplerType::named(word.text), name);
    } while (reader_.accept(","));
    reader_.expect(";", "after sampler " + inQuotes(name.text));
}

/// Without a type it is a SamplerState.
void EffectParser::parseSampler(std::optional<SamplerType> type, const Token& name)
{
    EffectSyntax::Sampler sampler;
    sampler.type = type.value_or(SamplerType());
    sampler.onlyStates = !type;
    if (!type) { // its defaults are others
        sampler.filter = CompiledEffect::Filter::Linear;
        sampler.mip = CompiledEffect::Mip::Linear;
    }
    sampler.name = name;
    claimName(name);
    if (reader_.peek().is("[")) {
        parseSamplerArray(sampler, name);
        return;
    }
    sampler.registerIndex = registerIndexOf(parseSuffixes(), 's');
    const Annotations annotations = parseAnnotations();
    bool allKnown = true;
    if (reader_.accept("=")) {
        allKnown = parseSamplerStates(sampler);
    } else if (reader_.accept("{")) {
        allKnown = parseSamplerState(sampler);
    }
    addSampler(sampler, allKnown, annotations);
}

/// "sampler s[2] : register(s0) = { sampler_state { ... }, sampler_state { ... } };"
void EffectParser::parseSamplerArray(const EffectSyntax::Sampler& each, const Token& name)
{
    const std::vector<Token> names = claimElements(name);
    const std::uint32_t first = registerIndexOf(parseSuffixes(), 's');
    const Annotations annotations = parseAnnotations();
    const bool hasStates = reader_.accept("=");
    if (hasStates) {
        reader_.expect("{", "before the states of the samplers " + inQuotes(name.text));
    }
    for (std::uint32_t i = 0; i < names.size(); ++i) {
        EffectSyntax::Sampler sampler = each;
        sampler.name = names[i];
        sampler.registerIndex = first == CompiledEffect::Sampler::noRegister ? first : first + i;
        if (hasStates && i > 0 && reader_.peek().is("}")) {
            throw CompileError(reader_.peek().at, "there are " + std::to_string(names.size()) + " samplers " +
                                                      inQuotes(name.text) + ", and states of " +
                                                      std::to_string(i));
        }
        if (hasStates && i > 0) {
            reader_.expect(",", "between the states of the samplers " + inQuotes(name.text));
        }
        const bool allKnown = !hasStates || parseSamplerStates(sampler);
        addSampler(sampler, allKnown, annotations);
    }
    if (hasStates && reader_.accept(",") && !reader_.peek().is("}")) {
        throw CompileError(reader_.peek().at, "there are " + std::to_string(names.size()) + " samplers " +
                                                  inQuotes(name.text) + ", and states of more");
    }
    if (hasStates) {
        reader_.expect("}", "after the states of the samplers " + inQuotes(name.text));
    }
}

/// The elements of an array of samplers or textures are samplers or textures of their own, NAME_0, NAME_1,
/// ...
std::vector<Token> EffectParser::claimElements(const Token& name)
{
    constexpr double any = std::numeric_limits<double>::infinity();
    const std::uint32_t count = elementsOf(parseDimensions(any), name, Limits::samplerElements);
    checkSize(name); // a list of such arrays is one item
    std::vector<Token>& elements = arrays_[name.text];
    for (std::uint32_t i = 0; i < count; ++i) {
        elements.push_back(name);
        elements.back().text = effect_.texts.emplace_back(std::string(name.text) + '_' + std::to_string(i));
        claimName(elements.back());
    }
    return elements;
}

/// The elements of a function's parameter; the caller's are given one by one.
std::vector<Token> EffectParser::claimLocalElements(const Tokens& dimensions, const Token& name)
{
    const std::uint32_t count = elementsOf(dimensions, name, Limits::samplerElements);
    std::vector<Token>& elements = localArrays_[name.text];
    elements.clear();
    for (std::uint32_t i = 0; i < count; ++i) {
        elements.push_back(name);
        elements.back().text = effect_.texts.emplace_back(std::string(name.text) + '_' + std::to_string(i));
    }
    return elements;
}

EffectParser::Tokens EffectParser::withoutArrays(const Tokens& tokens)
{
    return withoutSamplerArrays(
        tokens, localArrays_, arrays_, [this](const Token& name) { return constantNamed(name); },
        effect_.texts);
}

bool EffectParser::parseSamplerStates(EffectSyntax::Sampler& sampler)
{
    if (reader_.isKeyword("sampler_state")) {
        reader_.take();
        reader_.expect("{", "after 'sampler_state'");
    } else if (!reader_.accept("{")) {
        throw reader_.unexpected("'sampler_state {'", "after sampler " + inQuotes(sampler.name.text));
    }
    return parseSamplerState(sampler);
}

void EffectParser::addSampler(EffectSyntax::Sampler sampler, bool allKnown, const Annotations& annotations)
{
    const Token& name = sampler.name;
    if (sampler.texture.kind == TokenKind::End && allKnown) {
        sampler.texture = name;
        if (!sampler.onlyStates) {
            effect_.textures.push_back({name, CompiledEffect::Sampler::noRegister, annotations, {}});
        }
    } else if (sampler.texture.kind == TokenKind::End) {
        effect_.complete = false; // one of the unknown states may be a mistyped Texture
    }
    sampler.onlyStates = sampler.onlyStates && sampler.texture.text == name.text;
    effect_.samplers.push_back(sampler);
}

/// The N of "register(sN)", "register(PROFILE, s[N])" or the semantic TEXUNITN. `letter` is that of samplers
/// or that of textures.
std::uint32_t EffectParser::registerIndexOf(const Suffixes& suffixes, char letter)
{
    constexpr std::string_view unit = "TEXUNIT";
    constexpr std::uint32_t most = 15;
    std::string_view digits;
    if (suffixes.semantic && equalIgnoringCase(suffixes.semantic->text.substr(0, unit.size()), unit)) {
        digits = suffixes.semantic->text.substr(unit.size());
    }
    for (const Token& token : suffixes.place) {
        const bool named = equalIgnoringCase(token.text.substr(0, 1), std::string_view(&letter, 1));
        digits = named && token.kind == TokenKind::Identifier ? token.text.substr(1)
                 : token.kind == TokenKind::Number            ? token.text
                                                              : digits;
    }
    std::uint32_t index = 0;
    const char* const end = digits.data() + digits.size();
    const bool whole = !digits.empty() && std::from_chars(digits.data(), end, index).ptr == end;
    return whole && index <= most ? index : CompiledEffect::Sampler::noRegister;
}

/// Returns whether all states are known.
bool EffectParser::parseSamplerState(EffectSyntax::Sampler& sampler)
{
    SamplerStates states;
    bool allKnown = true;
    while (!reader_.accept("}")) {
        if (reader_.accept(";")) {
            continue;
        }
        const Token name = reader_.expectName("a state of the sampler, or '}',");
        reader_.expect("=", "after the state " + inQuotes(name.text));
        if (equalIgnoringCase(name.text, "Texture")) {
            const std::string_view close = reader_.accept("<") ? ">" : reader_.accept("(") ? ")" : "";
            Tokens texture{reader_.expectName("the name of a texture")};
            if (reader_.peek().is("[")) {
                append(texture, reader_.takeBracketed("the number of a texture"));
            }
            sampler.texture = withoutArrays(texture).front();
            if (!close.empty()) {
                reader_.expect(close, "after the name of the texture");
            }
        } else {
            const Tokens value = reader_.takeUntil(";}", "the value of state " + inQuotes(name.text));
            try {
                states.set(name, value, problems_);
            } catch (const CompileError& error) {
                problems_.fail(error); // the next state can be read
                allKnown = false;
            }
        }
        if (!reader_.peek().is("}")) {
            reader_.expect(";", "after the state " + inQuotes(name.text));
        }
    }
    states.apply(sampler, problems_);
    return allKnown;
}

EffectParser::Tokens EffectParser::withoutTextureMethods(const Tokens& body)
{
    const auto kindOf = [this](const Token& name) {
        const auto texture = textureKinds_.find(name.text);
        return texture == textureKinds_.end() ? std::nullopt : std::optional(texture->second);
    };
    return withoutMethods(body, kindOf, [this](const Token& texture, const Token* states) {
        const std::pair both(texture.text, states == nullptr ? std::string_view() : states->text);
        const auto known = combined_.find(both);
        Token name = texture;
        name.text = known == combined_.end() ? combined_[both] = samplerOf(texture, states) : known->second;
        return name;
    });
}

/// The sampler that reads a texture with the states of a sampler, which is added if there is none. The first
/// texture that states are used with gets the sampler of their name. Without states it is for texels.
std::string_view EffectParser::samplerOf(const Token& texture, const Token* states)
{
    EffectSyntax::Sampler sampler;
    sampler.name = texture;
    sampler.texture = texture;
    sampler.type.dimensions = textureKinds_.at(texture.text) == TextureKind::Volume ? 3 : 2;
    std::string name = std::string(texture.text) + "_Load";
    if (states != nullptr) {
        const auto found =
            std::find_if(effect_.samplers.begin(), effect_.samplers.end(),
                         [&](const auto& candidate) { return candidate.name.text == states->text; });
        if (found == effect_.samplers.end()) {
            throw CompileError(states->at, "there is no sampler " + inQuotes(states->text));
        }
        if (found->texture.text == texture.text) {
            return states->text;
        }
        if (found->texture.text == found->name.text) { // it has no texture yet
            found->texture = texture;
            found->type = sampler.type;
            found->onlyStates = false;
            effect_.textures.erase(std::remove_if(effect_.textures.begin(), effect_.textures.end(),
                                                  [&](const auto& t) { return t.name.text == states->text; }),
                                   effect_.textures.end());
            return states->text;
        }
        sampler.filter = found->filter;
        sampler.mip = found->mip;
        sampler.levels = found->levels;
        sampler.addressU = found->addressU;
        sampler.addressV = found->addressV;
        name = std::string(texture.text) + '_' + std::string(states->text);
    }
    sampler.name.text = effect_.texts.emplace_back(std::move(name));
    claimName(sampler.name);
    effect_.samplers.push_back(sampler);
    checkSize(texture);
    return sampler.name.text;
}

namespace {

/// Whether each parameter of a function is a sampler of a volume.
using VolumeParameters = std::unordered_map<std::string_view, std::vector<bool>>;

/// The names that the function's text reads as volumes, itself or by the functions that it calls.
std::unordered_set<std::string_view> namesReadAsVolumes(const std::vector<Token>& text,
                                                        const VolumeParameters& functions)
{
    struct Call
    {
        const std::vector<bool>* volumes;
        std::size_t argument;
    };
    static const std::vector<bool> onlyFirst{true};
    std::unordered_set<std::string_view> names;
    std::vector<Call> calls; // the open parentheses
    for (std::size_t i = 1; i + 1 < text.size(); ++i) {
        if (text[i].is("(")) {
            const auto found = functions.find(text[i - 1].text);
            calls.push_back({readsVolume(text[i - 1].text) ? &onlyFirst
                             : found != functions.end()    ? &found->second
                                                           : nullptr,
                             0});
        } else if (text[i].is(")") && !calls.empty()) {
            calls.pop_back();
        } else if (text[i].is(",") && !calls.empty()) {
            ++calls.back().argument;
        } else if (text[i].kind == TokenKind::Identifier && !calls.empty() &&
                   calls.back().volumes != nullptr && calls.back().argument < calls.back().volumes->size() &&
                   (*calls.back().volumes)[calls.back().argument]) {
            names.insert(text[i].text);
        }
    }
    return names;
}

} // namespace

/// What is known only of the whole effect: which states are samplers, their registers, and which read
/// volumes. A generic sampler, of the effect or of a function, is of a volume if it is read as one.
void EffectParser::completeSamplers()
{
    effect_.samplers.erase(std::remove_if(effect_.samplers.begin(), effect_.samplers.end(),
                                          [](const auto& sampler) { return sampler.onlyStates; }),
                           effect_.samplers.end());
    VolumeParameters functions;
    std::unordered_set<std::string_view> volumes;
    for (EffectSyntax::Piece& piece : effect_.pieces) {
        std::unordered_set<std::string_view> read = namesReadAsVolumes(piece.text, functions);
        std::vector<bool> parameters;
        for (EffectSyntax::FunctionParameter& parameter : piece.function.parameters) {
            const bool isRead = read.erase(parameter.name.text) != 0;
            if (isRead && parameter.type.sampler && parameter.type.sampler->generic) {
                parameter.type.sampler->dimensions = 3;
                piece.text[parameter.typeAt].text = parameter.type.sampler->spelling();
            }
            parameters.push_back(parameter.type.sampler && parameter.type.sampler->dimensions == 3);
        }
        if (std::find(parameters.begin(), parameters.end(), true) != parameters.end()) {
            functions[piece.name.text] = parameters;
        }
        volumes.merge(read);
    }
    addVolumesOfPasses(volumes);
    std::unordered_set<std::string_view> cubes;
    for (const EffectSyntax::Piece& piece : effect_.pieces) {
        for (std::size_t i = 2; i < piece.text.size(); ++i) {
            if (piece.text[i - 1].is("(") && readsCube(piece.text[i - 2].text)) {
                cubes.insert(piece.text[i].text);
            }
        }
    }
    for (EffectSyntax::Sampler& sampler : effect_.samplers) {
        const auto texture = textureKinds_.find(sampler.texture.text);
        sampler.type.cube = sampler.type.cube || cubes.count(sampler.name.text) != 0 ||
                            (texture != textureKinds_.end() && texture->second == TextureKind::Cube);
        if (sampler.registerIndex == CompiledEffect::Sampler::noRegister) {
            sampler.registerIndex = registerOfTexture(sampler.texture.text);
        }
        if (sampler.type.generic && volumes.count(sampler.name.text) != 0) {
            sampler.type.dimensions = 3;
        }
    }
}

/// Direct3D 10 numbers the textures instead of the samplers.
std::uint32_t EffectParser::registerOfTexture(std::string_view name) const
{
    const auto texture = std::find_if(effect_.textures.begin(), effect_.textures.end(),
                                      [&](const auto& candidate) { return candidate.name.text == name; });
    return texture == effect_.textures.end() ? CompiledEffect::Sampler::noRegister : texture->registerIndex;
}

/// Adds the samplers that passes give to functions as volumes.
void EffectParser::addVolumesOfPasses(std::unordered_set<std::string_view>& volumes) const
{
    std::unordered_map<std::string_view, std::vector<bool>> functions; // of the uniform parameters
    for (const EffectSyntax::Piece& piece : effect_.pieces) {
        for (const EffectSyntax::FunctionParameter& parameter : piece.function.parameters) {
            if (parameter.uniform) {
                functions[piece.name.text].push_back(parameter.type.sampler &&
                                                     parameter.type.sampler->dimensions == 3);
            }
        }
    }
    for (const EffectSyntax::Technique& technique : effect_.techniques) {
        for (const EffectSyntax::Pass& pass : technique.passes) {
            const auto found = functions.find(pass.shader.entry.text);
            for (std::size_t i = 0;
                 found != functions.end() && i < pass.shader.arguments.size() && i < found->second.size();
                 ++i) {
                if (found->second[i]) {
                    volumes.insert(pass.shader.arguments[i].front().text);
                }
            }
        }
    }
}

} // namespace Qx::Host::Effects
