#pragma once

#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/diagnose/Comparison.h"
#include "tools/qxhost/diagnose/Report.h"

#include <string>
#include <string_view>

namespace Qx::Diagnosis {

/// The report as JSON, with its verdict, which is there for other programs and not read back.
Program::Json toJson(const Report& report);

/// Reads a report that toJson() made. `name` is the file's, for messages. Throws Failure (input), which names
/// the file, the line or the place in it, and what is wrong there.
Report reportFrom(std::string_view text, const std::string& name);

/// A comparison's remarks and changes, for other programs.
Program::Json toJson(const Comparison& comparison);

Program::Json toJson(const Figure& figure);

/// Throws Failure (input); `where` names the place.
Figure figureFrom(const Program::Json& json, const std::string& where);

} // namespace Qx::Diagnosis
