#pragma once

#include <string_view>

namespace Qx::Host::Effects {

/// The name that the HLSL compiler gets for an author's name: full precision everywhere, combined samplers,
/// our sampling functions, and no function of the author's called main.
std::string_view hlslName(std::string_view name);

} // namespace Qx::Host::Effects
