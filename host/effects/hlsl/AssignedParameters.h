#pragma once

#include "host/effects/framework/EffectSyntax.h"

#include <string_view>
#include <unordered_set>

namespace Qx::Host::Effects {

/// The parameters that a function may assign to, by their names. A local variable of the name of a parameter
/// may be taken for it.
std::unordered_set<std::string_view> assignedParameters(const EffectSyntax& syntax);

} // namespace Qx::Host::Effects
