#pragma once

#include "host/surfaces/FormatTable.h"

#include <string>

namespace Qx::Program {

/// Draws with characters how a format's components lie in memory at a depth, from the format table. Every
/// line ends in a line feed.
std::string drawLayout(const Host::FormatInfo& info, unsigned bits);

} // namespace Qx::Program
