#pragma once

#include "Qx/Ptr.h"
#include "platform/ShaderEffect.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Program {

// Effects as a user names them: by their name in the catalogue, or by a path, which may be one of the
// catalogue's too.

bool isCatalogued(const std::string& nameOrPath);

/// The catalogue's effect; empty if there is none or it never compiled.
Qx::Ptr<iShaderEffect> catalogued(const std::string& nameOrPath);

/// The compiled effect. Throws Failure (effect) if there is no such effect, with a list of those there are,
/// or if it does not compile, with the compiler's messages.
Qx::Ptr<iShaderEffect> obtainEffect(const std::string& nameOrPath);

/// Compiles a file anew. Throws Failure (effect).
Qx::Ptr<iShaderEffect> compileEffectFile(const std::filesystem::path& file);

/// The file that the name stands for.
std::filesystem::path effectPath(const std::string& nameOrPath);

/// A technique, and the options without which `convert` cannot draw it.
struct TechniqueUse
{
    std::string name;
    std::vector<std::string> needs; ///< "--texture To=FILE"; empty if it is drawn as it is
};

/// The techniques of the effect, in its order.
std::vector<TechniqueUse> techniqueUses(const iShaderEffect& effect, const std::filesystem::path& effectFile);

} // namespace Qx::Program
