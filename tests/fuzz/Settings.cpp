#include "host/settings/Settings.h"

#include "host/log/HostLog.h"
#include "tests/fuzz/Targets.h"

#include <cstdlib>

namespace Qx::Fuzz {
namespace {

/// Messages about the settings wait to be taken and are not written anywhere.
Host::HostLog& quietLog()
{
    static Host::HostLog& log = []() -> Host::HostLog& {
        ::setenv("QX_LOG_FILE", "0", 1);
        Host::HostLog::instance().setDebugOutput(false);
        return Host::HostLog::instance();
    }();
    return log;
}

} // namespace

void settings(Input input)
{
    Host::HostLog& log = quietLog();
    const std::string text(reinterpret_cast<const char*>(input.data()), input.size());
    const Host::Settings settings("settings.toml", text);
    promise(settings.fileProblem().empty() || settings.fileProblem().starts_with("settings.toml:"),
            "a problem that names no file");
    for (const char* key : {"device", "vulkan_validation", "shaders_dir", "log.file", "log", "a.b", ""}) {
        settings.text(key);
        settings.flag(key);
        settings.integer(key);
    }
    for (const std::string& line : log.takeComplaints()) {
        promise(line.find('\n') == std::string::npos, "a complaint of several lines");
    }
}

} // namespace Qx::Fuzz
