#pragma once

#include "host/luts/LUTReader.h"
#include "host/luts/Source.h"

namespace Qx::Host::Luts {

/// The edge of tables that are made of formulas.
inline constexpr int finestFormulaTable = 65;

struct BuiltSteps
{
    LUTSteps steps;
    double error = 0.0; ///< as LUTReading::error
    Colour worst{};     ///< the colour whose error is largest
};

/// Turns a file's parts into steps: what is separable into curves, anything else that is no table or matrix
/// into a table. Several distributions of points are tried until the error is small enough, see
/// largestLUTError; the best one is returned. The error is infinite if a colour becomes none.
BuiltSteps buildSteps(const Source& source, LUTInput input = LUTInput::Codes);

/// What steps are for.
struct StepsWanted
{
    double largestError = largestLUTError;
    LUTInput input = LUTInput::Codes;
};

/// The steps with the facts of the source. Empty if their error is more than is wanted or a colour becomes
/// none.
std::optional<LUTReading> readingOf(const Source& source, const StepsWanted& wanted, Refusal& refusal);

} // namespace Qx::Host::Luts
