#pragma once

#include <string>
#include <string_view>

namespace Qx::Misbehaviour {

/// What an environment variable asks a process to do wrong, for tests: "WHERE:ACTION" or
/// "WHERE:ACTION:WHICH".
struct Order
{
    std::string where;
    std::string action;
    std::string which; ///< empty when left out
};

/// All empty when the variable is not set.
Order orderFrom(const char* variable);

/// Does what any process can do wrong; an action that is none of these does nothing:
///
/// - stall (sleeps for ever), spin (computes for ever);
/// - crash, kill, exit (ends: by abort, by SIGKILL, with code 3).
void misbehave(std::string_view action);

[[noreturn]] void stall();

} // namespace Qx::Misbehaviour
