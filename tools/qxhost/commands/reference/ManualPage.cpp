#include "Qx/Version.h"
#include "tools/qxhost/commands/reference/CommandTable.h"

#include <sstream>

namespace Qx::Program {

namespace {

/// Text as roff takes it, inside a line.
std::string roff(const std::string& text)
{
    std::string result;
    for (const char c : text) {
        switch (c) {
        case '\\':
            result += "\\e";
            break;
        case '-':
            result += "\\-";
            break;
        case '"':
            result += "\\(dq";
            break;
        case '\'':
            result += "\\(aq";
            break;
        default:
            result += c;
        }
    }
    return result;
}

/// A line of text; one that begins with a period is no request.
std::string roffLine(const std::string& text)
{
    return (text.starts_with('.') ? "\\&" : "") + roff(text) + "\n";
}

std::string verbatim(const std::string& lines)
{
    std::string page = ".PP\n.nf\n";
    std::istringstream text(lines);
    for (std::string line; std::getline(text, line);) {
        page += line.empty() ? "\\&\n" : roffLine(line);
    }
    return page + ".fi\n";
}

/// A list's entry: what it is, in bold and, for what stands for something else, in italics; then about it.
std::string described(const std::string& bold, const std::string& italic, const std::string& about)
{
    std::string page = ".TP\n";
    page += bold.empty() ? "" : "\\fB" + roff(bold) + "\\fR" + (italic.empty() ? "" : " ");
    page += italic.empty() ? "" : "\\fI" + roff(italic) + "\\fR";
    return page + "\n" + roffLine(about);
}

std::string namesOf(const OptionEntry& option)
{
    std::string names;
    for (const std::string& name : option.names) {
        names += (names.empty() ? "" : ", ") + name;
    }
    return names;
}

std::string details(const CommandEntry& command)
{
    std::string page;
    for (const ArgumentEntry& argument : command.arguments) {
        page += described("", argument.name, argument.about);
    }
    std::string group;
    for (const OptionEntry& option : command.options) {
        if (option.group != group) {
            group = option.group;
            page += ".PP\n" + roffLine(group + ":");
        }
        page += described(namesOf(option), option.value, option.about);
    }
    return page + (command.footer.empty() ? "" : verbatim(command.footer));
}

} // namespace

std::string manualPage(const std::vector<CommandEntry>& table)
{
    const CommandEntry& program = table.front();
    std::string page = ".TH QXHOST 1 \"\" \"qxhost " QX_VERSION "\" \"User Commands\"\n.SH NAME\n";
    page += "qxhost \\- converts clips and pictures on the GPU and runs effects on them\n.SH SYNOPSIS\n";
    std::string commands;
    for (const CommandEntry& command : table) {
        if (!command.commands.empty()) {
            continue;
        }
        page += ".B " + roff(command.synopsis) + "\n.br\n";
        commands += ".SS " + roff(command.synopsis) + "\n" + roffLine(command.about + ".") + details(command);
    }
    page += ".SH DESCRIPTION\n" + roffLine(program.about);
    page += ".SH OPTIONS\n" + details(program);
    return page + ".SH COMMANDS\n" + commands;
}

} // namespace Qx::Program
