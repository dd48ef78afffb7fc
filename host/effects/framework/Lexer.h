#pragma once

#include "host/effects/framework/SourceText.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace Qx::Host::Effects {

enum class TokenKind : std::uint8_t
{
    Identifier,
    Number, ///< anything that starts like a number; whether it is one is the reader's question
    String, ///< with its quotes
    Punctuator,
    Unknown, ///< a character that the language does not have, or a string that does not end
    End
};

struct Token
{
    TokenKind kind = TokenKind::End;
    bool startsLine = false;  ///< first of a line: a '#' here begins a directive
    bool spaceBefore = false; ///< white space or a comment stands before it
    bool noExpand = false;    ///< names a macro that was being expanded when it appeared
    Location at;
    std::string_view text;

    bool is(std::string_view spelling) const { return text == spelling && kind != TokenKind::String; }
};

/// Splits the text of a file into tokens, which refer into the text; comments and line continuations are
/// white space. Throws CompileError for a comment that does not end and when there are more than `limit`
/// tokens; what else is wrong becomes an Unknown token, since it may stand in a region that a condition
/// leaves out.
std::vector<Token> splitIntoTokens(std::string_view text, std::uint32_t file, std::size_t limit);

/// What is wrong with an Unknown token.
CompileError unknownToken(const Token& token);

/// The number that a token spells, with its suffix. False when it is none.
bool readNumber(std::string_view text, double& value, bool& isInteger);

} // namespace Qx::Host::Effects
