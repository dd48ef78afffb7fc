#pragma once

class iGPUService;

namespace Qx::Host {

struct StartOptions;

/// The GPU service behind OS().gpu(), whose device is opened on first use.
iGPUService& connectedGPU();

/// Sets the service's options, by the program's choice and the settings. No effect once it has started.
void configureGPU(const StartOptions& start);

/// Ends the service. Its operations fail from now on.
void shutDownGPU();

} // namespace Qx::Host
