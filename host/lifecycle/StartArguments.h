#pragma once

namespace Qx::Host {

/// Sets the arguments of StartEnv; `arguments[0]` is the program.
void setStartArguments(int count, const char* const* arguments);

} // namespace Qx::Host
