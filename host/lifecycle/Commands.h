#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Qx::Host {

struct RegisteredCommand
{
    std::string name;
    std::wstring displayText;
    std::wstring description;
};

/// Runs a command on the calling thread. Returns false if there is none of that name. Of two commands with
/// the same name the later one runs.
bool giveCommand(std::string_view name);

/// The registered commands, in the order of registration.
std::vector<RegisteredCommand> registeredCommands();

} // namespace Qx::Host
