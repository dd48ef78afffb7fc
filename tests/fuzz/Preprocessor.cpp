#include "tests/fuzz/EffectText.h"

namespace Qx::Fuzz {

using namespace Host::Effects;

void preprocessor(Input input)
{
    EffectText effect(input);
    try {
        const std::vector<Token> tokens = effect.preprocess();
        promise(!tokens.empty() && tokens.back().kind == TokenKind::End, "the tokens do not end");
        for (const Token& token : tokens) {
            effect.checkPlace(token.at);
            promise((token.kind == TokenKind::End) == (&token == &tokens.back()), "an end inside");
            promise(token.kind == TokenKind::End || !token.text.empty(), "a token without text");
        }
    } catch (const CompileError& error) {
        effect.problems().fail(error);
    }
    effect.checkMessages();
}

} // namespace Qx::Fuzz
