#pragma once

#include "tools/qxhost/pipeline/look/Look.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Program {

// Looks as files: TOML, described in docs/looks.md.

/// How the names of these files end.
constexpr const char* lookEnding = ".look.toml";

/// Reads a look. Steps are numbered from 1. Paths become absolute: those of the file count from its folder,
/// where a name without a folder is a file that lies there, else one of the catalogue. Neither effects nor
/// LUTs need to exist. Throws Failure (input), which names the file and the line.
Look readLook(const std::filesystem::path& file);

/// Reads the text of a look as if it were that file's.
Look readLookText(const std::string& text, const std::filesystem::path& file);

/// The text of a look whose file is to lie in a folder: readLook() makes the same look of it, but for the
/// numbers of its steps. Paths of files in or below the folder are relative to it. Throws Failure (output) if
/// the look cannot be written so, with the reason.
std::string lookText(const Look& look, const std::filesystem::path& folder);

/// Writes a look: aside, synced, and renamed. Throws Failure (output), also if the file exists and `replace`
/// is false.
void writeLook(const Look& look, const std::filesystem::path& file, bool replace);

/// The looks of a folder, their names in order. Empty if there are none, or the folder cannot be read.
std::vector<std::string> looksIn(const std::filesystem::path& folder);

} // namespace Qx::Program
