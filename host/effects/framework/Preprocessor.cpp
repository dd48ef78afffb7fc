#include "host/effects/framework/Preprocessor.h"

#include "host/core/Suggestion.h"
#include "host/effects/framework/ConstantExpression.h"
#include "host/effects/framework/FileKind.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <optional>
#include <system_error>

namespace Qx::Host::Effects {

namespace {

/// Adds the names to suggest for a missing file.
void addFilesOf(const std::filesystem::path& directory, std::vector<std::string>& names)
{
    constexpr int most = 1000; // of a directory
    std::error_code error;
    std::filesystem::directory_iterator entry(directory.empty() ? "." : directory, error);
    for (int i = 0; i < most && !error && entry != std::filesystem::directory_iterator(); ++i) {
        if (entry->is_regular_file(error)) {
            names.push_back(entry->path().filename().string());
        }
        entry.increment(error);
    }
    std::sort(names.begin(), names.end()); // directories have no defined order
}

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

struct Preprocessor::Macro
{
    std::string_view name;
    Tokens body;
    std::vector<std::string_view> parameters;
    bool functionLike = false;
    bool active = false; ///< being expanded: its name is not expanded then
    Location at;
};

struct Preprocessor::Context
{
    Tokens owned;
    const Token* position = nullptr;
    const Token* end = nullptr;
    Macro* macro = nullptr;
};

Preprocessor::Preprocessor(SourceFiles& files, const PreprocessorOptions& options, Problems& problems)
    : files_(files), options_(options), problems_(problems)
{
}

Preprocessor::~Preprocessor() = default;

std::vector<Token> Preprocessor::run(const std::filesystem::path& effect)
{
    const std::uint32_t file = open(effect, {});
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
        define(tokens.data(), tokens.data() + tokens.size());
    }
}

std::uint32_t Preprocessor::open(const std::filesystem::path& path, Location from)
{
    if (const auto known = files_.find(path)) {
        return *known;
    }
    std::error_code error;
    // Devices and pipes never end; only regular files are read.
    const bool regular = std::filesystem::is_regular_file(path, error);
    const std::uintmax_t bytes = regular ? std::filesystem::file_size(path, error) : 0;
    const std::uint32_t file = files_.add({path, path.string(), {}, false, from});
    if (from.line == 0) {
        from.file = file;
    }
    if (!regular || error) {
        files_.noteInput(path, std::nullopt);
        throw CompileError(from, "cannot read " + inQuotes(path.string()) +
                                     (error ? ": " + error.message() : ": it is not a regular file"));
    }
    if (bytes > Limits::fileBytes) {
        throw CompileError(from, inQuotes(path.string()) + " has " + std::to_string(bytes) +
                                     " bytes; an effect file has " + std::to_string(Limits::fileBytes) +
                                     " at most");
    }
    std::string text(static_cast<std::size_t>(bytes), '\0');
    std::ifstream stream(path, std::ios::binary);
    stream.read(text.data(), static_cast<std::streamsize>(bytes));
    files_.noteInput(path, stream ? std::optional(Cache::digestOf(text)) : std::nullopt);
    if (!stream) {
        throw CompileError(from, "cannot read " + inQuotes(path.string()) + " to its end");
    }
    if (const std::string why = whyNoEffect(text); !why.empty()) {
        throw CompileError({file, 0, 0, 0}, why);
    }
    files_[file].text = files_.keep(std::move(text));
    return file;
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
        for (const auto& [name, macro] : macros_) {
            macro->active = false; // an expansion may have been abandoned
        }
    }
}

void Preprocessor::processLines(const Tokens& tokens, std::vector<Condition>& conditions)
{
    const Token* const end = tokens.data() + tokens.size();
    const auto isDirective = [](const Token& token) { return token.startsLine && token.is("#"); };
    for (const Token* token = tokens.data(); token != end;) {
        countStep(*token);
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
        define(begin + 1, end);
    } else if (word == "undef") {
        if (end - begin != 2 || begin[1].kind != TokenKind::Identifier) {
            throw CompileError(begin->at, "#undef takes the name of one macro");
        }
        checkMacroName(begin[1]);
        if (const auto found = macros_.find(begin[1].text); found != macros_.end()) {
            retired_.push_back(std::move(found->second));
            macros_.erase(found);
        }
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
            holds = isDefined(begin[1].text) == (word == "ifdef");
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

bool Preprocessor::isDefined(std::string_view name) const
{
    return isBuiltIn(name) || macros_.count(name) != 0;
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
        answer.text = isDefined(name->text) ? "1" : "0";
        line.push_back(answer);
        token = bracket ? token + 3 : name;
    }
    Tokens expanded;
    expand(line.data(), line.data() + line.size(), expanded, 0);
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
    expand(begin, end, line, 0);
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
    const std::filesystem::path path = findInclude(name, line[0]);
    const std::uint32_t file = open(path, line[0].at);
    if (!files_[file].once) {
        processFile(file, line[0].at);
    }
}

// Messages quote the text that they are about; an effect must not reveal files that are not effects.
bool Preprocessor::mayInclude(const std::filesystem::path& file) const
{
    const auto holds = [&](const std::filesystem::path& directory) {
        std::error_code error;
        const auto inside =
            std::filesystem::absolute(file, error)
                .lexically_relative(
                    std::filesystem::absolute(directory.empty() ? "." : directory, error).lexically_normal());
        return !error && !inside.empty() && *inside.begin() != "..";
    };
    return holds(files_[includeStack_.front()].path.parent_path()) ||
           std::any_of(options_.includeDirectories.begin(), options_.includeDirectories.end(), holds);
}

/// The directory of the including file comes first; each is listed once.
std::vector<std::filesystem::path> Preprocessor::searchedDirectories() const
{
    std::vector<std::filesystem::path> directories{files_[includeStack_.back()].path.parent_path()};
    for (const std::filesystem::path& directory : options_.includeDirectories) {
        if (std::find(directories.begin(), directories.end(), directory) == directories.end()) {
            directories.push_back(directory);
        }
    }
    return directories;
}

std::filesystem::path Preprocessor::findInclude(const std::string& name, const Token& at) const
{
    std::string searched;
    std::vector<std::string> neighbours;
    bool refused = false;
    for (const std::filesystem::path& directory : searchedDirectories()) {
        std::filesystem::path candidate = (directory / name).lexically_normal();
        std::error_code error;
        searched += (searched.empty() ? "" : ", ") + (directory.empty() ? "." : directory.string());
        if (!mayInclude(candidate)) {
            refused = true;
            files_.noteInput(candidate, std::nullopt); // with other directories it might be included
            continue;
        }
        if (files_.find(candidate) || std::filesystem::is_regular_file(candidate, error)) {
            return candidate;
        }
        files_.noteInput(candidate, std::nullopt);
        addFilesOf(candidate.parent_path(), neighbours);
    }
    if (refused) {
        throw CompileError(at.at,
                           "the include file " + inQuotes(name) +
                               " lies outside the directories of effects; an effect includes what lies "
                               "in or below " +
                               searched);
    }
    throw CompileError(at.at, "cannot find the include file " + inQuotes(name) +
                                  didYouMean(std::filesystem::path(name).filename().string(), neighbours) +
                                  "; searched in " + searched);
}

void Preprocessor::define(const Token* begin, const Token* end)
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
        body = readMacroParameters(*macro, body + 1, end);
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

const Token* Preprocessor::readMacroParameters(Macro& macro, const Token* token, const Token* end) const
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

void Preprocessor::countStep(const Token& token)
{
    constexpr std::size_t bytes = 16; // of a token count as one more step
    steps_ += 1 + token.text.size() / bytes;
    if (steps_ > Limits::steps) {
        throw LimitError(token.at, "the effect is too large: preprocessing took more than " +
                                       std::to_string(Limits::steps) + " steps");
    }
}

void Preprocessor::expand(const Token* begin, const Token* end, Tokens& output, std::size_t depth)
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

void Preprocessor::expandIntoEffect(const Token* begin, const Token* end)
{
    const std::size_t before = output_.size();
    expand(begin, end, output_, 0);
    for (std::size_t i = before; i < output_.size(); ++i) {
        tokenBytes_ += output_[i].text.size();
    }
    if (tokenBytes_ > Limits::tokenBytes) {
        throw LimitError(begin->at, "the effect is too large: its tokens take more than " +
                                        std::to_string(Limits::tokenBytes) + " bytes after preprocessing");
    }
}

Token Preprocessor::builtIn(Token name)
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

bool Preprocessor::expandMacro(std::vector<Context>& contexts, const Token& name, std::size_t depth)
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

std::vector<std::vector<Token>> Preprocessor::readArguments(std::vector<Context>& contexts, const Token& name,
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

std::vector<Token> Preprocessor::substitute(const Macro& macro, const Token& name,
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

Token Preprocessor::stringized(const Tokens& argument, Location at)
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

Token Preprocessor::pasted(const Token& left, const Token& right)
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
