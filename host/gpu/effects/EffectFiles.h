#pragma once

#include "host/effects/worker/EffectWorkers.h"
#include "platform/GPUService.h"

namespace Qx::Host {

/// The request to a worker for an effect file that the library names. Includes are also searched for in the
/// shaders directory and its "Include", and in the template directories of the user and the machine.
Worker::CompileRequest compileRequest(const LightweightString<wchar_t>& path,
                                      const iGPUService::Definitions& definitions);

/// The requests for the other effects in that one's directory, ordered by name. Files whose names begin with
/// an underscore are only for including.
std::vector<Worker::CompileRequest> requestsBeside(const Worker::CompileRequest& request);

} // namespace Qx::Host
