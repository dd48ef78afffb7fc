#include "tools/qxhost/pipeline/frames/FrameHost.h"

#include "host/Host.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/device/HostSession.h"

#include <memory>
#include <mutex>
#include <optional>

namespace Qx::Program {

namespace {

/// Lives as long as the process: threads of the other program may ask to the end.
struct ModuleState
{
    std::mutex mutex;
    std::unique_ptr<HostSession> session;
    std::optional<std::string> failure; ///< empty until the first start
};

ModuleState& moduleState()
{
    static auto* const state = new ModuleState;
    return *state;
}

std::string startLocked(ModuleState& state, const std::string& device)
{
    if (!state.failure) {
        state.failure.emplace();
        try {
            state.session = std::make_unique<HostSession>(HostSession::DeviceLater{device});
        } catch (const std::exception& error) {
            state.failure = withoutOptions(error.what());
        }
    }
    return *state.failure;
}

} // namespace

std::string startFrameHost(const std::string& device)
{
    ModuleState& state = moduleState();
    const std::lock_guard lock(state.mutex);
    return startLocked(state, device);
}

std::string openFrameDevice(const std::string& device)
{
    ModuleState& state = moduleState();
    const std::lock_guard lock(state.mutex);
    const std::string failure = startLocked(state, device);
    return failure.empty() ? withoutOptions(openDevice()) : failure;
}

std::vector<std::string> takeHostComplaints()
{
    std::vector<std::string> lines;
    for (const LightweightString<char>& complaint : Host::takeComplaints()) {
        lines.emplace_back(complaint.view());
    }
    return lines;
}

std::string frameDeviceName()
{
    return deviceName();
}

bool frameDeviceIsSoftware()
{
    return deviceIsSoftware();
}

void stopFrameHost()
{
    ModuleState& state = moduleState();
    const std::lock_guard lock(state.mutex);
    if (state.session) {
        state.session.reset();
        state.failure = "the host has been stopped; nothing is processed any more";
    }
}

std::string withoutOptions(std::string text)
{
    const std::string texture = "--texture ";
    for (std::size_t at = 0; (at = text.find(texture, at)) != std::string::npos;) {
        text.replace(at, texture.size(), "texture.");
    }
    for (std::size_t at = 0; (at = text.find("--", at)) != std::string::npos;) {
        const bool isOption = (at == 0 || text[at - 1] == ' ') && at + 2 < text.size() &&
                              text[at + 2] >= 'a' && text[at + 2] <= 'z';
        if (isOption) {
            text.erase(at, 2);
        } else {
            at += 2;
        }
    }
    return text;
}

} // namespace Qx::Program
