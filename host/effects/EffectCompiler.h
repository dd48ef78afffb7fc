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

/// Compiles all techniques of one effect file and validates their shaders. After an error it looks for more:
/// in the rest of the file, in other functions and in other passes.
///
/// Thread-safe. Reads files and touches no device. Throws nothing; the result of any input is an effect or
/// messages. `whenRead` is called with the result's inputs once all files are read, before they are compiled.
EffectCompilation compileEffect(const std::filesystem::path& file, const EffectCompilerOptions& options,
                                const std::function<void(const std::vector<EffectInput>&)>& whenRead = {});

} // namespace Qx::Host
