// Textures and samplers.

#include "host/effects/framework/EffectParser.h"

#include "host/effects/framework/EffectStates.h"

namespace Qx::Host::Effects {

void EffectParser::parseTexture()
{
    reader_.take();
    do {
        EffectSyntax::Texture texture;
        texture.name = reader_.expectName("the name of the texture");
        claimName(texture.name);
        texture.semantic = parseSemantic();
        texture.annotations = parseAnnotations();
        effect_.textures.push_back(std::move(texture));
    } while (reader_.accept(","));
    reader_.expect(";", "after the texture");
}

void EffectParser::parseSampler()
{
    EffectSyntax::Sampler sampler;
    sampler.dimensions = equalIgnoringCase(reader_.take().text, "sampler3D") ? 3 : 2;
    sampler.name = reader_.expectName("the name of the sampler");
    claimName(sampler.name);
    if (reader_.peek().is("[")) {
        throw CompileError(reader_.peek().at, "arrays of samplers are not supported");
    }
    parseSemantic();
    parseAnnotations();
    const std::string name = inQuotes(sampler.name.text);
    if (!reader_.peek().is("=") && !reader_.peek().is("{")) {
        throw reader_.unexpected("'= sampler_state { Texture = <NAME>; }'", "after sampler " + name);
    }
    if (reader_.accept("=")) {
        if (!reader_.isKeyword("sampler_state")) {
            throw reader_.unexpected("'sampler_state'", "after sampler " + name);
        }
        reader_.take();
    }
    reader_.expect("{", "after 'sampler_state'");
    const bool allKnown = parseSamplerState(sampler);
    reader_.expect(";", "after sampler " + name);
    if (sampler.texture.kind == TokenKind::End) {
        if (allKnown) {
            throw CompileError(sampler.name.at,
                               "sampler " + name + " has no texture; write Texture = <NAME>;");
        }
        effect_.complete = false; // one of the unknown states may be a mistyped Texture
    }
    effect_.samplers.push_back(std::move(sampler));
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
            sampler.texture = reader_.expectName("the name of a texture");
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

} // namespace Qx::Host::Effects
