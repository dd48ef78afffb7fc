#pragma once

#include "platform/GPUImage.h"
#include "platform/ShaderEffect.h"

namespace Qx::Bench {

/// The effect that corrects colours, with lift, gamma, gain and saturation set.
class Grade
{
public:
    Grade();

    /// Records the pass. Returns false on failure.
    bool draw(const Qx::Ptr<iGPUImage>& source, const Qx::Ptr<iGPUImage>& target) const;

private:
    Qx::Ptr<iShaderEffect> effect_;
};

} // namespace Qx::Bench
