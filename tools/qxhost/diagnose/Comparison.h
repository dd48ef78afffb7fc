#pragma once

#include "tools/qxhost/diagnose/Report.h"

#include <optional>
#include <string>
#include <vector>

namespace Qx::Diagnosis {

/// What became of one figure from a run to a later one.
struct Change
{
    enum class Meaning
    {
        same, ///< within what two runs differ by anyhow
        better,
        worse,
        changed, ///< neither is better
        unknown, ///< not measured in one of the runs
    };

    std::string group;
    std::string title;
    std::string unit;
    std::optional<double> before;
    std::optional<double> now;
    std::optional<double> percent; ///< of before; empty where that is nothing or not known
    Meaning meaning = Meaning::unknown;
};

struct Comparison
{
    std::string name; ///< of the earlier run, as the user knows it
    std::string date;
    std::string device;
    std::vector<std::string> remarks; ///< why the runs compare badly
    std::vector<Change> changes;      ///< in the order of the later run's figures
};

/// Percent that count as no change.
inline constexpr double noise = 10;

/// Figures that neither run has measured are left out, and those that one of them was not asked for.
Comparison compare(const Report& before, const Report& now, const std::string& name);

/// "better", "worse", "same".
std::string_view nameOf(Change::Meaning meaning);

} // namespace Qx::Diagnosis
