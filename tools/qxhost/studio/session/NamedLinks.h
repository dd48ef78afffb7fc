#pragma once

#include "tools/qxhost/pipeline/look/Look.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Program::Studio {

/// The step that a word of the command line, or a name of the catalogue, stands for: a LUT if it ends as LUT
/// files do, else an effect. Throws Failure (effect) if there is no such file.
LookLink linkNamed(const std::string& word);

/// The step of a file of the catalogue, or of the LUT directories, by its name or its path. Throws Failure
/// (usage) for any other: a window opens no other files.
LookLink catalogueLink(LookLink::Kind kind, const std::string& name);

/// The effects of the catalogue that are no parts of the program's own, and the LUTs, by their names.
std::vector<std::filesystem::path> cataloguedFiles(LookLink::Kind kind);

/// The step's file.
std::filesystem::path fileOfLink(const LookLink& link);

} // namespace Qx::Program::Studio
