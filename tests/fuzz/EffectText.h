#pragma once

#include "host/effects/framework/Preprocessor.h"
#include "tests/fuzz/Targets.h"

namespace Qx::Fuzz {

/// The effect of an input and the files that it may include, as if they were read from disk.
class EffectText
{
public:
    explicit EffectText(Input input);

    /// The tokens of the effect. Throws Host::Effects::CompileError.
    std::vector<Host::Effects::Token> preprocess();

    void checkPlace(Host::Effects::Location at) const;

    /// Checks that all messages have a place and are printable.
    void checkMessages();

    Host::Effects::Problems& problems() { return problems_; }

private:
    Host::Effects::SourceFiles files_;
    Host::Effects::Problems problems_{files_};
    Host::PreprocessorOptions options_;
};

} // namespace Qx::Fuzz
