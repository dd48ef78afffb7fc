#include "tests/host/gpu/LogCapture.h"

#include "platform/Log.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

namespace {

std::mutex& logMutex()
{
    static std::mutex& mutex = *new std::mutex;
    return mutex;
}

std::string& logText()
{
    static std::string& text = *new std::string;
    return text;
}

} // namespace

void Log(const char* format, ...)
{
    char line[4096];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    const std::lock_guard lock(logMutex());
    logText() += line;
}

std::string Qx::GpuTests::takeLog()
{
    const std::lock_guard lock(logMutex());
    return std::exchange(logText(), {});
}
