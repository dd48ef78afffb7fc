#pragma once

#include "host/effects/CompiledEffect.h"

#include <optional>
#include <string>

namespace Qx::Host {

/// The range and label that a parameter's annotations give.
struct ParameterRange
{
    std::optional<double> least; ///< Min or UIMin
    std::optional<double> most;  ///< Max or UIMax
    std::string label;           ///< Label or UIName; empty without one
};

/// Names of annotations ignore case. A limit that is not a number is ignored.
ParameterRange rangeOf(const CompiledEffect::Parameter& parameter);

} // namespace Qx::Host
