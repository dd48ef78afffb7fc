#include "plugins/mlt/ModuleHost.h"

#include "tools/qxhost/pipeline/frames/FrameHost.h"

#include <mutex>

namespace Qx::Mlt {

namespace {

/// MLT is closed after its services; the module stays loaded.
void stopHost(void* /*nothing*/)
{
    Program::stopFrameHost();
}

void stopWithMlt()
{
    static std::once_flag once;
    std::call_once(once, [] {
        static int anything = 0;
        mlt_factory_register_for_clean_up(&anything, stopHost);
    });
}

} // namespace

std::string startHost()
{
    stopWithMlt();
    return Program::startFrameHost({});
}

std::string openDevice(mlt_service service)
{
    stopWithMlt();
    const char* const device = mlt_properties_get(MLT_SERVICE_PROPERTIES(service), "device");
    std::string failure = Program::openFrameDevice(device != nullptr ? device : "");
    for (const std::string& line : Program::takeHostComplaints()) {
        mlt_log_warning(service, "%s\n", line.c_str());
    }
    return failure;
}

} // namespace Qx::Mlt
