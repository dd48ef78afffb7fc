#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/effects/Diagnostic.h"

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Qx::Host {

/// Compiles one effect file, every technique of it, and validates what comes out. After an error it looks for
/// more: in the rest of the file, in other functions and in other passes.
///
/// Any thread may call it, several at once. It reads files and touches no device. It throws nothing and
/// answers any input with an effect or with messages.
struct EffectCompilation
{
    /// Null when anything in the file failed.
    std::shared_ptr<const CompiledEffect> effect;

    /// Errors and warnings, in the author's own lines and columns. An error among them means that there is no
    /// effect.
    std::vector<Diagnostic> diagnostics;

    /// The same for people, as messageText() writes them. Empty when there is nothing to say.
    std::string messages;

    /// Every file that went in, the effect itself first, as opened.
    std::vector<std::filesystem::path> files;
};

struct EffectCompilerOptions
{
    /// Name and value of macros defined before the first line.
    std::vector<std::pair<std::string, std::string>> definitions;

    /// Searched for `#include "..."` after the directory of the including file.
    std::vector<std::filesystem::path> includeDirectories;
};

EffectCompilation compileEffect(const std::filesystem::path& file, const EffectCompilerOptions& options);

} // namespace Qx::Host
