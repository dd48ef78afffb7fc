#pragma once

#include "host/luts/Table.h"

namespace Qx::Host::Luts {

struct Baked
{
    Qx::Ptr<Table> table;
    double error = 0.0; ///< as LUTFacts::error
};

/// Evaluates a function on the first grid that is fine enough, or the finest: see readLUTTable. `sizes` are
/// further grids to try, those of the function's own tables; `knots` are where its curves bend, from 0 to 1
/// along the domain, which are among the colours tried. A table that is not finite has an infinite error.
Baked bake(const Evaluation& evaluate, const TableDomain& domain, const std::vector<int>& sizes,
           std::size_t knots);

} // namespace Qx::Host::Luts
