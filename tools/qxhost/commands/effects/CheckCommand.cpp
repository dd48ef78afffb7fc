#include "tools/qxhost/commands/effects/CheckCommand.h"

#include "QxFxResources/Manager.h"
#include "host/core/Printable.h"
#include "host/effects/EffectCompilation.h"
#include "host/effects/Supplies.h"
#include "host/gpu/GPUService.h"
#include "platform/Text.h"
#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/effects/EffectData.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"
#include "tools/qxhost/pipeline/effects/EffectTextures.h"

#include <algorithm>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

constexpr const char* checkFooter = R"(Example:
  qxhost effects check my/glow.fx my/blur.fx

Prints the compiler's messages as FILE:LINE:COLUMN. Exit codes: 0 no errors, 1 errors, 3 a file is
missing (the others are checked), 5 GPU device.)";

using FxResources::Manager;

struct CheckResult
{
    std::filesystem::path file; ///< what was compiled
    ExitCode code = ExitCode::ok;
    std::string messages;
    std::size_t techniques = 0;
    std::vector<Host::Diagnostic> diagnostics{};
    std::vector<std::string> undrawable{}; ///< by `convert`: a technique, and why
    std::vector<std::string> unanswered{}; ///< parameters that ask for what no program here has
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
    CheckResult checked{file, result.effect ? ExitCode::ok : ExitCode::failed, messages};
    if (const Host::CompiledEffect* compiled =
            result.effect ? Host::compiledEffect(*result.effect) : nullptr) {
        checked.techniques = compiled->techniques.size();
        for (const Host::CompiledEffect::Technique& technique : compiled->techniques) {
            if (const std::string obstacle = obstacleTo(*compiled, technique, file); !obstacle.empty()) {
                checked.undrawable.push_back(fmt::format("\"{}\", which {}", technique.name, obstacle));
            }
        }
        for (const Host::CompiledEffect::Parameter& parameter : compiled->parameters) {
            if (const std::string asked = Host::unansweredBy(parameter); !asked.empty()) {
                checked.unanswered.push_back(fmt::format("\"{0}\" what it asks for ({1}); it keeps its "
                                                         "default unless --set {0}=... is given",
                                                         parameter.name, asked));
            }
        }
    }
    return checked;
}

/// Checks a file, or an effect of the catalogue if there is no such file. `asData`: with its diagnostics,
/// which the library returns as text only.
CheckResult check(const std::filesystem::path& named, bool asData)
{
    std::error_code error;
    const std::filesystem::path file =
        std::filesystem::exists(named, error) ? named : effectPath(named.string());
    if (!std::filesystem::exists(file, error)) {
        return missing(file, "there is no file and no effect of this name");
    }
    if (!std::filesystem::is_regular_file(file, error)) {
        return missing(file, "is not a file; name the effect file itself");
    }
    if (!asData) {
        return compile(file);
    }
    const LightweightString<char> path(std::string_view(file.native()));
    Host::EffectCompilation examined =
        Host::gpuService().examineEffectFile(fromUTF8(path), Manager::instance().definitions());
    // What failed is not compiled again. What succeeded is in the cache and must still pass the host's own
    // device.
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
    std::string text =
        fmt::format("{}: ok, {} technique{}\n", file, result.techniques, result.techniques == 1 ? "" : "s");
    for (const std::string& technique : result.undrawable) {
        text += fmt::format("{}: 'qxhost convert' cannot draw {}\n", file, Host::printable(technique));
    }
    for (const std::string& parameter : result.unanswered) {
        text += fmt::format("{}: 'qxhost convert' cannot give {}\n", file, Host::printable(parameter));
    }
    return text;
}

/// Shows a result at once. A file that could not be checked is an error, not data.
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
            {"undrawable", result.undrawable},
            {"unanswered", result.unanswered},
            {"messages", result.messages},
            {"diagnostics", diagnosticsData(result.diagnostics)}};
}

ExitCode checkAll(const CheckOptions& options, Console& console)
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

class CheckCommand : public CommandWithOptions<CheckOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        app.add_option("FILE", options_.files, "Effect files")->option_text(" ");
        addDevice(app, options_.device);
        app.add_flag("--json", options_.json, "Print JSON");
        app.footer(checkFooter);
    }

    void check(const CLI::App& app) override
    {
        requireValue(app, options_.files.empty() ? "" : options_.files.front(), "FILE");
    }

    ExitCode run(Console& console) override { return checkAll(options_, console); }
};

const Registered<CheckCommand>
    registeredCheck({.name = "effects check",
                     .order = 20,
                     .about = "Compile effect files and print the compiler's messages"});

} // namespace

} // namespace Qx::Program
