// Ends in one of several ways while static objects hold what the GPU service made. From the end of main on
// every call of Vulkan's loader is a fault, which the program reports.
//
// exit_probe WAY SHADERS LUT
//   service        a static service that nobody shuts down
//   unstopped      the host's service, without the host's shutdown sequence
//   stopped        the same after the sequence
//   forbidden      a static object draws, which must be reported
// Prints "ended" and exits with 0 if nothing called Vulkan.

#include "QxFxResources/Manager.h"
#include "fonts/GPUFontCache.h"
#include "host/Host.h"
#include "host/gpu/GPUService.h"
#include "lut/LUTManager.h"
#include "platform/Text.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <execinfo.h>
#include <link.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace {

using Qx::Host::GPUService;

[[noreturn]] void reportFault(int)
{
    constexpr std::string_view text = "Vulkan was called after the end of main, by:\n";
    static_cast<void>(::write(STDOUT_FILENO, text.data(), text.size()));
    void* frames[32];
    ::backtrace_symbols_fd(frames, ::backtrace(frames, 32), STDOUT_FILENO);
    ::_exit(1);
}

/// Makes the code of Vulkan's loader inaccessible. Returns how many parts of it there were.
int forbidVulkan()
{
    void* frame = nullptr;
    static_cast<void>(::backtrace(&frame, 1)); // its first call loads a library
    std::signal(SIGSEGV, reportFault);
    int parts = 0;
    ::dl_iterate_phdr(
        [](dl_phdr_info* module, std::size_t, void* count) {
            if (std::strstr(module->dlpi_name, "libvulkan.so") == nullptr) {
                return 0;
            }
            const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
            for (int i = 0; i < module->dlpi_phnum; ++i) {
                const auto& part = module->dlpi_phdr[i];
                if (part.p_type == PT_LOAD && (part.p_flags & PF_X) != 0) {
                    const std::uintptr_t begin = (module->dlpi_addr + part.p_vaddr) / page * page;
                    const std::uintptr_t end = module->dlpi_addr + part.p_vaddr + part.p_memsz;
                    if (::mprotect(reinterpret_cast<void*>(begin), end - begin, PROT_NONE) == 0) {
                        ++*static_cast<int*>(count);
                    }
                }
            }
            return 0;
        },
        &parts);
    return parts;
}

/// The first static object to be constructed and the last to be destroyed: the loader's own destructors
/// follow.
struct End
{
    ~End()
    {
        constexpr std::string_view text = "ended\n";
        static_cast<void>(::write(STDOUT_FILENO, text.data(), text.size()));
        ::_exit(0);
    }
};

/// Gets the static objects that hold things; they are destroyed in the reverse order of their construction.
std::vector<Qx::Ptr<iObject>>& held()
{
    static std::vector<Qx::Ptr<iObject>> objects;
    return objects;
}

struct DrawsAtTheEnd
{
    ~DrawsAtTheEnd() { Qx::Host::gpuService().createGPUImage({8, 8}, iGPUImage::eARGB8); }
};

bool drawSomething(GPUService& gpu)
{
    const Qx::Ptr<iHostImage> host = gpu.createHostImage({64, 16}, iGPUImage::eARGB8);
    if (!host || host->map(iHostImage::Write) == nullptr) {
        return false;
    }
    const Qx::Ptr<iGPUImage> image = gpu.uploadImage(host, 0);
    const Qx::Ptr<iFont> font = gpu.createFont(L"DejaVu Sans", 12, 0);
    if (!image || !font || !font->draw(image, L"text", {0, 0}, {1, 1, 1, 1})) {
        return false;
    }
    const Qx::Ptr<iHostImage> drawn = gpu.downloadImage(image);
    if (!drawn || drawn->map(iHostImage::Read) == nullptr) {
        return false;
    }
    // A released image beyond what the pool keeps, and images, mapped memory and a font that stay.
    static_cast<void>(gpu.createGPUImage({512, 512}, iGPUImage::eARGB16));
    for (const Qx::Ptr<iObject>& object :
         {Qx::Ptr<iObject>(image), Qx::Ptr<iObject>(host), Qx::Ptr<iObject>(drawn), Qx::Ptr<iObject>(font)}) {
        held().push_back(object);
    }
    // The last work is still under way at the end.
    return static_cast<bool>(gpu.downloadImage(gpu.createGPUImage({256, 256}, iGPUImage::eARGB8)));
}

bool endWithAService()
{
    static GPUService service([] {
        Qx::Host::GPUOptions options;
        options.poolBytes = 1;
        return options;
    }());
    held(); // destroyed before the service
    return drawSomething(service);
}

bool useTheLibrary(const char* lut)
{
    GPUService& gpu = Qx::Host::gpuService();
    held();
    if (!drawSomething(gpu)) {
        return false;
    }
    const auto font = GPUFontCache::instance().getFont({L"DejaVu Sans", 20, 0});
    const auto table = LUTManager::instance().load(fromUTF8(lut));
    const auto& effect = Qx::FxResources::Manager::instance().findEffect(L"null.fx");
    const Qx::Ptr<iShaderEffect> shader = effect.getShader();
    const Qx::Ptr<iGPUImage> image = gpu.createGPUImage({64, 16}, iGPUImage::eARGB8);
    if (!font->value() || !table || !shader || !image ||
        !font->value()->draw(image, L"text", {0, 0}, {1, 1, 1, 1})) {
        return false;
    }
    held().push_back(font);
    held().push_back(shader);
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    static const End end;
    if (argc != 4) {
        return 2;
    }
    const std::string_view way = argv[1];
    ::setenv("QX_SHADERS_DIR", argv[2], 1);
    const char* const arguments[] = {"exit_probe", "-transcode"};
    Qx::Host::start({.argc = 2, .argv = arguments, .quiet = true});
    if (way == "forbidden") {
        static const DrawsAtTheEnd drawsAtTheEnd;
    }
    const bool good = way == "service" ? endWithAService() : useTheLibrary(argv[3]);
    if (!good) {
        std::printf("nothing was drawn: %s\n", Qx::Host::gpuService().failure().c_str());
        std::fflush(stdout);
        ::_exit(1);
    }
    if (way == "stopped") {
        Qx::Host::stop();
    }
    std::fflush(stdout);
    if (forbidVulkan() == 0) {
        ::_exit(3);
    }
    return 0;
}
