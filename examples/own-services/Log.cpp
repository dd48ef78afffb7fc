// The application's log: a file, each text with the application's name.

#include <platform/Log.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace {

/// Open for as long as the process lives: the library may write at its very end.
std::FILE* logFile()
{
    static std::FILE* const file = std::fopen("application.log", "w");
    return file;
}

void write(const char* format, std::va_list arguments)
{
    static std::mutex& lock = *new std::mutex;
    const std::lock_guard guard(lock);
    if (std::FILE* const file = logFile()) {
        std::fputs("application: ", file);
        std::vfprintf(file, format, arguments);
        std::fflush(file);
    }
}

} // namespace

void Log(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    write(format, arguments);
    va_end(arguments);
}
void LogBoth(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    write(format, arguments);
    va_end(arguments);
}
void vexo_printf(const char*, ...) {} // this application has no debug output
bool Qx::ErrorLogLogger::loggingEnabled_ = false;
