#pragma once

namespace Qx::Host::Worker {

/// The descriptor that the host leaves to the worker: a stream socket to the host.
constexpr int hostSocket = 3;

/// Another one, which is never read: the system kills the worker when the host is gone that holds its other
/// end.
constexpr int lifeline = 4;

/// Serves the host until it hangs up. The process's exit code.
int serveHost();

} // namespace Qx::Host::Worker
