#include "tools/qxhost/diagnose/TestAid.h"

#include "host/gpu/GPUService.h"
#include "tools/Misbehaviour.h"

#include <charconv>
#include <chrono>
#include <thread>

namespace Qx::Diagnosis {

TestAid::TestAid()
{
    const Misbehaviour::Order order = Misbehaviour::orderFrom("QXHOST_DIAGNOSE_TEST");
    step_ = order.where;
    action_ = order.action;
    std::from_chars(order.which.data(), order.which.data() + order.which.size(), number_);
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
    Misbehaviour::misbehave(action_);
    return true;
}

} // namespace Qx::Diagnosis
