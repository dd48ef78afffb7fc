#include "host/gpu/EffectFiles.h"

#include "host/core/EffectIncludes.h"
#include "platform/Text.h"

namespace Qx::Host {

EffectCompilation compileFile(const LightweightString<wchar_t>& path,
                              const iGPUService::Definitions& definitions, const EffectCache* cache)
{
    EffectCompilerOptions options;
    for (const iShaderEffect::CompilerDefinition& definition : definitions) {
        options.definitions.emplace_back(definition.name.c_str(), definition.value.c_str());
    }
    options.includeDirectories = effectIncludeDirectories();
    const std::filesystem::path file = toUTF8(path).c_str();
    if (cache != nullptr) {
        if (std::optional<EffectCompilation> known = cache->find(file, options)) {
            return *std::move(known);
        }
    }
    EffectCompilation compilation = compileEffect(file, options);
    if (cache != nullptr) {
        cache->keep(file, options, compilation);
    }
    return compilation;
}

} // namespace Qx::Host
