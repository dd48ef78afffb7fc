#pragma once

#include "host/effects/worker/EffectWorkers.h"
#include "platform/GPUService.h"

namespace Qx::Host {

/// What a worker is asked for when the library names an effect file. Includes are also searched for in the
/// shaders' directory and its "Include", and in the template directories of the user and the machine.
Worker::CompileRequest compileRequest(const LightweightString<wchar_t>& path,
                                      const iGPUService::Definitions& definitions);

/// The same for the other effects in that one's directory, in the order of their names; those whose names
/// begin with an underscore are for including only.
std::vector<Worker::CompileRequest> requestsBeside(const Worker::CompileRequest& request);

} // namespace Qx::Host
