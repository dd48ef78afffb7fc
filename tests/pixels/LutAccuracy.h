#pragma once

#include <iosfwd>

namespace Qx::Pixels {

/// Draws LUT files of every kind and appends a table of their differences from OpenColorIO to a Markdown
/// page. Needs a running host. False if one cannot be drawn.
bool writeLuts(std::ostream& page);

} // namespace Qx::Pixels
