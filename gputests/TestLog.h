#pragma once

#include "Qx/LightweightString.h"
#include "platform/Log.h"

/// The categories of the suite's lines.
namespace Qx::GPUTestLog {

inline constexpr int result = 0;
inline constexpr int failure = 4;
inline constexpr int heading = 5;

/// "123.45fps": `count` things in that many milliseconds.
void logRate(LoggerBase& log, double count, double milliseconds);

} // namespace Qx::GPUTestLog
