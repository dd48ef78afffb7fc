#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace Qx::Test {

/// Blocks the calls of an operation until it is released or goes out of scope.
class Gate
{
public:
    class State;

    explicit Gate(std::shared_ptr<State> state);
    Gate(Gate&&) = default;
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;
    Gate& operator=(Gate&&) = delete;
    ~Gate();

    void release();

    /// Blocks until `calls` calls have reached the gate. Returns false after a minute.
    bool waitUntilReached(std::size_t calls = 1) const;

private:
    std::shared_ptr<State> state_;
};

/// What the recording host's operations do when they are called. Operations are named as in the journal.
class Script
{
public:
    static constexpr std::size_t always = std::numeric_limits<std::size_t>::max();

    /// Makes the next calls fail.
    void fail(const std::string& operation, std::size_t times = always);

    /// Makes one of the following calls fail (1 is the next).
    void failAt(const std::string& operation, std::size_t call);

    /// Runs inside every call of the operation, on the calling thread.
    void during(const std::string& operation, std::function<void()> action);

    /// Runs inside the next call of the operation and in none that comes later or within.
    void duringNext(const std::string& operation, std::function<void()> action);

    /// Makes the following calls wait at the gate.
    [[nodiscard]] Gate hold(const std::string& operation);

    void reset();

    /// Called by an operation: runs its action and waits at its gate. Returns false if the operation is to
    /// fail.
    bool play(const std::string& operation);

private:
    struct Operation
    {
        std::size_t successes = 0; ///< before the failures
        std::size_t failures = 0;
        std::function<void()> action;
        bool isForOneCall = false;
        std::shared_ptr<Gate::State> gate;
    };

    std::mutex lock_;
    std::map<std::string, Operation> operations_;
};

} // namespace Qx::Test
