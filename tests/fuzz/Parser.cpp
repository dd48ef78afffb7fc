#include "host/effects/framework/EffectParser.h"
#include "host/effects/framework/LikelyMistakes.h"
#include "host/effects/hlsl/ParameterLayout.h"
#include "host/effects/hlsl/PassText.h"
#include "host/effects/hlsl/Remainders.h"
#include "tests/fuzz/EffectText.h"

#include <algorithm>

namespace Qx::Fuzz {
namespace {

using namespace Host;
using namespace Host::Effects;

void checkLayout(const CompiledEffect& effect)
{
    for (const CompiledEffect::Parameter& parameter : effect.parameters) {
        promise(parameter.offset % 4 == 0 && parameter.offset + parameter.bytes <= effect.uniformBytes,
                "a parameter lies outside the buffer");
        promise(parameter.defaultValue.size() == parameter.bytes, "a default has another size");
    }
    for (const CompiledEffect::Sampler& sampler : effect.samplers) {
        promise(sampler.texture < effect.textures.size(), "a sampler without texture");
    }
}

std::unordered_set<std::string_view> checkPasses(EffectText& text, const EffectSyntax& syntax,
                                                 const CompiledEffect& effect)
{
    std::unordered_set<std::string_view> names;
    // Without compiling, vertex shaders are taken as if nothing were known of their results.
    const PassWriter writer(syntax, effect, [](const std::string&) { return std::vector<std::uint32_t>(); });
    for (const EffectSyntax::Technique& technique : syntax.techniques) {
        promise(!technique.passes.empty(), "a technique without passes");
        for (const EffectSyntax::Pass& pass : technique.passes) {
            try {
                PassText written = writer.write(pass);
                promise(std::count(written.hlsl.begin(), written.hlsl.end(), '\n') ==
                            static_cast<std::ptrdiff_t>(written.lines.size()),
                        "lines without a place");
                for (const Location at : written.lines) {
                    text.checkPlace(at);
                }
                names.merge(written.names);
            } catch (const CompileError& error) {
                text.problems().fail(error, {technique.name.text, pass.name.text});
            }
        }
    }
    return names;
}

void parse(EffectText& text)
{
    const std::vector<Token> tokens = text.preprocess();
    if (text.problems().failed()) {
        return;
    }
    EffectSyntax syntax = EffectParser(tokens, text.problems()).parse();
    promise(syntax.complete || text.problems().failed(), "something was left out without an error");
    if (!syntax.complete) {
        return;
    }
    keepRemainders(syntax);
    CompiledEffect effect;
    layOutParameters(syntax, effect, text.problems());
    const auto names = checkPasses(text, syntax, effect);
    if (!text.problems().failed()) {
        checkLayout(effect);
        warnOfLikelyMistakes(syntax, effect, names, text.problems());
    }
}

} // namespace

void parser(Input input)
{
    EffectText text(input);
    try {
        parse(text);
    } catch (const CompileError& error) {
        text.problems().fail(error);
    }
    text.checkMessages();
}

} // namespace Qx::Fuzz
