#pragma once

#include "Qx/Ptr.h"
#include "platform/ShaderEffect.h"

#include <filesystem>
#include <string>

namespace Qx::Program {

// Effects as a user names them: by their name in the catalogue, or by a path, which may be one of the
// catalogue's too.

bool isCatalogued(const std::string& nameOrPath);

/// The catalogue's effect; empty when there is none or it never compiled.
Qx::Ptr<iShaderEffect> catalogued(const std::string& nameOrPath);

/// The compiled effect. Throws Failure (effect): there is no such effect, with what there is; or it does not
/// compile, with the compiler's messages.
Qx::Ptr<iShaderEffect> obtainEffect(const std::string& nameOrPath);

/// A new compilation of a file. Throws Failure (effect).
Qx::Ptr<iShaderEffect> compileEffectFile(const std::filesystem::path& file);

/// The file that the name stands for.
std::filesystem::path effectPath(const std::string& nameOrPath);

} // namespace Qx::Program
