#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/commands/reference/CommandTable.h"

#include <CLI/CLI.hpp>

namespace Qx::Program {

namespace {

enum class Form
{
    Manual,
    Bash,
    Zsh,
    Fish
};

const Names<Form>& forms()
{
    static const Names<Form> names{
        {"man", Form::Manual}, {"bash", Form::Bash}, {"zsh", Form::Zsh}, {"fish", Form::Fish}};
    return names;
}

/// Prints the manual page or a shell's completion. The build runs it.
class ReferenceCommand : public Command
{
public:
    void addOptions(CLI::App& app) override
    {
        addChoice(app, "--form", form_, forms(), "What to print. Default: man");
    }

    void check(const CLI::App& app) override
    {
        const std::vector<CommandEntry> table = commandTable(*app.get_parent());
        switch (form_) {
        case Form::Manual:
            text_ = manualPage(table);
            break;
        case Form::Bash:
            text_ = bashCompletion(table);
            break;
        case Form::Zsh:
            text_ = zshCompletion(table);
            break;
        case Form::Fish:
            text_ = fishCompletion(table);
            break;
        }
    }

    ExitCode run(Console& console) override
    {
        console.data(text_);
        return ExitCode::ok;
    }

private:
    Form form_ = Form::Manual;
    std::string text_; ///< made while the tables exist
};

const Registered<ReferenceCommand>
    registeredReference({.name = "reference",
                         .order = 1000,
                         .about = "Print the manual page or a shell's completion",
                         .hidden = true});

} // namespace

} // namespace Qx::Program
