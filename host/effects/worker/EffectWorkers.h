#pragma once

#include "host/effects/archive/EffectCache.h"
#include "host/effects/worker/WorkerProcess.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace Qx::Host::Worker {

struct EffectWorkersOptions
{
    std::filesystem::path program; ///< of the worker; empty: installedWorker()
    Hello hello;                   ///< only device and validation are used
    Limits limits;
    unsigned cores = 0; ///< processes that compile ahead at once; 0: as many as the machine has
    std::function<void(const std::string&)> log; ///< gets a line without its end; called from any thread

    /// Searched before a worker compiles; stores what the workers compile. Null: no cache.
    std::shared_ptr<const EffectCache> cache;
};

/// Compiles effects in sandboxed worker processes. An effect reaches the host only after the compiler, the
/// driver and a first draw survived it there.
///
/// Thread-safe. A request never waits for another one: it takes an idle process or starts one. Processes stay
/// for the next request; one that died, hung or grew is replaced.
class EffectWorkers
{
public:
    explicit EffectWorkers(EffectWorkersOptions options);
    ~EffectWorkers();
    EffectWorkers(const EffectWorkers&) = delete;
    EffectWorkers& operator=(const EffectWorkers&) = delete;

    /// Returns the effect, or messages. Blocks until the worker is done. A worker that dies, hangs, exceeds
    /// its limits or sends an invalid answer is one message; one that something else kills is replaced once
    /// before that. Concurrent requests for the same effect share one compilation. The result of a
    /// compilation ahead is returned once, unless a file that it read has changed. An effect that crashed a
    /// worker, or exceeded its limits, is not tried again before such a change.
    EffectCompilation compile(const CompileRequest& request);

    /// Returns the effect if the cache has it. Starts nothing and waits for nothing else.
    std::optional<EffectCompilation> known(const CompileRequest& request) const;

    /// Compiles these on free cores, in their order, and keeps the results for compile(). Does not block.
    void compileAhead(const std::vector<CompileRequest>& requests);

    /// Kills the busy workers. Pending and later requests fail.
    void close();

    /// The number of processes started so far.
    std::uint64_t processesStarted() const { return started_; }

    /// The number of requests that a process worked on.
    std::uint64_t compilations() const { return compilations_; }

    /// The number of requests that joined a running compilation.
    std::uint64_t joined() const { return joined_; }

private:
    struct Job;
    struct Helper;
    using Lock = std::unique_lock<std::mutex>;
    using Process = std::shared_ptr<WorkerProcess>;

    void run(Lock& lock, const std::string& key, Job& job);
    EffectCompilation find(const CompileRequest& request);
    std::optional<EffectCompilation> refusalOf(const CompileRequest& request);
    EffectCompilation refuse(const CompileRequest& request, const WorkerProcess::Outcome& outcome);
    EffectCompilation work(const CompileRequest& request);
    Process takeProcess(bool& fresh, std::string& problem);
    Process startProcess(std::string& problem);
    void giveBack(const Process& process, bool usable);
    void startHelpers();
    void help(Helper& helper);
    void dropWaiting();

    const EffectWorkersOptions options_;
    const unsigned cores_;
    std::atomic<bool> closed_{false};
    std::atomic<std::uint64_t> started_{0};
    std::atomic<std::uint64_t> compilations_{0};
    std::atomic<std::uint64_t> joined_{0};

    std::mutex mutex_; // guards all below
    std::condition_variable changed_;
    std::map<std::string, std::shared_ptr<Job>> jobs_; ///< by the request's bytes
    std::map<std::string, EffectCompilation> refused_; ///< effects that kill workers, by the request's bytes
    std::deque<std::string> ahead_;                    ///< keys of the jobs that wait for a free core
    std::vector<Process> idle_;
    std::vector<Process> busy_;
    std::list<Helper> helpers_;
    unsigned working_ = 0;
    std::size_t keptBytes_ = 0; ///< of results that wait for a request
    bool told_ = false;         ///< the log has the reason why no process starts
    std::string hopeless_;      ///< the reason not to start the program again
};

} // namespace Qx::Host::Worker
