#pragma once

#include "host/effects/EffectCompilation.h"
#include "host/effects/archive/Fields.h"

namespace Qx::Host {

// The fields of what an effect archive holds, in the order of its bytes: see Archive::FieldWriter and
// Archive::FieldReader. A change here changes effectArchiveVersion.

constexpr CompiledEffect::ScalarType lastOf(CompiledEffect::ScalarType)
{
    return CompiledEffect::ScalarType::Bool;
}

constexpr CompiledEffect::Semantic lastOf(CompiledEffect::Semantic)
{
    return CompiledEffect::Semantic::ShaderNumber;
}

constexpr CompiledEffect::Filter lastOf(CompiledEffect::Filter)
{
    return CompiledEffect::Filter::Linear;
}

constexpr CompiledEffect::Mip lastOf(CompiledEffect::Mip)
{
    return CompiledEffect::Mip::Linear;
}

constexpr CompiledEffect::Address lastOf(CompiledEffect::Address)
{
    return CompiledEffect::Address::Border;
}

constexpr CompiledEffect::TargetFormat lastOf(CompiledEffect::TargetFormat)
{
    return CompiledEffect::TargetFormat::Half;
}

constexpr CompiledEffect::Corners::Positions lastOf(CompiledEffect::Corners::Positions)
{
    return CompiledEffect::Corners::Positions::MayBePixels;
}

constexpr Diagnostic::Severity lastOf(Diagnostic::Severity)
{
    return Diagnostic::Severity::Warning;
}

template <class Visit>
void fields(Visit& visit, Archive::Of<Visit, CompiledEffect::Annotation>& annotation)
{
    visit(annotation.type, annotation.name, annotation.value);
}

template <class Visit>
void fields(Visit& visit, Archive::Of<Visit, CompiledEffect::Parameter>& parameter)
{
    visit(parameter.name, parameter.type, parameter.rows, parameter.columns, parameter.elements,
          parameter.offset, parameter.bytes, parameter.defaultValue, parameter.semantic,
          parameter.semanticName, parameter.semanticTexture, parameter.place, parameter.annotations);
}

template <class Visit>
void fields(Visit& visit, Archive::Of<Visit, CompiledEffect::Texture>& texture)
{
    visit(texture.name, texture.semantic, texture.annotations, texture.targetSize.width,
          texture.targetSize.height, texture.targetSize.ratioX, texture.targetSize.ratioY,
          texture.targetFormat, texture.levels);
}

template <class Visit>
void fields(Visit& visit, Archive::Of<Visit, CompiledEffect::Sampler>& sampler)
{
    visit(sampler.name, sampler.texture, sampler.registerIndex, sampler.dimensions, sampler.faces,
          sampler.filter, sampler.mip, sampler.addressU, sampler.addressV);
}

template <class Visit>
void fields(Visit& visit, Archive::Of<Visit, CompiledEffect::PackedShader>& shader)
{
    visit(shader.depths.source, shader.depths.target, shader.spirv, shader.samplers, shader.texelBytes,
          shader.rows, shader.places, shader.code, shader.codeProblem);
}

template <class Visit>
void fields(Visit& visit, Archive::Of<Visit, CompiledEffect::Pass>& pass)
{
    visit(pass.name, pass.spirv, pass.samplers, pass.packed, pass.target, pass.result, pass.corners.shader,
          pass.corners.spirv, pass.corners.count, pass.corners.positions);
}

template <class Visit>
void fields(Visit& visit, Archive::Of<Visit, CompiledEffect::Technique>& technique)
{
    visit(technique.name, technique.passes, technique.annotations);
}

template <class Visit>
void fields(Visit& visit, Archive::Of<Visit, CompiledEffect>& effect)
{
    visit(effect.uniformBytes, effect.textureUniforms, effect.parameters, effect.textures, effect.samplers,
          effect.techniques);
}

template <class Visit>
void fields(Visit& visit, Archive::Of<Visit, EffectInput>& input)
{
    visit(input.path, input.content);
}

template <class Visit>
void fields(Visit& visit, Archive::Of<Visit, Diagnostic::Place>& place)
{
    visit(place.file, place.line, place.column);
}

template <class Visit>
void fields(Visit& visit, Archive::Of<Visit, Diagnostic>& diagnostic)
{
    visit(diagnostic.severity, diagnostic.at, diagnostic.text, diagnostic.technique, diagnostic.pass,
          diagnostic.otherPasses, diagnostic.excerpt, diagnostic.caret);
    visit.require(diagnostic.caret <= 4 * diagnostic.excerpt.size()); // cells of the excerpt
    visit(diagnostic.macro, diagnostic.macroBody, diagnostic.includedFrom, diagnostic.notes);
}

} // namespace Qx::Host
