#pragma once

#include <string>

namespace Qx::Host {

/// What an error number (errno(3)) means and, where there is something, what to do about it: "No space left
/// on device; free some, or choose another place". For the end of a message that names the file.
std::string systemProblem(int error);

} // namespace Qx::Host
