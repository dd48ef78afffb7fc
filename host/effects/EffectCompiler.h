#pragma once

#include "host/effects/EffectCompilation.h"
#include "host/effects/framework/PreprocessorOptions.h"

#include <filesystem>
#include <functional>
#include <vector>

namespace Qx::Host {

struct EffectCompilerOptions : PreprocessorOptions
{
    /// Also compiles a CompiledEffect::PackedShader of each pass that can have one.
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
