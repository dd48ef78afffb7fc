#include "platform/Log.h"

#include <cstdarg>
#include <cstdio>

void Log(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
}
