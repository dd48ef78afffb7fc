#pragma once

#include <string>
#include <string_view>

namespace Qx::Host::Effects {

/// What the HLSL compiler said about a line of a pass's text, in words for the author of the effect, who
/// wrote neither that text nor the names that it adds.
std::string readableMessage(std::string_view message, std::string_view line);

} // namespace Qx::Host::Effects
