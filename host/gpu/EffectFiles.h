#pragma once

#include "host/effects/EffectCompiler.h"
#include "platform/Api.h"
#include "platform/GPUService.h"

namespace Qx::Host {

/// Compiles an effect file that the library names. Includes are also searched for in the shaders' directory
/// and its "Include", and in the template directories of the user and the machine.
QX_API EffectCompilation compileFile(const LightweightString<wchar_t>& path,
                                     const iGPUService::Definitions& definitions);

} // namespace Qx::Host
