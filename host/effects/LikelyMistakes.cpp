#include "host/effects/LikelyMistakes.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <sstream>
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
        // One whose size alone matters is bound too.
        const bool measured =
            std::any_of(effect.parameters.begin(), effect.parameters.end(), [&](const auto& parameter) {
                return parameter.semanticTexture == effect.textures[i].name;
            });
        if (!texturesRead[i] && !measured && isInEffect(name)) {
            problems.warn({name.at, "no technique reads the texture " + inQuotes(name.text)});
        }
    }
    for (std::size_t i = 0; i < effect.samplers.size(); ++i) {
        const Token& name = syntax.samplers[i].name;
        if (!samplersRead[i] && texturesRead[effect.samplers[i].texture] && isInEffect(name)) {
            problems.warn({name.at, "no technique reads through the sampler " + inQuotes(name.text)});
        }
    }
}

/// The number of the first annotation with one of the names.
std::optional<double> limit(const EffectSyntax::Parameter& parameter,
                            const std::array<std::string_view, 2>& names)
{
    for (const EffectSyntax::Annotation& annotation : parameter.annotations) {
        const bool named = std::any_of(names.begin(), names.end(), [&](std::string_view name) {
            return equalIgnoringCase(name, annotation.name.text);
        });
        const std::string_view text = annotation.value;
        const bool negative = text.substr(0, 1) == "-";
        double value = 0.0;
        bool integer = false;
        if (named && readNumber(text.substr(negative || text.substr(0, 1) == "+" ? 1 : 0), value, integer)) {
            return negative ? -value : value;
        }
    }
    return std::nullopt;
}

std::string number(double value)
{
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << value;
    return text.str();
}

/// "from 0 to 4", "of at least 0" or "of at most 4".
std::string range(const std::optional<double>& least, const std::optional<double>& most)
{
    if (least && most) {
        return "from " + number(*least) + " to " + number(*most);
    }
    return least ? "of at least " + number(*least) : "of at most " + number(*most);
}

void warnOfRange(const EffectSyntax::Parameter& parameter, bool used, Problems& problems)
{
    const std::optional<double> least = limit(parameter, {"Min", "UIMin"});
    const std::optional<double> most = limit(parameter, {"Max", "UIMax"});
    if (!least && !most) {
        return;
    }
    const Token& name = parameter.name;
    if (!used && isInEffect(name)) {
        problems.warn({name.at, "no technique uses the parameter " + inQuotes(name.text)});
    }
    if (least && most && *least > *most) {
        problems.warn(
            {name.at, "the range of " + inQuotes(name.text) + " " + range(least, most) + " is empty"});
        return;
    }
    const std::vector<double> values =
        parameter.defaultValue ? parameter.defaultValue->components : std::vector<double>{0.0};
    for (const double value : values) {
        // As the effect holds it: a limit such as 0.1 is no exact number either.
        const auto held = static_cast<float>(value);
        if ((least && held < static_cast<float>(*least)) || (most && held > static_cast<float>(*most))) {
            problems.warn({name.at, "the default " + number(value) + " of " + inQuotes(name.text) +
                                        " is outside its range " + range(least, most)});
            return;
        }
    }
}

} // namespace

void warnOfLikelyMistakes(const EffectSyntax& syntax, const CompiledEffect& effect,
                          const std::unordered_set<std::string_view>& names, Problems& problems)
{
    warnOfUnread(syntax, effect, problems);
    for (const EffectSyntax::Parameter& parameter : syntax.parameters) {
        warnOfRange(parameter, names.count(parameter.name.text) != 0, problems);
    }
}

} // namespace Qx::Host::Effects
