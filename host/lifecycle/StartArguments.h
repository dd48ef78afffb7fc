#pragma once

namespace Qx::Host {

/// The arguments that StartEnv knows from now on: `arguments[0]` is the program.
void setStartArguments(int count, const char* const* arguments);

} // namespace Qx::Host
