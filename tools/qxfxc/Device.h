#pragma once

#include "host/effects/worker/Protocol.h"
#include "host/gpu/device/Context.h"

#include <functional>
#include <memory>
#include <string>

namespace Qx::Host::Worker {

/// The host's device, opened once more in this process.
class TrialDevice
{
public:
    /// Null, with the reason, when it cannot be opened.
    static std::unique_ptr<TrialDevice> open(const DeviceUUID& uuid, bool validation, std::string& problem);
    ~TrialDevice();
    TrialDevice(const TrialDevice&) = delete;
    TrialDevice& operator=(const TrialDevice&) = delete;

    /// Makes every pipeline of an effect and draws every technique into one pixel; refuses the effect when
    /// the device does. `step` is told before each thing that may take its time.
    void tryOut(EffectCompilation& compilation, const std::filesystem::path& file,
                const std::function<void(const Step&)>& step);

    /// Nothing works on it any more.
    bool isLost() const;

private:
    explicit TrialDevice(std::shared_ptr<Vulkan::Context> context) : context_(std::move(context)) {}

    const std::shared_ptr<Vulkan::Context> context_;
};

} // namespace Qx::Host::Worker
