#pragma once

#include <string>
#include <string_view>

namespace Qx::Host::Effects {

/// Rewrites a message of the HLSL compiler about a line of a pass's text for the author of the effect, who
/// does not know that text or the names that the compiler adds.
std::string readableMessage(std::string_view message, std::string_view line);

} // namespace Qx::Host::Effects
