#include "host/effects/framework/TokenReader.h"

namespace Qx::Host::Effects {
namespace {

bool opens(const Token& token)
{
    return token.is("(") || token.is("[") || token.is("{");
}

bool closes(const Token& token)
{
    return token.is(")") || token.is("]") || token.is("}");
}

std::string_view partner(std::string_view bracket)
{
    return bracket == "(" ? ")" : bracket == "[" ? "]" : "}";
}

bool isTechnique(const Token& token)
{
    return token.kind == TokenKind::Identifier &&
           (equalIgnoringCase(token.text, "technique") || equalIgnoringCase(token.text, "technique10") ||
            equalIgnoringCase(token.text, "technique11"));
}

/// "< string Name = ...", which is not a comparison.
bool startsAnnotations(const Token* token)
{
    return token->is("<") && token[1].kind == TokenKind::Identifier &&
           token[2].kind == TokenKind::Identifier && token[3].is("=");
}

bool mayStartItem(const Token& token)
{
    return token.kind == TokenKind::End || token.startsLine || isTechnique(token);
}

} // namespace

void TokenReader::skipItem(const Token* item)
{
    const Token* const reached = token_;
    std::vector<std::string_view> open; // the closing partners
    for (const Token* token = item; token->kind != TokenKind::End; ++token) {
        if (open.empty() && startsAnnotations(token)) {
            open.push_back(">");
        } else if (opens(*token)) {
            open.push_back(partner(token->text));
        } else if (!open.empty() && token->is(open.back())) {
            open.pop_back(); // a bracket that closes nothing is ignored
        }
        const bool ends = token->is(";") || (token->is("}") && mayStartItem(token[1]));
        if (open.empty() && ends && token + 1 >= reached) {
            token_ = token + 1;
            return;
        }
    }
    token_ = item;
    do {
        take();
    } while (!atEnd() && !(token_->startsLine && isTechnique(*token_)));
}

void TokenReader::checkToken() const
{
    const Token& token = *token_;
    if (token.kind == TokenKind::Unknown) {
        throw unknownToken(token);
    }
    double value = 0.0;
    bool integer = false;
    if (token.kind == TokenKind::Number && !readNumber(token.text, value, integer)) {
        throw CompileError(token.at, inQuotes(token.text) + " is not a number");
    }
    if (token.text.size() > Limits::textBytes) {
        throw CompileError(token.at,
                           "a name or text has " + std::to_string(Limits::textBytes) + " characters at most");
    }
}

std::vector<Token> TokenReader::takeUntil(std::string_view stops, std::string_view what, const Token* opener)
{
    std::vector<Token> taken;
    std::vector<Token> open;
    for (;; ++token_) {
        const Token& token = *token_;
        if (atEnd()) {
            const Token* const unclosed = open.empty() ? opener : &open.back();
            throw unclosed == nullptr
                ? CompileError(token.at, std::string(what) + " does not end; the file ends here")
                : CompileError(unclosed->at,
                               inQuotes(unclosed->text) + " has no " + inQuotes(partner(unclosed->text)));
        }
        if (open.empty() && token.text.size() == 1 && stops.find(token.text[0]) != std::string_view::npos) {
            return taken;
        }
        checkToken();
        if (opens(token)) {
            open.push_back(token);
            if (open.size() > Limits::nesting) {
                throw CompileError(token.at, "brackets are nested more than " +
                                                 std::to_string(Limits::nesting) + " deep");
            }
        } else if (closes(token)) {
            if (open.empty()) {
                throw unexpected("the end of " + std::string(what), {});
            }
            if (token.text != partner(open.back().text)) {
                throw CompileError(token.at,
                                   inQuotes(token.text) + " does not close " + inQuotes(open.back().text));
            }
            open.pop_back();
        }
        taken.push_back(token);
    }
}

std::vector<Token> TokenReader::takeBracketed(std::string_view what)
{
    const Token open = take();
    std::vector<Token> taken = takeUntil(partner(open.text), what, &open);
    taken.insert(taken.begin(), open);
    taken.push_back(take());
    return taken;
}

} // namespace Qx::Host::Effects
