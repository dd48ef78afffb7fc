#include "bench/comparison/PingPong.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace Qx::Bench {
namespace {

using Clock = std::chrono::steady_clock;

/// Spins until the ball arrives, yielding the core if there is only one.
void await(const std::atomic<long>& ball, long expected)
{
    constexpr int patience = 10000;
    for (int i = 0; ball.load(std::memory_order_acquire) != expected; ++i) {
        if (i == patience) {
            std::this_thread::yield();
            i = 0;
        }
    }
}

} // namespace

double pingPong()
{
    constexpr long trips = 5000;
    std::atomic<long> ball = 0;
    std::jthread other([&ball] {
        for (long i = 0; i < trips; ++i) {
            await(ball, 2 * i + 1);
            ball.store(2 * i + 2, std::memory_order_release);
        }
    });
    const auto play = [&ball](long first, long end) {
        for (long i = first; i < end; ++i) {
            ball.store(2 * i + 1, std::memory_order_release);
            await(ball, 2 * i + 2);
        }
    };
    constexpr long warmUp = trips / 10; // until the other thread is running
    play(0, warmUp);
    const Clock::time_point begin = Clock::now();
    play(warmUp, trips);
    return std::chrono::duration<double, std::nano>(Clock::now() - begin).count() / (trips - warmUp);
}

} // namespace Qx::Bench
