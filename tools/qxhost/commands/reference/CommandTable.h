#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Qx::Program {

/// An option as the help shows it. Texts are one line each.
struct OptionEntry
{
    std::vector<std::string> names; ///< as typed: "-h", "--help"
    std::string value;              ///< what follows it, "video|full"; empty for a switch
    std::string group;              ///< the heading it stands under
    std::string about;

    bool takesFile() const;

    /// The words that it takes, if the help lists them.
    std::vector<std::string> choices() const;
};

struct ArgumentEntry
{
    std::string name; ///< "INPUT"
    std::string about;
};

/// A command, a group of commands, or the program itself, as the help shows it. What the help hides is left
/// out.
struct CommandEntry
{
    std::string name;     ///< its words after the program's name: "lut install"; empty for the program
    std::string about;    ///< one line
    std::string synopsis; ///< "qxhost convert INPUT OUTPUT [OPTIONS]"
    std::string footer;   ///< several lines
    std::vector<ArgumentEntry> arguments;
    std::vector<OptionEntry> options;  ///< those of one heading after each other
    std::vector<std::string> commands; ///< names of its commands, the last word
};

/// The program first, then each command before the commands inside it.
std::vector<CommandEntry> commandTable(const CLI::App& program);

/// The pages and scripts that are made of the table.
std::string manualPage(const std::vector<CommandEntry>& table);
std::string bashCompletion(const std::vector<CommandEntry>& table);
std::string zshCompletion(const std::vector<CommandEntry>& table);
std::string fishCompletion(const std::vector<CommandEntry>& table);

} // namespace Qx::Program
