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

/// What an effect may cost before its worker is killed.
struct Limits
{
    /// Processor time, over all threads, of one step: a pass's pipelines or a technique's first draw.
    std::chrono::milliseconds step{10'000};

    /// Bytes of memory that the worker's process may hold.
    std::uint64_t memoryBytes = std::uint64_t{2} << 30U;

    /// Bytes that the result may have.
    std::size_t resultBytes = std::size_t{256} << 20U;

    /// The compilation of a whole file is one step, and all steps together are bounded too.
    std::chrono::milliseconds compiling() const { return step * 6; }
    std::chrono::milliseconds total() const { return step * 30; }

    /// A process that waits instead of computing gets so much longer by the clock.
    static constexpr int idleFactor = 4;
};

/// One worker process, of which this is the only owner: nobody else's children are waited for, and nothing of
/// the host but its environment reaches it. One thread at a time uses it; kill() comes from any.
class WorkerProcess
{
public:
    /// Why a process could not be started.
    struct Problem
    {
        std::string text;
        bool lasting = false; ///< trying again would cost much and change nothing
    };

    /// Starts the program and greets it, as long as `wanted` says so. Null, with the reason, when that fails.
    static std::unique_ptr<WorkerProcess> start(const std::filesystem::path& program, const Hello& hello,
                                                const std::function<bool()>& wanted, Problem& problem);

    /// Ends the process, whatever it is at, and waits for its end.
    ~WorkerProcess();
    WorkerProcess(const WorkerProcess&) = delete;
    WorkerProcess& operator=(const WorkerProcess&) = delete;

    /// What became of a request.
    struct Outcome
    {
        bool answered = false;
        bool began = false;            ///< false: it ended before it had looked at the request
        EffectCompilation compilation; ///< without an answer: its inputs, if the worker came to know them
        bool again = false; ///< without an answer: whether the same request would fail again, for all we know
        std::string failure; ///< for people, when there is no answer: "crashed (SIGSEGV)"
        Step step;           ///< what it was at then
    };

    /// Without an answer the process is done for.
    Outcome compile(const CompileRequest& request, const Limits& limits);

    /// Whether it waits for the next request.
    bool isIdle() const { return !channel_.stirs(); }

    /// Bytes of memory that it holds now.
    std::uint64_t memoryBytes() const;

    /// Kills it under the hands of whoever waits for it, who sees that it ended.
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
    const int descriptor_; ///< of the process; -1 where the system has none to give
    const int lifeline_;   ///< the process lives as long as this descriptor is open
    Channel channel_;
    std::mutex endMutex_;
    std::string endText_;  ///< how it ended; empty until it has been waited for
    bool crashed_ = false; ///< by a fault of its own
};

} // namespace Qx::Host::Worker
