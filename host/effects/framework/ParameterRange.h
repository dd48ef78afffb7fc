#pragma once

#include "host/effects/CompiledEffect.h"
#include "platform/Api.h"

#include <optional>
#include <string>

namespace Qx::Host {

/// The range and label that a parameter's annotations give.
struct ParameterRange
{
    std::optional<double> least; ///< Min or UIMin
    std::optional<double> most;  ///< Max or UIMax
    std::string label;           ///< Label or UIName; empty without one

    bool hasLimits() const { return least || most; } ///< Whether there is a least or a largest value.

    /// Whether no value lies in it.
    bool isEmpty() const { return least && most && *least > *most; }

    /// Whether a value is in it, with the limits rounded to floats as in the effect.
    QX_LOCAL bool holds(float value) const;

    /// "from 0 to 4", "of at least 0" or "of at most 4"; has limits.
    QX_LOCAL std::string written() const;
};

/// A number as messages write it: six digits at most.
QX_LOCAL std::string written(double number);

/// Names of annotations ignore case. A limit that is not a number is ignored.
QX_LOCAL ParameterRange rangeOf(const CompiledEffect::Parameter& parameter);

} // namespace Qx::Host
