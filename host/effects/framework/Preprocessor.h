#pragma once

#include "host/effects/framework/Lexer.h"
#include "host/effects/framework/PreprocessorOptions.h"
#include "host/effects/framework/Problems.h"

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace Qx::Host::Effects {

/// Limits of one compilation. An effect that exceeds one is refused with a message.
struct Limits
{
    static constexpr std::size_t fileBytes = 4U << 20U;
    static constexpr std::size_t tokens = 1U << 20U; ///< of one file, and of the effect after preprocessing
    static constexpr std::size_t tokenBytes = 16U << 20U; ///< of the tokens of the effect after preprocessing
    static constexpr std::size_t readBytes = 64U << 20U;  ///< of all inclusions together
    static constexpr std::size_t readTokens = 4U << 20U;  ///< of all inclusions together
    static constexpr std::size_t steps = 8U << 20U; ///< of preprocessing, including those without a result
    static constexpr std::size_t inclusions = 4096;
    static constexpr std::size_t includeDepth = 32;
    static constexpr std::size_t macroDepth = 64; ///< of macro calls within macro arguments
    static constexpr std::size_t macroParameters = 256;
    static constexpr std::size_t nesting = 128;    ///< of brackets, and of expressions
    static constexpr std::size_t textBytes = 4096; ///< of a name or a string
    static constexpr std::size_t techniques = 4096;
    static constexpr std::size_t passes = 4096;        ///< of all techniques together
    static constexpr std::size_t declarations = 16384; ///< of functions, types, constants, textures, samplers
    static constexpr std::size_t functionParameters = 256;
    static constexpr std::size_t uniformBytes = 16384; ///< the least maximum of a Vulkan device
};

/// The C preprocessor for an effect and its includes. One object serves one compilation.
class Preprocessor
{
public:
    /// All live longer than this object.
    Preprocessor(SourceFiles& files, const PreprocessorOptions& options, Problems& problems);
    ~Preprocessor();
    Preprocessor(const Preprocessor&) = delete;
    Preprocessor& operator=(const Preprocessor&) = delete;

    /// Returns the tokens of the effect, followed by an End token. After an error it continues with the next
    /// line to find more errors; the tokens then mean nothing. Throws CompileError if it cannot continue.
    std::vector<Token> run(const std::filesystem::path& effect);

private:
    struct Macro;
    struct Context;
    using Tokens = std::vector<Token>;
    struct Condition
    {
        bool active; ///< this branch is read
        bool taken;  ///< a branch has been read
        bool elseSeen;
        bool outerActive; ///< the region around it is read
        Location at;
    };

    void defineFromOptions();
    std::uint32_t open(const std::filesystem::path& path, Location from);
    void processFile(std::uint32_t file, Location end);
    void processLines(const Tokens& tokens, std::vector<Condition>& conditions);
    template <typename Step>
    void tolerate(const Step& step);
    void directive(const Token* begin, const Token* end, Location hash, std::vector<Condition>& conditions);
    bool conditional(const Token* begin, const Token* end, std::vector<Condition>& conditions);
    void include(const Token* begin, const Token* end);
    bool mayInclude(const std::filesystem::path& file) const;
    std::filesystem::path findInclude(const std::string& name, const Token& at) const;
    std::vector<std::filesystem::path> searchedDirectories() const;
    void define(const Token* begin, const Token* end);
    const Token* readMacroParameters(Macro& macro, const Token* token, const Token* end) const;
    bool isDefined(std::string_view name) const;
    bool evaluateCondition(const Token* begin, const Token* end);

    void expand(const Token* begin, const Token* end, Tokens& output, std::size_t depth);
    void expandIntoEffect(const Token* begin, const Token* end);
    Token builtIn(Token name);
    bool expandMacro(std::vector<Context>& contexts, const Token& name, std::size_t depth);
    std::vector<Tokens> readArguments(std::vector<Context>& contexts, const Token& name, const Macro& macro);
    Tokens substitute(const Macro& macro, const Token& name, const std::vector<Tokens>& arguments,
                      std::size_t depth);
    Token stringized(const Tokens& argument, Location at);
    Token pasted(const Token& left, const Token& right);
    void countStep(const Token& token);

    SourceFiles& files_;
    const PreprocessorOptions& options_;
    std::unordered_map<std::string_view, std::unique_ptr<Macro>> macros_;
    std::vector<std::unique_ptr<Macro>> retired_; ///< undefined macros that an expansion may still use
    Problems& problems_;
    Tokens output_;
    std::vector<std::uint32_t> includeStack_;
    std::size_t inclusions_ = 0;
    std::size_t tokenBytes_ = 0;
    std::size_t readBytes_ = 0;
    std::size_t readTokens_ = 0;
    std::size_t steps_ = 0;
};

} // namespace Qx::Host::Effects
