#include "host/effects/framework/SamplerArrays.h"

#include "host/effects/framework/TokenLists.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

namespace Qx::Host::Effects {
namespace {

using Tokens = std::vector<Token>;

bool opensBracket(const Token& token)
{
    return token.is("(") || token.is("[") || token.is("{");
}

bool closesBracket(const Token& token)
{
    return token.is(")") || token.is("]") || token.is("}");
}

class ArrayWriting
{
public:
    ArrayWriting(const Tokens& tokens, const SamplerArrays& local, const SamplerArrays& global,
                 const ConstantReader::Names& names, std::deque<std::string>& texts)
        : tokens_(tokens), local_(local), global_(global), names_(names), texts_(texts)
    {
        // More are an error, and finding their ends would take long.
        constexpr std::ptrdiff_t most = 256;
        mayHaveLoops_ = std::count_if(tokens.begin(), tokens.end(), [](const Token& token) {
                            return isOneOf(token.text, {"for", "while", "if", "else", "switch", "do"});
                        }) <= most;
    }

    Tokens run()
    {
        write(0, tokens_.size());
        return std::move(result_);
    }

private:
    /// "for (int NAME = FIRST; NAME < BOUND; NAME += STEP) BODY".
    struct Loop
    {
        Token type; ///< of the variable; an End token if it is declared before
        Token name;
        double first = 0;
        double bound = 0;
        Token comparison;
        double step = 0;
        std::size_t begin = 0; ///< of the body
        std::size_t end = 0;
    };

    void write(std::size_t begin, std::size_t end)
    {
        for (std::size_t i = begin; i < end; ++i) {
            if (tokens_[i].is("const")) {
                noteConstant(i, end);
            }
            if (tokens_[i].is("for") && mayHaveLoops_ && selectsByVariableOf(i)) {
                i = writeOut(i) - 1;
                continue;
            }
            const Tokens* const elements = elementsAt(i);
            if (elements == nullptr) {
                add(tokens_[i]);
            } else if (i + 1 < end && tokens_[i + 1].is("[")) {
                i = writeElement(i, *elements);
            } else {
                writeAll(i, *elements);
            }
        }
    }

    bool isName(std::size_t at) const
    {
        return tokens_[at].kind == TokenKind::Identifier && (at == 0 || !tokens_[at - 1].is("."));
    }

    /// Null for what is no array's name.
    const Tokens* elementsAt(std::size_t at) const
    {
        if (!isName(at)) {
            return nullptr;
        }
        const auto local = local_.find(tokens_[at].text);
        const auto global = global_.find(tokens_[at].text);
        return local != local_.end() ? &local->second : global != global_.end() ? &global->second : nullptr;
    }

    void add(const Token& token)
    {
        constexpr std::size_t most = 1U << 17U; // as much as functions with all that they call
        if (result_.size() >= most) {
            throw CompileError(token.at, "loops over arrays of samplers have more than " +
                                             std::to_string(most) + " tokens when they are written out");
        }
        result_.push_back(token);
    }

    /// The token after the partner of the bracket at `at`.
    std::size_t behindBracket(std::size_t at) const
    {
        std::size_t depth = 0;
        for (; at < tokens_.size(); ++at) {
            depth += opensBracket(tokens_[at]) ? 1U : 0U;
            if (closesBracket(tokens_[at]) && --depth == 0) {
                return at + 1;
            }
        }
        return at;
    }

    /// The token after the statement that begins at `at`.
    std::size_t behindStatement(std::size_t at) const
    {
        while (at < tokens_.size() && tokens_[at].is("[")) { // [unroll]
            at = behindBracket(at);
        }
        if (at >= tokens_.size() || tokens_[at].is("{")) {
            return behindBracket(at);
        }
        const bool branches = tokens_[at].is("if");
        if (branches || tokens_[at].is("for") || tokens_[at].is("while") || tokens_[at].is("switch")) {
            at = behindStatement(behindBracket(at + 1));
            return branches && at < tokens_.size() && tokens_[at].is("else") ? behindStatement(at + 1) : at;
        }
        if (tokens_[at].is("do")) {
            at = behindStatement(at + 1);
        }
        while (at < tokens_.size() && !tokens_[at].is(";")) {
            at = opensBracket(tokens_[at]) ? behindBracket(at) : at + 1;
        }
        return std::min(at + 1, tokens_.size());
    }

    /// The name of the variable of the loop at `at`; an End token if it has none.
    Token variableOf(std::size_t at) const
    {
        const bool declares = at + 3 < tokens_.size() && tokens_[at + 3].kind == TokenKind::Identifier;
        const std::size_t place = at + (declares ? 3 : 2);
        return place + 1 < tokens_.size() && tokens_[at + 1].is("(") && tokens_[place + 1].is("=")
                   ? tokens_[place]
                   : Token();
    }

    /// Whether the loop's variable selects the element of an array.
    bool selectsByVariableOf(std::size_t at) const
    {
        const Token variable = variableOf(at);
        const std::size_t end = behindStatement(at);
        for (std::size_t i = at; i + 1 < end && variable.kind == TokenKind::Identifier; ++i) {
            if (!tokens_[i + 1].is("[") || elementsAt(i) == nullptr) {
                continue;
            }
            const std::size_t close = behindBracket(i + 1);
            for (std::size_t k = i + 2; k < close; ++k) {
                if (isName(k) && tokens_[k].text == variable.text) {
                    return true;
                }
            }
        }
        return false;
    }

    std::optional<double> valueBetween(std::size_t begin, std::size_t end) const
    {
        if (begin >= end || end > tokens_.size()) {
            return std::nullopt;
        }
        Tokens inside(tokens_.begin() + static_cast<std::ptrdiff_t>(begin),
                      tokens_.begin() + static_cast<std::ptrdiff_t>(end));
        inside.push_back(endTokenAfter(inside, tokens_[begin].at));
        try {
            ConstantReader reader(inside.data(), [this](const Token& name) -> std::optional<ConstantValue> {
                const auto known = variables_.find(name.text);
                return known == variables_.end() ? names_(name) : std::optional(known->second);
            });
            const ConstantValue value = reader.readExpression();
            const bool whole = value.components.size() == 1 && reader.position()->kind == TokenKind::End;
            return whole ? std::optional(value.components[0]) : std::nullopt;
        } catch (const CompileError&) {
            return std::nullopt; // it is not constant
        }
    }

    /// "const int NAME = VALUE;" in a function.
    void noteConstant(std::size_t at, std::size_t end)
    {
        if (at + 3 >= end || !tokens_[at + 3].is("=")) {
            return;
        }
        std::size_t stop = at + 4;
        while (stop < end && !tokens_[stop].is(";") && !tokens_[stop].is(",")) {
            stop = opensBracket(tokens_[stop]) ? behindBracket(stop) : stop + 1;
        }
        if (const std::optional<double> value = valueBetween(at + 4, stop)) {
            variables_[tokens_[at + 2].text] = ConstantValue::ofInteger(*value);
        }
    }

    std::size_t writeElement(std::size_t at, const Tokens& elements)
    {
        const std::size_t end = behindBracket(at + 1);
        const double index = valueBetween(at + 2, end - 1).value_or(-1);
        if (!(index >= 0 && index < static_cast<double>(elements.size()))) {
            throw refusal(at, elements);
        }
        Token element = elements[static_cast<std::size_t>(index)];
        element.at = tokens_[at].at;
        add(element);
        return end - 1;
    }

    CompileError refusal(std::size_t at, const Tokens& elements) const
    {
        const Token& name = tokens_[at];
        return {name.at, "an element of the array " + inQuotes(name.text) +
                             " is selected by a constant from 0 to " + std::to_string(elements.size() - 1) +
                             ", such as " + std::string(name.text) +
                             "[0], or by the variable of a loop whose bounds are constants"};
    }

    /// A whole array is an argument.
    void writeAll(std::size_t at, const Tokens& elements)
    {
        const bool isFirst = at == 0 || tokens_[at - 1].is("(") || tokens_[at - 1].is(",");
        const bool isLast = at + 1 == tokens_.size() || tokens_[at + 1].is(")") || tokens_[at + 1].is(",");
        const bool isRead = at >= 2 && tokens_[at - 1].is("(") && tokens_[at - 2].text.substr(0, 3) == "tex";
        if (!isFirst || !isLast || isRead) {
            throw refusal(at, elements);
        }
        for (std::size_t i = 0; i < elements.size(); ++i) {
            Token element = elements[i];
            element.at = tokens_[at].at;
            if (i > 0) {
                add(punctuator(element, ","));
            }
            add(element);
        }
    }

    static Token punctuator(Token like, std::string_view text)
    {
        like.kind = TokenKind::Punctuator;
        like.text = text;
        return like;
    }

    /// Throws CompileError for a loop that is not as simple as it has to be.
    Loop readLoop(std::size_t at) const
    {
        const CompileError complicated(
            tokens_[at].at, "a loop whose variable selects an element of an array of samplers is "
                            "written for (int i = 0; i < 4; ++i), with constants, and leaves i as it is");
        Loop loop;
        loop.name = variableOf(at);
        const std::size_t equals = at + (tokens_[at + 3].is("=") ? 3 : 4);
        if (equals == at + 4) {
            loop.type = tokens_[at + 2];
        }
        const auto semicolonAfter = [&](std::size_t i) {
            while (i < tokens_.size() && !tokens_[i].is(";") && !tokens_[i].is("{")) {
                ++i;
            }
            return i;
        };
        const std::size_t first = semicolonAfter(equals);
        const std::size_t second = semicolonAfter(first + 1);
        const std::size_t close = behindBracket(at + 1) - 1;
        const auto begin = valueBetween(equals + 1, first);
        const auto bound = valueBetween(first + 3, second);
        if (!begin || !bound || close >= tokens_.size() || second + 3 > close ||
            tokens_[first + 1].text != loop.name.text) {
            throw complicated;
        }
        loop.first = *begin;
        loop.bound = *bound;
        loop.comparison = tokens_[first + 2];
        const Token& third = tokens_[second + 1];
        const bool before = third.is("++") || third.is("--");
        const Token& sign = before ? third : tokens_[second + 2];
        const bool assigns = sign.is("+=") || sign.is("-=");
        const auto size = assigns ? valueBetween(second + 3, close) : std::optional(1.0);
        const bool isStep = assigns || (close == second + 3 && (sign.is("++") || sign.is("--")));
        if (!isStep || !size || (before ? tokens_[second + 2] : third).text != loop.name.text) {
            throw complicated;
        }
        loop.step = sign.text[0] == '-' ? -*size : *size;
        loop.begin = close + 1;
        loop.end = behindStatement(loop.begin);
        for (std::size_t i = loop.begin; i < loop.end; ++i) {
            const bool changes = [&](const Token& token) {
                return isOneOf(token.text, {"=", "+=", "-=", "*=", "/=", "%=", "++", "--"}) &&
                       token.kind == TokenKind::Punctuator;
            }(tokens_[i]);
            const bool ofVariable =
                tokens_[i - 1].text == loop.name.text ||
                (i + 1 < loop.end && tokens_[i].text.size() == 2 &&
                 tokens_[i].text[0] == tokens_[i].text[1] && tokens_[i + 1].text == loop.name.text);
            if (tokens_[i].is("break") || tokens_[i].is("continue") || (changes && ofVariable)) {
                throw CompileError(tokens_[i].at,
                                   complicated.what() + std::string(", without break and continue"));
            }
        }
        return loop;
    }

    /// Returns the place after the loop.
    std::size_t writeOut(std::size_t at)
    {
        constexpr int mostRounds = 1024;
        const Loop loop = readLoop(at);
        const auto goesOn = [&](double value) {
            const std::string_view sign = loop.comparison.text;
            return sign == "<"    ? value < loop.bound
                   : sign == "<=" ? value <= loop.bound
                   : sign == ">"  ? value > loop.bound
                   : sign == ">=" ? value >= loop.bound
                                  : sign == "!=" && value != loop.bound;
        };
        const auto outer = variables_;
        double value = loop.first;
        add(punctuator(tokens_[at], "{"));
        for (int round = 0; goesOn(value); ++round, value += loop.step) {
            if (round == mostRounds) {
                throw CompileError(tokens_[at].at,
                                   "a loop whose variable selects an element of an array of samplers "
                                   "has " +
                                       std::to_string(mostRounds) + " rounds at most");
            }
            add(punctuator(tokens_[at], "{"));
            writeVariable(loop, value);
            variables_ = outer;
            variables_[loop.name.text] = ConstantValue::ofInteger(value);
            write(loop.begin, loop.end);
            add(punctuator(tokens_[at], "}"));
        }
        if (loop.type.kind == TokenKind::End) {
            writeVariable(loop, value);
        }
        add(punctuator(tokens_[at], "}"));
        variables_ = outer;
        return loop.end;
    }

    /// "const int NAME = VALUE;", or only the assignment.
    void writeVariable(const Loop& loop, double value)
    {
        if (loop.type.kind != TokenKind::End) {
            Token word = loop.type;
            word.text = "const";
            add(word);
            add(loop.type);
        }
        add(loop.name);
        add(punctuator(loop.name, "="));
        if (value < 0) {
            add(punctuator(loop.name, "-"));
        }
        Token number = loop.name;
        number.kind = TokenKind::Number;
        number.text = texts_.emplace_back(std::to_string(static_cast<long>(std::fabs(value))));
        add(number);
        add(punctuator(loop.name, ";"));
    }

    const Tokens& tokens_;
    const SamplerArrays& local_;
    const SamplerArrays& global_;
    const ConstantReader::Names& names_;
    std::deque<std::string>& texts_;
    std::unordered_map<std::string_view, ConstantValue> variables_; ///< of loops, and local constants
    bool mayHaveLoops_ = false;
    Tokens result_;
};

} // namespace

std::vector<Token> withoutSamplerArrays(const std::vector<Token>& tokens, const SamplerArrays& local,
                                        const SamplerArrays& global, const ConstantReader::Names& names,
                                        std::deque<std::string>& texts)
{
    const bool none = local.empty() && global.empty();
    return none ? tokens : ArrayWriting(tokens, local, global, names, texts).run();
}

} // namespace Qx::Host::Effects
