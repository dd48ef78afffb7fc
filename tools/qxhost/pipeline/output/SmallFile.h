#pragma once

#include "tools/qxhost/media/files/FileSet.h"

#include <filesystem>
#include <memory>
#include <string>

namespace Qx::Program {

// Files that are written at once. `kept` are files not to be replaced; null for none. Both throw Failure
// (output), also if the file exists and `replace` is false.

/// Writes a file: aside, synced, and renamed.
void writeText(const std::filesystem::path& file, const std::string& text, bool replace,
               const std::shared_ptr<const Media::FileSet>& kept);

/// Fails as writeText() would, before there is anything to write.
void checkWritable(const std::filesystem::path& file, bool replace,
                   const std::shared_ptr<const Media::FileSet>& kept);

} // namespace Qx::Program
