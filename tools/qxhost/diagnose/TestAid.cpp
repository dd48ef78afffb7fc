#include "tools/qxhost/diagnose/TestAid.h"

#include "host/gpu/GPUService.h"
#include "tools/FaultInjection.h"

#include <charconv>
#include <chrono>
#include <thread>

namespace Qx::Diagnosis {

TestAid::TestAid()
{
    const FaultInjection::Fault fault = FaultInjection::faultFrom("QXHOST_DIAGNOSE_TEST");
    step_ = fault.where;
    action_ = fault.action;
    std::from_chars(fault.which.data(), fault.which.data() + fault.which.size(), number_);
}

bool TestAid::permits(std::string_view step, std::uint64_t operation)
{
    if (step_ != step) {
        return true;
    }
    if (action_ == "slow") {
        constexpr std::chrono::microseconds unit{100};
        std::this_thread::sleep_for(unit * (operation * number_));
        return true;
    }
    if (action_ == "fail") {
        return operation < number_;
    }
    if (operation != number_) {
        return true;
    }
    if (action_ == "lose") {
        Host::gpuService().loseDevice();
    }
    FaultInjection::inject(action_);
    return true;
}

} // namespace Qx::Diagnosis
