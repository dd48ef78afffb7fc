#pragma once

#include <string>
#include <vector>

namespace Qx::Program {

/// "a, b and c".
std::string listed(const std::vector<std::string>& words);

/// "a, b or c".
std::string oneOf(const std::vector<std::string>& words);

/// Rows of cells in columns of their widest cell, two blanks apart. Control characters are written
/// out.
std::string table(const std::vector<std::vector<std::string>>& rows);

} // namespace Qx::Program
