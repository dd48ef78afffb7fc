#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/gpu/device/Device.h"

#include <array>
#include <mutex>

namespace Qx::Host::Vulkan {

/// The samplers of a device, one for each combination of states, created on first use. Thread-safe.
class Samplers
{
public:
    explicit Samplers(Device& device) : device_(device) {}

    /// Of one level or of all that a texture has. Null if memory is exhausted.
    VkSampler get(CompiledEffect::Filter filter, CompiledEffect::Address u, CompiledEffect::Address v,
                  bool allLevels = false);
    void destroy();

private:
    static constexpr std::size_t addressModes = 4;

    Device& device_;
    std::mutex mutex_;
    std::array<VkSampler, 4 * addressModes * addressModes> samplers_{};
};

} // namespace Qx::Host::Vulkan
