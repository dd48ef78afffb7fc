#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

namespace Qx::Program {

/// A queue between two threads that holds at most `capacity` items: who fills it waits for who empties it.
template <class T>
class BoundedQueue
{
public:
    explicit BoundedQueue(std::size_t capacity) : capacity_(capacity) {}

    /// Waits for room. False, and the item is dropped, once the queue was cancelled.
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

    /// Waits for an item. Empty when the queue was closed and everything was taken, or was cancelled.
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

    /// No more items will come; those inside can still be taken.
    void close()
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
        changed_.notify_all();
    }

    /// Everybody stops waiting, and everything inside is dropped.
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
