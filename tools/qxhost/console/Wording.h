#pragma once

#include <string>
#include <vector>

namespace Qx::Program {

/// "a, b and c", or with another word before the last.
std::string listed(const std::vector<std::string>& words, const std::string& conjunction = "and");

/// Lays out rows of cells in columns as wide as their widest cell, two blanks apart. Control characters are
/// escaped.
std::string table(const std::vector<std::vector<std::string>>& rows);

} // namespace Qx::Program
