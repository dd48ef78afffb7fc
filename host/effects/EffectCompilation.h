#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/effects/framework/Diagnostic.h"
#include "host/effects/framework/EffectInput.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Qx::Host {

/// What came of compiling an effect file.
struct EffectCompilation
{
    /// Null when anything in the file failed.
    std::shared_ptr<const CompiledEffect> effect;

    /// Errors and warnings, in the author's own lines and columns. An error among them means that there is no
    /// effect.
    std::vector<Diagnostic> diagnostics;

    /// The same for people, as messageText() writes them. Empty when there is nothing to say.
    std::string messages;

    /// Every file that was looked for, each once, the effect itself first, then in the order of the look-ups:
    /// as long as none of them changes, appears or goes, another compilation with the same options comes to
    /// the same.
    std::vector<EffectInput> inputs;
};

/// Takes the effect away and adds an error about the whole file, or about a technique and pass of it.
void refuse(EffectCompilation& compilation, const std::filesystem::path& file, const std::string& text,
            const std::string& technique = {}, const std::string& pass = {});

} // namespace Qx::Host
