// Loaded before a program, which then takes the time to be three days later than it is.

#include <ctime>

extern "C" std::time_t time(std::time_t* result)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    constexpr std::time_t ahead = 3 * 24 * 60 * 60;
    now.tv_sec += ahead;
    if (result != nullptr) {
        *result = now.tv_sec;
    }
    return now.tv_sec;
}
