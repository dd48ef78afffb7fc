#include "tools/qxhost/pipeline/options/DateTime.h"

#include <chrono>
#include <ctime>
#include <fmt/format.h>

namespace Qx::Program {

std::string DateTime::date() const
{
    const std::chrono::year_month_day date{std::chrono::sys_days{std::chrono::days{day}}};
    return fmt::format("{:04}-{:02}-{:02}", static_cast<int>(date.year()),
                       static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
}

std::string DateTime::dateAndTime() const
{
    const auto whole = static_cast<int>(seconds);
    return fmt::format("{}T{:02}:{:02}:{:02}", date(), whole / 3600, whole / 60 % 60, whole % 60);
}

DateTime localTime()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    const std::chrono::year_month_day date{std::chrono::year{local.tm_year + 1900},
                                           std::chrono::month{static_cast<unsigned>(local.tm_mon) + 1},
                                           std::chrono::day{static_cast<unsigned>(local.tm_mday)}};
    return {std::chrono::sys_days{date}.time_since_epoch().count(),
            local.tm_hour * 3600.0 + local.tm_min * 60.0 + local.tm_sec};
}

} // namespace Qx::Program
