#pragma once

#include <optional>
#include <string_view>

/// Numbers in LUT files, read the same whatever the process's locale.
namespace Qx::Host::Luts {

/// Whether a word can only be meant as a number: digits, a sign, a point, or a name of what is not finite.
bool beginsNumber(std::string_view word);

/// The number; infinite or not a number when the word says so or it exceeds a float. Empty for anything else.
std::optional<float> number(std::string_view word);

std::optional<long> wholeNumber(std::string_view word);

} // namespace Qx::Host::Luts
