#pragma once

#include "tools/qxhost/pipeline/options/FilterOptions.h"

#include <CLI/CLI.hpp>
#include <string>

namespace Qx::Program {

/// The short forms as graphs, each empty if it was not given.
struct ShortFilters
{
    std::string deinterlace;
    std::string crop;
    std::string resize;
    std::string pad;
};

/// Adds "--before", "--after" and the short forms. The targets must live as long as the command.
void addFilters(CLI::App& app, FilterOptions& filters, ShortFilters& shortFilters);

/// The short forms behind --deinterlace as one graph, in the order in which they run.
std::string graphOf(const ShortFilters& shortFilters);

} // namespace Qx::Program
