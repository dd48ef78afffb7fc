#pragma once

#include <algorithm>
#include <barrier>
#include <functional>
#include <stop_token>
#include <thread>
#include <utility>
#include <vector>

namespace Qx::Bench {

inline int allCores()
{
    return static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
}

/// Threads that wait for frames and share each one: number i of n processes the i-th part. The caller is one
/// of them.
class Workers
{
public:
    Workers(int count, std::function<void(int)> part)
        : count_(count), part_(std::move(part)), begin_(count), end_(count)
    {
        for (int i = 1; i < count; ++i) {
            threads_.emplace_back([this, i](const std::stop_token& stop) {
                for (;;) {
                    begin_.arrive_and_wait();
                    if (stop.stop_requested()) {
                        return;
                    }
                    part_(i);
                    end_.arrive_and_wait();
                }
            });
        }
    }
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;
    ~Workers()
    {
        for (std::jthread& thread : threads_) {
            thread.request_stop();
        }
        begin_.arrive_and_wait();
    }

    int count() const { return count_; }

    /// Processes one frame.
    void run()
    {
        begin_.arrive_and_wait();
        part_(0);
        end_.arrive_and_wait();
    }

private:
    int count_;
    std::function<void(int)> part_;
    std::barrier<> begin_;
    std::barrier<> end_;
    std::vector<std::jthread> threads_;
};

/// Returns the method for a number of threads, by the name that the comparison uses.
inline const char* threadsText(bool all)
{
    return all ? "all threads" : "one thread";
}

} // namespace Qx::Bench
