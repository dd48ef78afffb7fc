#pragma once

#include "host/effects/framework/SourceText.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace Qx::Host::Effects {

enum class TokenKind : std::uint8_t
{
    Identifier,
    Number, ///< starts like a number; readNumber() tells whether it is one
    String, ///< including its quotes
    Punctuator,
    Unknown, ///< an invalid character, or an unterminated string
    End
};

struct Token
{
    TokenKind kind = TokenKind::End;
    bool startsLine = false;  ///< first of its line: a '#' here begins a directive
    bool spaceBefore = false; ///< after white space or a comment
    bool noExpand = false;    ///< names a macro that was being expanded when it appeared
    Location at;
    std::string_view text;

    bool is(std::string_view spelling) const { return text == spelling && kind != TokenKind::String; }
};

/// Splits the text of a file into tokens, which refer to the text. Comments and line continuations are white
/// space. Throws CompileError for an unterminated comment and for more than `limit` tokens. Other errors
/// become Unknown tokens, since they may be in a region that a condition leaves out.
std::vector<Token> splitIntoTokens(std::string_view text, std::uint32_t file, std::size_t limit);

/// The error for an Unknown token.
CompileError unknownToken(const Token& token);

/// Reads a number with its suffix. Returns false if the text is not a number.
bool readNumber(std::string_view text, double& value, bool& isInteger);

} // namespace Qx::Host::Effects
