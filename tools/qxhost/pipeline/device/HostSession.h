#pragma once

#include "tools/qxhost/console/Console.h"

#include <string>

namespace Qx::Program {

/// The reference host, started for as long as this object lives. One at a time.
///
/// Throws Failure (device) when no device can be had. Effects are compiled when they are needed, not in the
/// background.
class HostSession
{
public:
    enum class Output
    {
        quiet,
        debug ///< on standard error, the library's lines among it
    };

    enum class Effects
    {
        readyWhenDrawn,
        readyWhenLoaded ///< no first draw takes longer than others
    };

    /// `device` chooses as the option --device does; empty leaves it to the settings. What is wrong with the
    /// settings and the log is told to the console, if there is one.
    explicit HostSession(const std::string& device, Console* console = nullptr, Output output = Output::quiet,
                         Effects effects = Effects::readyWhenDrawn);

    /// For what needs the host but no device: none is looked for.
    explicit HostSession(Console& console);
    ~HostSession();
    HostSession(const HostSession&) = delete;
    HostSession& operator=(const HostSession&) = delete;
};

/// Notes what is wrong with the host's settings and its log.
void tellComplaints(Console& console);

/// The device in use, for people.
std::string deviceName();
bool deviceIsSoftware();

/// Throws the Failure (device) that explains why the device gave nothing: it is lost, takes no
/// pictures of that size, or has no memory left for one.
[[noreturn]] void failOnDevice(int width, int height);

/// Whether the device is lost: whatever fails then fails for that.
bool deviceIsLost();

} // namespace Qx::Program
