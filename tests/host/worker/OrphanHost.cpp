/// A host that asks a worker for an effect, for a test that kills the host meanwhile. Its arguments are the
/// worker's program and the effect.

#include "host/effects/worker/EffectWorkers.h"

int main(int, char** arguments)
{
    using namespace Qx::Host::Worker;
    EffectWorkersOptions options;
    options.program = arguments[1];
    EffectWorkers workers(options);
    return workers.compile({arguments[2], "/", {}}).effect != nullptr ? 0 : 1;
}
