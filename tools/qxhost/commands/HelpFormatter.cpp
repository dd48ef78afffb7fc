#include "tools/qxhost/commands/HelpFormatter.h"

#include <algorithm>
#include <utility>

namespace Qx::Program {

namespace {

/// Headings, which are not indented, then part the groups. The first one and the footer keep their distance.
std::string withoutLinesBetweenGroups(std::string text)
{
    const std::size_t first = text.find("\n  ");
    for (std::size_t at = text.find("\n\n", first); at != std::string::npos; at = text.find("\n\n", at + 1)) {
        if (text.substr(at + 2, text.find('\n', at + 2) - at - 2).ends_with(':')) {
            text.erase(at, 1);
        }
    }
    return text;
}

} // namespace

HelpFormatter::HelpFormatter() : HelpFormatter({}, {}) {}

HelpFormatter::HelpFormatter(std::vector<std::string> usual, std::string shortFooter)
    : usual_(std::move(usual)), shortFooter_(std::move(shortFooter))
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
    if (isShort_) {
        std::erase_if(options, [&](const CLI::Option* option) {
            return std::find(usual_.begin(), usual_.end(), option->get_name(isPositional)) == usual_.end();
        });
    }
    return options.empty() ? ""
                           : CLI::Formatter::make_group(std::move(group), isPositional, std::move(options));
}

std::string HelpFormatter::make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const
{
    isShort_ = mode != CLI::AppFormatMode::All && !usual_.empty();
    std::string text = CLI::Formatter::make_help(app, std::move(name), mode);
    if (isShort_) {
        text = CLI::detail::find_and_replace(text, app->get_footer(), shortFooter_);
    }
    // The library leaves two empty lines between groups or more, and none or one at the end.
    while (text.find("\n\n\n") != std::string::npos) {
        text = CLI::detail::find_and_replace(text, "\n\n\n", "\n\n");
    }
    text.erase(text.find_last_not_of('\n') + 1);
    return (isShort_ ? withoutLinesBetweenGroups(text) : text) + "\n";
}

} // namespace Qx::Program
