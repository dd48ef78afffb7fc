#pragma once

#include "host/effects/framework/EffectSyntax.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace Qx::Host::Effects {

/// A hint for a message of the HLSL compiler about an unknown name, such as " (did you mean X?)"; may be
/// empty. `piece` is the piece of the effect that the message is about.
std::string hintFor(std::string_view message, const EffectSyntax& syntax, std::optional<std::size_t> piece);

} // namespace Qx::Host::Effects
