#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace Qx::Host::Tests {

/// Texts with many parts.
std::string repeated(const std::string& text, std::size_t count);

/// The concatenated results of `text` for "0", "1" and so on.
std::string numbered(std::size_t count, const std::function<std::string(const std::string&)>& text);

} // namespace Qx::Host::Tests
