#pragma once

#include "host/settings/Toml.h"
#include "tools/qxhost/console/ExitCode.h"

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace Qx::Program {

// Files of TOML that people write: presets and looks.

/// An entry of a table; the node lives in the table.
using TomlEntry = std::pair<std::string, const toml::node*>;

/// The entries of a table by their places in the file; the library sorts them by their keys.
std::vector<TomlEntry> entriesInOrder(const toml::table& table);

/// Parses a file of at most 1 MiB. `name` is what messages call it, `kind` what it should be: "a preset".
/// Throws Failure with this code, as parseToml() does.
toml::table readToml(const std::filesystem::path& file, const std::string& name, const char* kind,
                     ExitCode code);

/// Parses the text of that file. Throws Failure with this code, which names the line of what is no TOML.
toml::table parseToml(const std::string& text, const std::filesystem::path& file, ExitCode code);

/// "FILE:LINE: WHAT".
std::string complaintAt(const std::filesystem::path& file, unsigned line, const std::string& what);

} // namespace Qx::Program
