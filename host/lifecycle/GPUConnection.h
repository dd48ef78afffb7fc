#pragma once

class iGPUService;

namespace Qx::Host {

struct StartOptions;

/// The GPU service behind OS().gpu(), which starts its device on first use.
iGPUService& connectedGPU();

/// What the service starts with, from the program's choice and the settings. No effect once it has started.
void configureGPU(const StartOptions& start);

/// The service's end. Its operations fail from now on.
void shutDownGPU();

} // namespace Qx::Host
