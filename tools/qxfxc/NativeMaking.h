#pragma once

#include "host/effects/EffectCompilation.h"
#include "host/effects/EffectCompiler.h"

namespace Qx::Host::Worker {

/// Makes the native code that is wished for of the effect's shaders, and runs it once. What cannot be made
/// has CompiledEffect::PackedShader::codeProblem.
void makeNativeCode(EffectCompilation& compilation, const NativeWish& wish);

} // namespace Qx::Host::Worker
