#pragma once

#include "host/luts/LUTReader.h"
#include "host/luts/LUTSteps.h"
#include "host/luts/Table.h"

#include <utility>
#include <vector>

namespace Qx::Host::Luts {

/// A part of a file that is known only by what it does to colours.
struct Formula
{
    Evaluation evaluate;
    bool separable = false; ///< each channel depends on itself alone, so curves can follow it
    bool keepsHue = false;  ///< as LUTCurves::keepsHue; `evaluate` does not do that
};

/// A step that is known, or a formula that is to become one.
struct Part
{
    explicit Part(LUTStep known) : step(std::move(known)) {}
    explicit Part(Formula unknown) : step(std::in_place_type<LUTMatrix>), formula(std::move(unknown)) {}

    bool isFormula() const { return static_cast<bool>(formula.evaluate); }

    LUTStep step; ///< unless it is a formula
    Formula formula;
};

/// What is to be made of a file.
enum class Wanted
{
    Steps,
    Table
};

/// What a reader found in a file.
struct Source
{
    LUTFacts facts;
    Evaluation evaluate;         ///< the whole file
    std::vector<Part> parts;     ///< the same in parts, one after the other; empty for Wanted::Table
    std::vector<Part> merged;    ///< the same in fewer parts, or empty
    Qx::Ptr<iHostImage3D> table; ///< when the file is one table
    TableDomain domain;          ///< of the file's first table or curves
    std::vector<int> sizes;      ///< edges of its tables and lengths of its curves
    std::size_t knots = 0;       ///< points of its longest curves

    /// Whether `evaluate` is more than `parts` put together, so that the steps must be compared with it.
    bool judged = false;
};

} // namespace Qx::Host::Luts
