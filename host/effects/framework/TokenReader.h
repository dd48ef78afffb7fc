#pragma once

#include "host/effects/framework/Lexer.h"
#include "host/effects/framework/Limits.h"

#include <string>
#include <string_view>
#include <vector>

namespace Qx::Host::Effects {

/// A position in tokens that end with an End token, with the checks that every reader needs.
class TokenReader
{
public:
    explicit TokenReader(const std::vector<Token>& tokens) : token_(tokens.data()) {}

    const Token& peek() const { return *token_; }
    const Token& peekNext() const { return token_->kind == TokenKind::End ? *token_ : token_[1]; }
    bool atEnd() const { return token_->kind == TokenKind::End; }

    Token take()
    {
        const Token token = *token_;
        if (!atEnd()) {
            ++token_;
        }
        return token;
    }

    bool accept(std::string_view text)
    {
        const bool same = token_->is(text);
        token_ += same ? 1 : 0;
        return same;
    }

    /// Keywords of the effect framework ignore case.
    bool isKeyword(std::string_view word) const
    {
        return token_->kind == TokenKind::Identifier && equalIgnoringCase(token_->text, word);
    }

    /// `context` is part of the message: "in technique 'A'".
    void expect(std::string_view text, std::string_view context)
    {
        if (!accept(text)) {
            throw unexpected(inQuotes(text), context);
        }
    }

    Token expectName(std::string_view what)
    {
        if (token_->kind != TokenKind::Identifier) {
            throw unexpected(what, {});
        }
        if (token_->text.size() > Limits::textBytes) {
            throw CompileError(token_->at,
                               "a name has " + std::to_string(Limits::textBytes) + " characters at most");
        }
        return take();
    }

    CompileError unexpected(std::string_view wanted, std::string_view context) const
    {
        if (token_->kind == TokenKind::Unknown) {
            return unknownToken(*token_);
        }
        return {token_->at,
                std::string(wanted) + " is expected" + (context.empty() ? "" : " ") + std::string(context) +
                    (atEnd() ? std::string("; the file ends here") : "; found " + inQuotes(token_->text))};
    }

    /// Takes the tokens up to one of the `stops` outside any bracket, and leaves the stop. Checks that
    /// brackets match and are not nested too deep, and that all tokens are HLSL's. Messages call the tokens
    /// `what`; `opener` is the bracket before them, if there is one.
    std::vector<Token> takeUntil(std::string_view stops, std::string_view what,
                                 const Token* opener = nullptr);

    /// Takes the tokens from an opening bracket to its partner, including both.
    std::vector<Token> takeBracketed(std::string_view what);

    /// The next token, for skipItem.
    const Token* position() const { return token_; }

    /// After an error: skips the rest of the top-level item that begins at `item`, up to its ';' or the end
    /// of its braces. If its brackets do not match, skips to the next technique.
    void skipItem(const Token* item);

private:
    void checkToken() const;

    const Token* token_;
};

} // namespace Qx::Host::Effects
