#pragma once

#include <string>

namespace Qx::Program {

/// Graphs of FFmpeg's filters, in its syntax. Empty: none.
struct FilterOptions
{
    std::string before;      ///< on decoded frames
    std::string after;       ///< on converted ones
    std::string deinterlace; ///< what --deinterlace stands for; runs behind `before`
    std::string shortForms;  ///< what --crop, --resize and --pad stand for; runs behind these

    bool any() const
    {
        return !before.empty() || !after.empty() || !deinterlace.empty() || !shortForms.empty();
    }
};

} // namespace Qx::Program
