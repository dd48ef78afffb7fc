#pragma once

#include "bench/peers/Participant.h"

namespace Qx::Bench {

/// Frames that the library draws.
class DrawingJob : public Job
{
public:
    /// Returns when native code draws, which the library asks for after some pictures; after a few seconds
    /// also without.
    bool warmUp() override;
};

} // namespace Qx::Bench
