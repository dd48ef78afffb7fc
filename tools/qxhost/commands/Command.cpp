#include "tools/qxhost/commands/Command.h"

#include <algorithm>

namespace Qx::Program {

namespace {

/// A local variable, because commands of other files register before this file's variables exist.
std::vector<RegisteredCommand>& registry()
{
    static std::vector<RegisteredCommand> commands;
    return commands;
}

} // namespace

const std::vector<RegisteredCommand>& registeredCommands()
{
    return registry();
}

void registerCommand(const RegisteredCommand& command)
{
    // The order in which the linker lines up files must not show.
    const auto place = std::upper_bound(
        registry().begin(), registry().end(), command,
        [](const RegisteredCommand& a, const RegisteredCommand& b) { return a.info.order < b.info.order; });
    registry().insert(place, command);
}

} // namespace Qx::Program
