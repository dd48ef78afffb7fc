#pragma once

#include "Qx/LightweightString.h"
#include "host/Host.h"
#include "host/fonts/TextShaper.h"

namespace Qx::Host::Text {

/// Sizes of fonts, in pixels.
constexpr int smallestFont = 1;
constexpr int largestFont = 2048;

/// Empty if a typeface or font file is available in that size; otherwise the reason. `remark` then describes
/// the substitute, if there is one. Thread-safe.
QX_HOST_API std::string whyNoTypeface(const std::string& typeface, int size, std::string& remark);

/// Finds a typeface and opens it. Null, with a line in the log, on failure. A substitute for a missing
/// typeface is logged once. Thread-safe.
std::shared_ptr<TextShaper> openTypeface(const LightweightString<wchar_t>& typeface, int size, int style);

} // namespace Qx::Host::Text
