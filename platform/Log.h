#pragma once

#include "Qx/LightweightString.h"
#include "platform/Api.h"

/// Logging. Every function takes a printf format and writes exactly the formatted text; it adds no line end.
/// Thread-safe.

/// Writes to the debug output.
QX_PLATFORM_API void vexo_printf(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Writes to the host's log.
QX_PLATFORM_API void Log(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Writes to the host's log and to the debug output.
QX_PLATFORM_API void LogBoth(const char* format, ...) __attribute__((format(printf, 1, 2)));

namespace Qx {

/// The host's switch for timing lines on standard output. Not synchronised: set it before threads start, or a
/// line may be missing or superfluous.
class QX_PLATFORM_API ErrorLogLogger
{
public:
    static bool loggingEnabled_; ///< whether the lines are printed
};

} // namespace Qx

/// The destination of the diagnostic suite's report. Called from one thread only, the suite's caller.
class QX_PLATFORM_API LoggerBase
{
public:
    virtual ~LoggerBase() = default;

    /// Writes one line; `text` has no line end. Categories: 0 is a result, 4 a failure, 5 a heading.
    virtual void logLine(const LightweightString<wchar_t>& text, int category) = 0;

    /// Called once before the first of `count` tests.
    virtual void beginTests(int count) = 0;
    /// Called once after the last test.
    virtual void endTests() = 0;

    /// Called last in every test, including one that failed.
    virtual void endTest() = 0;
};
