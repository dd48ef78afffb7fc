#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

namespace Qx::Program {

/// A queue between two threads that holds at most `capacity` items: the producer waits while it is full, the
/// consumer while it is empty.
template <class T>
class BoundedQueue
{
public:
    explicit BoundedQueue(std::size_t capacity) : capacity_(capacity) {}

    /// Waits for room. Returns false, and drops the item, if the queue is cancelled.
    bool push(T item)
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return cancelled_ || items_.size() < capacity_; });
        if (cancelled_) {
            return false;
        }
        items_.push_back(std::move(item));
        changed_.notify_all();
        return true;
    }

    /// Waits for an item. Returns nothing if the queue is closed and drained, or cancelled.
    std::optional<T> pop()
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return cancelled_ || closed_ || !items_.empty(); });
        if (cancelled_ || items_.empty()) {
            return std::nullopt;
        }
        std::optional<T> item(std::move(items_.front()));
        items_.pop_front();
        changed_.notify_all();
        return item;
    }

    /// No more items will be pushed; those in the queue can still be popped.
    void close()
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
        changed_.notify_all();
    }

    /// Ends every wait and drops every item.
    void cancel()
    {
        std::deque<T> dropped;
        const std::lock_guard lock(mutex_);
        cancelled_ = true;
        dropped.swap(items_);
        changed_.notify_all();
    }

private:
    const std::size_t capacity_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<T> items_;
    bool closed_ = false;
    bool cancelled_ = false;
};

} // namespace Qx::Program
