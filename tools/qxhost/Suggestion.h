#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Qx::Program {

/// The candidate that a mistyped word most likely meant, letter case aside; empty when none is close.
std::string closest(std::string_view word, const std::vector<std::string>& candidates);

/// " (did you mean X?)", or empty.
std::string didYouMean(std::string_view word, const std::vector<std::string>& candidates);

/// "a, b and c".
std::string listed(const std::vector<std::string>& words);

} // namespace Qx::Program
