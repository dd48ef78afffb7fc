#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Program {

/// Throws Failure (output) if the extension is not one of pictures. `what` names the output: "a preview".
void requirePicture(const std::filesystem::path& output, const std::string& what);

/// The same; also refuses patterns of numbered names.
void requireOnePicture(const std::filesystem::path& output, const std::string& what);

/// The files written, for people: one name, or the first of a sequence "to" its last. `output` is the
/// requested name.
std::string writtenFiles(const std::vector<std::filesystem::path>& files,
                         const std::filesystem::path& output);

} // namespace Qx::Program
