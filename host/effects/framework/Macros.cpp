#include "host/effects/framework/Macros.h"

#include "host/effects/framework/Limits.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

namespace Qx::Host::Effects {
namespace {

/// The macros that every compiler defines.
bool isBuiltIn(std::string_view name)
{
    return name == "__LINE__" || name == "__FILE__";
}

/// For the name of a macro that is to be defined or undefined.
void checkMacroName(const Token& name)
{
    if (name.is("defined") || isBuiltIn(name.text)) {
        throw CompileError(name.at, inQuotes(name.text) + " is reserved and cannot be a macro");
    }
}

} // namespace

struct Macros::Macro
{
    std::string_view name;
    Tokens body;
    std::vector<std::string_view> parameters;
    bool functionLike = false;
    bool active = false; ///< being expanded: its name is not expanded then
    Location at;
};

struct Macros::Context
{
    Tokens owned;
    const Token* position = nullptr;
    const Token* end = nullptr;
    Macro* macro = nullptr;
};

Macros::Macros(SourceFiles& files, Problems& problems) : files_(files), problems_(problems) {}

Macros::~Macros() = default;

void Macros::define(const Token* begin, const Token* end)
{
    if (begin == end || begin->kind != TokenKind::Identifier) {
        throw CompileError((begin - 1)->at, "#define takes the name of a macro");
    }
    auto macro = std::make_unique<Macro>();
    macro->name = begin->text;
    macro->at = begin->at;
    checkMacroName(*begin);
    const Token* body = begin + 1;
    if (body != end && body->is("(") && !body->spaceBefore) {
        macro->functionLike = true;
        body = readParameters(*macro, body + 1, end);
    }
    macro->body.assign(body, end);
    for (Token& token : macro->body) {
        token.at.note = files_.addMacroNote(macro->name, token.at);
    }
    if (!macro->body.empty() && (macro->body.front().is("##") || macro->body.back().is("##"))) {
        throw CompileError(begin->at, "a macro cannot begin or end with ##");
    }
    std::unique_ptr<Macro>& slot = macros_[macro->name];
    if (slot != nullptr) {
        const auto sameText = [](const Token& a, const Token& b) { return a.text == b.text; };
        if (!std::equal(slot->body.begin(), slot->body.end(), macro->body.begin(), macro->body.end(),
                        sameText) ||
            slot->parameters != macro->parameters || slot->functionLike != macro->functionLike) {
            problems_.warn({begin->at, "macro " + inQuotes(macro->name) + " has another definition at " +
                                           files_.describe(slot->at) + "; this one applies from here"});
        }
        retired_.push_back(std::move(slot));
    }
    slot = std::move(macro);
}

const Token* Macros::readParameters(Macro& macro, const Token* token, const Token* end) const
{
    const auto fail = [&](const std::string& what) -> CompileError {
        return {token == end ? macro.at : token->at,
                "the parameters of macro " + inQuotes(macro.name) + ": " + what};
    };
    if (token != end && token->is(")")) {
        return token + 1;
    }
    for (;; ++token) {
        if (token == end || token->kind != TokenKind::Identifier) {
            throw fail("a name is missing");
        }
        if (std::find(macro.parameters.begin(), macro.parameters.end(), token->text) !=
            macro.parameters.end()) {
            throw fail("a name is repeated");
        }
        if (macro.parameters.size() >= Limits::macroParameters) {
            throw fail("there are more than " + std::to_string(Limits::macroParameters));
        }
        macro.parameters.push_back(token->text);
        ++token;
        if (token == end || (!token->is(",") && !token->is(")"))) {
            throw fail("',' or ')' is missing");
        }
        if (token->is(")")) {
            return token + 1;
        }
    }
}

void Macros::undefine(const Token& name)
{
    checkMacroName(name);
    if (const auto found = macros_.find(name.text); found != macros_.end()) {
        retired_.push_back(std::move(found->second));
        macros_.erase(found);
    }
}

bool Macros::isDefined(std::string_view name) const
{
    return isBuiltIn(name) || macros_.count(name) != 0;
}

void Macros::abandonExpansions()
{
    for (const auto& [name, macro] : macros_) {
        macro->active = false;
    }
}

void Macros::countStep(const Token& token)
{
    constexpr std::size_t bytes = 16; // of a token count as one more step
    steps_ += 1 + token.text.size() / bytes;
    if (steps_ > Limits::steps) {
        throw LimitError(token.at, "the effect is too large: preprocessing took more than " +
                                       std::to_string(Limits::steps) + " steps");
    }
}

void Macros::expand(const Token* begin, const Token* end, Tokens& output)
{
    expand(begin, end, output, 0);
}

void Macros::expand(const Token* begin, const Token* end, Tokens& output, std::size_t depth)
{
    std::vector<Context> contexts;
    contexts.push_back({{}, begin, end, nullptr});
    while (!contexts.empty()) {
        Context& context = contexts.back();
        if (context.position == context.end) {
            if (context.macro != nullptr) {
                context.macro->active = false;
            }
            contexts.pop_back();
            continue;
        }
        Token token = *context.position++;
        countStep(token);
        if (token.kind == TokenKind::Identifier && isBuiltIn(token.text)) {
            token = builtIn(token);
        }
        if (token.kind == TokenKind::Identifier && !token.noExpand && expandMacro(contexts, token, depth)) {
            continue;
        }
        if (token.kind == TokenKind::Identifier && macros_.count(token.text) != 0 &&
            macros_.at(token.text)->active) {
            token.noExpand = true;
        }
        if (output.size() >= Limits::tokens) {
            throw LimitError(token.at, "the effect is too large: more than " +
                                           std::to_string(Limits::tokens) + " tokens after preprocessing");
        }
        output.push_back(token);
    }
}

Token Macros::builtIn(Token name)
{
    if (name.is("__LINE__")) {
        name.kind = TokenKind::Number;
        name.text = files_.keep(std::to_string(name.at.line));
        return name;
    }
    std::string text = files_[name.at.file].name;
    std::replace(text.begin(), text.end(), '"', '\''); // the language's strings have no escapes
    name.kind = TokenKind::String;
    name.text = files_.keep('"' + text + '"');
    return name;
}

bool Macros::expandMacro(std::vector<Context>& contexts, const Token& name, std::size_t depth)
{
    const auto found = macros_.find(name.text);
    if (found == macros_.end() || found->second->active) {
        return false;
    }
    Macro& macro = *found->second;
    std::vector<Tokens> arguments;
    if (macro.functionLike) {
        // The arguments may follow the end of the expansion that the name came from.
        std::size_t level = contexts.size();
        while (level > 0 && contexts[level - 1].position == contexts[level - 1].end) {
            --level;
        }
        if (level == 0 || !contexts[level - 1].position->is("(")) {
            return false;
        }
        arguments = readArguments(contexts, name, macro);
    }
    Context expansion;
    expansion.owned = substitute(macro, name, arguments, depth);
    expansion.macro = &macro;
    expansion.position = expansion.owned.data();
    expansion.end = expansion.position + expansion.owned.size();
    macro.active = true;
    contexts.push_back(std::move(expansion));
    return true;
}

std::vector<std::vector<Token>> Macros::readArguments(std::vector<Context>& contexts, const Token& name,
                                                      const Macro& macro)
{
    std::vector<Tokens> arguments(1);
    std::size_t brackets = 0;
    for (;;) {
        while (!contexts.empty() && contexts.back().position == contexts.back().end) {
            if (contexts.back().macro != nullptr) {
                contexts.back().macro->active = false;
            }
            contexts.pop_back();
        }
        if (contexts.empty()) {
            throw CompileError(name.at, "the arguments of macro " + inQuotes(macro.name) + " have no ')'");
        }
        const Token token = *contexts.back().position++;
        countStep(token);
        if (token.is("(")) {
            ++brackets;
            if (brackets == 1) {
                continue;
            }
        } else if (token.is(")") && --brackets == 0) {
            break;
        }
        if (token.is(",") && brackets == 1) {
            arguments.emplace_back();
        } else {
            arguments.back().push_back(token);
        }
    }
    const bool none = macro.parameters.empty() && arguments.size() == 1 && arguments[0].empty();
    if (!none && arguments.size() != macro.parameters.size()) {
        throw CompileError(name.at, "macro " + inQuotes(macro.name) + " takes " +
                                        std::to_string(macro.parameters.size()) + " arguments; " +
                                        std::to_string(arguments.size()) + " are given");
    }
    return arguments;
}

std::vector<Token> Macros::substitute(const Macro& macro, const Token& name,
                                      const std::vector<Tokens>& arguments, std::size_t depth)
{
    const auto parameterOf = [&](const Token& token) -> std::optional<std::size_t> {
        const auto found = std::find(macro.parameters.begin(), macro.parameters.end(), token.text);
        if (token.kind != TokenKind::Identifier || found == macro.parameters.end()) {
            return std::nullopt;
        }
        return static_cast<std::size_t>(found - macro.parameters.begin());
    };
    std::vector<std::optional<Tokens>> expanded(arguments.size());
    Tokens result;
    bool paste = false;   // the next token joins the last of the result
    bool present = false; // the operand before has a token
    const auto append = [&](Token token) {
        countStep(token);
        if (paste) {
            result.back() = pasted(result.back(), token);
        } else {
            result.push_back(token);
        }
        paste = false;
    };
    for (std::size_t i = 0; i < macro.body.size(); ++i) {
        Token token = macro.body[i];
        token.at = {name.at.file, name.at.line, name.at.column, token.at.note};
        const bool beforePaste = i + 1 < macro.body.size() && macro.body[i + 1].is("##");
        if (token.is("##")) {
            continue;
        }
        const std::size_t before = result.size();
        const bool joins = i > 0 && macro.body[i - 1].is("##");
        paste = joins && present;
        if (token.is("#") && macro.functionLike && i + 1 < macro.body.size() &&
            parameterOf(macro.body[i + 1])) {
            append(stringized(arguments[*parameterOf(macro.body[++i])], token.at));
        } else if (const auto parameter = parameterOf(token)) {
            const bool raw = paste || beforePaste;
            if (!raw && !expanded[*parameter]) {
                if (depth >= Limits::macroDepth) {
                    throw LimitError(name.at, "macro calls are nested more than " +
                                                  std::to_string(Limits::macroDepth) + " deep");
                }
                expanded[*parameter].emplace();
                const Tokens& argument = arguments[*parameter];
                expand(argument.data(), argument.data() + argument.size(), *expanded[*parameter], depth + 1);
            }
            for (const Token& part : raw ? arguments[*parameter] : *expanded[*parameter]) {
                append(part);
            }
        } else {
            append(token);
        }
        present = (joins && present) || result.size() > before;
    }
    return result;
}

Token Macros::stringized(const Tokens& argument, Location at)
{
    std::string text = "\"";
    for (const Token& token : argument) {
        countStep(token);
        text += token.spaceBefore && text.size() > 1 ? " " : "";
        for (const char c : token.text) {
            text += c == '"' ? '\'' : c; // the language's strings have no escapes
        }
    }
    if (text.size() > Limits::textBytes) {
        throw CompileError(at, "# makes a text of more than " + std::to_string(Limits::textBytes) +
                                   " characters");
    }
    Token token;
    token.kind = TokenKind::String;
    token.at = at;
    token.text = files_.keep(text + '"');
    return token;
}

Token Macros::pasted(const Token& left, const Token& right)
{
    const std::string text = std::string(left.text) + std::string(right.text);
    if (text.size() > Limits::textBytes) {
        throw CompileError(left.at, "## makes a token of more than " + std::to_string(Limits::textBytes) +
                                        " characters");
    }
    const Tokens tokens = splitIntoTokens(files_.keep(text), left.at.file, Limits::tokens);
    if (tokens.size() != 1 || tokens[0].kind == TokenKind::Unknown) {
        throw CompileError(left.at, "## makes " + inQuotes(text) + " of " + inQuotes(left.text) + " and " +
                                        inQuotes(right.text) + ", which is not a token");
    }
    Token token = tokens[0];
    token.startsLine = false;
    token.spaceBefore = left.spaceBefore;
    token.at = left.at;
    return token;
}

} // namespace Qx::Host::Effects
