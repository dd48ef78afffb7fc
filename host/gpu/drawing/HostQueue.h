#pragma once

#include "host/gpu/device/Device.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace Qx::Host::Vulkan {

/// Rows of a picture that the host's processors compute.
struct HostWork
{
    std::uint32_t rows = 0;

    /// Computes the rows from `first` to the one before `end`. Called by several threads at once, with parts
    /// that do not overlap. Must end, and must not throw.
    std::function<void(std::uint32_t first, std::uint32_t end)> compute;

    /// Called once all rows are computed; may be empty. Must not throw.
    std::function<void()> finish{};
};

/// When work began and ended, in ticks of the device's timer.
struct HostStamps
{
    std::atomic<std::uint64_t> begin{0};
    std::atomic<std::uint64_t> end{0};
};

/// Computes works one after the other, each with all processors, in the order of a timeline that device and
/// host advance in turn. Its threads start with the first work. Thread-safe.
class HostQueue
{
public:
    /// `device` must outlive it.
    explicit HostQueue(Device& device) : device_(device) {}
    ~HostQueue() { stop(); }
    HostQueue(const HostQueue&) = delete;
    HostQueue& operator=(const HostQueue&) = delete;

    /// Waits until the timeline has reached the value before `value`, computes, and lets it reach `value`;
    /// not if the device is lost meanwhile. Does not block. `stamps` are written before; they may be null.
    /// Throws std::bad_alloc, or std::system_error if no thread can start: then nothing is done.
    void push(VkSemaphore timeline, std::uint64_t value, HostWork work, HostStamps* stamps);

    /// The value of the timeline. Vulkan's validation layer keeps a thread that asks for a timeline's value,
    /// or waits for it, and one that signals it from each other: ask here, and call wait() before waiting.
    VkResult valueOf(VkSemaphore timeline, std::uint64_t& value);

    /// Waits until the device has been told of all works up to that value. Returns false if that takes longer
    /// than `limit`.
    bool wait(std::uint64_t value, std::chrono::nanoseconds limit);

    /// Drops what is not being computed, and ends the threads.
    void stop();

private:
    struct Item
    {
        VkSemaphore timeline;
        std::uint64_t value;
        HostWork work;
        HostStamps* stamps;
    };

    void start();
    void run();
    void compute(const Item& item);
    bool isReached(const Item& item);
    void compute(const HostWork& work);
    void help();
    void takeRows(const HostWork& work);

    Device& device_;
    std::atomic<bool> stopping_{false};

    std::mutex mutex_; // guards the queue and the threads
    std::condition_variable pushed_;
    std::condition_variable signaled_;
    std::deque<Item> items_; ///< the first of them is being computed
    std::thread thread_;

    std::mutex tellingMutex_; // held while the timeline is signaled

    std::mutex partsMutex_; // guards what helpers are told
    std::condition_variable told_;
    std::condition_variable done_;
    std::uint64_t round_ = 0; ///< raised with each work
    unsigned working_ = 0;    ///< helpers that are at it
    const HostWork* work_ = nullptr;
    std::uint32_t part_ = 1; ///< rows that a thread takes at a time
    std::atomic<std::uint32_t> next_{0};
    std::vector<std::thread> helpers_;
};

} // namespace Qx::Host::Vulkan
