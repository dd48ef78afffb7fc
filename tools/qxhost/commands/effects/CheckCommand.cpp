#include "QxFxResources/Manager.h"
#include "host/core/Printable.h"
#include "host/effects/EffectCompilation.h"
#include "host/gpu/GPUService.h"
#include "platform/Text.h"
#include "tools/qxhost/commands/Commands.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/pipeline/HostSession.h"
#include "tools/qxhost/pipeline/effects/EffectData.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"

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
    std::filesystem::path file; ///< what was compiled
    ExitCode code = ExitCode::ok;
    std::string messages;
    std::size_t techniques = 0;
    std::vector<Host::Diagnostic> diagnostics{};
};

CheckResult missing(const std::filesystem::path& file, const char* why)
{
    return {file, ExitCode::input, file.string() + ": " + why + "\n", 0};
}

CheckResult compile(const std::filesystem::path& file)
{
    const LightweightString<char> path(std::string_view(file.native()));
    const EffectCompileResult result = Manager::instance().compileFXFile(fromUTF8(path));
    std::string messages(result.errors.view());
    if (!messages.empty() && !messages.ends_with('\n')) {
        messages += '\n';
    }
    return {file, result.effect ? ExitCode::ok : ExitCode::failed, messages,
            result.effect ? result.effect->getTechniqueNames().size() : 0};
}

/// Checks a file; a name that is no file may be one of the catalogue. `asData`: with its diagnostics, which
/// the library gives as text alone.
CheckResult check(const std::filesystem::path& named, bool asData)
{
    std::error_code error;
    const std::filesystem::path file =
        std::filesystem::exists(named, error) ? named : effectPath(named.string());
    if (!std::filesystem::exists(file, error)) {
        return missing(file, "there is neither a file nor an effect of this name");
    }
    if (!std::filesystem::is_regular_file(file, error)) {
        return missing(file, "is no file; name the effect file itself");
    }
    if (!asData) {
        return compile(file);
    }
    const LightweightString<char> path(std::string_view(file.native()));
    Host::EffectCompilation examined =
        Host::gpuService().examineEffectFile(fromUTF8(path), Manager::instance().definitions());
    // What did not compile need not do so twice; what did is kept, and has the host's own device to pass.
    CheckResult result = examined.effect != nullptr
                             ? compile(file)
                             : CheckResult{file, ExitCode::failed, std::move(examined.messages)};
    result.diagnostics = std::move(examined.diagnostics);
    return result;
}

std::string verdict(const CheckResult& result)
{
    const std::string file = Host::printable(result.file.string());
    if (result.code == ExitCode::failed) {
        return file + ": has errors\n";
    }
    return fmt::format("{}: ok, {} technique{}\n", file, result.techniques,
                       result.techniques == 1 ? "" : "s");
}

/// Shows a result at once; what could not be checked is no data.
void show(const CheckResult& result, Console& console)
{
    if (result.code == ExitCode::input) {
        console.error(std::string_view(result.messages).substr(0, result.messages.size() - 1));
    } else {
        console.data(result.messages + verdict(result));
    }
}

Json describe(const CheckResult& result)
{
    return {{"file", result.file.string()},
            {"ok", result.code == ExitCode::ok},
            {"techniques", result.techniques},
            {"messages", result.messages},
            {"diagnostics", diagnosticsData(result.diagnostics)}};
}

} // namespace

ExitCode runEffectsList(const EffectsListOptions& options, Console& console)
{
    const HostSession host(options.device, &console);
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
    const HostSession host(options.device, &console);
    Json report = Json::array();
    ExitCode worst = ExitCode::ok;
    for (const std::filesystem::path& file : options.files) {
        const CheckResult result = check(file, options.json);
        worst = std::max(worst, result.code);
        report.push_back(describe(result));
        if (!options.json || result.code == ExitCode::input) {
            show(result, console);
        }
    }
    if (options.json) {
        console.data(jsonText(report));
    }
    return worst;
}

} // namespace Qx::Program
