#pragma once

#include "tools/qxhost/console/Console.h"
#include "tools/qxhost/console/ExitCode.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Qx::Program {

/// A command of the program. The file that defines one also registers it, with a Registered at namespace
/// scope; nothing else names it.
///
/// One object serves one command line: addOptions(), then check(), then run(), on one thread.
class Command
{
public:
    virtual ~Command() = default;

    /// Adds the command's arguments and options, and the footer of its help. Their targets must live as long
    /// as the command.
    virtual void addOptions(CLI::App&) {}

    /// The arguments that stand for those that were given, the command's name among them; none if they stand
    /// for themselves. Throws Failure (usage).
    virtual std::optional<std::vector<std::string>> expanded(const CLI::App&) { return {}; }

    /// Checks what was given, and completes the options. Throws Failure (usage). Touches neither files nor
    /// devices.
    virtual void check(const CLI::App&) {}

    /// Does the work and returns the exit code. Throws Failure.
    virtual ExitCode run(Console& console) = 0;

    /// Returns true if a failure is to be printed as JSON too.
    virtual bool wantsJson() const { return false; }
};

/// A command whose options are one structure. Its member "json", if it has one, answers wantsJson().
template <class Options>
class CommandWithOptions : public Command
{
public:
    const Options& options() const { return options_; }

    bool wantsJson() const override
    {
        if constexpr (requires { options_.json; }) {
            return options_.json;
        }
        return false;
    }

protected:
    Options options_;
};

/// What the program knows of a command before it creates it.
struct CommandInfo
{
    const char* name;               ///< all its words, such as "lut install"; all but the last name a group
    int order;                      ///< position in the help, among the commands of the same group
    const char* about;              ///< one line
    const char* examples = nullptr; ///< lines for the help of the program itself, each with a line feed
    bool hidden = false;            ///< absent from the help and from suggestions
};

struct RegisteredCommand
{
    CommandInfo info;
    std::unique_ptr<Command> (*create)(); ///< null for a group
};

/// Every command and group, by order. Complete when main() begins.
const std::vector<RegisteredCommand>& registeredCommands();

/// Call it before main() only.
void registerCommand(const RegisteredCommand& command);

/// Registers a command class that has a default constructor.
template <class Class>
struct Registered
{
    explicit Registered(const CommandInfo& info)
    {
        registerCommand({info, []() -> std::unique_ptr<Command> { return std::make_unique<Class>(); }});
    }
};

/// Registers a word that does nothing but stand before other commands.
struct RegisteredGroup
{
    explicit RegisteredGroup(const CommandInfo& info) { registerCommand({info, nullptr}); }
};

} // namespace Qx::Program
