#pragma once

#include "host/effects/EffectCompilation.h"
#include "host/effects/framework/PreprocessorOptions.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Host {

/// One of a technique's shaders for packed texels that is wanted as native code.
struct NativeWish
{
    std::string technique;
    CompiledEffect::PackedShader::Depths depths;
    bool isOwnPlace = false;      ///< the shader with PackedShader::places
    std::string target;           ///< for which code is wanted: Native::Library::target()
    std::vector<std::byte> usual; ///< uniforms of a usual frame: see Native::Shader
    std::uint32_t usualWidth = 0;
};

struct EffectCompilerOptions : PreprocessorOptions
{
    /// Also compiles a CompiledEffect::PackedShader of each pass that can have one.
    bool packed = false;

    /// Those shaders give the codes of one texel instead: four numbers of 32 bits, in the order of memory.
    /// They read texels as large as the picture's, and all uniforms from the buffer. No device draws with
    /// them.
    bool singleTexels = false;

    /// Compiles that technique alone, and of its shaders for packed texels that one alone, as with
    /// `singleTexels`.
    std::optional<NativeWish> native{};
};

/// What a compilation says while it goes on, so that one that does not end can be described.
struct CompilationReports
{
    /// The result's inputs, once all files are read, before they are compiled.
    std::function<void(const std::vector<EffectInput>&)> read;

    /// The shader that has been worked on for longest, each time that it is another: where its pass names it,
    /// the technique and the pass. Called by one thread at a time.
    std::function<void(const Diagnostic::Place&, std::string_view technique, std::string_view pass)> shader;
};

/// Compiles all techniques of one effect file and validates their shaders. After an error it looks for more:
/// in the rest of the file, in other functions and in other passes.
///
/// Thread-safe. Reads files and touches no device. Throws nothing; the result of any input is an effect or
/// messages.
EffectCompilation compileEffect(const std::filesystem::path& file, const EffectCompilerOptions& options,
                                const CompilationReports& reports = {});

} // namespace Qx::Host
