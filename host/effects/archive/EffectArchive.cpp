#include "host/effects/archive/EffectArchive.h"

#include "host/cache/Bytes.h"
#include "host/effects/framework/Preprocessor.h"
#include "host/effects/hlsl/ParameterLayout.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace Qx::Host {
namespace {

using Cache::ByteReader;
using Cache::ByteWriter;
using Annotations = std::vector<CompiledEffect::Annotation>;

constexpr std::uint32_t archiveMark = 0x41665851; // "QXfA"

// SPIR-V 1.6, 2.3 Physical Layout.
constexpr std::uint32_t spirvMagic = 0x07230203;
constexpr std::size_t spirvHeaderWords = 5;
constexpr std::uint32_t spirvNewest = 0x00010300; // the newest that Vulkan 1.1 takes

// The fewest bytes that one of each takes, which bounds how many the rest of an archive can hold.
constexpr std::size_t leastText = 4;
constexpr std::size_t leastAnnotation = 3 * leastText;
constexpr std::size_t leastParameter = 3 * leastText + 2 + 5 * 4 + 4;
constexpr std::size_t leastTexture = leastText + 4;
constexpr std::size_t leastSampler = leastText + 4 + 3;
constexpr std::size_t leastPackedShader = 6 * 4;
constexpr std::size_t leastPass = leastText + 4 + 4 + 4;
constexpr std::size_t leastTechnique = leastText + 4 + 4;
constexpr std::size_t leastInput = leastText + 1;
constexpr std::size_t leastPlace = leastText + 2 * 4;
constexpr std::size_t leastDiagnostic = 1 + 2 * leastPlace + 5 * leastText + 2 * 4 + 2 * 4;

template <class Things, class Write>
void writeEach(ByteWriter& to, const Things& things, Write&& write)
{
    to.count(things.size());
    for (const auto& thing : things) {
        write(to, thing);
    }
}

template <class Thing, class Read>
std::vector<Thing> readEach(ByteReader& from, std::size_t leastBytes, Read&& read)
{
    std::vector<Thing> things;
    for (std::size_t left = from.count(leastBytes); left > 0 && !from.failed(); --left) {
        things.push_back(read(from));
    }
    return things;
}

void writeAnnotations(ByteWriter& to, const Annotations& annotations)
{
    writeEach(to, annotations, [](ByteWriter& w, const CompiledEffect::Annotation& annotation) {
        w.text(annotation.type);
        w.text(annotation.name);
        w.text(annotation.value);
    });
}

Annotations readAnnotations(ByteReader& from)
{
    return readEach<CompiledEffect::Annotation>(from, leastAnnotation, [](ByteReader& r) {
        CompiledEffect::Annotation annotation;
        annotation.type = r.text();
        annotation.name = r.text();
        annotation.value = r.text();
        return annotation;
    });
}

void writeParameter(ByteWriter& to, const CompiledEffect::Parameter& parameter)
{
    to.text(parameter.name);
    to.enumeration(parameter.type);
    to.number(parameter.rows);
    to.number(parameter.columns);
    to.number(parameter.elements);
    to.number(parameter.offset);
    to.number(parameter.bytes);
    to.row(parameter.defaultValue);
    to.enumeration(parameter.semantic);
    to.text(parameter.semanticTexture);
    writeAnnotations(to, parameter.annotations);
}

CompiledEffect::Parameter readParameter(ByteReader& from)
{
    CompiledEffect::Parameter parameter;
    parameter.name = from.text();
    parameter.type = from.enumeration(CompiledEffect::ScalarType::Bool);
    parameter.rows = from.number<std::uint32_t>();
    parameter.columns = from.number<std::uint32_t>();
    parameter.elements = from.number<std::uint32_t>();
    parameter.offset = from.number<std::uint32_t>();
    parameter.bytes = from.number<std::uint32_t>();
    parameter.defaultValue = from.row();
    parameter.semantic = from.enumeration(CompiledEffect::Semantic::TargetMaxCode);
    parameter.semanticTexture = from.text();
    parameter.annotations = readAnnotations(from);
    return parameter;
}

void writeSampler(ByteWriter& to, const CompiledEffect::Sampler& sampler)
{
    to.text(sampler.name);
    to.number(sampler.texture);
    to.enumeration(sampler.filter);
    to.enumeration(sampler.addressU);
    to.enumeration(sampler.addressV);
}

CompiledEffect::Sampler readSampler(ByteReader& from)
{
    CompiledEffect::Sampler sampler;
    sampler.name = from.text();
    sampler.texture = from.number<std::uint32_t>();
    sampler.filter = from.enumeration(CompiledEffect::Filter::Linear);
    sampler.addressU = from.enumeration(CompiledEffect::Address::Border);
    sampler.addressV = from.enumeration(CompiledEffect::Address::Border);
    return sampler;
}

void writeNumbers(ByteWriter& to, const std::vector<std::uint32_t>& numbers)
{
    writeEach(to, numbers, [](ByteWriter& w, std::uint32_t number) { w.number(number); });
}

std::vector<std::uint32_t> readNumbers(ByteReader& from)
{
    return readEach<std::uint32_t>(from, sizeof(std::uint32_t),
                                   [](ByteReader& r) { return r.number<std::uint32_t>(); });
}

void writePackedShader(ByteWriter& to, const CompiledEffect::PackedShader& shader)
{
    to.number(shader.depths.source);
    to.number(shader.depths.target);
    writeNumbers(to, shader.spirv);
    writeNumbers(to, shader.samplers);
    writeNumbers(to, shader.texelBytes);
    writeNumbers(to, shader.rows);
}

CompiledEffect::PackedShader readPackedShader(ByteReader& from)
{
    CompiledEffect::PackedShader shader;
    shader.depths.source = from.number<std::uint32_t>();
    shader.depths.target = from.number<std::uint32_t>();
    shader.spirv = readNumbers(from);
    shader.samplers = readNumbers(from);
    shader.texelBytes = readNumbers(from);
    shader.rows = readNumbers(from);
    return shader;
}

void writeTechnique(ByteWriter& to, const CompiledEffect::Technique& technique)
{
    to.text(technique.name);
    writeEach(to, technique.passes, [](ByteWriter& w, const CompiledEffect::Pass& pass) {
        w.text(pass.name);
        writeNumbers(w, pass.spirv);
        writeNumbers(w, pass.samplers);
        writeEach(w, pass.packed, writePackedShader);
    });
    writeAnnotations(to, technique.annotations);
}

CompiledEffect::Technique readTechnique(ByteReader& from)
{
    CompiledEffect::Technique technique;
    technique.name = from.text();
    technique.passes = readEach<CompiledEffect::Pass>(from, leastPass, [](ByteReader& r) {
        CompiledEffect::Pass pass;
        pass.name = r.text();
        pass.spirv = readNumbers(r);
        pass.samplers = readNumbers(r);
        pass.packed = readEach<CompiledEffect::PackedShader>(r, leastPackedShader, readPackedShader);
        return pass;
    });
    technique.annotations = readAnnotations(from);
    return technique;
}

void writeEffect(ByteWriter& to, const CompiledEffect& effect)
{
    to.number(effect.uniformBytes);
    to.number(effect.textureUniforms);
    writeEach(to, effect.parameters, writeParameter);
    writeEach(to, effect.textures, [](ByteWriter& w, const CompiledEffect::Texture& texture) {
        w.text(texture.name);
        writeAnnotations(w, texture.annotations);
    });
    writeEach(to, effect.samplers, writeSampler);
    writeEach(to, effect.techniques, writeTechnique);
}

CompiledEffect readEffect(ByteReader& from)
{
    CompiledEffect effect;
    effect.uniformBytes = from.number<std::uint32_t>();
    effect.textureUniforms = from.number<std::uint32_t>();
    effect.parameters = readEach<CompiledEffect::Parameter>(from, leastParameter, readParameter);
    effect.textures = readEach<CompiledEffect::Texture>(from, leastTexture, [](ByteReader& r) {
        CompiledEffect::Texture texture;
        texture.name = r.text();
        texture.annotations = readAnnotations(r);
        return texture;
    });
    effect.samplers = readEach<CompiledEffect::Sampler>(from, leastSampler, readSampler);
    effect.techniques = readEach<CompiledEffect::Technique>(from, leastTechnique, readTechnique);
    return effect;
}

bool isSpirv(const std::vector<std::uint32_t>& words)
{
    if (words.size() <= spirvHeaderWords || words[0] != spirvMagic || words[1] > spirvNewest) {
        return false;
    }
    for (std::size_t at = spirvHeaderWords; at < words.size();) {
        const std::size_t length = words[at] >> 16U;
        if (length == 0 || length > words.size() - at) {
            return false;
        }
        at += length;
    }
    return true;
}

bool isTextureSemantic(CompiledEffect::Semantic semantic)
{
    return semantic == CompiledEffect::Semantic::TextureSize ||
           semantic == CompiledEffect::Semantic::TextureMaxCode;
}

/// Whether the host can fill the parameter as its semantic says.
bool isFillable(const CompiledEffect::Parameter& parameter, const CompiledEffect& effect)
{
    if (parameter.semantic == CompiledEffect::Semantic::None) {
        return true;
    }
    const bool size = parameter.semantic == CompiledEffect::Semantic::TextureSize ||
                      parameter.semantic == CompiledEffect::Semantic::TargetSize;
    const bool textureKnown =
        std::any_of(effect.textures.begin(), effect.textures.end(),
                    [&](const auto& texture) { return texture.name == parameter.semanticTexture; });
    return parameter.type == CompiledEffect::ScalarType::Float && parameter.rows == 1 &&
           parameter.elements == 0 && parameter.columns == (size ? 2U : 1U) &&
           (textureKnown || !isTextureSemantic(parameter.semantic));
}

bool isSound(const CompiledEffect::Parameter& parameter, const CompiledEffect& effect)
{
    constexpr std::uint32_t mostRows = 4;
    if (parameter.rows == 0 || parameter.rows > mostRows || parameter.columns == 0 ||
        parameter.columns > mostRows || parameter.elements > Effects::Limits::uniformBytes) {
        return false;
    }
    const Effects::ParameterPlacement placement = Effects::placementOf(parameter);
    return parameter.bytes == placement.bytes && parameter.defaultValue.size() == placement.bytes &&
           parameter.offset >= sizeof(CompiledEffect::SystemUniforms) &&
           parameter.offset % placement.alignment == 0 && parameter.offset <= effect.uniformBytes &&
           placement.bytes <= effect.uniformBytes - parameter.offset && isFillable(parameter, effect);
}

bool isSoundShader(const std::vector<std::uint32_t>& spirv, const std::vector<std::uint32_t>& samplers,
                   const CompiledEffect& effect)
{
    const auto notAscending = [](std::uint32_t a, std::uint32_t b) { return a >= b; };
    const bool ascending =
        std::adjacent_find(samplers.begin(), samplers.end(), notAscending) == samplers.end();
    return ascending && (samplers.empty() || samplers.back() < effect.samplers.size()) && isSpirv(spirv);
}

bool isSound(const CompiledEffect::PackedShader& shader, const CompiledEffect& effect)
{
    const auto isTexel = [&](std::uint32_t bytes) {
        return bytes == shader.depths.source / 2 || bytes == 8 || bytes == 16;
    };
    const auto isRow = [&](std::uint32_t row) { return row < effect.uniformBytes / 16; };
    const auto isDepth = [](std::uint32_t bits) { return bits == 8 || bits == 16; };
    return isDepth(shader.depths.source) && isDepth(shader.depths.target) &&
           shader.texelBytes.size() == shader.samplers.size() &&
           std::all_of(shader.texelBytes.begin(), shader.texelBytes.end(), isTexel) &&
           shader.rows.size() <= CompiledEffect::PackedShader::mostRows &&
           std::all_of(shader.rows.begin(), shader.rows.end(), isRow) &&
           isSoundShader(shader.spirv, shader.samplers, effect);
}

bool isSound(const CompiledEffect::Pass& pass, const CompiledEffect& effect)
{
    return isSoundShader(pass.spirv, pass.samplers, effect) &&
           std::all_of(pass.packed.begin(), pass.packed.end(),
                       [&](const auto& shader) { return isSound(shader, effect); });
}

bool hasRoomForTextures(const CompiledEffect& effect)
{
    constexpr std::uint32_t bytes = sizeof(CompiledEffect::TextureUniforms);
    return effect.textureUniforms % bytes == 0 &&
           effect.textureUniforms >= sizeof(CompiledEffect::SystemUniforms) &&
           effect.textureUniforms <= effect.uniformBytes &&
           effect.textures.size() <= (effect.uniformBytes - effect.textureUniforms) / bytes;
}

bool isSound(const CompiledEffect& effect)
{
    const auto soundPasses = [&](const CompiledEffect::Technique& technique) {
        return !technique.passes.empty() &&
               std::all_of(technique.passes.begin(), technique.passes.end(),
                           [&](const CompiledEffect::Pass& pass) { return isSound(pass, effect); });
    };
    return hasRoomForTextures(effect) && effect.uniformBytes <= Effects::Limits::uniformBytes &&
           !effect.techniques.empty() &&
           std::all_of(effect.parameters.begin(), effect.parameters.end(),
                       [&](const auto& parameter) { return isSound(parameter, effect); }) &&
           std::all_of(effect.samplers.begin(), effect.samplers.end(),
                       [&](const auto& sampler) { return sampler.texture < effect.textures.size(); }) &&
           std::all_of(effect.techniques.begin(), effect.techniques.end(), soundPasses);
}

void writeInput(ByteWriter& to, const EffectInput& input)
{
    to.text(input.path.native());
    to.number(static_cast<std::uint8_t>(input.content ? 1 : 0));
    if (input.content) {
        to.raw(*input.content);
    }
}

EffectInput readInput(ByteReader& from)
{
    EffectInput input;
    input.path = from.text();
    const auto present = from.number<std::uint8_t>();
    from.require(present <= 1);
    if (present == 1) {
        Cache::Digest digest{};
        const std::span<const std::byte> bytes = from.raw(digest.size());
        std::copy(bytes.begin(), bytes.end(), digest.begin());
        input.content = digest;
    }
    return input;
}

void writePlace(ByteWriter& to, const Diagnostic::Place& place)
{
    to.text(place.file);
    to.number(place.line);
    to.number(place.column);
}

Diagnostic::Place readPlace(ByteReader& from)
{
    Diagnostic::Place place;
    place.file = from.text();
    place.line = from.number<std::uint32_t>();
    place.column = from.number<std::uint32_t>();
    return place;
}

void writeDiagnostic(ByteWriter& to, const Diagnostic& diagnostic)
{
    to.enumeration(diagnostic.severity);
    writePlace(to, diagnostic.at);
    to.text(diagnostic.text);
    to.text(diagnostic.technique);
    to.text(diagnostic.pass);
    to.number(diagnostic.otherPasses);
    to.text(diagnostic.excerpt);
    to.number(diagnostic.caret);
    to.text(diagnostic.macro);
    writePlace(to, diagnostic.macroBody);
    writeEach(to, diagnostic.includedFrom, writePlace);
    writeEach(to, diagnostic.notes, [](ByteWriter& w, const std::string& note) { w.text(note); });
}

Diagnostic readDiagnostic(ByteReader& from)
{
    Diagnostic diagnostic;
    diagnostic.severity = from.enumeration(Diagnostic::Severity::Warning);
    diagnostic.at = readPlace(from);
    diagnostic.text = from.text();
    diagnostic.technique = from.text();
    diagnostic.pass = from.text();
    diagnostic.otherPasses = from.number<std::uint32_t>();
    diagnostic.excerpt = from.text();
    diagnostic.caret = from.number<std::uint32_t>();
    from.require(diagnostic.caret <= 4 * diagnostic.excerpt.size()); // cells of the excerpt
    diagnostic.macro = from.text();
    diagnostic.macroBody = readPlace(from);
    diagnostic.includedFrom = readEach<Diagnostic::Place>(from, leastPlace, readPlace);
    diagnostic.notes =
        readEach<std::string>(from, leastText, [](ByteReader& r) { return std::string(r.text()); });
    return diagnostic;
}

/// What there is to say: all text of an archive beside the effect's own.
void writeTexts(ByteWriter& to, const EffectCompilation& compilation)
{
    writeEach(to, compilation.diagnostics, writeDiagnostic);
    writeEach(to, compilation.inputs, writeInput);
}

void readTexts(ByteReader& from, EffectCompilation& compilation)
{
    compilation.diagnostics = readEach<Diagnostic>(from, leastDiagnostic, readDiagnostic);
    compilation.inputs = readEach<EffectInput>(from, leastInput, readInput);
}

} // namespace

std::vector<std::byte> writeEffectArchive(const EffectCompilation& compilation)
{
    ByteWriter to;
    to.number(archiveMark);
    to.number(effectArchiveVersion);
    writeTexts(to, compilation);
    to.number(static_cast<std::uint8_t>(compilation.effect != nullptr ? 1 : 0));
    if (compilation.effect != nullptr) {
        writeEffect(to, *compilation.effect);
    }
    return to.take();
}

std::optional<EffectCompilation> readEffectArchive(std::span<const std::byte> bytes)
{
    ByteReader from(bytes);
    from.require(from.number<std::uint32_t>() == archiveMark);
    from.require(from.number<std::uint32_t>() == effectArchiveVersion);
    EffectCompilation compilation;
    readTexts(from, compilation);
    const auto present = from.number<std::uint8_t>();
    from.require(present <= 1);
    if (present == 1) {
        auto effect = std::make_shared<CompiledEffect>(readEffect(from));
        from.require(isSound(*effect));
        compilation.effect = std::move(effect);
    }
    if (!from.finished()) {
        return std::nullopt;
    }
    compilation.messages = messageText(compilation.diagnostics);
    return compilation;
}

} // namespace Qx::Host
