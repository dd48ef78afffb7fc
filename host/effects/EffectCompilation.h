#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/effects/framework/Diagnostic.h"
#include "host/effects/framework/EffectInput.h"
#include "platform/Api.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Qx::Host {

/// The result of compiling an effect file.
struct EffectCompilation
{
    /// Null after an error.
    std::shared_ptr<const CompiledEffect> effect;

    /// Errors and warnings, in the author's own lines and columns. There is no effect if one is an error.
    std::vector<Diagnostic> diagnostics;

    /// The diagnostics as text, as messageText() writes them.
    std::string messages;

    /// Every file that was looked for, each once: the effect itself, then the others in the order of the
    /// look-ups. As long as none of them changes, appears or disappears, another compilation with the same
    /// options has the same result.
    std::vector<EffectInput> inputs;
};

/// Removes the effect and adds an error about a place or the whole file, or about a technique and pass of it.
QX_LOCAL void refuse(EffectCompilation& compilation, const Diagnostic::Place& at, const std::string& text,
                     const std::string& technique = {}, const std::string& pass = {});

} // namespace Qx::Host
