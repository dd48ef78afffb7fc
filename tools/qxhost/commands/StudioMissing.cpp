#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/console/Failure.h"

#include <CLI/CLI.hpp>

namespace Qx::Program {

namespace {

/// In the place of "studio" where the program was built without it.
class StudioMissing : public Command
{
public:
    void addOptions(CLI::App& app) override
    {
        app.add_option("ARGUMENT", ignored_, "What the command takes where it is built");
        for (const char* const option : {"--look", "--looks", "--port", "--host", "--device"}) {
            app.add_option(option, ignored_)->expected(1);
        }
    }

    ExitCode run(Console&) override
    {
        throw Failure(ExitCode::usage, "studio: the program was built without it; install libboost-dev and "
                                       "libturbojpeg0-dev, and build it again");
    }

private:
    std::vector<std::string> ignored_;
};

const Registered<StudioMissing>
    registeredStudioMissing({.name = "studio",
                             .order = 35,
                             .about = "Show a clip live in the browser; not in this program",
                             .hidden = true});

} // namespace

} // namespace Qx::Program
