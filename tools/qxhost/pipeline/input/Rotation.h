#pragma once

#include "tools/qxhost/media/read/ClipReader.h"

#include <optional>
#include <string>

namespace Qx::Program {

/// FFmpeg's filters that turn and flip pictures as players do for that orientation; empty if nothing is to be
/// done, nothing if it is not by quarters of a turn.
std::optional<std::string> rotationGraph(const Media::Orientation& orientation);

/// What messages of rotationOf() advise to do.
struct RotationAdvice
{
    const char* oddTurns; ///< of pictures that are not turned by quarters
    const char* fields;   ///< of pictures whose rows are of two moments
};

/// The graph that "--rotate" stands for with a clip of that name; empty if nothing is to be done. Throws
/// Failure (input).
std::string rotationOf(const Media::StreamInfo& info, const std::string& name, const RotationAdvice& advice,
                       bool isDeinterlaced = false);

} // namespace Qx::Program
