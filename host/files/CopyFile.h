#pragma once

#include <string>

namespace Qx::Host {

/// Copies a plain file to a path in an existing directory, replacing a plain file of that name. The copy is
/// written beside its destination and renamed when it is complete and on disk. Empty on success, otherwise
/// what failed, for people; the destination is as it was then, and nothing is left beside it.
std::string copyFileWhole(const std::string& source, const std::string& destination);

} // namespace Qx::Host
