#pragma once

#include <cstdint>
#include <string>

namespace Qx::Program {

/// The reference host, started for as long as this object lives. One at a time.
///
/// Throws Failure (device) when no device can be had. Effects are compiled when they are needed, not in the
/// background.
class HostSession
{
public:
    /// `device` chooses as the option --device does; empty leaves it to the settings.
    explicit HostSession(const std::string& device);
    ~HostSession();
    HostSession(const HostSession&) = delete;
    HostSession& operator=(const HostSession&) = delete;
};

/// The device in use, for people.
std::string deviceName();
bool deviceIsSoftware();

/// Throws the Failure (device) that explains why the device gave nothing: it is lost, or has no memory left
/// for a picture of that size.
[[noreturn]] void failOnDevice(int width, int height);

/// Whether the device is lost: whatever fails then fails for that.
bool deviceIsLost();

/// Drawings recorded since the session began.
std::uint64_t drawsSoFar();

} // namespace Qx::Program
