#include "host/effects/framework/Lexer.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>

namespace Qx::Host::Effects {
namespace {

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isNameStart(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

bool isNamePart(char c)
{
    return isNameStart(c) || isDigit(c);
}

bool isBlank(char c)
{
    constexpr char endOfFile = 0x1A; // that old editors write
    return c == endOfFile || c == ' ' || c == '\t' || c == '\v' || c == '\f' || c == '\r';
}

/// Whether bytes from 0x80 on come as UTF-8 arranges them.
bool isUtf8(std::string_view text)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t more = lead < 0x80U ? 0 : lead >= 0xF0U ? 3 : lead >= 0xE0U ? 2 : 1;
        if ((lead >= 0x80U && lead < 0xC2U) || lead > 0xF4U || text.size() - i <= more) {
            return false;
        }
        for (std::size_t end = i + more; i < end; ++i) {
            if ((static_cast<unsigned char>(text[i + 1]) & 0xC0U) != 0x80U) {
                return false;
            }
        }
    }
    return true;
}

class Lexer
{
public:
    Lexer(std::string_view text, std::uint32_t file) : text_(text), file_(file) {}

    /// Returns false at the end of the text.
    bool next(Token& token)
    {
        skipBlanks();
        if (position_ >= text_.size()) {
            return false;
        }
        token = {};
        token.startsLine = startsLine_;
        token.spaceBefore = spaceBefore_;
        token.at = here();
        startsLine_ = false;
        spaceBefore_ = false;
        const std::size_t begin = position_;
        token.kind = scan();
        token.text = text_.substr(begin, position_ - begin);
        return true;
    }

    Location here() const { return {file_, line_, column_, 0}; }

private:
    enum class Encoding
    {
        Unknown,
        Utf8,
        Other
    };

    char peek(std::size_t ahead = 0) const
    {
        return position_ + ahead < text_.size() ? text_[position_ + ahead] : '\0';
    }

    void advance()
    {
        const char c = text_[position_++];
        if (c == '\n') {
            ++line_;
            column_ = 1;
        } else if ((static_cast<unsigned char>(c) & 0xC0U) != 0x80U) {
            ++column_; // the bytes that continue a UTF-8 character take no column
        }
    }

    void skipBlanks()
    {
        if (position_ == 0 && text_.substr(0, 3) == "\xEF\xBB\xBF") {
            position_ = 3;
        }
        while (position_ < text_.size()) {
            if (peek() == '\n') {
                startsLine_ = true;
                advance();
            } else if (isBlank(peek())) {
                spaceBefore_ = true;
                advance();
            } else if (!skipContinuation() && !skipComment()) {
                return;
            }
        }
    }

    /// Whether the byte here is the second of a character in an encoding that is not UTF-8. It may look like
    /// the '\\' of a continued line.
    bool isHalfOfCharacter()
    {
        if (position_ == 0 || static_cast<unsigned char>(text_[position_ - 1]) < 0x80U || peek() != '\\') {
            return false;
        }
        if (encoding_ == Encoding::Unknown) {
            encoding_ = isUtf8(text_) ? Encoding::Utf8 : Encoding::Other;
        }
        return encoding_ == Encoding::Other;
    }

    bool skipContinuation()
    {
        const std::size_t length = peek() != '\\'                       ? 0
                                   : peek(1) == '\n'                    ? 2
                                   : peek(1) == '\r' && peek(2) == '\n' ? 3
                                                                        : 0;
        for (std::size_t i = 0; i < length; ++i) {
            advance();
        }
        spaceBefore_ = spaceBefore_ || length != 0;
        return length != 0;
    }

    bool skipComment()
    {
        if (peek() != '/' || (peek(1) != '/' && peek(1) != '*')) {
            return false;
        }
        spaceBefore_ = true;
        if (peek(1) == '/') {
            while (position_ < text_.size() && peek() != '\n') {
                if (isHalfOfCharacter() || !skipContinuation()) {
                    advance();
                }
            }
            return true;
        }
        const Location begin = here();
        const std::size_t end = text_.find("*/", position_ + 2);
        if (end == std::string_view::npos) {
            throw CompileError(begin, "this comment does not end; close it with */");
        }
        while (position_ < end + 2) {
            advance();
        }
        return true;
    }

    TokenKind scan()
    {
        const char c = peek();
        if (isNameStart(c)) {
            while (isNamePart(peek())) {
                advance();
            }
            return TokenKind::Identifier;
        }
        if (isDigit(c) || (c == '.' && isDigit(peek(1)))) {
            return scanNumber();
        }
        if (c == '"') {
            return scanString();
        }
        return scanPunctuator();
    }

    TokenKind scanNumber()
    {
        const bool hexadecimal = peek() == '0' && (peek(1) == 'x' || peek(1) == 'X');
        while (isNamePart(peek()) || peek() == '.') {
            const bool exponent = !hexadecimal && (peek() == 'e' || peek() == 'E');
            advance();
            if (exponent && (peek() == '+' || peek() == '-')) {
                advance();
            }
        }
        return TokenKind::Number;
    }

    TokenKind scanString()
    {
        advance();
        while (position_ < text_.size() && peek() != '\n' && peek() != '"') {
            advance();
        }
        if (peek() != '"' || position_ >= text_.size()) {
            return TokenKind::Unknown;
        }
        advance();
        return TokenKind::String;
    }

    TokenKind scanPunctuator()
    {
        static constexpr std::array<std::string_view, 23> longer{
            "<<=", ">>=", "...", "<<", ">>", "<=", ">=", "==", "!=", "&&", "||", "++",
            "--",  "+=",  "-=",  "*=", "/=", "%=", "&=", "|=", "^=", "##", "::"};
        for (const std::string_view candidate : longer) {
            if (candidate[0] == peek() && text_.substr(position_, candidate.size()) == candidate) {
                for (std::size_t i = 0; i < candidate.size(); ++i) {
                    advance();
                }
                return TokenKind::Punctuator;
            }
        }
        static constexpr std::string_view single = "()[]{}<>=+-*/%!~&|^?:;,.#";
        const bool known = single.find(peek()) != std::string_view::npos;
        advance();
        while (!known && position_ < text_.size() && (static_cast<unsigned char>(peek()) & 0xC0U) == 0x80U) {
            advance(); // the rest of one UTF-8 character
        }
        return known ? TokenKind::Punctuator : TokenKind::Unknown;
    }

    std::string_view text_;
    std::uint32_t file_;
    std::size_t position_ = 0;
    std::uint32_t line_ = 1;
    std::uint32_t column_ = 1;
    bool startsLine_ = true;
    bool spaceBefore_ = false;
    Encoding encoding_ = Encoding::Unknown; ///< found out when it matters
};

/// The character that the bytes encode (RFC 3629, 3), if they are valid.
std::optional<std::uint32_t> decodeUtf8(std::string_view bytes)
{
    const auto lead = static_cast<unsigned char>(bytes.front());
    const std::size_t length = lead < 0x80U ? 1 : lead >= 0xF0U ? 4 : lead >= 0xE0U ? 3 : 2;
    if (bytes.size() != length || (lead >= 0x80U && lead < 0xC2U) || lead > 0xF4U) {
        return std::nullopt;
    }
    std::uint32_t character = length == 1 ? lead : lead & (0x7FU >> length);
    for (const char c : bytes.substr(1)) {
        character =
            character << 6U | (static_cast<unsigned char>(c) & 0x3FU); // the lexer took only such bytes
    }
    return character;
}

} // namespace

CompileError unknownToken(const Token& token)
{
    if (token.text.front() == '"') {
        return {token.at, "this string does not end on its line"};
    }
    const std::optional<std::uint32_t> character = decodeUtf8(token.text);
    std::array<char, 16> digits{};
    if (!character) {
        std::snprintf(digits.data(), digits.size(), "0x%02X",
                      static_cast<unsigned>(static_cast<unsigned char>(token.text.front())));
        return {token.at,
                "the byte " + std::string(digits.data()) +
                    " is not valid UTF-8; save the file as UTF-8, and write names and code in ASCII"};
    }
    if (*character < 0x80U) {
        return {token.at, "unexpected character " + inQuotes(token.text)};
    }
    std::snprintf(digits.data(), digits.size(), "U+%04X", static_cast<unsigned>(*character));
    return {token.at,
            "unexpected character " + inQuotes(token.text) + " (" + digits.data() +
                "); names and code are ASCII; other characters are allowed in comments and strings"};
}

std::vector<Token> splitIntoTokens(std::string_view text, std::uint32_t file, std::size_t limit)
{
    std::vector<Token> tokens;
    Lexer lexer(text, file);
    Token token;
    while (lexer.next(token)) {
        if (tokens.size() >= limit) {
            throw LimitError(token.at, "the effect is too large: more than " + std::to_string(limit) +
                                           " tokens in one file");
        }
        tokens.push_back(token);
    }
    return tokens;
}

bool readNumber(std::string_view text, double& value, bool& isInteger)
{
    const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    if (hexadecimal) {
        std::uint64_t bits = 0;
        const char* end = text.data() + text.size();
        const auto [rest, error] = std::from_chars(text.data() + 2, end, bits, 16);
        value = static_cast<double>(bits);
        isInteger = true;
        return error == std::errc() && (rest == end || (rest + 1 == end && (*rest == 'u' || *rest == 'U')));
    }
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || !std::isfinite(value)) {
        return false;
    }
    const std::string_view spelt(text.data(), static_cast<std::size_t>(rest - text.data()));
    isInteger = spelt.find_first_of(".eE") == std::string_view::npos;
    const std::string_view suffix(rest, static_cast<std::size_t>(end - rest));
    if (suffix == "f" || suffix == "F" || suffix == "h" || suffix == "H") {
        isInteger = false;
        return true;
    }
    return suffix.empty() ||
           (isInteger && (suffix == "u" || suffix == "U" || suffix == "l" || suffix == "L"));
}

} // namespace Qx::Host::Effects
