#include "host/Host.h"
#include "host/gpu/GPUService.h"
#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/pipeline/device/HostSession.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

using Devices = std::vector<Host::DeviceDescription>;

Json describe(const Devices& devices)
{
    Json list = Json::array();
    for (const Host::DeviceDescription& device : devices) {
        Json entry;
        entry["number"] = device.index;
        entry["name"] = device.name;
        entry["type"] = device.type;
        entry["software"] = device.software;
        entry["driver"] = device.driver;
        entry["largestImage"] = device.largestImage;
        entry["chosen"] = device.chosen;
        entry["usable"] = device.unsupported.empty();
        entry["lacks"] = device.unsupported;
        entry["conformant"] = device.conformant;
        entry["nativeCode"] = device.nativeCode;
        entry["notes"] = device.nextWays;
        list.push_back(entry);
    }
    return list;
}

std::string describe(const Host::DeviceDescription& device)
{
    std::string line = fmt::format("{} {}  {} ({}, {})\n", device.chosen ? '*' : ' ', device.index,
                                   device.name, device.type, device.driver);
    if (device.software) {
        line += "       computes on the CPU: correct, but slow\n";
    }
    if (!device.nativeCode.empty()) {
        line += "       native code: " + device.nativeCode + "\n";
    }
    for (const std::string& way : device.nextWays) {
        line += "       " + way + "\n";
    }
    if (!device.unsupported.empty()) {
        line += "       cannot be used: it lacks " + device.unsupported + "\n";
    }
    return line;
}

std::string table(const Devices& devices)
{
    std::string text;
    for (const Host::DeviceDescription& device : devices) {
        text += describe(device);
    }
    return text + "\n* marks the device that conversions use; --device NAME|N selects another.\n";
}

ExitCode runDevices(bool json, Console& console)
{
    Host::start({.argc = 0, .argv = nullptr, .device = nullptr, .quiet = true});
    const bool usable = Host::gpuService().start();
    const Devices devices = Host::gpuService().listDevices();
    tellComplaints(console);
    const std::string failure = Host::gpuService().failure();
    Host::stop();
    if (json) {
        console.data(jsonText(describe(devices)));
    } else if (!devices.empty()) {
        console.data(table(devices));
    }
    if (!usable) {
        console.error(failure);
    }
    return usable ? ExitCode::ok : ExitCode::device;
}

struct DevicesOptions
{
    bool json = false;
};

class DevicesCommand : public CommandWithOptions<DevicesOptions>
{
public:
    void addOptions(CLI::App& app) override { app.add_flag("--json", options_.json, "Print JSON"); }
    ExitCode run(Console& console) override { return runDevices(options_.json, console); }
};

const Registered<DevicesCommand> registeredDevices(
    {.name = "devices",
     .order = 80,
     .about = "List the devices that conversions can run on",
     .examples = "  qxhost devices                                   what the conversions can run on\n"});

} // namespace

} // namespace Qx::Program
