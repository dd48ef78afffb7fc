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

/// Gives a command on the calling thread; false when there is none of that name. Of two that have the same
/// name the one that was registered later answers.
bool giveCommand(std::string_view name);

/// The registered commands in the order of registration.
std::vector<RegisteredCommand> registeredCommands();

} // namespace Qx::Host
