#pragma once

#include <string>

namespace Qx::Media {

/// The first filter of a graph in libavfilter's syntax whose result for a frame may depend on other frames,
/// on how many came before, or on a file; empty if there is none. A filter that is not known to look at one
/// frame alone counts as one that may.
std::string dependentFilter(const std::string& graph);

} // namespace Qx::Media
