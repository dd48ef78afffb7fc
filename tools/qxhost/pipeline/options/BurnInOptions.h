#pragma once

#include <string>
#include <variant>

namespace Qx::Program {

/// Where the box of a burned-in text lies: at an edge of the safe area, in a corner of it, or in the middle.
struct BurnInAnchor
{
    int across = 0; ///< -1 left, 0 middle, 1 right
    int down = 1;   ///< -1 top, 0 middle, 1 bottom

    bool operator==(const BurnInAnchor&) const = default;
};

/// Its top left corner in pixels of the picture.
struct BurnInPlace
{
    int x = 0;
    int y = 0;

    bool operator==(const BurnInPlace&) const = default;
};

/// One "--burn-in TEXT" with its further options.
struct BurnInOptions
{
    std::string text; ///< with fields; not empty
    std::string font; ///< a typeface or a file; empty: the system's monospaced one
    int size = 0;     ///< pixels; 0: chosen from the picture's height
    std::variant<BurnInAnchor, BurnInPlace> position;
};

} // namespace Qx::Program
