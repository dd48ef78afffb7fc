#include "platform/Log.h"

#include "host/log/HostLog.h"

#include <cstdarg>

using Qx::Host::formatted;
using Qx::Host::HostLog;

void vexo_printf(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    HostLog::instance().writeDebug(formatted(format, arguments));
    va_end(arguments);
}

void Log(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    HostLog::instance().write(formatted(format, arguments));
    va_end(arguments);
}

void LogBoth(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    HostLog::instance().writeBoth(formatted(format, arguments));
    va_end(arguments);
}

namespace Qx {

bool ErrorLogLogger::loggingEnabled_ = false;

} // namespace Qx
