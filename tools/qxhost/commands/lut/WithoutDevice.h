#pragma once

#include "host/Host.h"
#include "tools/qxhost/console/Console.h"
#include "tools/qxhost/pipeline/device/HostSession.h"

namespace Qx::Program {

/// The reference host, started for a command that needs no device.
class WithoutDevice
{
public:
    explicit WithoutDevice(Console& console)
    {
        Host::start({.argc = 0, .argv = nullptr, .device = nullptr, .quiet = true});
        tellComplaints(console);
    }
    ~WithoutDevice() { Host::stop(); }
    WithoutDevice(const WithoutDevice&) = delete;
    WithoutDevice& operator=(const WithoutDevice&) = delete;
};

} // namespace Qx::Program
