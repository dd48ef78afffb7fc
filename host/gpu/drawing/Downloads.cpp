#include "host/gpu/drawing/Downloads.h"

#include <algorithm>

namespace Qx::Host::Vulkan {

void Downloads::add(std::uint64_t value)
{
    const std::lock_guard lock(mutex_);
    values_.push_back(value);
}

std::uint64_t Downloads::upTo(std::uint64_t value)
{
    const std::lock_guard lock(mutex_);
    const auto after = std::upper_bound(values_.begin() + 1, values_.end(), value);
    return *(after - 1);
}

std::uint64_t Downloads::finished(std::uint64_t drawn, std::uint64_t reached)
{
    const std::lock_guard lock(mutex_);
    while (values_.size() > 1 && values_[1] <= reached) {
        values_.pop_front();
    }
    return values_.size() > 1 ? std::min(drawn, values_[1] - 1) : drawn;
}

} // namespace Qx::Host::Vulkan
