#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Interruption.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/studio/server/Guard.h"
#include "tools/qxhost/studio/server/Server.h"
#include "tools/qxhost/studio/session/Session.h"

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

constexpr const char* studioFooter = R"(Examples:
  qxhost studio clip.mov cc3.fx film.cube
      Prints the address of a page that shows the clip with the effect and the LUT, live, with controls.
  qxhost studio clip.mov my/glow.fx
      The same beside an editor: the effect is compiled at each save, and the page may write it too.
  qxhost studio clip.mov --port 8000
      On a machine without a screen: 'ssh -L 8000:localhost:8000 MACHINE' elsewhere, and open the address there.

Whoever knows the address can see the clip, write the effect files that were named, and looks beneath --looks.
Ctrl-C ends it.)";

struct StudioOptions
{
    Studio::SessionOptions session;
    Studio::ServerOptions server;
    std::string device;
};

std::uint16_t parsePort(const std::string& word)
{
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), port);
    if (error != std::errc() || end != word.data() + word.size()) {
        throw invalidValue("--port", word, "0 to 65535; 0 is any that is free");
    }
    return port;
}

std::string fromEnvironment(const char* name)
{
    const char* const value = std::getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

/// For who works on the page, and for scripts that start the program again at the same address.
void takeEnvironment(Studio::ServerOptions& options)
{
    options.page = fromEnvironment("QXHOST_STUDIO_PAGE");
    options.token = fromEnvironment("QXHOST_STUDIO_TOKEN");
    if (!options.token.empty() && !Studio::isToken(options.token)) {
        throw Failure(ExitCode::usage, "QXHOST_STUDIO_TOKEN: expected 64 hexadecimal digits in lower case");
    }
}

ExitCode studio(StudioOptions options, Console& console)
{
    takeEnvironment(options.server);
    const HostSession host(options.device, &console);
    Studio::Session session(options.session, console);
    Studio::Server server(options.server, session);
    const Interruption interruption(
        [&] { server.stop(); }, nullptr,
        [&] { console.error("interrupted while a frame was read or drawn, which did not end"); });
    if (!server.isLoopback()) {
        console.note("--host " + options.server.host +
                     ": others on the network can read what the page shows on its way; an SSH tunnel to "
                     "127.0.0.1 protects it");
    }
    if (deviceIsSoftware()) {
        console.note("drawing on " + deviceName() +
                     ", a software device that runs on the CPU; a smaller \"size\", below the picture, makes "
                     "it quicker");
    }
    console.data(server.address() + "\n");
    server.run();
    session.stop();
    return ExitCode::ok;
}

class StudioCommand : public CommandWithOptions<StudioOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        app.add_option("CLIP", options_.session.clip, "A clip or picture")->option_text(" ");
        app.add_option("EFFECT", options_.session.effects,
                       "Effects and LUTs to begin with, by file or by the name in the catalogue")
            ->option_text("...");
        app.add_option("--look", options_.session.look, "A look to begin with; effects come behind it")
            ->option_text("FILE");
        app.add_option("--looks", options_.session.looks,
                       "Where the page saves and opens looks.\nDefault: the current directory")
            ->option_text("DIR");
        app.add_flag("--rotate", options_.session.rotates, "Turn and flip pictures as players would");
        app.add_option_function<std::string>(
               "--port", [this](const std::string& word) { options_.server.port = parsePort(word); },
               "The port of the address. Default: any that is free")
            ->option_text("N");
        app.add_option("--host", options_.server.host,
                       "The address to listen on; anything but the default lets other machines in.\n"
                       "Default: 127.0.0.1")
            ->option_text("ADDRESS");
        addDevice(app, options_.device);
        app.footer(studioFooter);
    }

    void check(const CLI::App& app) override
    {
        requireValue(app, options_.session.clip, "CLIP");
        if (options_.session.clip == Media::standardName) {
            complain(app, "standard input cannot be shown: the page goes back and forth in the clip");
        }
    }

    ExitCode run(Console& console) override { return studio(options_, console); }
};

const Registered<StudioCommand> registeredStudio(
    {.name = "studio",
     .order = 35,
     .about = "Show a clip live in the browser, with controls for effects",
     .examples = "  qxhost studio clip.mov cc3.fx                    a page with the picture, controls and "
                 "scopes\n"});

} // namespace

} // namespace Qx::Program
