#pragma once

#include "host/effects/worker/Channel.h"
#include "host/effects/worker/Protocol.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace Qx::Host::Worker {

/// The limits of an effect. A worker that exceeds one is killed.
struct Limits
{
    /// Processor time, over all threads, of one step: a pass's pipelines or a technique's first draw.
    std::chrono::milliseconds step{10'000};

    /// Bytes of memory of the worker's process.
    std::uint64_t memoryBytes = std::uint64_t{2} << 30U;

    /// Bytes of the result.
    std::size_t resultBytes = std::size_t{256} << 20U;

    /// The compilation of a whole file is one step; all steps together are limited too.
    std::chrono::milliseconds compiling() const { return step * 6; }
    std::chrono::milliseconds total() const { return step * 30; }

    /// The limit by the clock, for a process that waits, is so many times that of processor time.
    static constexpr int idleFactor = 4;
};

/// One worker process and its only owner. Waits for no other child of the host. The process inherits nothing
/// of the host but its environment. One thread at a time may use it; kill() is thread-safe.
class WorkerProcess
{
public:
    /// The reason why a process does not start.
    struct Problem
    {
        std::string text;
        bool lasting = false; ///< another attempt would be slow and fail too
        bool killed = false;  ///< from outside, like Outcome::killed
    };

    /// Starts the program and greets it. Gives up if `wanted` returns false. Returns null, with the reason,
    /// on failure.
    static std::unique_ptr<WorkerProcess> start(const std::filesystem::path& program, const Hello& hello,
                                                const std::function<bool()>& wanted, Problem& problem);

    /// Ends the process, whatever it is doing, and waits for its end.
    ~WorkerProcess();
    WorkerProcess(const WorkerProcess&) = delete;
    WorkerProcess& operator=(const WorkerProcess&) = delete;

    /// The outcome of a request.
    struct Outcome
    {
        bool answered = false;
        bool began = false;            ///< false: the process ended before it read the request
        EffectCompilation compilation; ///< without an answer: only its inputs, if they are known
        bool again = false;            ///< without an answer: the same request would probably fail again
        bool killed =
            false; ///< without an answer: by a signal from outside, which says nothing about the effect
        std::string failure; ///< the message without an answer: "crashed (SIGSEGV)"
        std::string advice;  ///< what to do about it; may be empty
        Step step;           ///< the step in which it failed
    };

    /// Without an answer the process is gone.
    Outcome compile(const CompileRequest& request, const Limits& limits);

    /// Whether the process waits for the next request.
    bool isIdle() const { return !channel_.stirs(); }

    /// Bytes of memory that the process has now.
    std::uint64_t memoryBytes() const;

    /// Kills the process. A compile() in another thread returns without an answer.
    void kill();

private:
    WorkerProcess(int pid, int socket, int lifeline);
    bool isWorker(const std::function<bool()>& wanted, Problem& problem);
    bool greet(const Hello& hello, const std::function<bool()>& wanted, Problem& problem);
    bool awaitReady(std::chrono::milliseconds limit, const std::function<bool()>& wanted, Problem& problem);
    std::chrono::milliseconds processorTime() const;
    class Meter;
    void follow(Outcome& outcome, Meter& meter, const Limits& limits, const Channel::Patience& patience);
    void continueIfStopped() const;
    bool hasEnded();
    bool awaitEnd(std::chrono::milliseconds most);
    std::string end();

    const int pid_;
    const int descriptor_; ///< of the process; -1 if the system has none
    const int lifeline_;   ///< the process is killed when this descriptor closes
    Channel channel_;
    std::mutex endMutex_;
    std::string endText_;  ///< how it ended; empty until then
    bool crashed_ = false; ///< by a fault of its own
    bool killed_ = false;  ///< by somebody else
};

} // namespace Qx::Host::Worker
