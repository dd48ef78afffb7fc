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
    std::filesystem::path program; ///< the worker's; empty: installedWorker()
    Hello hello;                   ///< device and validation; the rest is filled in
    Limits limits;
    unsigned cores = 0; ///< processes that work at once as long as nobody waits; 0: the machine's
    std::function<void(const std::string&)> log; ///< a line without its end; any thread

    /// Asked before a worker is, and told what survived one. Null: nothing is kept.
    std::shared_ptr<const EffectCache> cache;
};

/// Compiles effects in worker processes, so that nothing that an effect holds reaches the host before the
/// compiler, the driver and a first draw survived it.
///
/// Any thread may call it, several at once. A request never waits behind another one: it takes an idle
/// process or starts one. Processes stay for the next request; one that died, hung or grew is replaced.
class EffectWorkers
{
public:
    explicit EffectWorkers(EffectWorkersOptions options);
    ~EffectWorkers();
    EffectWorkers(const EffectWorkers&) = delete;
    EffectWorkers& operator=(const EffectWorkers&) = delete;

    /// The effect, or messages. A worker that dies, hangs, takes too much or answers nonsense is one message.
    /// Requests for the same effect at the same time share one compilation; one that has been compiled ahead
    /// is handed out, once, unless a file that went in has changed since. What a worker crashed over, or took
    /// too much for, is not tried again before such a change.
    EffectCompilation compile(const CompileRequest& request);

    /// Compiles these on cores that are free, in their order, and keeps the results until they are asked for.
    void compileAhead(const std::vector<CompileRequest>& requests);

    /// Kills what works. Requests that are under way and all later ones fail.
    void close();

    /// Processes that were started since the beginning.
    std::uint64_t processesStarted() const { return started_; }

    /// Requests that a process worked on, each once.
    std::uint64_t compilations() const { return compilations_; }

    /// Requests that joined a compilation which was under way.
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
    std::map<std::string, EffectCompilation> refused_; ///< what no worker survives, by the request's bytes
    std::deque<std::string> ahead_;                    ///< keys of the jobs that wait for a free core
    std::vector<Process> idle_;
    std::vector<Process> busy_;
    std::list<Helper> helpers_;
    unsigned working_ = 0;
    std::size_t keptBytes_ = 0; ///< of results that wait to be asked for
    bool told_ = false;         ///< that no process can be started
    std::string hopeless_;      ///< why there is no use in starting the program again
};

} // namespace Qx::Host::Worker
