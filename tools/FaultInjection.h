#pragma once

#include <string>
#include <string_view>

namespace Qx::FaultInjection {

/// A fault that a test injects into a process through an environment variable: "WHERE:ACTION" or
/// "WHERE:ACTION:WHICH".
struct Fault
{
    std::string where;
    std::string action;
    std::string which; ///< empty if left out
};

/// All empty if the variable is not set.
Fault faultFrom(const char* variable);

/// Performs one of the faults that any process can have; does nothing for other actions:
///
/// - stall (sleeps forever), spin (computes forever);
/// - crash, kill, exit (ends: by abort, by SIGKILL, with code 3).
void inject(std::string_view action);

[[noreturn]] void stall();

} // namespace Qx::FaultInjection
