#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/effects/EffectInput.h"

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Qx::Host {

/// Compiles one effect file, every technique of it, and validates what comes out.
///
/// Any thread may call it, several at once. It reads files and touches no device. It throws nothing and
/// answers any input with an effect or with messages.
struct EffectCompilation
{
    /// Null when anything in the file failed.
    std::shared_ptr<const CompiledEffect> effect;

    /// Errors and warnings for people, one a line, "FILE:LINE:COLUMN: error: TEXT", in the author's own lines
    /// and columns (from 1), with the technique where it is known. Empty when there is nothing to say.
    std::string messages;

    /// Every file that was looked for, each once, the effect itself first, then in the order of the look-ups:
    /// as long as none of them changes, appears or goes, another compilation with the same options comes to
    /// the same.
    std::vector<EffectInput> inputs;
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
