#include "host/gpu/EffectFiles.h"

#include "host/core/EffectIncludes.h"
#include "platform/Text.h"

namespace Qx::Host {

EffectCompilation compileFile(const LightweightString<wchar_t>& path,
                              const iGPUService::Definitions& definitions)
{
    EffectCompilerOptions options;
    for (const iShaderEffect::CompilerDefinition& definition : definitions) {
        options.definitions.emplace_back(definition.name.c_str(), definition.value.c_str());
    }
    options.includeDirectories = effectIncludeDirectories();
    return compileEffect(toUTF8(path).c_str(), options);
}

} // namespace Qx::Host
