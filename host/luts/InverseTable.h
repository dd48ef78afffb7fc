#pragma once

#include "host/luts/LUTSteps.h"
#include "host/luts/Table.h"

#include <optional>

namespace Qx::Host::Luts {

/// Prepares the inversion of a table. Empty if so many cells have the same colours that a search would take
/// too long.
std::optional<LUTInverse> inverseOf(const iHostImage3D& table);

} // namespace Qx::Host::Luts
