#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/LightweightString.h"
#include "platform/ShaderEffect.h"

namespace Qx::Image {

/// What every technique application needs, kept between applications so that none allocates memory.
struct ApplicationKit
{
    const LightweightString<wchar_t> defaultEffect{L"null.fx"};
    const LightweightString<char> width{"_Width"};
    const LightweightString<char> height{"_Height"};
    const LightweightString<char> input{"Input"};
    Qx::Vector<iShaderEffect::Source>
        sources; ///< empty between applications; guarded by the manager's gpuLock()
};

} // namespace Qx::Image
