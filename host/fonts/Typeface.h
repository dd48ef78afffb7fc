#pragma once

#include "Qx/LightweightString.h"
#include "host/fonts/TextPainter.h"
#include "host/fonts/TextShaper.h"

namespace Qx::Host::Text {

/// Finds a typeface and opens it. Null, with a line in the log, on failure. A substitute for a missing
/// typeface is logged once. Thread-safe.
std::shared_ptr<TextShaper> openTypeface(const LightweightString<wchar_t>& typeface, int size, int style);

} // namespace Qx::Host::Text
