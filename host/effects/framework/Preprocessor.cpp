#include "host/effects/framework/Preprocessor.h"

#include "host/core/Suggestion.h"
#include "host/effects/framework/ConstantExpression.h"
#include "host/effects/framework/Limits.h"

#include <algorithm>
#include <array>

namespace Qx::Host::Effects {

Preprocessor::Preprocessor(SourceFiles& files, const PreprocessorOptions& options, Problems& problems)
    : files_(files),
      options_(options),
      problems_(problems),
      includes_(files, options.includeDirectories),
      macros_(files, problems)
{
}

std::vector<Token> Preprocessor::run(const std::filesystem::path& effect)
{
    const std::uint32_t file = includes_.openEffect(effect);
    defineFromOptions();
    processFile(file, {file, 0, 0, 0});
    Token end;
    const auto lines = std::count(files_[file].text.begin(), files_[file].text.end(), '\n');
    end.at = {file, static_cast<std::uint32_t>(lines + 1), 1, 0};
    output_.push_back(end);
    return std::move(output_);
}

void Preprocessor::defineFromOptions()
{
    for (const auto& [name, value] : options_.definitions) {
        const std::uint32_t file = files_.add(
            {{}, "<definition " + name + ">", files_.keep(std::string(name).append(1, ' ').append(value))});
        const Tokens tokens = splitIntoTokens(files_[file].text, file, Limits::tokens);
        const bool oneName = !tokens.empty() && tokens[0].text == name;
        if (!oneName || tokens[0].kind != TokenKind::Identifier) {
            throw CompileError({file, 1, 1, 0},
                               "the definition " + inQuotes(name) + " is not the name of a macro");
        }
        macros_.define(tokens.data(), tokens.data() + tokens.size());
    }
}

void Preprocessor::processFile(std::uint32_t file, Location from)
{
    if (++inclusions_ > Limits::inclusions) {
        throw LimitError(from, "more than " + std::to_string(Limits::inclusions) +
                                   " inclusions; does a file include itself without a guard?");
    }
    if (includeStack_.size() >= Limits::includeDepth) {
        throw LimitError(from, "includes are nested more than " + std::to_string(Limits::includeDepth) +
                                   " deep; does a file include itself without a guard?");
    }
    const std::uint32_t inclusion = includeStack_.empty() ? file : files_.addInclusion(file, from);
    const Tokens tokens = splitIntoTokens(files_[file].text, inclusion, Limits::tokens);
    includeStack_.push_back(file);
    readBytes_ += files_[file].text.size();
    readTokens_ += tokens.size();
    if (readBytes_ > Limits::readBytes || readTokens_ > Limits::readTokens) {
        throw LimitError(from, "the effect is too large with all that it includes: more than " +
                                   std::to_string(Limits::readBytes) + " bytes or " +
                                   std::to_string(Limits::readTokens) + " tokens");
    }
    std::vector<Condition> conditions;
    processLines(tokens, conditions);
    if (!conditions.empty()) {
        problems_.fail({conditions.back().at, "this condition has no #endif"});
    }
    includeStack_.pop_back();
}

/// Reports an error in one line, so that the next can be read.
template <typename Step>
void Preprocessor::tolerate(const Step& step)
{
    try {
        step();
    } catch (const LimitError&) {
        throw;
    } catch (const CompileError& error) {
        problems_.fail(error);
        if (problems_.enough()) {
            throw;
        }
        macros_.abandonExpansions();
    }
}

void Preprocessor::processLines(const Tokens& tokens, std::vector<Condition>& conditions)
{
    const Token* const end = tokens.data() + tokens.size();
    const auto isDirective = [](const Token& token) { return token.startsLine && token.is("#"); };
    for (const Token* token = tokens.data(); token != end;) {
        macros_.countStep(*token);
        if (isDirective(*token)) {
            const Token* const next =
                std::find_if(token + 1, end, [](const Token& t) { return t.startsLine; });
            tolerate([&] { directive(token + 1, next, token->at, conditions); });
            token = next;
            continue;
        }
        const Token* const next = std::find_if(token, end, isDirective);
        if (conditions.empty() || conditions.back().active) {
            tolerate([&] { expandIntoEffect(token, next); });
        }
        token = next;
    }
}

void Preprocessor::directive(const Token* begin, const Token* end, Location hash,
                             std::vector<Condition>& conditions)
{
    if (begin == end || conditional(begin, end, conditions)) {
        return; // a lone '#' is the null directive
    }
    if (!conditions.empty() && !conditions.back().active) {
        return;
    }
    const std::string_view word = begin->text;
    if (word == "include") {
        include(begin + 1, end);
    } else if (word == "define") {
        macros_.define(begin + 1, end);
    } else if (word == "undef") {
        if (end - begin != 2 || begin[1].kind != TokenKind::Identifier) {
            throw CompileError(begin->at, "#undef takes the name of one macro");
        }
        macros_.undefine(begin[1]);
    } else if (word == "error") {
        std::string text;
        for (const Token* token = begin + 1; token != end; ++token) {
            text += (text.empty() ? "" : " ") + std::string(token->text);
        }
        throw CompileError(begin->at, "#error " + text.substr(0, Limits::textBytes));
    } else if (word == "pragma") {
        if (end - begin == 2 && begin[1].is("once")) {
            files_[includeStack_.back()].once = true;
        } else {
            problems_.warn({begin->at, "this #pragma is unknown and is ignored"});
        }
    } else if (word == "line" || word == "warning") {
        // Messages have real positions; those that a generator claims are not used.
        problems_.warn({begin->at, "#" + std::string(word) + " is ignored"});
    } else {
        static constexpr std::array<std::string_view, 12> words{"include", "define", "undef",  "if",
                                                                "ifdef",   "ifndef", "elif",   "else",
                                                                "endif",   "error",  "pragma", "line"};
        if (word == "version" || word == "extension") {
            throw CompileError(hash,
                               inQuotes("#" + std::string(word)) +
                                   " is of GLSL; an effect's shaders are written in HLSL, as for Direct3D");
        }
        throw CompileError(hash, "unknown directive " + inQuotes("#" + std::string(word)) +
                                     didYouMean(word, words));
    }
}

bool Preprocessor::conditional(const Token* begin, const Token* end, std::vector<Condition>& conditions)
{
    const std::string_view word = begin->text;
    const bool reading = conditions.empty() || conditions.back().active;
    if (word == "if" || word == "ifdef" || word == "ifndef") {
        if (conditions.size() >= Limits::nesting) {
            throw CompileError(begin->at, "conditions are nested more than " +
                                              std::to_string(Limits::nesting) + " deep");
        }
        // If the condition cannot be evaluated, no branch is read.
        conditions.push_back({false, true, false, reading, begin->at});
        bool holds = false;
        if (reading && word == "if") {
            holds = evaluateCondition(begin, end);
        } else if (reading) {
            if (end - begin < 2 || begin[1].kind != TokenKind::Identifier) {
                throw CompileError(begin->at, "#" + std::string(word) + " takes the name of a macro");
            }
            holds = macros_.isDefined(begin[1].text) == (word == "ifdef");
        }
        conditions.back().active = holds;
        conditions.back().taken = holds;
        return true;
    }
    if (word != "elif" && word != "else" && word != "endif") {
        return false;
    }
    if (conditions.empty()) {
        throw CompileError(begin->at, "#" + std::string(word) + " without #if");
    }
    Condition& condition = conditions.back();
    if (word == "endif") {
        conditions.pop_back();
        return true;
    }
    if (condition.elseSeen) {
        throw CompileError(begin->at, "#" + std::string(word) + " after #else");
    }
    condition.elseSeen = word == "else";
    const bool eligible = condition.outerActive && !condition.taken;
    condition.active = eligible && (word == "else" || evaluateCondition(begin, end));
    condition.taken = condition.taken || condition.active;
    return true;
}

bool Preprocessor::evaluateCondition(const Token* begin, const Token* end)
{
    Tokens line;
    const Location at = begin->at;
    for (const Token* token = begin + 1; token != end; ++token) {
        if (!token->is("defined")) {
            line.push_back(*token);
            continue;
        }
        const bool bracket = end - token > 3 && token[1].is("(") && token[3].is(")");
        const Token* const name = bracket ? token + 2 : token + 1;
        if (end - token < 2 || name->kind != TokenKind::Identifier) {
            throw CompileError(token->at, "'defined' takes the name of a macro: defined(NAME)");
        }
        Token answer = *token;
        answer.kind = TokenKind::Number;
        answer.text = macros_.isDefined(name->text) ? "1" : "0";
        line.push_back(answer);
        token = bracket ? token + 3 : name;
    }
    Tokens expanded;
    macros_.expand(line.data(), line.data() + line.size(), expanded);
    Token stop;
    stop.at = at;
    expanded.push_back(stop);
    ConstantReader reader(expanded.data(), [](const Token&) { return ConstantValue::ofInteger(0); });
    const ConstantValue value = reader.readExpression();
    if (reader.position()->kind != TokenKind::End) {
        throw CompileError(reader.position()->at,
                           "unexpected " + inQuotes(reader.position()->text) + " in the condition");
    }
    return value.components.at(0) != 0;
}

void Preprocessor::include(const Token* begin, const Token* end)
{
    Tokens line;
    macros_.expand(begin, end, line);
    const Location at = (begin - 1)->at;
    std::string name;
    if (line.size() == 1 && line[0].kind == TokenKind::String) {
        name = line[0].text.substr(1, line[0].text.size() - 2);
    } else if (line.size() > 2 && line.front().is("<") && line.back().is(">")) {
        for (auto token = line.begin() + 1; token + 1 != line.end(); ++token) {
            name += (token->spaceBefore && !name.empty() ? " " : "") + std::string(token->text);
        }
    }
    if (name.empty() || name.size() > Limits::textBytes) {
        throw CompileError(at, "#include takes the name of a file: #include \"NAME\"");
    }
    const std::filesystem::path path = includes_.find(name, line[0], includeStack_.back());
    const std::uint32_t file = includes_.open(path, line[0].at);
    if (!files_[file].once) {
        processFile(file, line[0].at);
    }
}

void Preprocessor::expandIntoEffect(const Token* begin, const Token* end)
{
    const std::size_t before = output_.size();
    macros_.expand(begin, end, output_);
    for (std::size_t i = before; i < output_.size(); ++i) {
        tokenBytes_ += output_[i].text.size();
    }
    if (tokenBytes_ > Limits::tokenBytes) {
        throw LimitError(begin->at, "the effect is too large: its tokens take more than " +
                                        std::to_string(Limits::tokenBytes) + " bytes after preprocessing");
    }
}

} // namespace Qx::Host::Effects
