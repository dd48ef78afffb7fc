#pragma once

#include "host/effects/framework/IncludeFiles.h"
#include "host/effects/framework/Macros.h"
#include "host/effects/framework/PreprocessorOptions.h"
#include "host/effects/framework/Problems.h"

#include <string>
#include <vector>

namespace Qx::Host::Effects {

/// The C preprocessor for an effect and its includes. One object serves one compilation.
class Preprocessor
{
public:
    /// All live longer than this object.
    Preprocessor(SourceFiles& files, const PreprocessorOptions& options, Problems& problems);
    Preprocessor(const Preprocessor&) = delete;
    Preprocessor& operator=(const Preprocessor&) = delete;

    /// Returns the tokens of the effect, followed by an End token. After an error it continues with the next
    /// line to find more errors; the tokens then mean nothing. Throws CompileError if it cannot continue.
    std::vector<Token> run(const std::filesystem::path& effect);

private:
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
    void processFile(std::uint32_t file, Location end);
    void processLines(const Tokens& tokens, std::vector<Condition>& conditions);
    template <typename Step>
    void tolerate(const Step& step);
    void directive(const Token* begin, const Token* end, Location hash, std::vector<Condition>& conditions);
    bool conditional(const Token* begin, const Token* end, std::vector<Condition>& conditions);
    void include(const Token* begin, const Token* end);
    bool evaluateCondition(const Token* begin, const Token* end);

    void expandIntoEffect(const Token* begin, const Token* end);

    SourceFiles& files_;
    const PreprocessorOptions& options_;
    Problems& problems_;
    IncludeFiles includes_;
    Macros macros_;
    Tokens output_;
    std::vector<std::uint32_t> includeStack_;
    std::size_t inclusions_ = 0;
    std::size_t tokenBytes_ = 0;
    std::size_t readBytes_ = 0;
    std::size_t readTokens_ = 0;
};

} // namespace Qx::Host::Effects
