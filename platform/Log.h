#pragma once

#include "Qx/LightweightString.h"
#include "platform/Api.h"

/// Text of the library for people. Every function takes a printf format and writes exactly the formatted
/// text: line ends are part of it. Any thread.

/// Debug output.
QX_PLATFORM_API void vexo_printf(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// The host's log.
QX_PLATFORM_API void Log(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// The host's log and the debug output.
QX_PLATFORM_API void LogBoth(const char* format, ...) __attribute__((format(printf, 1, 2)));

namespace Qx {

/// The host's switch for timing lines on standard output. Set before threads start, or accept that a line
/// more or less is printed.
class QX_PLATFORM_API ErrorLogLogger
{
public:
    static bool loggingEnabled_;
};

} // namespace Qx

/// Where the diagnostic suite writes its report. Called from one thread, the suite's caller.
class QX_PLATFORM_API LoggerBase
{
public:
    virtual ~LoggerBase() = default;

    /// One line, without a line end. Categories: 0 a result, 4 a failure, 5 a heading.
    virtual void logLine(const LightweightString<wchar_t>& text, int category) = 0;

    /// Once before the first of `count` tests and once after the last.
    virtual void beginTests(int count) = 0;
    virtual void endTests() = 0;

    /// The last call of every test, also of one that failed.
    virtual void endTest() = 0;
};
