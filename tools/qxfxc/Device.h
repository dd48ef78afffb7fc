#pragma once

#include "host/effects/worker/Protocol.h"
#include "host/gpu/Context.h"

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

    /// Makes every pipeline of an effect and draws every technique into one pixel. False, with messages, when
    /// the device refuses. `step` is told before each thing that may take its time.
    bool survives(const std::shared_ptr<const CompiledEffect>& effect,
                  const std::function<void(const Step&)>& step, std::string& messages);

    /// Nothing works on it any more.
    bool isLost() const;

private:
    explicit TrialDevice(std::shared_ptr<Vulkan::Context> context) : context_(std::move(context)) {}

    const std::shared_ptr<Vulkan::Context> context_;
};

} // namespace Qx::Host::Worker
