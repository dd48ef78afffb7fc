#include "host/core/CoreServices.h"
#include "host/core/Immortal.h"

#include <atomic>

namespace Qx::Host {

namespace {

class AtomicCounters final : public iAtomics
{
public:
    // A new reference is copied from an existing one, so nothing needs to be ordered before it.
    std::uint32_t atomicIncrement(std::uint32_t& counter) override
    {
        return std::atomic_ref<std::uint32_t>(counter).fetch_add(1, std::memory_order_relaxed) + 1;
    }

    std::uint32_t atomicDecrement(std::uint32_t& counter) override
    {
        return std::atomic_ref<std::uint32_t>(counter).fetch_sub(1, std::memory_order_acq_rel) - 1;
    }
};

} // namespace

iAtomics& coreAtomics()
{
    return immortal<AtomicCounters>();
}

} // namespace Qx::Host
