#pragma once

#include "Qx/LightweightString.h"
#include "host/fonts/TextShaper.h"

namespace Qx::Host::Text {

/// Sizes of fonts, in pixels.
constexpr int smallestFont = 1;
constexpr int largestFont = 2048;

/// Finds a typeface and opens it. Null, after a line in the log, when that cannot be done. The log also has
/// what stands in for a typeface that is not there, once for each. Any thread.
std::shared_ptr<TextShaper> openTypeface(const LightweightString<wchar_t>& typeface, int size, int style);

} // namespace Qx::Host::Text
