#include "platform/Clock.h"

#include "host/core/Immortal.h"
#include "host/lifecycle/Services.h"

#include <chrono>

namespace Qx::Host {

namespace {

class SteadyClock final : public iClock
{
public:
    double millisecondsPrecise() override
    {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start_).count();
    }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

} // namespace

iClock& hostClock()
{
    return immortal<SteadyClock>();
}

} // namespace Qx::Host
