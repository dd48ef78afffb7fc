#pragma once

#include <string>

namespace Qx::Program {

/// Graphs of FFmpeg's filters, in its syntax. Empty: none.
struct FilterOptions
{
    std::string before; ///< on decoded frames
    std::string after;  ///< on converted ones
    std::string
        shortForms; ///< what --deinterlace, --crop, --resize and --pad stand for; runs behind `before`

    bool any() const { return !before.empty() || !after.empty() || !shortForms.empty(); }
};

} // namespace Qx::Program
