#pragma once

#include <string>

extern "C" {
#include <framework/mlt.h>
}

namespace Qx::Mlt {

/// Starts the host, which stops when MLT is closed. Returns an empty text, or why it does not start.
std::string startHost();

/// Starts it with its device, the one of the service's property "device" if it is the first. Problems of the
/// settings go to MLT's log.
std::string openDevice(mlt_service service);

} // namespace Qx::Mlt
