#pragma once

#include "host/effects/EffectCache.h"
#include "platform/GPUService.h"

namespace Qx::Host {

/// Compiles an effect file that the library names, or takes it from the cache, if there is one. Includes are
/// also searched for in the shaders' directory and its "Include", and in the template directories of the user
/// and the machine.
EffectCompilation compileFile(const LightweightString<wchar_t>& path,
                              const iGPUService::Definitions& definitions, const EffectCache* cache);

} // namespace Qx::Host
