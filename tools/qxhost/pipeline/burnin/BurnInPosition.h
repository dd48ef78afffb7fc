#pragma once

#include "tools/qxhost/pipeline/options/BurnInOptions.h"

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace Qx::Program {

/// Reads "top-left", "centre" or "120,80", ignoring case. Empty if it is no position.
std::optional<std::variant<BurnInAnchor, BurnInPlace>> positionNamed(const std::string& word);

/// The words for positions.
std::vector<std::string> positionWords();

} // namespace Qx::Program
