#pragma once

#include "Qx/LightweightString.h"
#include "host/Host.h"
#include "host/fonts/TextShaper.h"

namespace Qx::Host::Text {

/// Sizes of fonts, in pixels.
constexpr int smallestFont = 1;
constexpr int largestFont = 2048;

/// Empty when a typeface, or a font file, can be had in that size, and why not otherwise. `remark` then says
/// what stands in for it, if something does. Any thread.
QX_HOST_API std::string whyNoTypeface(const std::string& typeface, int size, std::string& remark);

/// Finds a typeface and opens it. Null, after a line in the log, when that cannot be done. The log also has
/// what stands in for a typeface that is not there, once for each. Any thread.
std::shared_ptr<TextShaper> openTypeface(const LightweightString<wchar_t>& typeface, int size, int style);

} // namespace Qx::Host::Text
