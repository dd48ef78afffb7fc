#pragma once

#include <string>
#include <vector>

namespace Qx::Program {

// The reference host in a module of another program, which has no beginning and end of its own. Thread-safe.

/// Starts the host without its device, if it has not been started: effects can be examined. `device` is the
/// one that openFrameDevice() opens, as with "qxhost --device"; empty: as set. Returns an empty text, or why
/// devices cannot work in this process.
std::string startFrameHost(const std::string& device);

/// Starts the host, and opens its device at the first call. Returns an empty text, or why there is none.
std::string openFrameDevice(const std::string& device);

/// Problems of the settings and the log so far, a line each, each once.
std::vector<std::string> takeHostComplaints();

/// The device's name, for people.
std::string frameDeviceName();
bool frameDeviceIsSoftware();

/// Stops the host, after which nothing can be processed any more. Call it once no FrameProcessor is left.
void stopFrameHost();

/// Texts of the program name its options. This is the text in the words of a module whose parameters have the
/// names of these options: "--texture To=FILE" becomes "texture.To=FILE", "--font" becomes "font".
std::string withoutOptions(std::string text);

} // namespace Qx::Program
