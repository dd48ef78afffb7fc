// Techniques and their passes.

#include "host/effects/framework/EffectParser.h"

#include "host/effects/framework/EffectStates.h"
#include "host/effects/framework/Limits.h"

#include <algorithm>
#include <array>

namespace Qx::Host::Effects {

void EffectParser::parseTechnique()
{
    const Token keyword = reader_.take();
    EffectSyntax::Technique technique;
    technique.name = reader_.expectName("the name of the technique");
    const std::string context = "in technique " + inQuotes(technique.name.text);
    for (const EffectSyntax::Technique& other : effect_.techniques) {
        if (other.name.text == technique.name.text) {
            throw CompileError(technique.name.at,
                               "technique " + inQuotes(technique.name.text) + " is already declared");
        }
    }
    if (effect_.techniques.size() >= Limits::techniques) {
        throw CompileError(keyword.at,
                           "an effect has " + std::to_string(Limits::techniques) + " techniques at most");
    }
    technique.annotations = parseAnnotations();
    reader_.expect("{", context);
    while (!reader_.accept("}")) {
        if (!reader_.isKeyword("pass")) {
            throw reader_.unexpected("'pass' or '}'", context);
        }
        technique.passes.push_back(parsePass());
        ++passes_;
    }
    if (technique.passes.empty()) {
        throw CompileError(technique.name.at, "technique " + inQuotes(technique.name.text) + " has no pass");
    }
    effect_.techniques.push_back(std::move(technique));
}

EffectSyntax::Pass EffectParser::parsePass()
{
    EffectSyntax::Pass pass;
    pass.keyword = reader_.take();
    if (reader_.peek().kind == TokenKind::Identifier) {
        pass.name = reader_.expectName("the name of the pass");
    }
    pass.annotations = parseAnnotations();
    reader_.expect("{", "after 'pass'");
    while (!reader_.accept("}")) {
        if (!reader_.accept(";")) {
            parseState(pass);
        }
    }
    if (pass.entry.kind == TokenKind::End) {
        throw CompileError(pass.keyword.at,
                           "the pass has no pixel shader; write PixelShader = compile ps_3_0 FUNCTION();");
    }
    return pass;
}

void EffectParser::parseState(EffectSyntax::Pass& pass)
{
    const Token name = reader_.expectName("a state such as PixelShader, or '}',");
    const std::string state = inQuotes(name.text);
    const bool indexed = reader_.peek().is("[");
    if (indexed) {
        reader_.takeBracketed("the index of a state");
    }
    reader_.expect("=", "after the state " + state);
    if (equalIgnoringCase(name.text, "PixelShader")) {
        parseCompile(pass);
        return;
    }
    const Tokens value = reader_.takeUntil(";", "the value of state " + state);
    reader_.expect(";", "after the state " + state);
    if (equalIgnoringCase(name.text, "VertexShader")) {
        if (value.size() != 1 || !equalIgnoringCase(value[0].text, "NULL")) {
            problems_.fail({name.at, "vertex shaders are not supported: a pass draws one rectangle; leave "
                                     "VertexShader out"});
        }
    } else if (indexed || !isRenderState(name.text)) {
        problems_.fail({name.at, "unknown state " + state + " in a pass" + likelyRenderState(name.text)});
    } else if (value.empty()) {
        problems_.fail({name.at, "the state " + state + " has no value"});
    }
}

void EffectParser::parseCompile(EffectSyntax::Pass& pass)
{
    if (pass.entry.kind != TokenKind::End) {
        throw CompileError(reader_.peek().at, "the pass has two pixel shaders");
    }
    if (!reader_.isKeyword("compile")) {
        throw reader_.unexpected("'compile ps_3_0 FUNCTION()'", "as the pixel shader");
    }
    reader_.take();
    const Token profile = reader_.expectName("the profile 'ps_3_0'");
    const std::array<std::string_view, 5> profiles{"ps_2_0", "ps_2_a", "ps_2_b", "ps_2_sw", "ps_3_0"};
    if (std::none_of(profiles.begin(), profiles.end(),
                     [&](std::string_view known) { return equalIgnoringCase(known, profile.text); })) {
        problems_.fail({profile.at, "unknown profile " + inQuotes(profile.text) + "; write ps_3_0"});
    }
    pass.entry = reader_.expectName("the function to compile");
    if (!reader_.peek().is("(")) {
        throw reader_.unexpected("'('", "after the function to compile");
    }
    const Token open = reader_.take();
    while (!reader_.peek().is(")")) {
        pass.arguments.push_back(
            checked(reader_.takeUntil(",)", "the arguments of the function to compile", &open)));
        if (pass.arguments.back().empty()) {
            throw CompileError(reader_.peek().at, "an argument is missing");
        }
        if (reader_.accept(",") && reader_.peek().is(")")) {
            throw CompileError(reader_.peek().at, "an argument is missing");
        }
    }
    reader_.expect(")", "after the arguments");
    reader_.expect(";", "after the pixel shader");
}

} // namespace Qx::Host::Effects
