#include "tools/qxhost/commands/CommandLine.h"
#include "tools/qxhost/commands/Commands.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Json.h"

#include <csignal>
#include <exception>
#include <new>
#include <string>
#include <vector>

namespace {

using namespace Qx::Program;

/// A command's way through the variant.
struct Run
{
    Console& console;

    ExitCode operator()(const ShowText& show) const
    {
        console.data(show.text);
        return ExitCode::ok;
    }
    ExitCode operator()(const ConvertOptions& options) const { return runConvert(options, console); }
    ExitCode operator()(const EffectsListOptions& options) const { return runEffectsList(options, console); }
    ExitCode operator()(const EffectsCheckOptions& options) const
    {
        return runEffectsCheck(options, console);
    }
    ExitCode operator()(const BlackOptions& options) const { return runBlack(options, console); }
    ExitCode operator()(const FormatsOptions& options) const { return runFormats(options, console); }
    ExitCode operator()(const EffectsWatchOptions& options) const
    {
        return runEffectsWatch(options, console);
    }
    ExitCode operator()(const LutOptions& options) const { return runLut(options, console); }
    ExitCode operator()(const EffectsDescribeOptions& options) const
    {
        return runEffectsDescribe(options, console);
    }
    ExitCode operator()(const EffectsCacheOptions& options) const
    {
        return runEffectsCache(options, console);
    }
    ExitCode operator()(const DevicesOptions& options) const { return runDevices(options, console); }
    ExitCode operator()(const DiagnoseOptions& options) const { return runDiagnose(options, console); }
    ExitCode operator()(const MeasureOptions& options) const { return runMeasure(options, console); }
};

bool wantsJson(const Command& command)
{
    return std::visit(
        [](const auto& options) {
            if constexpr (requires { options.json; }) {
                return options.json;
            }
            return false;
        },
        command);
}

ExitCode report(Console& console, bool json, ExitCode code, const std::string& text,
                const std::string& details = {})
{
    console.error(text, details);
    if (json) {
        const std::string message = details.empty() ? text : text + "\n" + details;
        console.data(jsonText({{"error", {{"message", message}, {"exitCode", static_cast<int>(code)}}}}));
    }
    return code;
}

ExitCode runReporting(Console& console, const Command& command)
{
    const bool json = wantsJson(command);
    try {
        return std::visit(Run{console}, command);
    } catch (const Failure& failure) {
        return report(console, json, failure.code(), failure.what(), failure.details());
    } catch (const std::bad_alloc&) {
        return report(console, json, ExitCode::failed, "out of memory; smaller pictures need less");
    } catch (const std::exception& error) {
        return report(console, json, ExitCode::failed, error.what());
    }
}

ExitCode run(Console& console, const std::vector<std::string>& arguments)
{
    try {
        return runReporting(console, parseCommandLine(arguments));
    } catch (const Failure& failure) {
        console.error(failure.what(), failure.details());
        return failure.code();
    } catch (const std::exception& error) {
        console.error(error.what());
        return ExitCode::failed;
    }
}

} // namespace

int main(int argc, char** argv)
{
    // A reader that has gone away and a limit on file sizes are failures to write like any other.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    Console console;
    return static_cast<int>(run(console, std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc)));
}
