#pragma once

#include "host/effects/CompiledEffect.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/pipeline/look/Look.h"

#include <cstdint>
#include <vector>

namespace Qx::Program::Studio {

/// Whether a user sets the parameter: nobody else does, and it has one to four components, or is an array of
/// a few numbers, which are a curve.
bool isControl(const Host::CompiledEffect::Parameter& parameter);

/// How many values it has.
std::uint32_t controlSize(const Host::CompiledEffect::Parameter& parameter);

/// How a page presents the parameters of a step, by their annotations, and their values in that frame.
Json controlsOf(const Host::CompiledEffect& effect, const LookLink& link, std::int64_t frame);

} // namespace Qx::Program::Studio
