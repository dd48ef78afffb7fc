#pragma once

#include <string_view>

namespace Qx::Host {

/// Whether a file name matches a pattern, in which '*' stands for any characters and '?' for one. Case is
/// ignored.
bool matchesPattern(std::wstring_view name, std::wstring_view pattern);

} // namespace Qx::Host
