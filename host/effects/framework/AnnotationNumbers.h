#pragma once

#include <string_view>
#include <vector>

namespace Qx::Host::Effects {

/// The numbers of an annotation's value: "{ 0.5, 1.0 / 4 }", "float2(256, 128)" or "0.5".
std::vector<double> numbersIn(std::string_view text);

} // namespace Qx::Host::Effects
