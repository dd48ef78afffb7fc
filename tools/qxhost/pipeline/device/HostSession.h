#pragma once

#include "platform/Surface.h"
#include "tools/qxhost/console/Console.h"

#include <string>

namespace Qx::Program {

/// The reference host, started for as long as this object lives. One at a time.
///
/// Throws Failure (device) if no device is available. Effects are compiled on demand, not in the background.
class HostSession
{
public:
    enum class Output
    {
        quiet,
        debug ///< on standard error, with the library's lines
    };

    enum class Effects
    {
        readyWhenDrawn,
        readyWhenLoaded ///< no first draw takes longer than others
    };

    /// `device` is the value of the option --device; if empty, the settings choose. Problems with the
    /// settings and the log are noted on the console, if there is one.
    explicit HostSession(const std::string& device, Console* console = nullptr, Output output = Output::quiet,
                         Effects effects = Effects::readyWhenDrawn);

    /// Starts the host without a device.
    explicit HostSession(Console& console);

    /// Starts the host for another program, quietly and without its device, which openDevice() opens. Throws
    /// Failure (device) if devices cannot work in this process.
    struct DeviceLater
    {
        std::string device; ///< the one to open then; empty: the settings choose
    };
    explicit HostSession(const DeviceLater& later);

    ~HostSession();
    HostSession(const HostSession&) = delete;
    HostSession& operator=(const HostSession&) = delete;
};

/// Opens the device of the started host. Returns an empty text, or why there is none.
std::string openDevice();

/// Notes problems with the host's settings and its log.
void tellComplaints(Console& console);

/// The device in use, for people.
std::string deviceName();
bool deviceIsSoftware();

/// Throws a Failure (device) with the reason: the device is lost, does not support pictures of that size, or
/// has no memory left for one.
[[noreturn]] void failOnDevice(int width, int height);
[[noreturn]] void failOnDevice(const Image::Surface& picture);

/// Whether the device is lost, which then is the cause of every failure.
bool deviceIsLost();

} // namespace Qx::Program
