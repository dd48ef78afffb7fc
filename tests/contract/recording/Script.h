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

/// Holds up the calls of an operation until it is released or goes out of scope.
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

    /// Waits until that many calls stand at the gate or have passed it; false when that does not happen
    /// within a minute.
    bool waitUntilReached(std::size_t calls = 1) const;

private:
    std::shared_ptr<State> state_;
};

/// What the recording host's operations do when they are called. An operation is named as in the journal.
class Script
{
public:
    static constexpr std::size_t always = std::numeric_limits<std::size_t>::max();

    /// The next calls answer failure.
    void fail(const std::string& operation, std::size_t times = always);

    /// Of the calls from now on, that one answers failure (1 is the next).
    void failAt(const std::string& operation, std::size_t call);

    /// Runs inside every call of the operation, on the calling thread.
    void during(const std::string& operation, std::function<void()> action);

    /// Calls that come now wait at the gate.
    [[nodiscard]] Gate hold(const std::string& operation);

    void reset();

    /// What an operation calls: runs its action, waits at its gate; false when it shall fail.
    bool play(const std::string& operation);

private:
    struct Operation
    {
        std::size_t successes = 0; ///< that come before the failures
        std::size_t failures = 0;
        std::function<void()> action;
        std::shared_ptr<Gate::State> gate;
    };

    std::mutex lock_;
    std::map<std::string, Operation> operations_;
};

} // namespace Qx::Test
