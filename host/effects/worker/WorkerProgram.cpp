#include "host/effects/worker/WorkerProgram.h"

#include <dlfcn.h>
#include <system_error>

namespace Qx::Host::Worker {

std::filesystem::path installedWorker()
{
    using std::filesystem::path;
    Dl_info info{};
    std::error_code error;
    if (::dladdr(reinterpret_cast<const void*>(&installedWorker), &info) == 0 || info.dli_fname == nullptr) {
        return "qxfxc";
    }
    const path module = std::filesystem::canonical(info.dli_fname, error).parent_path();
    // Libraries are installed in <prefix>/lib or <prefix>/lib/<architecture>.
    for (const char* place : {"qxfxc", "../bin/qxfxc", "../libexec/qx/qxfxc", "../../libexec/qx/qxfxc"}) {
        const path candidate = (module / place).lexically_normal();
        if (std::filesystem::is_regular_file(candidate, error)) {
            return candidate;
        }
    }
    return (module / "../libexec/qx/qxfxc").lexically_normal();
}

} // namespace Qx::Host::Worker
