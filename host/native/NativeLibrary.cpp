#include "host/native/NativeCode.h"

#include <dlfcn.h>
#include <mutex>

namespace Qx::Host::Native {

const Library* library(const std::filesystem::path& folder, std::string& problem)
{
    static std::mutex mutex;
    static const Library* known = nullptr;
    const std::lock_guard lock(mutex);
    if (known == nullptr) {
        // Never closed: code that it has loaded may run until the end of the process.
        void* const module = ::dlopen((folder / libraryName).c_str(), RTLD_NOW | RTLD_LOCAL);
        const char* const failure =
            module == nullptr ? ::dlerror() : nullptr; // NOLINT(concurrency-mt-unsafe)
        known = module == nullptr ? nullptr : static_cast<const Library*>(::dlsym(module, librarySymbol));
        problem = failure != nullptr ? failure : known == nullptr ? "it is not such a module" : "";
    }
    return known;
}

} // namespace Qx::Host::Native
