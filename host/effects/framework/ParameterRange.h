#pragma once

#include "host/effects/CompiledEffect.h"

#include <optional>
#include <string>

namespace Qx::Host {

/// What a parameter's annotations offer to a person who sets it.
struct ParameterRange
{
    std::optional<double> least; ///< Min or UIMin
    std::optional<double> most;  ///< Max or UIMax
    std::string label;           ///< Label or UIName; empty without one
};

/// Names of annotations go without regard to case; a limit that is no number counts as none.
ParameterRange rangeOf(const CompiledEffect::Parameter& parameter);

} // namespace Qx::Host
