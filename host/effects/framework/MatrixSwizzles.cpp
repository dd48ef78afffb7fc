#include "host/effects/framework/MatrixSwizzles.h"

#include "host/effects/framework/TokenLists.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <set>
#include <string>
#include <string_view>

namespace Qx::Host::Effects {
namespace {

using Tokens = std::vector<Token>;

constexpr std::size_t longestMatrix = 64; // tokens before the selection, which are repeated for each element

/// The elements of "_m00_m11" or "_11_22"; nothing for other names, and for one element.
std::vector<std::string_view> elementsOf(std::string_view name)
{
    std::vector<std::string_view> elements;
    if (name.find_first_not_of("_m01234") != std::string_view::npos || name.substr(0, 1) != "_") {
        return elements;
    }
    while (!name.empty()) {
        const std::size_t end = std::min(name.find('_', 1), name.size());
        elements.push_back(name.substr(0, end));
        name.remove_prefix(end);
    }
    return elements.size() > 1 ? elements : std::vector<std::string_view>();
}

bool opens(const Token& token)
{
    return token.is("(") || token.is("[") || token.is("{");
}

bool closes(const Token& token)
{
    return token.is(")") || token.is("]") || token.is("}");
}

/// Where the matrix begins that ends before `end`: "m", "s.matrices[i + 1]", "transpose(m)".
std::size_t beginOfMatrix(const Tokens& tokens, std::size_t end)
{
    std::size_t begin = end;
    while (begin > 0) {
        if (closes(tokens[begin - 1])) {
            std::size_t depth = 0;
            do {
                --begin;
                depth = depth + (closes(tokens[begin]) ? 1U : 0U) - (opens(tokens[begin]) ? 1U : 0U);
            } while (begin > 0 && depth != 0);
            const bool called = begin > 0 && tokens[begin - 1].kind == TokenKind::Identifier;
            if (tokens[begin].is("(") && !called) {
                return begin;
            }
            continue;
        }
        --begin;
        if (begin == 0 || !tokens[begin - 1].is(".")) {
            return begin;
        }
        --begin;
    }
    return begin;
}

bool assigns(const Token& token)
{
    return isOneOf(token.text, {"=", "+=", "-=", "*=", "/="}) && token.kind == TokenKind::Punctuator;
}

class Rewriting
{
public:
    Tokens run(const Tokens& tokens)
    {
        result_.reserve(tokens.size());
        for (std::size_t i = 0; i < tokens.size(); ++i) {
            const bool selects = i > 0 && tokens[i - 1].is(".") && tokens[i].kind == TokenKind::Identifier;
            const std::vector<std::string_view> elements =
                selects ? elementsOf(tokens[i].text) : std::vector<std::string_view>();
            depth_ += opens(tokens[i]) ? 1 : closes(tokens[i]) ? -1 : 0;
            if (!elements.empty()) {
                rewrite(tokens, i, elements);
            } else if (!assignment_.elements.empty() && depth_ == assignment_.depth && tokens[i].is(";")) {
                finishAssignment(tokens[i]);
            } else {
                result_.push_back(tokens[i]);
            }
        }
        return std::move(result_);
    }

private:
    /// A statement that assigns to several elements, whose value is not read to its end yet.
    struct Assignment
    {
        Tokens matrix;
        std::vector<std::string_view> elements; ///< none: there is no such statement
        Token sign;
        std::ptrdiff_t depth = 0;
    };

    void rewrite(const Tokens& tokens, std::size_t& at, const std::vector<std::string_view>& elements)
    {
        const Token& name = tokens[at];
        result_.pop_back(); // the point
        const std::size_t begin = beginOfMatrix(result_, result_.size());
        const Tokens matrix(result_.begin() + static_cast<std::ptrdiff_t>(begin), result_.end());
        if (elements.size() > 4) {
            throw CompileError(name.at, inQuotes(name.text) + " selects " + std::to_string(elements.size()) +
                                            " elements of a matrix; a vector holds at most 4");
        }
        const auto countsFromZero = [](std::string_view element) { return element.substr(0, 2) == "_m"; };
        if (std::any_of(elements.begin(), elements.end(), [&](std::string_view element) {
                return countsFromZero(element) != countsFromZero(elements.front());
            })) {
            throw CompileError(name.at, inQuotes(name.text) +
                                            " mixes two notations: _m00 counts rows and columns "
                                            "from 0, _11 from 1; write all in one");
        }
        if (matrix.empty() || matrix.size() > longestMatrix) {
            throw CompileError(name.at, inQuotes(name.text) +
                                            " selects several elements of a matrix; select one at a time, "
                                            "such as float2(m._m00, m._m11)");
        }
        result_.resize(begin);
        if (at + 1 < tokens.size() && assigns(tokens[at + 1])) {
            startAssignment(name, tokens[++at], matrix, elements);
            return;
        }
        static constexpr std::array<std::string_view, 3> types{"float2", "float3", "float4"};
        add(name, types.at(elements.size() - 2));
        add(name, "(");
        for (std::size_t i = 0; i < elements.size(); ++i) {
            if (i > 0) {
                add(name, ",");
            }
            addElement(name, matrix, elements[i]);
        }
        add(name, ")");
    }

    void startAssignment(const Token& name, const Token& sign, const Tokens& matrix,
                         const std::vector<std::string_view>& elements)
    {
        const bool isStatement =
            result_.empty() || isOneOf(result_.back().text, {";", "{", "}", ")", "else", "do", ":"});
        if (!isStatement || !assignment_.elements.empty()) {
            throw CompileError(name.at,
                               "several elements of a matrix are assigned to in a statement of its own");
        }
        if (std::set(elements.begin(), elements.end()).size() != elements.size()) {
            throw CompileError(name.at, inQuotes(name.text) + " assigns to an element twice");
        }
        assignment_ = {matrix, elements, sign, depth_};
        static constexpr std::array<std::string_view, 3> types{"float2", "float3", "float4"};
        add(name, "{");
        add(name, types.at(elements.size() - 2));
        add(name, "qxfx_elements");
        add(name, "=");
    }

    void finishAssignment(const Token& semicolon)
    {
        static constexpr std::array<std::string_view, 4> components{"x", "y", "z", "w"};
        result_.push_back(semicolon);
        for (std::size_t i = 0; i < assignment_.elements.size(); ++i) {
            addElement(assignment_.sign, assignment_.matrix, assignment_.elements[i]);
            result_.push_back(assignment_.sign);
            add(assignment_.sign, "qxfx_elements");
            add(assignment_.sign, ".");
            add(assignment_.sign, components.at(i));
            result_.push_back(semicolon);
        }
        add(assignment_.sign, "}");
        assignment_ = {};
    }

    void addElement(const Token& like, const Tokens& matrix, std::string_view element)
    {
        append(result_, matrix);
        add(like, ".");
        add(like, element);
    }

    /// A token of that text, in the place of another.
    void add(Token like, std::string_view text)
    {
        const char first = text.front();
        const bool isWord = first == '_' || (first >= 'a' && first <= 'z');
        like.kind = isWord ? TokenKind::Identifier : TokenKind::Punctuator;
        like.text = text;
        result_.push_back(like);
    }

    Tokens result_;
    Assignment assignment_;
    std::ptrdiff_t depth_ = 0;
};

} // namespace

std::vector<Token> withoutMatrixSwizzles(const std::vector<Token>& tokens)
{
    return Rewriting().run(tokens);
}

} // namespace Qx::Host::Effects
