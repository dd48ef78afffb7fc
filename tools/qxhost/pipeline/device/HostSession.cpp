#include "tools/qxhost/pipeline/device/HostSession.h"

#include "host/Host.h"
#include "host/gpu/GPUService.h"
#include "tools/qxhost/console/Failure.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <sys/resource.h>

namespace Qx::Program {

namespace {

void start(const std::string& device, bool quiet, bool effectsReadyWhenLoaded)
{
    // With this argument the library compiles effects on demand, not all in the background.
    constexpr std::array arguments{"qxhost", "-transcode"};
    Host::start({.argc = static_cast<int>(arguments.size()),
                 .argv = arguments.data(),
                 .device = device.empty() ? nullptr : device.c_str(),
                 .quiet = quiet,
                 .effectsReadyWhenLoaded = effectsReadyWhenLoaded});
}

/// Drivers reserve much more address space than they use, and crash where they get none.
void checkAddressSpace(Console* console)
{
    constexpr rlim_t mebibyte = rlim_t{1} << 20U;
    constexpr rlim_t least = 1024 * mebibyte;
    constexpr rlim_t enough = 4096 * mebibyte;
    rlimit limit{};
    if (::getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur >= enough) {
        return;
    }
    const std::string text =
        fmt::format("the address space is limited to {} MiB (ulimit -v), of which drivers "
                    "reserve much more than they use; allow {} MiB or more",
                    limit.rlim_cur / mebibyte, enough / mebibyte);
    if (limit.rlim_cur < least) {
        throw Failure(ExitCode::device, text);
    }
    if (console != nullptr) {
        console->note(text);
    }
}

bool fileSizesAreLimited()
{
    rlimit limit{};
    return ::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
}

Host::DeviceDescription chosenDevice()
{
    const std::vector<Host::DeviceDescription> devices = Host::gpuService().listDevices();
    const auto chosen =
        std::find_if(devices.begin(), devices.end(), [](const auto& device) { return device.chosen; });
    return chosen != devices.end() ? *chosen : Host::DeviceDescription{};
}

} // namespace

void tellComplaints(Console& console)
{
    for (const LightweightString<char>& complaint : Host::takeComplaints()) {
        console.note(complaint.view());
    }
}

HostSession::HostSession(const std::string& device, Console* console, Output output, Effects effects)
{
    checkAddressSpace(console);
    start(device, output == Output::quiet, effects == Effects::readyWhenLoaded);
    const std::string reason = openDevice();
    if (console != nullptr) {
        tellComplaints(*console);
    }
    if (!reason.empty()) {
        Host::stop();
        throw Failure(ExitCode::device, (device.empty() ? "" : "--device " + device + ": ") + reason);
    }
}

HostSession::HostSession(Console& console)
{
    start({}, true, false);
    tellComplaints(console);
}

HostSession::HostSession(const DeviceLater& later)
{
    checkAddressSpace(nullptr);
    start(later.device, true, false);
}

HostSession::~HostSession()
{
    Host::stop();
}

std::string openDevice()
{
    return Host::gpuService().start() ? std::string() : Host::gpuService().failure();
}

std::string deviceName()
{
    return chosenDevice().name;
}

bool deviceIsSoftware()
{
    return chosenDevice().software;
}

bool deviceIsLost()
{
    return Host::gpuService().isLost();
}

void failOnDevice(int width, int height)
{
    if (deviceIsLost()) {
        throw Failure(ExitCode::device, deviceName() +
                                            ": stopped working; run again, or choose another device with "
                                            "--device ('qxhost devices' lists them)");
    }
    const auto limit = static_cast<int>(chosenDevice().largestImage);
    if (width > limit || height > limit) {
        throw Failure(ExitCode::device,
                      fmt::format("{}: the picture has {} x {} pixels: expected at most {} x {}; "
                                  "choose another device with --device",
                                  deviceName(), width, height, limit, limit));
    }
    throw Failure(ExitCode::device,
                  deviceName() + ": no memory for another picture of " + std::to_string(width) + " x " +
                      std::to_string(height) + " pixels; " +
                      (fileSizesAreLimited()
                           ? "raise the limit on the size of files (ulimit -f), in which software "
                             "devices keep their memory, "
                           : "close other programs that use it, ") +
                      "or choose another device with --device");
}

void failOnDevice(const Image::Surface& picture)
{
    failOnDevice(static_cast<int>(picture.getWidth()), static_cast<int>(picture.getHeight()));
}

} // namespace Qx::Program
