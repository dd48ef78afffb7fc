#pragma once

#include "platform/ShaderEffect.h"
#include "platform/Surface.h"
#include "tools/qxhost/diagnose/FrameSizes.h"
#include "tools/qxhost/diagnose/Probe.h"

#include <deque>
#include <vector>

namespace Qx::Diagnosis {

/// A stream of frames as an editor has them: each goes to the device as 4:2:2 of 8 bits, becomes RGB, passes
/// an effect, becomes 4:2:2 again and is read back. Several are under way at once. One thread a stream.
class WholeFrames
{
public:
    WholeFrames(Probe& probe, const FrameSize& size);

    /// Orders a frame and waits for the oldest that is under way, once there are enough; false when the
    /// device refuses.
    bool next();

    /// Waits for all that are under way.
    bool drain();

private:
    bool order();
    bool take();

    Probe& probe_;
    Qx::Ptr<iShaderEffect> effect_;
    std::vector<Image::Surface> frames_; ///< in host memory, one for each that is under way
    std::deque<Image::Surface> results_;
    std::size_t ordered_ = 0;
};

} // namespace Qx::Diagnosis
