#pragma once

#include <functional>

namespace Qx::Program {

/// What became of an attempt to draw.
enum class Drawing
{
    recorded,   ///< the device draws it
    refused,    ///< there is no such effect or technique
    notRecorded ///< the effect is there, and the device took nothing: it is lost or has no memory left
};

/// Runs `draw`, which returns false if it refuses, and returns what became of it. The library's functions
/// return whether a technique was found, not whether it was drawn; this is how the program knows.
///
/// Counts everything that is drawn in the process: for the one thread that draws.
Drawing tryDrawing(const std::function<bool()>& draw);

} // namespace Qx::Program
