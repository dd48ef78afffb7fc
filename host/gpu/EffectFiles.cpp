#include "host/gpu/EffectFiles.h"

#include "platform/Settings.h"

namespace Qx::Host {

namespace {

void addDirectory(std::vector<std::filesystem::path>& directories,
                  const LightweightString<wchar_t>& directory)
{
    if (directory.length() > 0) {
        directories.emplace_back(toUtf8(directory));
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

void append(std::string& text, std::uint32_t c)
{
    const auto byte = [&text](std::uint32_t bits) { text += static_cast<char>(bits); };
    if (c < 0x80) {
        byte(c);
    } else if (c < 0x800) {
        byte(0xc0U | (c >> 6U));
        byte(0x80U | (c & 0x3fU));
    } else if (c < 0x10000) {
        byte(0xe0U | (c >> 12U));
        byte(0x80U | ((c >> 6U) & 0x3fU));
        byte(0x80U | (c & 0x3fU));
    } else {
        byte(0xf0U | (c >> 18U));
        byte(0x80U | ((c >> 12U) & 0x3fU));
        byte(0x80U | ((c >> 6U) & 0x3fU));
        byte(0x80U | (c & 0x3fU));
    }
}

} // namespace

std::string toUtf8(const LightweightString<wchar_t>& text)
{
    constexpr std::uint32_t replacement = 0xfffd;
    std::string result;
    for (const wchar_t* p = text.c_str(); *p != 0; ++p) {
        const auto c = static_cast<std::uint32_t>(*p);
        const bool character = c < 0x110000 && (c < 0xd800 || c > 0xdfff);
        append(result, character ? c : replacement);
    }
    return result;
}

EffectCompilation compileFile(const LightweightString<wchar_t>& path,
                              const iGPUService::Definitions& definitions)
{
    EffectCompilerOptions options;
    for (const iShaderEffect::CompilerDefinition& definition : definitions) {
        options.definitions.emplace_back(definition.name.c_str(), definition.value.c_str());
    }
    options.includeDirectories = includeDirectories();
    return compileEffect(toUtf8(path), options);
}

} // namespace Qx::Host
