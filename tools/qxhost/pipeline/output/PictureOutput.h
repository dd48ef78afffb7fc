#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Program {

/// Throws Failure (output) when a file's name has an ending that is none of pictures. `what` is to be written
/// there: "a preview".
void requirePicture(const std::filesystem::path& output, const std::string& what);

/// The same, and refuses patterns of numbered names.
void requireOnePicture(const std::filesystem::path& output, const std::string& what);

/// What was written, for people: one name, or the first of a sequence "to" its last. `output` is the name
/// that was asked for.
std::string writtenFiles(const std::vector<std::filesystem::path>& files,
                         const std::filesystem::path& output);

} // namespace Qx::Program
