#include "tools/qxhost/commands/HelpFormatter.h"

#include <algorithm>
#include <utility>

namespace Qx::Program {

HelpFormatter::HelpFormatter() : HelpFormatter({}, {}) {}

HelpFormatter::HelpFormatter(std::vector<std::string> rare, std::string shortFooter)
    : rare_(std::move(rare)), shortFooter_(std::move(shortFooter))
{
    constexpr std::size_t columnOfText = 30;
    column_width(columnOfText);
    label("Positionals", "Arguments");
}

std::string HelpFormatter::make_usage(const CLI::App* app, std::string name) const
{
    std::string usage = "Usage: " + name;
    for (const CLI::Option* option : app->get_options()) {
        if (option->get_positional() && !option->get_group().empty()) {
            const bool many = option->get_expected_max() > 1;
            // What may be left out says its default.
            const bool optional = option->get_description().find("Default: ") != std::string::npos;
            const std::string word = option->get_name(true) + (many ? "..." : "");
            usage += optional ? " [" + word + "]" : " " + word;
        }
    }
    const bool hasCommands = !app->get_subcommands({}).empty();
    return "\n" + usage + (hasCommands ? " COMMAND" : " [OPTIONS]") + "\n";
}

std::string HelpFormatter::make_group(std::string group, bool isPositional,
                                      std::vector<const CLI::Option*> options) const
{
    std::erase_if(options, [&](const CLI::Option* option) {
        return !showsAll_ && std::find(rare_.begin(), rare_.end(), option->get_name()) != rare_.end();
    });
    return options.empty() ? ""
                           : CLI::Formatter::make_group(std::move(group), isPositional, std::move(options));
}

std::string HelpFormatter::make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const
{
    showsAll_ = mode == CLI::AppFormatMode::All;
    std::string text = CLI::Formatter::make_help(app, std::move(name), mode);
    if (!showsAll_ && !shortFooter_.empty()) {
        text = CLI::detail::find_and_replace(text, app->get_footer(), shortFooter_);
    }
    // The library leaves two empty lines between groups or more, and none or one at the end.
    while (text.find("\n\n\n") != std::string::npos) {
        text = CLI::detail::find_and_replace(text, "\n\n\n", "\n\n");
    }
    text.erase(text.find_last_not_of('\n') + 1);
    return text + "\n";
}

} // namespace Qx::Program
