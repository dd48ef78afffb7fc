#include "tools/qxhost/pipeline/effects/EffectFile.h"

#include "QxFxResources/Manager.h"
#include "host/core/Suggestion.h"
#include "host/gpu/GPUService.h"
#include "platform/Text.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/pipeline/device/HostText.h"
#include "tools/qxhost/pipeline/effects/EffectTextures.h"

#include <algorithm>

namespace Qx::Program {

namespace {

using FxResources::Manager;
using FxResources::ShaderEffectInfo;

/// The catalogue's record of a file.
const ShaderEffectInfo* findFile(const std::filesystem::path& file)
{
    std::error_code ignored;
    for (const ShaderEffectInfo& info : Manager::instance().effects()) {
        if (std::filesystem::equivalent(narrow(info.getFullPath()), file, ignored)) {
            return &info;
        }
    }
    return nullptr;
}

/// The catalogue's record of that name; null if there is none. A name with a directory is a path.
const ShaderEffectInfo* findRecord(const std::string& nameOrPath)
{
    if (nameOrPath.find('/') != std::string::npos) {
        return findFile(nameOrPath);
    }
    const ShaderEffectInfo& info = Manager::instance().findEffect(wide(nameOrPath));
    return info.name.empty() ? nullptr : &info;
}

[[noreturn]] void refuseName(const std::string& name)
{
    std::vector<std::string> known;
    for (const ShaderEffectInfo& info : Manager::instance().effects()) {
        known.push_back(narrow(info.name));
    }
    throw Failure(ExitCode::effect,
                  name + ": there is neither an effect nor a file of this name" +
                      Host::didYouMean(name, known) + "; " +
                      (known.empty() ? "no effects are installed where the setting shaders_dir points"
                                     : "the effects are " + listed(known)));
}

bool isFile(const std::filesystem::path& path)
{
    std::error_code ignored;
    return std::filesystem::is_regular_file(path, ignored);
}

} // namespace

bool isCatalogued(const std::string& nameOrPath)
{
    return findRecord(nameOrPath) != nullptr;
}

Qx::Ptr<iShaderEffect> catalogued(const std::string& nameOrPath)
{
    const ShaderEffectInfo* info = findRecord(nameOrPath);
    return info != nullptr ? info->getShader() : Qx::Ptr<iShaderEffect>();
}

std::filesystem::path effectPath(const std::string& nameOrPath)
{
    if (const ShaderEffectInfo* info = findRecord(nameOrPath)) {
        return narrow(info->getFullPath());
    }
    return nameOrPath;
}

Qx::Ptr<iShaderEffect> compileEffectFile(const std::filesystem::path& file)
{
    const EffectCompileResult result = Manager::instance().compileFXFile(wide(file.string()));
    if (!result.effect) {
        std::string errors(result.errors.view());
        throw Failure(ExitCode::effect, file.string() + ": does not compile", errors);
    }
    return result.effect;
}

std::vector<TechniqueUse> techniqueUses(const iShaderEffect& effect, const std::filesystem::path& effectFile)
{
    std::vector<TechniqueUse> uses;
    if (const Host::CompiledEffect* compiled = Host::compiledEffect(effect)) {
        for (const Host::CompiledEffect::Technique& technique : compiled->techniques) {
            uses.push_back({technique.name, neededBy(*compiled, technique, effectFile)});
        }
    }
    return uses;
}

Qx::Ptr<iShaderEffect> obtainEffect(const std::string& nameOrPath)
{
    if (const ShaderEffectInfo* info = findRecord(nameOrPath)) {
        if (Qx::Ptr<iShaderEffect> effect = info->getShader()) {
            return effect;
        }
        return compileEffectFile(effectPath(nameOrPath)); // for its messages
    }
    std::error_code ignored;
    if (std::filesystem::exists(nameOrPath, ignored) && !isFile(nameOrPath)) {
        throw Failure(ExitCode::effect, nameOrPath + ": is not a file; name the effect file itself");
    }
    if (!isFile(nameOrPath)) {
        refuseName(nameOrPath);
    }
    return compileEffectFile(nameOrPath);
}

} // namespace Qx::Program
