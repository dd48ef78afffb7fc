#include "tools/qxhost/commands/reference/CommandTable.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

constexpr const char* origin = "made by 'qxhost reference' from the program's own tables";

/// In single quotes, as the three shells read it.
std::string quoted(const std::string& text)
{
    return "'" + CLI::detail::find_and_replace(text, "'", "'\\''") + "'";
}

/// fish reads \' inside single quotes, and a backslash before anything else as itself.
std::string quotedForFish(const std::string& text)
{
    return "'" +
           CLI::detail::find_and_replace(CLI::detail::find_and_replace(text, "\\", "\\\\"), "'", "\\'") + "'";
}

std::string joined(const std::vector<std::string>& words)
{
    return CLI::detail::join(words, " ");
}

std::vector<std::string> optionNames(const CommandEntry& command)
{
    std::vector<std::string> names;
    for (const OptionEntry& option : command.options) {
        names.insert(names.end(), option.names.begin(), option.names.end());
    }
    return names;
}

/// A description in a specification of zsh's _arguments.
std::string zshText(std::string text)
{
    for (const char* special : {"\\", "[", "]", ":"}) {
        text = CLI::detail::find_and_replace(text, special, std::string("\\") + special);
    }
    return text;
}

std::string zshFunction(const std::string& command)
{
    return "_qxhost" + (command.empty() ? "" : "_" + CLI::detail::find_and_replace(command, " ", "_"));
}

std::string zshOption(const OptionEntry& option)
{
    std::string value;
    if (!option.value.empty()) {
        const std::vector<std::string> choices = option.choices();
        value = ":" + zshText(option.value) + ":";
        value += !choices.empty() ? "(" + joined(choices) + ")" : (option.takesFile() ? "_files" : " ");
    }
    std::string lines;
    for (const std::string& name : option.names) {
        const bool isLong = name.starts_with("--");
        lines += fmt::format(" \\\n        {}", quoted("*" + name + (isLong && !value.empty() ? "=" : "") +
                                                       "[" + zshText(option.about) + "]" + value));
    }
    return lines;
}

} // namespace

std::string bashCompletion(const std::vector<CommandEntry>& table)
{
    std::vector<std::string> steps;
    std::string cases;
    for (const CommandEntry& command : table) {
        for (const std::string& word : command.commands) {
            steps.push_back(quoted(command.name + " " + word));
        }
        std::string values;
        for (const OptionEntry& option : command.options) {
            if (!option.value.empty()) {
                const std::vector<std::string> choices = option.choices();
                const std::string files = choices.empty() && option.takesFile() ? "yes" : "";
                values += fmt::format("            {}) taken=yes values={} files={} ;;\n",
                                      CLI::detail::join(option.names, " | "), quoted(joined(choices)), files);
            }
        }
        cases += fmt::format("    {})\n        words={}\n        files={}\n", quoted(command.name),
                             quoted(joined(command.commands)), command.arguments.empty() ? "" : "yes");
        cases += fmt::format("        options={}\n", quoted(joined(optionNames(command))));
        cases += values.empty() ? "" : "        case $before in\n" + values + "        esac\n";
        cases += "        ;;\n";
    }
    return fmt::format(R"(# Completion of qxhost for bash, {}.
_qxhost()
{{
    local word=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD - 1]}} command= each
    # bash takes the '=' of --option=value for a word.
    if [[ $word == = ]]; then
        word=
    elif [[ $before == = ]]; then
        before=${{COMP_WORDS[COMP_CWORD - 2]}}
    fi
    for each in "${{COMP_WORDS[@]:1:COMP_CWORD - 1}}"; do
        case "$command $each" in
        {}) command="${{command:+$command }}$each" ;;
        esac
    done
    local words= options= values= taken= files=
    case $command in
{}    esac
    COMPREPLY=()
    if [[ $taken ]]; then
        COMPREPLY=($(compgen -W "$values" -- "$word"))
    elif [[ $word == -* ]]; then
        COMPREPLY=($(compgen -W "$options" -- "$word"))
    else
        COMPREPLY=($(compgen -W "$words" -- "$word"))
    fi
    # File names, where they are meant.
    if [[ $files ]]; then
        compopt -o default 2>/dev/null
    fi
}}
complete -F _qxhost qxhost
)",
                       origin, CLI::detail::join(steps, " | "), cases);
}

std::string zshCompletion(const std::vector<CommandEntry>& table)
{
    std::string functions;
    for (const CommandEntry& command : table) {
        functions += zshFunction(command.name) + "()\n{\n";
        if (!command.commands.empty()) {
            functions += "    local context state state_descr line\n    typeset -A opt_args\n";
        }
        functions += std::string("    _arguments") + (command.commands.empty() ? "" : " -C");
        for (const OptionEntry& option : command.options) {
            functions += zshOption(option);
        }
        for (const ArgumentEntry& argument : command.arguments) {
            functions += " \\\n        " + quoted(":" + zshText(argument.name) + ":_files");
        }
        if (command.commands.empty()) {
            functions += "\n}\n\n";
            continue;
        }
        functions += " \\\n        '1: :->command' '*:: :->arguments'\n    case $state in\n    command)\n";
        functions += "        local -a commands=(";
        std::string arms;
        for (const std::string& word : command.commands) {
            const std::string name = (command.name.empty() ? "" : command.name + " ") + word;
            const auto entry = std::find_if(table.begin(), table.end(),
                                            [&](const CommandEntry& each) { return each.name == name; });
            functions += "\n            " + quoted(word + ":" + entry->about);
            arms += fmt::format("        {}) {} ;;\n", word, zshFunction(name));
        }
        functions +=
            ")\n        _describe command commands\n        ;;\n    arguments)\n        case $line[1] in\n" +
            arms + "        esac\n        ;;\n    esac\n}\n\n";
    }
    return fmt::format("#compdef qxhost\n# Completion of qxhost for zsh, {}.\n\n", origin) + functions +
           "_qxhost \"$@\"\n";
}

std::string fishCompletion(const std::vector<CommandEntry>& table)
{
    std::string lines = fmt::format("# Completion of qxhost for fish, {}.\ncomplete -c qxhost -f\n", origin);
    for (const CommandEntry& command : table) {
        // Where the command's words have been typed, and none of a command inside it.
        std::string condition;
        for (const std::string& word : CLI::detail::split(command.name, ' ')) {
            condition += word.empty() ? "" : "__fish_seen_subcommand_from " + word + "; and ";
        }
        condition +=
            command.commands.empty() ? "true" : "not __fish_seen_subcommand_from " + joined(command.commands);
        const std::string begin = "complete -c qxhost -n " + quotedForFish(condition);
        for (const std::string& word : command.commands) {
            const std::string name = (command.name.empty() ? "" : command.name + " ") + word;
            const auto entry = std::find_if(table.begin(), table.end(),
                                            [&](const CommandEntry& each) { return each.name == name; });
            lines += fmt::format("{} -a {} -d {}\n", begin, word, quotedForFish(entry->about));
        }
        lines += command.arguments.empty() ? "" : begin + " -F\n";
        for (const OptionEntry& option : command.options) {
            lines += begin;
            for (const std::string& name : option.names) {
                lines += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
            }
            if (!option.value.empty()) {
                const std::vector<std::string> choices = option.choices();
                lines += option.takesFile() && choices.empty() ? " -r -F" : " -x";
                lines += choices.empty() ? "" : " -a " + quotedForFish(joined(choices));
            }
            lines += " -d " + quotedForFish(option.about) + "\n";
        }
    }
    return lines;
}

} // namespace Qx::Program
