#pragma once

#include "tools/qxhost/diagnose/Comparison.h"
#include "tools/qxhost/diagnose/Report.h"
#include "tools/qxhost/diagnose/Verdict.h"

#include <string>

namespace Qx::Diagnosis {

/// The report as text, a piece at a time, so that it can be shown while it is made.
class TextReport
{
public:
    /// The suite's own lines, as they stand.
    static std::string line(const SuiteLine& line);

    /// A figure, with the headings that are due.
    std::string figure(const Figure& figure);

    /// The verdict.
    static std::string end(const Report& report, const Verdict& verdict);
    static std::string comparison(const Comparison& comparison);

private:
    bool begun_ = false;
    std::string group_;
};

/// The whole of it.
std::string textOf(const Report& report);

/// Three digits that count: "1234", "123", "12.3", "1.23", "0.123".
std::string digits(double value);

/// "12.3 frames/s"; "not measured" for an empty value.
std::string quantity(const std::optional<double>& value, const std::string& unit);

/// "+12 %"; empty for an empty value.
std::string signedPercent(const std::optional<double>& percent);

} // namespace Qx::Diagnosis
