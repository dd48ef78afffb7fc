#pragma once

#include "host/effects/EffectCompilation.h"

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Qx::Host {

struct EffectCompilerOptions
{
    /// Name and value of macros defined before the first line.
    std::vector<std::pair<std::string, std::string>> definitions;

    /// Searched for `#include "..."` after the directory of the including file.
    std::vector<std::filesystem::path> includeDirectories;

    /// Makes CompiledEffect::PackedShader of the passes that can have them.
    bool packed = false;
};

/// Compiles one effect file, every technique of it, and validates what comes out. After an error it looks for
/// more: in the rest of the file, in other functions and in other passes.
///
/// Any thread may call it, several at once. It reads files and touches no device. It throws nothing and
/// answers any input with an effect or with messages. `whenRead` is told the result's inputs when they are
/// complete, before what is in them is compiled.
EffectCompilation compileEffect(const std::filesystem::path& file, const EffectCompilerOptions& options,
                                const std::function<void(const std::vector<EffectInput>&)>& whenRead = {});

} // namespace Qx::Host
