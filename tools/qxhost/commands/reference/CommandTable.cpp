#include "tools/qxhost/commands/reference/CommandTable.h"

#include "tools/qxhost/commands/OptionHelpers.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <sstream>

namespace Qx::Program {

namespace {

/// The text on one line, with single spaces.
std::string onOneLine(const std::string& text)
{
    std::istringstream words(text);
    std::string line;
    for (std::string word; words >> word;) {
        line += (line.empty() ? "" : " ") + word;
    }
    return line;
}

bool isWord(const std::string& text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::islower(c) != 0 || std::isdigit(c) != 0 || c == '-';
    });
}

OptionEntry entryOf(const CLI::Option& option)
{
    OptionEntry entry{.names = {}, .value = {}, .group = option.get_group(), .about = {}};
    for (const std::string& name : option.get_snames()) {
        entry.names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        entry.names.push_back("--" + name);
    }
    entry.value = onOneLine(CLI::Formatter().make_option_opts(&option));
    entry.about = onOneLine(option.get_description());
    return entry;
}

/// The usage line of the help, so that both are the same.
std::string synopsisOf(const CLI::App& app, const std::string& name)
{
    const std::string usage =
        onOneLine(app.get_formatter()->make_help(&app, name, CLI::AppFormatMode::Normal));
    static const std::string before = "Usage: ";
    const std::size_t begin = usage.find(before) + before.size();
    std::string synopsis = usage.substr(begin);
    for (const char* end : {" COMMAND", " [OPTIONS]"}) {
        if (const std::size_t found = synopsis.find(end); found != std::string::npos) {
            synopsis.erase(found + std::string(end).size());
            break;
        }
    }
    return synopsis;
}

void add(const CLI::App& app, const std::string& name, std::vector<CommandEntry>& table)
{
    CommandEntry entry{.name = name,
                       .about = onOneLine(app.get_description()),
                       .synopsis = synopsisOf(app, name.empty() ? "qxhost" : "qxhost " + name),
                       .footer = {},
                       .arguments = {},
                       .options = {},
                       .commands = {}};
    // Commands without a footer of their own have their parent's.
    if (app.get_parent() == nullptr || app.get_footer() != app.get_parent()->get_footer()) {
        entry.footer = app.get_footer();
    }
    for (const std::string& group : app.get_groups()) {
        for (const CLI::Option* option : app.get_options()) {
            if (option->nonpositional() && option->get_group() == group && !group.empty()) {
                entry.options.push_back(entryOf(*option));
            }
        }
    }
    std::vector<const CLI::App*> shown;
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_positional() && !option->get_group().empty()) {
            entry.arguments.push_back({option->get_name(true), onOneLine(option->get_description())});
        }
    }
    for (const CLI::App* command : app.get_subcommands({})) {
        if (!command->get_group().empty()) {
            shown.push_back(command);
            entry.commands.push_back(command->get_name());
        }
    }
    table.push_back(entry);
    for (const CLI::App* command : shown) {
        add(*command, (name.empty() ? "" : name + " ") + command->get_name(), table);
    }
}

} // namespace

bool OptionEntry::takesFile() const
{
    return value.find("FILE") != std::string::npos || value.find("DIR") != std::string::npos ||
           value.find("PATH") != std::string::npos;
}

std::vector<std::string> OptionEntry::choices() const
{
    std::vector<std::string> words = CLI::detail::split(value, '|');
    return words.size() > 1 && std::all_of(words.begin(), words.end(), isWord) ? words
                                                                               : std::vector<std::string>();
}

std::vector<CommandEntry> commandTable(const CLI::App& program)
{
    std::vector<CommandEntry> table;
    add(program, "", table);
    return table;
}

} // namespace Qx::Program
