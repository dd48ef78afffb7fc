#include "tools/qxhost/commands/CommandLine.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Json.h"

#include <csignal>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace {

using namespace Qx::Program;

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

ExitCode runReporting(Console& console, Command& command)
{
    const bool json = command.wantsJson();
    try {
        return command.run(console);
    } catch (const Failure& failure) {
        return report(console, json, failure.code(), failure.what(), failure.details());
    } catch (const std::bad_alloc&) {
        return report(console, json, ExitCode::failed, "out of memory; use smaller pictures");
    } catch (const std::exception& error) {
        return report(console, json, ExitCode::failed, error.what());
    }
}

ExitCode run(Console& console, const std::vector<std::string>& arguments)
{
    try {
        return runReporting(console, *parseCommandLine(arguments));
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
    // Writing to a closed pipe or beyond the limit on file sizes must fail with an error, not end the
    // process.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    Console console;
    return static_cast<int>(run(console, std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc)));
}
