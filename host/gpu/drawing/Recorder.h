#pragma once

#include "host/gpu/DeviceSharing.h"
#include "host/gpu/GPUOptions.h"
#include "host/gpu/drawing/Batch.h"
#include "host/gpu/drawing/Downloads.h"

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <utility>

namespace Qx::Host::Vulkan {

/// Collects commands into batches and submits them in the order in which they were recorded. Thread-safe.
///
/// Everything recorded has a value on one timeline: the device has finished it once the timeline has reached
/// the value. A batch is submitted when a caller waits for it, when it is large enough, and at once if the
/// device is idle.
///
/// Uploads and downloads that have queues of their own have timelines too, on which their queues reach the
/// values of their batches. The device has finished a value when it has finished the downloads too.
class Recorder
{
public:
    enum class Submit
    {
        WhenDue,
        Now
    };

    Recorder(Device& device, DeviceMemory& memory, std::uint64_t inFlightLimit,
             std::chrono::milliseconds stallLimit)
        : device_(device),
          memory_(memory),
          inFlightLimit_(inFlightLimit),
          stallLimit_(stallLimit),
          hostQueue_(device)
    {
    }

    bool create();

    /// Calls `function` with the open batch, under the lock. The function returns false if it recorded
    /// nothing. `bytes` of images are in flight until the device has finished; the call blocks until they are
    /// within the limit. Returns the timeline value, or 0 on failure.
    template <class Function>
    std::uint64_t record(std::uint64_t bytes, Submit submit, Function&& function)
    {
        if (!makeRoom(bytes)) {
            return 0;
        }
        const std::lock_guard lock(mutex_);
        Batch* batch = openBatch();
        if (batch == nullptr || !function(*batch)) {
            return 0;
        }
        return recorded(bytes, submit);
    }

    /// The same, submitted at once; the device waits for `point` before this and everything later. Its
    /// function must not fail.
    template <class Function>
    std::uint64_t recordAfter(const DevicePoint& point, Function&& function)
    {
        const std::lock_guard lock(mutex_);
        Batch* batch = batchAfter(point);
        if (batch == nullptr) {
            return 0;
        }
        function(*batch);
        return recorded(0, Submit::Now);
    }

    /// Has the host compute in the place of the device, which waits for it with everything later. `textures`
    /// is called first and returns a list of those that it uses, which have companion views; an empty one is
    /// a failure. `function` is called with the batch to announce their uses, and returns the HostWork.
    /// Otherwise as record(); submitted at once.
    template <class Textures, class Function>
    std::uint64_t recordOnHost(std::uint64_t bytes, Textures&& textures, Function&& function)
    {
        if (!makeRoom(bytes)) {
            return 0;
        }
        const std::lock_guard lock(mutex_);
        std::unique_ptr<Batch> batch = batchOnHost(textures());
        if (batch == nullptr) {
            return 0;
        }
        HostWork work;
        try {
            work = function(*batch);
        } catch (...) {
            free_.push_back(std::move(batch));
            throw;
        }
        return recordedOnHost(std::move(batch), std::move(work), bytes);
    }

    /// The moment at which the device has finished everything up to that value.
    DevicePoint pointOf(std::uint64_t value) const { return {timeline_, value}; }

    /// Calls `function` under the lock under which everything is recorded.
    template <class Function>
    auto locked(Function&& function)
    {
        const std::lock_guard lock(mutex_);
        return function();
    }

    /// Submits everything up to that value. Returns false if the device is lost.
    bool submit(std::uint64_t value);

    /// The timeline value that the device has reached.
    std::uint64_t completed();

    /// Submits everything up to that value and waits for it. Returns false if the device is lost.
    bool wait(std::uint64_t value);

    /// Submits everything and waits for it.
    bool waitForAll();

    /// The same for a shutdown: within a limit, and even if the device counts as lost.
    bool drain(std::chrono::milliseconds limit);

    /// Measures the work recorded between the two calls: see GPUService. Returns false, or nothing, if that
    /// is not possible.
    bool startTimer(bool tellsPasses);
    std::optional<GPUPassTimes> stopTimer();

    /// Whether the timer runs and tells passes apart. Each pass is then recorded between the next two calls,
    /// which return false if the device is lost.
    bool timesPasses();
    bool beginPass();
    bool endPass();

    /// Calls `destroy` once the device has finished everything recorded so far. Makes no Vulkan call itself.
    void later(std::function<void()> destroy);

    /// Frees everything. Call it after drain().
    void destroy();

    std::uint64_t inFlightBytes() const { return inFlightBytes_; }
    std::uint64_t inFlightLimit() const { return inFlightLimit_; }
    std::uint64_t batchesSubmitted() const { return submitted_; }
    std::uint64_t transferBatches() const { return transfers_; }
    std::uint64_t barriers() const { return barriers_; }

private:
    struct Deferred
    {
        std::uint64_t value;
        std::function<void()> destroy;
    };

    /// The measured time of one pass, in ticks.
    struct PassTiming
    {
        std::uint64_t after = 0; // its batches follow that value
        std::uint64_t upTo = 0;
        std::uint64_t busy = 0;
    };

    /// The measured time of finished batches, in ticks.
    struct Timing
    {
        std::uint64_t after = 0; // batches up to that value do not count
        std::uint64_t busy = 0;
        std::uint64_t first = 0;
        std::uint64_t last = 0;
        std::uint64_t batches = 0;
        bool whole = true; // every batch had its timestamps
        bool tellsPasses = false;
        std::vector<PassTiming> passes{};
    };

    bool makeRoom(std::uint64_t bytes);
    Batch* openBatch();
    Batch* batchAfter(const DevicePoint& point);
    std::unique_ptr<Batch> takeBatch();
    std::unique_ptr<Batch> batchOnHost(std::span<Texture* const> textures);
    std::uint64_t recordedOnHost(std::unique_ptr<Batch> batch, HostWork work, std::uint64_t bytes);
    std::uint64_t recorded(std::uint64_t bytes, Submit submit);
    bool isDue(const Batch& batch) const;
    bool submitOpen();
    bool submitParts(const Batch& batch);
    bool submitPart(Lane lane, VkCommandBuffer commandBuffer, const DevicePoint& end,
                    std::span<const VkSemaphoreSubmitInfo> waits);
    bool createTimeline(VkSemaphore& timeline);
    void retire();
    void addTo(Timing& timing, const Batch& batch) const;
    std::uint64_t ticksBetween(std::uint64_t begin, std::uint64_t end) const;
    VkResult waitOnce(std::uint64_t value, std::chrono::nanoseconds limit);

    Device& device_;
    DeviceMemory& memory_;
    const std::uint64_t inFlightLimit_;
    const std::chrono::milliseconds stallLimit_;
    VkSemaphore timeline_ = nullptr;         // of drawing, and of the host's work
    VkSemaphore uploadTimeline_ = nullptr;   // null without a queue for them
    VkSemaphore downloadTimeline_ = nullptr; // likewise
    Downloads downloads_;
    std::atomic<std::uint64_t> completed_{0};

    std::mutex mutex_; // guards all below; not held while waiting for the device
    std::unique_ptr<Batch> open_;
    std::deque<std::unique_ptr<Batch>> pending_; // oldest first
    std::vector<std::unique_ptr<Batch>> free_;
    std::deque<Deferred> deferred_;
    std::uint64_t lastValue_ = 0;
    std::uint64_t lastSubmitted_ = 0;
    std::uint64_t lastOnHost_ = 0; ///< the last value that the host reaches
    std::optional<Timing> timing_; // while the timer runs

    std::atomic<std::uint64_t> inFlightBytes_{0};
    std::atomic<std::uint64_t> submitted_{0};
    std::atomic<std::uint64_t> transfers_{0};
    std::atomic<std::uint64_t> barriers_{0};

    HostQueue hostQueue_; // ends before the batches that it writes to
};

} // namespace Qx::Host::Vulkan
