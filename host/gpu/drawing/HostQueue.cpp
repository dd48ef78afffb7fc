#include "host/gpu/drawing/HostQueue.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <system_error>
#include <utility>

namespace Qx::Host::Vulkan {

namespace {

/// Parts that a thread takes of a work: enough for one that another program holds up to be made up for.
constexpr std::uint32_t partsOfThread = 8;

/// The time in ticks of the device's timer, which on software devices counts this clock.
std::uint64_t ticks(const Device& device)
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    const double nanoseconds = static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
    return static_cast<std::uint64_t>(nanoseconds / static_cast<double>(device.limits().timestampPeriod));
}

} // namespace

void HostQueue::push(VkSemaphore timeline, std::uint64_t value, HostWork work, HostStamps* stamps)
{
    {
        const std::lock_guard lock(mutex_);
        if (!thread_.joinable()) {
            start();
        }
        items_.push_back({timeline, value, std::move(work), stamps});
    }
    pushed_.notify_one();
}

void HostQueue::start()
{
    stopping_ = false;
    thread_ = std::thread([this] { run(); });
    const unsigned helpers = std::max(1U, std::thread::hardware_concurrency()) - 1;
    try {
        while (helpers_.size() < helpers) {
            helpers_.emplace_back([this] { help(); });
        }
    } catch (const std::system_error&) {
        return; // those that there are do the work
    }
}

void HostQueue::stop()
{
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    pushed_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
    }
    {
        const std::lock_guard lock(partsMutex_);
        ++round_;
        work_ = nullptr;
    }
    told_.notify_all();
    for (std::thread& helper : helpers_) {
        helper.join();
    }
    helpers_.clear();
    {
        const std::lock_guard lock(mutex_);
        items_.clear();
    }
    signaled_.notify_all();
}

VkResult HostQueue::valueOf(VkSemaphore timeline, std::uint64_t& value)
{
    const std::lock_guard lock(tellingMutex_);
    return vkGetSemaphoreCounterValue(device_.handle(), timeline, &value);
}

bool HostQueue::wait(std::uint64_t value, std::chrono::nanoseconds limit)
{
    std::unique_lock lock(mutex_);
    return signaled_.wait_for(lock, limit, [&] { return items_.empty() || items_.front().value > value; });
}

void HostQueue::run()
{
    std::unique_lock lock(mutex_);
    for (;;) {
        pushed_.wait(lock, [this] { return stopping_ || !items_.empty(); });
        if (stopping_) {
            return;
        }
        const Item& item = items_.front(); // stays in its place while others are added
        lock.unlock();
        if (isReached(item)) {
            compute(item);
        }
        lock.lock();
        items_.pop_front();
        signaled_.notify_all();
    }
}

/// Waits for what is before it. Returns false if that will not be.
bool HostQueue::isReached(const Item& item)
{
    const std::uint64_t before = item.value - 1;
    VkSemaphoreWaitInfo info{};
    info.sType = VK_STRUCTURE_TYPE_SEMAPHORE_WAIT_INFO;
    info.semaphoreCount = 1;
    info.pSemaphores = &item.timeline;
    info.pValues = &before;
    constexpr std::uint64_t limit = 100'000'000; // nanoseconds
    while (!stopping_ && !device_.isLost()) {
        const VkResult result = vkWaitSemaphores(device_.handle(), &info, limit);
        if (result == VK_SUCCESS) {
            return true;
        }
        if (result != VK_TIMEOUT) {
            device_.succeeded(result, "waiting for the device");
            device_.markLost("waiting for it failed");
        }
    }
    return false;
}

void HostQueue::compute(const Item& item)
{
    if (item.stamps != nullptr) {
        item.stamps->begin = ticks(device_);
    }
    compute(item.work);
    if (item.work.finish) {
        item.work.finish();
    }
    if (item.stamps != nullptr) {
        item.stamps->end = ticks(device_);
    }
    VkSemaphoreSignalInfo signal{};
    signal.sType = VK_STRUCTURE_TYPE_SEMAPHORE_SIGNAL_INFO;
    signal.semaphore = item.timeline;
    signal.value = item.value;
    const auto tell = [&] {
        const std::lock_guard lock(tellingMutex_);
        return vkSignalSemaphore(device_.handle(), &signal);
    };
    if (!device_.succeeded(tell(), "telling the device of work")) {
        device_.markLost("it cannot be told of work that the host has done");
    }
}

void HostQueue::compute(const HostWork& work)
{
    {
        const std::lock_guard lock(partsMutex_);
        const auto threads = static_cast<std::uint32_t>(helpers_.size() + 1);
        part_ = std::max(1U, work.rows / (threads * partsOfThread));
        next_ = 0;
        work_ = &work;
        ++round_;
    }
    told_.notify_all();
    takeRows(work);
    // A helper that has not begun yet finds no rows left, and no work.
    std::unique_lock lock(partsMutex_);
    work_ = nullptr;
    done_.wait(lock, [this] { return working_ == 0; });
}

void HostQueue::help()
{
    std::uint64_t known = 0;
    for (;;) {
        const HostWork* work = nullptr;
        {
            std::unique_lock lock(partsMutex_);
            told_.wait(lock, [&] { return round_ != known; });
            known = round_;
            if (stopping_) {
                return;
            }
            if (work_ == nullptr) {
                continue;
            }
            work = work_;
            ++working_;
        }
        takeRows(*work);
        const std::lock_guard lock(partsMutex_);
        --working_;
        if (working_ == 0) {
            done_.notify_one();
        }
    }
}

void HostQueue::takeRows(const HostWork& work)
{
    for (;;) {
        const std::uint32_t first = next_.fetch_add(part_, std::memory_order_relaxed);
        if (first >= work.rows) {
            return;
        }
        work.compute(first, std::min(work.rows, first + part_));
    }
}

} // namespace Qx::Host::Vulkan
