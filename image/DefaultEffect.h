#pragma once

#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "image/ApplicationKit.h"
#include "platform/Api.h"
#include "platform/ShaderEffect.h"
#include "platform/Surface.h"

namespace Qx::Image {

/// "null.fx" and what its techniques need. A conversion takes it once, before its first step: the manager may
/// be shut down between two steps, and asking for the manager again then would create another.
class QX_LOCAL DefaultEffect
{
public:
    /// Blocks while the effect is being compiled.
    DefaultEffect() noexcept;

    const Qx::Ptr<iShaderEffect>& effect() const noexcept { return effect_; }
    const CriticalSection& lock() const noexcept { return kit_->gpuLock; }

    /// The two forms of applyTechnique().
    bool apply(const Surface& src, Surface& dst, const LightweightString<char>& technique,
               float width) const noexcept;
    bool applyIfThere(const Surface& src, Surface& dst, const LightweightString<char>& technique,
                      float width) const noexcept;

private:
    Qx::Ptr<ApplicationKit> kit_;
    Qx::Ptr<iShaderEffect> effect_;
};

} // namespace Qx::Image
