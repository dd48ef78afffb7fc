#pragma once

#include "Qx/LightweightString.h"
#include "platform/Log.h"

/// The line categories of the suite.
namespace Qx::GPUTestLog {

inline constexpr int result = 0;
inline constexpr int failure = 4;
inline constexpr int heading = 5;

/// Writes the rate of `count` operations in `milliseconds`: "123.45fps".
void logRate(LoggerBase& log, double count, double milliseconds);

} // namespace Qx::GPUTestLog
