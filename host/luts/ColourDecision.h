#pragma once

#include "host/Host.h"

#include <array>
#include <string>
#include <vector>

/// Corrections of the American Society of Cinematographers' Color Decision List, version 1.2.
namespace Qx::Host {

/// (in * slope + offset) ^ power for each channel, and then saturation about the luma of BT.709.
struct ColourDecision
{
    std::array<double, 3> slope{1, 1, 1};  ///< red first, as of the others
    std::array<double, 3> offset{0, 0, 0}; ///< of levels from 0 to 1
    std::array<double, 3> power{1, 1, 1};  ///< more than 0
    double saturation = 1;                 ///< 1: as it was; 0: grey
};

/// What is done to values outside 0 to 1 on their way.
enum class DecisionStyle
{
    clamps, ///< as the list's definition says
    keeps   ///< as many programs have it
};

/// The correction as OpenColorIO computes it.
QX_HOST_API std::vector<std::array<float, 3>> apply(const ColourDecision& decision, DecisionStyle style,
                                                    const std::vector<std::array<float, 3>>& colours);

/// The text of a file with the extension "cc" or "cdl"; empty for any other. `id` names the correction.
QX_HOST_API std::string textOf(const ColourDecision& decision, const std::string& id,
                               const std::string& extension);

} // namespace Qx::Host
