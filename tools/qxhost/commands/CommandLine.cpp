#include "tools/qxhost/commands/CommandLine.h"

#include "Qx/Version.h"
#include "host/core/Suggestion.h"
#include "tools/qxhost/commands/HelpFormatter.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/commands/convert/ConversionArguments.h"
#include "tools/qxhost/console/Failure.h"

#include <CLI/CLI.hpp>
#include <map>
#include <stdexcept>

namespace Qx::Program {

namespace {

constexpr const char* program = "qxhost";

/// Text that was asked for: help, or the version.
class ShowText : public Command
{
public:
    explicit ShowText(std::string text) : text_(std::move(text)) {}

    ExitCode run(Console& console) override
    {
        console.data(text_);
        return ExitCode::ok;
    }

private:
    std::string text_;
};

void refuseExtras(const CLI::App& app)
{
    std::vector<std::string> extras = app.remaining();
    std::erase(extras, "--"); // which the library counts among them
    if (extras.empty()) {
        return;
    }
    const std::string& first = extras.front();
    std::vector<std::string> known;
    if (first.starts_with("-")) {
        for (const CLI::Option* option : app.get_options()) {
            for (const std::string& name : option->get_lnames()) {
                known.push_back("--" + name);
            }
        }
        if (const std::string option = first.substr(0, first.find('='));
            option == "--resize" || option == "--scale") {
            const bool canResize = app.get_option_no_throw("--resize") != nullptr;
            complain(app, "unknown option " + option +
                              (canResize ? "; --resize changes the size"
                                         : "; 'qxhost convert --resize' changes the size, and 'qxhost "
                                           "thumbnail' makes small pictures"));
        }
        complain(app, "unknown option " + first + Host::didYouMean(first.substr(0, first.find('=')), known));
    }
    for (const CLI::App* command : app.get_subcommands({})) {
        if (!command->get_group().empty()) {
            known.push_back(command->get_name());
        }
    }
    if (!known.empty()) {
        complain(app, "unknown command \"" + first + "\"" + Host::didYouMean(first, known));
    }
    complain(app, "unexpected argument \"" + first + "\"");
}

/// The name's words before the last; empty for a command of the program itself.
std::string groupOf(const std::string& name)
{
    const std::size_t end = name.rfind(' ');
    return end == std::string::npos ? "" : name.substr(0, end);
}

/// The registered commands as the library's parser wants them.
class Parser
{
public:
    Parser()
    {
        app_.name(program);
        app_.formatter(std::make_shared<HelpFormatter>());
        app_.set_help_flag("-h,--help", "Show this help");
        app_.allow_extras();
        app_.require_subcommand(0, 1); // a second command's name is an argument like any other
        app_.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
        app_.add_flag("--version", version_, "Show the version");
        addGroup(app_, "");
        if (added_ != registeredCommands().size()) {
            throw std::logic_error("a command is registered in a group that is not");
        }
        app_.footer(footer()); // last, because commands inherit their parent's
    }

    std::unique_ptr<Command> parse(std::vector<std::string> arguments)
    {
        if (!arguments.empty() && (arguments.front() == "convert" || arguments.front() == "farm")) {
            settleDither(arguments);
        }
        std::reverse(arguments.begin(), arguments.end()); // as the library wants a vector
        try {
            app_.parse(arguments);
        } catch (const CLI::CallForHelp&) {
            return std::make_unique<ShowText>(app_.help());
        } catch (const CLI::CallForAllHelp&) {
            return std::make_unique<ShowText>(app_.help("", CLI::AppFormatMode::All));
        } catch (const CLI::ParseError& error) {
            complain(chosen(), error.what());
        }
        const CLI::App& app = chosen();
        refuseExtras(app);
        const auto found = commands_.find(&app);
        if (found != commands_.end()) {
            if (std::optional<std::vector<std::string>> others = found->second->expanded(app)) {
                return Parser().parse(std::move(*others));
            }
            found->second->check(app);
            return std::move(found->second);
        }
        if (&app == &app_ && version_) {
            return std::make_unique<ShowText>(std::string(program) + " " QX_VERSION "\n");
        }
        const std::string group = commandName(app);
        throw Failure(ExitCode::usage, "a command is missing" + (group.empty() ? "" : " after " + group),
                      app_.help());
    }

private:
    void addGroup(CLI::App& parent, const std::string& group)
    {
        for (const RegisteredCommand& registered : registeredCommands()) {
            const std::string name = registered.info.name;
            if (groupOf(name) != group) {
                continue;
            }
            const std::string word = group.empty() ? name : name.substr(group.size() + 1);
            CLI::App* app = parent.add_subcommand(word, registered.info.about);
            app->group(registered.info.hidden ? "" : "Commands");
            ++added_;
            if (registered.create == nullptr) {
                addGroup(*app, name);
            } else {
                commands_[app] = registered.create();
                commands_[app]->addOptions(*app);
            }
        }
    }

    static std::string footer()
    {
        std::string examples;
        for (const RegisteredCommand& registered : registeredCommands()) {
            examples += registered.info.examples != nullptr ? registered.info.examples : "";
        }
        return "Examples:\n" + examples + "\n'qxhost COMMAND --help' describes a command.";
    }

    /// The command that the arguments name, as far as they do.
    const CLI::App& chosen() const
    {
        const CLI::App* app = &app_;
        while (!app->get_subcommands().empty()) {
            app = app->get_subcommands().front();
        }
        return *app;
    }

    CLI::App app_{"Converts clips and pictures between YCbCr and RGB on the GPU, and runs effects on them."};
    bool version_ = false;
    std::map<const CLI::App*, std::unique_ptr<Command>> commands_;
    std::size_t added_ = 0;
};

} // namespace

std::unique_ptr<Command> parseCommandLine(const std::vector<std::string>& arguments)
{
    std::vector<std::string> words = arguments;
    if (!words.empty() && words.front() == "help") {
        words.erase(words.begin());
        words.emplace_back("--help");
    }
    return Parser().parse(std::move(words));
}

} // namespace Qx::Program
