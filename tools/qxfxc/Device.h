#pragma once

#include "host/effects/worker/Protocol.h"
#include "host/gpu/device/Context.h"

#include <functional>
#include <memory>
#include <string>

namespace Qx::Host::Worker {

/// The host's device, opened in this process too.
class TrialDevice
{
public:
    /// Null, with the reason, if it cannot be opened.
    static std::unique_ptr<TrialDevice> open(const DeviceUUID& uuid, bool validation, std::string& problem);
    ~TrialDevice();
    TrialDevice(const TrialDevice&) = delete;
    TrialDevice& operator=(const TrialDevice&) = delete;

    /// Creates every pipeline of an effect and draws every technique into one pixel. Refuses the effect if
    /// the device does. Calls `step` before everything that may take long.
    void tryOut(EffectCompilation& compilation, const std::filesystem::path& file,
                const std::function<void(const Step&)>& step);

    /// Whether the device is lost: nothing works on it any more.
    bool isLost() const;

private:
    explicit TrialDevice(std::shared_ptr<Vulkan::Context> context) : context_(std::move(context)) {}

    const std::shared_ptr<Vulkan::Context> context_;
};

} // namespace Qx::Host::Worker
