#pragma once

#include <string>
#include <vector>

namespace Qx::Program {

/// "a, b and c".
std::string listed(const std::vector<std::string>& words);

} // namespace Qx::Program
