#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/LightweightString.h"
#include "Qx/iObject.h"
#include "platform/CriticalSection.h"
#include "platform/ShaderEffect.h"

namespace Qx::Image {

/// What every technique application needs, kept between applications so that none allocates memory. Shared by
/// the manager and the applications in progress, which may outlive it.
struct ApplicationKit : iObject
{
    explicit ApplicationKit(const CriticalSection& lockOfTheManager) : gpuLock(lockOfTheManager) {}

    const CriticalSection gpuLock;
    const LightweightString<wchar_t> defaultEffect{L"null.fx"};
    const LightweightString<char> width{"_Width"};
    const LightweightString<char> height{"_Height"};
    const LightweightString<char> input{"Input"};
    Qx::Vector<iShaderEffect::Source> sources; ///< empty between applications; guarded by gpuLock
};

} // namespace Qx::Image
