#pragma once

#include "tools/qxhost/diagnose/Comparison.h"
#include "tools/qxhost/diagnose/Report.h"

#include <optional>
#include <string>
#include <string_view>

namespace Qx::Diagnosis {

/// The report as a page of HTML that needs nothing beside itself: style and plots (SVG) are in it, and there
/// is no script. It is made for screens of any width, light and dark, and for paper; every plot's figures are
/// in a table too.
std::string pageOf(const Report& report, const std::optional<Comparison>& comparison);

/// Text for an element's content or an attribute in double quotes. What HTML cannot hold (control characters,
/// bytes that are no UTF-8) becomes U+FFFD.
std::string escaped(std::string_view text);

} // namespace Qx::Diagnosis
