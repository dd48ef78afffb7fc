#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Qx::Host::Effects {

/// A line of a file as messages show it.
struct Excerpt
{
    std::string text; ///< printable, at most about a hundred terminal cells wide; empty for a blank line
    std::uint32_t caret = 0; ///< place of the column, in terminal cells from 0
};

/// The line of the text around the column; both count from 1.
Excerpt excerptOf(std::string_view text, std::uint32_t line, std::uint32_t column);

} // namespace Qx::Host::Effects
