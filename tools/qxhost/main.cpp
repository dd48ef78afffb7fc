#include "tools/qxhost/commands/CommandLine.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/FailureReport.h"

#include <csignal>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace {

using namespace Qx::Program;

/// Libraries that look for directories of the user take a relative one from the working directory; the XDG
/// Base Directory Specification says to ignore it.
void ignoreRelativeDirectories()
{
    for (const char* variable : {"XDG_CACHE_HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME"}) {
        if (const char* value = std::getenv(variable); value != nullptr && *value != '/') {
            ::unsetenv(variable);
        }
    }
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
        return report(console, json, ExitCode::failed, failureText(error));
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
        console.error(failureText(error));
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
    ignoreRelativeDirectories();
    ::setenv("SVT_LOG", "1", 0); // this encoder writes to standard error by itself: errors only
    Console console;
    return static_cast<int>(run(console, std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc)));
}
