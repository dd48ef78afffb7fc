#include <platform/Log.h>

#include <cstdarg>
#include <cstdio>

// The log goes to standard error.

namespace {

void logLine(const char* format, std::va_list arguments)
{
    std::vfprintf(stderr, format, arguments);
}

} // namespace

void vexo_printf(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    logLine(format, arguments);
    va_end(arguments);
}
void Log(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    logLine(format, arguments);
    va_end(arguments);
}
void LogBoth(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    logLine(format, arguments);
    va_end(arguments);
}
bool Qx::ErrorLogLogger::loggingEnabled_ = false;
