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

struct Entry
{
    const char* name;
    const char* about;
};

template <std::size_t count>
std::string section(const char* heading, const Entry (&entries)[count])
{
    std::string page = std::string(".SH ") + heading + "\n";
    for (const Entry& entry : entries) {
        page += described(entry.name, "", entry.about);
    }
    return page;
}

constexpr Entry exitCodes[] = {
    {"0", "Done."},
    {"1",
     "Effects have errors (effects check), several inputs failed for different reasons, diagnose found a "
     "fault, or something unforeseen happened."},
    {"2", "The command line is invalid."},
    {"3", "The input is missing or broken, or its colours need a decision. If parts of it are damaged, the "
          "output holds everything readable."},
    {"4", "The output exists, cannot be written, or cannot be made that way."},
    {"5", "There is no usable GPU device, or it stopped working."},
    {"6", "An effect, technique, parameter, LUT or font is not available."},
    {"130", "Interrupted."},
};

constexpr Entry environment[] = {
    {"QX_DEVICE", "The GPU to use: a part of its name, or its number in 'qxhost devices'."},
    {"QX_CACHE", "0 keeps no compiled effects between runs."},
    {"QX_TEMPLATES_DIR, QX_LUTS_DIR", "The user's own effects and LUTs."},
    {"QX_LOG_STDERR", "1 writes the log to standard error too."},
    {"XDG_CONFIG_HOME, XDG_DATA_HOME, XDG_CACHE_HOME, XDG_STATE_HOME",
     "Where the directories below are, instead of in the home directory."},
};

constexpr Entry files[] = {
    {"~/.config/qxhost/settings.toml", "The settings. A variable of the environment overrides each."},
    {"~/.local/share/qxhost/templates, ~/.local/share/qxhost/luts",
     "The user's own effects and LUTs, which are used by name."},
    {"~/.cache/qxhost", "Compiled effects, which may be deleted at any time."},
    {"~/.local/state/qxhost/qxhost.log", "The log, with more detail after a failure."},
    {"/usr/share/doc/qxhost", "The documentation: effects, pixel formats, settings, accuracy."},
};

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
    page += ".SH COMMANDS\n" + commands;
    page += section("EXIT STATUS", exitCodes) + section("ENVIRONMENT", environment) + section("FILES", files);
    return page + ".SH SEE ALSO\n.BR ffmpeg (1),\n.BR vulkaninfo (1)\n";
}

} // namespace Qx::Program
