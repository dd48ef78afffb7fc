#include "host/gpu/EffectFiles.h"

#include "platform/Settings.h"
#include "platform/Text.h"

namespace Qx::Host {

namespace {

void addDirectory(std::vector<std::filesystem::path>& directories,
                  const LightweightString<wchar_t>& directory)
{
    if (directory.length() > 0) {
        directories.emplace_back(toUTF8(directory).c_str());
    }
}

std::vector<std::filesystem::path> includeDirectories()
{
    std::vector<std::filesystem::path> directories;
    addDirectory(directories, getShadersDir());
    if (!directories.empty()) {
        directories.push_back(directories.front() / "Include");
    }
    addDirectory(directories, getFXTemplatesDirectory(iSettings::User));
    addDirectory(directories, getFXTemplatesDirectory(iSettings::Machine));
    return directories;
}

} // namespace

EffectCompilation compileFile(const LightweightString<wchar_t>& path,
                              const iGPUService::Definitions& definitions)
{
    EffectCompilerOptions options;
    for (const iShaderEffect::CompilerDefinition& definition : definitions) {
        options.definitions.emplace_back(definition.name.c_str(), definition.value.c_str());
    }
    options.includeDirectories = includeDirectories();
    return compileEffect(toUTF8(path).c_str(), options);
}

} // namespace Qx::Host
