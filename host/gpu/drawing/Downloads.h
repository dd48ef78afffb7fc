#pragma once

#include <cstdint>
#include <deque>
#include <mutex>

namespace Qx::Host::Vulkan {

/// Knows the batches whose downloads have a queue of their own. That queue reaches the values of these
/// batches alone, on a timeline of its own. Thread-safe.
class Downloads
{
public:
    /// A batch with downloads, before the device is told of it. Values rise.
    void add(std::uint64_t value);

    /// The value on the timeline of downloads with which those of all batches up to `value` are finished.
    std::uint64_t upTo(std::uint64_t value);

    /// The last batch of those up to `drawn` up to which all downloads are finished, where their timeline has
    /// reached `reached`.
    std::uint64_t finished(std::uint64_t drawn, std::uint64_t reached);

private:
    std::mutex mutex_;
    std::deque<std::uint64_t> values_{0}; // the first is reached, the others are not known to be
};

} // namespace Qx::Host::Vulkan
