#pragma once

#include <cstdint>
#include <string>

namespace Qx::Pixels {

/// The reference host, started with the effects of the source tree and without the user's settings, for as
/// long as this lives. One a process.
class RunningHost
{
public:
    /// `validated`: Vulkan's validation layer watches every call.
    explicit RunningHost(bool validated);
    ~RunningHost();
    RunningHost(const RunningHost&) = delete;
    RunningHost& operator=(const RunningHost&) = delete;

    /// The device that works, for people; empty without one, and `failure` then says why.
    std::string device() const;
    std::string failure() const;

    /// Warnings and errors of the validation layer so far.
    std::uint64_t validationMessages() const;
};

} // namespace Qx::Pixels
