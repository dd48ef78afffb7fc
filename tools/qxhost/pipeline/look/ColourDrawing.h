#pragma once

#include "host/effects/Supplies.h"
#include "tools/qxhost/pipeline/frames/FrameProcessor.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <array>
#include <cstdint>
#include <vector>

namespace Qx::Program {

/// Red, green and blue in codes of 16 bits, full range.
using DeepColour = std::array<std::uint16_t, 3>;

/// Where colours lie in a picture, and when it is shown.
struct ColourPlaces
{
    unsigned width = 0;     ///< of the picture, in pixels; its height is what they need
    std::uint32_t seed = 0; ///< of the order that they lie in; 0: one after the other
    Host::FrameFacts facts; ///< size and date are filled in
};

/// Draws colours through effects, to learn what these do to a colour by itself. Needs a HostSession with a
/// device. Drawing is serialised with that of every other FrameProcessor; who draws by other means must not
/// do so meanwhile.
class ColourDrawing
{
public:
    /// Throws Failure (effect, device).
    explicit ColourDrawing(const std::vector<EffectRequest>& effects);

    /// What has become of the colours, in their own order. Between and behind them lie others. Throws Failure
    /// (effect, device).
    std::vector<DeepColour> draw(const std::vector<DeepColour>& colours, const ColourPlaces& places);

    /// Whether any picture came out with pixels that are not opaque.
    bool hasMadeAlpha() const { return hasMadeAlpha_; }

    const EffectChain& effects() const { return processor_.effects(); }

private:
    FrameProcessor processor_;
    bool hasMadeAlpha_ = false;
};

/// The largest difference of a component, in codes.
int largestDifference(const std::vector<DeepColour>& a, const std::vector<DeepColour>& b);

} // namespace Qx::Program
