#include "host/effects/framework/LikelyMistakes.h"

#include "host/effects/framework/ParameterRange.h"

#include <algorithm>
#include <vector>

namespace Qx::Host::Effects {
namespace {

/// The first file is the effect itself.
bool isInEffect(const Token& name)
{
    return name.at.file == 0;
}

void warnOfUnread(const EffectSyntax& syntax, const CompiledEffect& effect, Problems& problems)
{
    std::vector<bool> samplersRead(effect.samplers.size());
    std::vector<bool> texturesRead(effect.textures.size());
    for (const CompiledEffect::Technique& technique : effect.techniques) {
        for (const CompiledEffect::Pass& pass : technique.passes) {
            for (const std::uint32_t sampler : pass.samplers) {
                samplersRead[sampler] = true;
                texturesRead[effect.samplers[sampler].texture] = true;
            }
        }
    }
    for (std::size_t i = 0; i < effect.textures.size(); ++i) {
        const Token& name = syntax.textures[i].name;
        // A texture is also bound for its size alone.
        const bool measured =
            std::any_of(effect.parameters.begin(), effect.parameters.end(), [&](const auto& parameter) {
                return parameter.semanticTexture == effect.textures[i].name;
            });
        const bool meant =
            std::any_of(effect.textures[i].annotations.begin(), effect.textures[i].annotations.end(),
                        [](const auto& annotation) { return equalIgnoringCase(annotation.name, "Unread"); });
        const bool ofSampler =
            std::any_of(syntax.samplers.begin(), syntax.samplers.end(),
                        [&](const auto& sampler) { return sampler.name.text == name.text; });
        if (!texturesRead[i] && !measured && !meant && !ofSampler && isInEffect(name)) {
            problems.warn({name.at, "no technique reads the texture " + inQuotes(name.text)});
        }
    }
    for (std::size_t i = 0; i < effect.samplers.size(); ++i) {
        const Token& name = syntax.samplers[i].name;
        const bool alone = syntax.samplers[i].texture.text == name.text;
        const bool others = texturesRead[effect.samplers[i].texture];
        if (!samplersRead[i] && (alone || others) && isInEffect(name)) {
            problems.warn({name.at, "no technique reads through the sampler " + inQuotes(name.text)});
        }
    }
}

void warnOfRange(const EffectSyntax::Parameter& parameter, const ParameterRange& range, Problems& problems)
{
    const Token& name = parameter.name;
    if (range.isEmpty()) {
        problems.warn({name.at, "the range of " + inQuotes(name.text) + " " + range.written() + " is empty"});
        return;
    }
    const std::vector<double> values =
        parameter.defaultValue ? parameter.defaultValue->components : std::vector<double>{0.0};
    for (const double value : values) {
        if (!range.holds(static_cast<float>(value))) {
            problems.warn({name.at, "the default " + written(value) + " of " + inQuotes(name.text) +
                                        " is outside its range " + range.written()});
            return;
        }
    }
}

} // namespace

void warnOfLikelyMistakes(const EffectSyntax& syntax, const CompiledEffect& effect,
                          const std::unordered_set<std::string_view>& names, Problems& problems)
{
    warnOfUnread(syntax, effect, problems);
    for (std::size_t i = 0; i < syntax.parameters.size(); ++i) {
        const EffectSyntax::Parameter& parameter = syntax.parameters[i];
        const ParameterRange range = rangeOf(effect.parameters[i]);
        if (!range.hasLimits()) {
            continue;
        }
        if (names.count(parameter.name.text) == 0 && isInEffect(parameter.name)) {
            problems.warn(
                {parameter.name.at, "no technique uses the parameter " + inQuotes(parameter.name.text)});
        }
        warnOfRange(parameter, range, problems);
    }
}

} // namespace Qx::Host::Effects
