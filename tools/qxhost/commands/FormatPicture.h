#pragma once

#include "host/surfaces/FormatTable.h"

#include <string>

namespace Qx::Program {

/// How a format's components lie in memory at a depth, drawn with characters from what the table says of
/// them. Lines end with a line feed.
std::string drawLayout(const Host::FormatInfo& info, unsigned bits);

} // namespace Qx::Program
