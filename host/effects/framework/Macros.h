#pragma once

#include "host/effects/framework/Lexer.h"
#include "host/effects/framework/Problems.h"

#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Qx::Host::Effects {

/// The macros of one compilation and their expansion. Counts the steps of preprocessing, which are limited.
class Macros
{
public:
    using Tokens = std::vector<Token>;

    /// Both live longer than this object.
    Macros(SourceFiles& files, Problems& problems);
    ~Macros();
    Macros(const Macros&) = delete;
    Macros& operator=(const Macros&) = delete;

    /// Defines a macro by the tokens after #define, which is the token before `begin`. Warns if that changes
    /// an earlier definition. Throws CompileError.
    void define(const Token* begin, const Token* end);

    /// Removes the macro of that name, if there is one. Throws CompileError for a name that is reserved.
    void undefine(const Token& name);

    bool isDefined(std::string_view name) const;

    /// Appends the tokens, with their macros expanded. Throws CompileError; abandonExpansions() has to follow
    /// then.
    void expand(const Token* begin, const Token* end, Tokens& output);
    void abandonExpansions();

    /// Counts one step at the token. Throws LimitError.
    void countStep(const Token& token);

private:
    struct Macro;
    struct Context;

    const Token* readParameters(Macro& macro, const Token* token, const Token* end) const;
    void expand(const Token* begin, const Token* end, Tokens& output, std::size_t depth);
    Token builtIn(Token name);
    bool expandMacro(std::vector<Context>& contexts, const Token& name, std::size_t depth);
    std::vector<Tokens> readArguments(std::vector<Context>& contexts, const Token& name, const Macro& macro);
    Tokens substitute(const Macro& macro, const Token& name, const std::vector<Tokens>& arguments,
                      std::size_t depth);
    Token stringized(const Tokens& argument, Location at);
    Token pasted(const Token& left, const Token& right);

    SourceFiles& files_;
    Problems& problems_;
    std::unordered_map<std::string_view, std::unique_ptr<Macro>> macros_;
    std::vector<std::unique_ptr<Macro>> retired_; ///< undefined macros that an expansion may still use
    std::size_t steps_ = 0;
};

} // namespace Qx::Host::Effects
