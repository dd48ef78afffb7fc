#pragma once

#include "tools/qxhost/media/MediaTypes.h"

#include <optional>
#include <string>

namespace Qx::Program {

/// FFmpeg's filters that turn and flip pictures as players do for that orientation; empty if nothing is to be
/// done, nothing if it is not by quarters of a turn.
std::optional<std::string> rotationGraph(const Media::Orientation& orientation);

} // namespace Qx::Program
