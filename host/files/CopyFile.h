#pragma once

#include <string>

namespace Qx::Host {

/// Copies a regular file to a path in an existing directory, replacing a regular file of that name. The copy
/// is written next to its destination and renamed once it is complete and on disk. Empty on success;
/// otherwise the reason, for people, and the destination is unchanged. Only if its directory cannot be synced
/// the destination is the whole copy, and a power cut may undo that.
std::string copyFileWhole(const std::string& source, const std::string& destination);

} // namespace Qx::Host
