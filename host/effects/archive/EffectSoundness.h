#pragma once

#include "host/effects/CompiledEffect.h"

namespace Qx::Host {

/// Whether the compiler could have made the effect: its numbers are in their range, its parameters lie within
/// the uniform buffer, its indices are valid, and its shaders are SPIR-V by their structure.
bool isSound(const CompiledEffect& effect);

} // namespace Qx::Host
