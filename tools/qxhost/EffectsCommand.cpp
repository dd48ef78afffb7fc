#include "QxFxResources/Manager.h"
#include "platform/Text.h"
#include "tools/qxhost/Commands.h"
#include "tools/qxhost/Failure.h"
#include "tools/qxhost/HostSession.h"
#include "tools/qxhost/Json.h"

#include <algorithm>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

using FxResources::Manager;
using FxResources::ShaderEffectInfo;

std::string narrow(const LightweightString<wchar_t>& text)
{
    return std::string(toUTF8(text).view());
}

/// One effect of the catalogue, compiled now.
Json describe(const ShaderEffectInfo& info)
{
    const Qx::Ptr<iShaderEffect> effect = info.getShader();
    Json techniques = Json::array();
    if (effect) {
        for (const LightweightString<char>& name : effect->getTechniqueNames()) {
            techniques.push_back(std::string(name.view()));
        }
    }
    return {{"name", narrow(info.name)},
            {"directory", narrow(info.directory)},
            {"compiled", static_cast<bool>(effect)},
            {"techniques", techniques}};
}

std::string table(const Json& effects)
{
    std::size_t widest = 4;
    for (const Json& effect : effects) {
        widest = std::max(widest, effect["name"].get<std::string>().size());
    }
    std::string text =
        fmt::format("{:<{}}  {:<10}  {:<8}  {}\n", "NAME", widest, "TECHNIQUES", "STATE", "DIRECTORY");
    for (const Json& effect : effects) {
        const bool compiled = effect["compiled"].get<bool>();
        text += fmt::format("{:<{}}  {:<10}  {:<8}  {}\n", effect["name"].get<std::string>(), widest,
                            compiled ? std::to_string(effect["techniques"].size()) : "-",
                            compiled ? "ready" : "broken", effect["directory"].get<std::string>());
    }
    return text;
}

struct CheckResult
{
    bool ok;
    std::string messages;
    std::size_t techniques;
};

CheckResult check(const std::filesystem::path& file)
{
    const LightweightString<char> path(std::string_view(file.native()));
    const EffectCompileResult result = Manager::instance().compileFXFile(fromUTF8(path));
    std::string messages(result.errors.view());
    if (!messages.empty() && !messages.ends_with('\n')) {
        messages += '\n';
    }
    return {static_cast<bool>(result.effect), messages,
            result.effect ? result.effect->getTechniqueNames().size() : 0};
}

void requireReadable(const std::vector<std::filesystem::path>& files)
{
    for (const std::filesystem::path& file : files) {
        std::error_code error;
        if (!std::filesystem::exists(file, error)) {
            throw Failure(ExitCode::input, file.string() + ": there is no such file");
        }
        if (!std::filesystem::is_regular_file(file, error)) {
            throw Failure(ExitCode::input, file.string() + ": is no file; name the effect file itself");
        }
    }
}

} // namespace

ExitCode runEffectsList(const EffectsListOptions& options, Console& console)
{
    const HostSession host(options.device);
    Json effects = Json::array();
    for (const ShaderEffectInfo& info : Manager::instance().effects()) {
        effects.push_back(describe(info));
    }
    console.data(options.json ? jsonText(effects) : table(effects));
    const bool broken = std::any_of(effects.begin(), effects.end(),
                                    [](const Json& effect) { return !effect["compiled"].get<bool>(); });
    if (broken) {
        console.note("'qxhost effects check FILE' says what is wrong with a broken effect");
    }
    return ExitCode::ok;
}

ExitCode runEffectsCheck(const EffectsCheckOptions& options, Console& console)
{
    requireReadable(options.files);
    const HostSession host(options.device);
    Json report = Json::array();
    bool allGood = true;
    for (const std::filesystem::path& file : options.files) {
        const CheckResult result = check(file);
        allGood = allGood && result.ok;
        report.push_back({{"file", file.string()},
                          {"ok", result.ok},
                          {"techniques", result.techniques},
                          {"messages", result.messages}});
        if (!options.json) {
            const std::string verdict = result.ok ? fmt::format("ok, {} technique{}", result.techniques,
                                                                result.techniques == 1 ? "" : "s")
                                                  : std::string("has errors");
            console.data(result.messages + file.string() + ": " + verdict + "\n");
        }
    }
    if (options.json) {
        console.data(jsonText(report));
    }
    return allGood ? ExitCode::ok : ExitCode::failed;
}

} // namespace Qx::Program
