#include "host/effects/worker/EffectWorkers.h"

#include "host/core/Printable.h"
#include "host/effects/worker/WorkerProgram.h"

#include <algorithm>
#include <csignal>
#include <exception>
#include <system_error>
#include <thread>

namespace Qx::Host::Worker {

namespace {

/// Shader code of results that wait for a request. A catalogue takes a few per cent of it.
constexpr std::size_t mostKeptBytes = std::size_t{256} << 20U;

constexpr const char* killAdvice =
    "the machine may be short of memory, or something ends processes; try again";

EffectCompilation failed(const CompileRequest& request, const std::string& text, const Step& at = {})
{
    EffectCompilation failure;
    const std::string file = request.file.native();
    refuse(failure, at.at.file.empty() ? Diagnostic::Place{file} : at.at, text, at.technique, at.pass);
    return failure;
}

/// Whether all inputs are unchanged.
bool isCurrent(const EffectCompilation& compilation, const CompileRequest& request)
{
    return !compilation.inputs.empty() &&
           std::all_of(compilation.inputs.begin(), compilation.inputs.end(),
                       [&](const EffectInput& input) { return isUnchanged(input, request.directory); });
}

std::size_t bytesOf(const EffectCompilation& compilation)
{
    std::size_t bytes = compilation.messages.size();
    if (compilation.effect != nullptr) {
        for (const CompiledEffect::Technique& technique : compilation.effect->techniques) {
            for (const CompiledEffect::Pass& pass : technique.passes) {
                bytes += pass.spirv.size() * sizeof(std::uint32_t);
                for (const CompiledEffect::PackedShader& shader : pass.packed) {
                    bytes += shader.spirv.size() * sizeof(std::uint32_t);
                }
            }
        }
    }
    return bytes;
}

std::string keyOf(const CompileRequest& request)
{
    const std::vector<std::byte> bytes = encode(request);
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

EffectWorkersOptions completed(EffectWorkersOptions options)
{
    if (options.program.empty()) {
        options.program = installedWorker();
    }
    if (!options.log) {
        options.log = [](const std::string&) {};
    }
    options.hello.memoryBytes = options.limits.memoryBytes;
    return options;
}

unsigned coresOf(const EffectWorkersOptions& options)
{
    return options.cores != 0 ? options.cores : std::max(std::thread::hardware_concurrency(), 1U);
}

/// Blocks all signals for this thread and the threads that it starts.
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_{};
};

} // namespace

struct EffectWorkers::Job
{
    enum class State
    {
        Waiting, ///< for a free core
        Running,
        Done
    };

    CompileRequest request;
    State state = State::Waiting;
    bool asked = false; ///< a request waits for the result
    EffectCompilation result;
};

/// A thread that compiles ahead.
struct EffectWorkers::Helper
{
    std::thread thread;
    bool finished = false;
};

EffectWorkers::EffectWorkers(EffectWorkersOptions options)
    : options_(completed(std::move(options))), cores_(coresOf(options_))
{
}

EffectWorkers::~EffectWorkers()
{
    close();
}

EffectCompilation EffectWorkers::compile(const CompileRequest& request)
{
    const std::string key = keyOf(request);
    Lock lock(mutex_);
    while (!closed_) {
        const auto found = jobs_.find(key);
        if (found == jobs_.end() || found->second->state == Job::State::Waiting) {
            std::erase(ahead_, key);
            const auto job = std::make_shared<Job>();
            job->request = request;
            job->asked = true;
            jobs_[key] = job;
            run(lock, key, *job);
            return job->result;
        }
        const std::shared_ptr<Job> job = found->second;
        const bool kept = job->state == Job::State::Done;
        job->asked = true;
        joined_ += kept ? 0U : 1U;
        changed_.wait(lock, [&] { return job->state == Job::State::Done; });
        if (kept) {
            keptBytes_ -= bytesOf(job->result);
            jobs_.erase(found);
        }
        lock.unlock();
        if (isCurrent(job->result, request) || (!kept && job->result.effect == nullptr)) {
            return job->result;
        }
        lock.lock();
    }
    return failed(request, "the host is shutting down");
}

/// Compiles a job of jobs_. The lock is held before and after.
void EffectWorkers::run(Lock& lock, const std::string& key, Job& job)
{
    job.state = Job::State::Running;
    ++working_;
    lock.unlock();
    EffectCompilation result;
    try {
        result = find(job.request);
    } catch (const std::exception& error) {
        result = failed(job.request, error.what());
    }
    lock.lock();
    --working_;
    job.result = std::move(result);
    job.state = Job::State::Done;
    // A failure without inputs is not kept: nothing tells later whether it still applies.
    const bool keep = !job.asked && !job.result.inputs.empty() && !closed_;
    if (keep) {
        keptBytes_ += bytesOf(job.result);
    } else {
        jobs_.erase(key);
    }
    changed_.notify_all();
}

std::optional<EffectCompilation> EffectWorkers::known(const CompileRequest& request) const
{
    return options_.cache != nullptr ? options_.cache->find(request.file, request.options) : std::nullopt;
}

EffectCompilation EffectWorkers::find(const CompileRequest& request)
{
    if (std::optional<EffectCompilation> refusal = refusalOf(request)) {
        return *std::move(refusal);
    }
    if (std::optional<EffectCompilation> found = known(request)) {
        return *std::move(found);
    }
    EffectCompilation compilation = work(request);
    if (options_.cache != nullptr) {
        options_.cache->keep(request.file, request.options, compilation);
    }
    return compilation;
}

EffectCompilation EffectWorkers::work(const CompileRequest& request)
{
    ++compilations_;
    bool wasKilled = false;
    for (;;) {
        bool fresh = false;
        std::string problem;
        const Process process = takeProcess(fresh, problem);
        if (process == nullptr) {
            return failed(request, problem);
        }
        WorkerProcess::Outcome outcome = process->compile(request, options_.limits);
        giveBack(process, outcome.answered);
        if (outcome.answered) {
            return std::move(outcome.compilation);
        }
        if (closed_) {
            return failed(request, "the host is shutting down");
        }
        // A process that died while it was idle is not the fault of the effect.
        const bool died = outcome.began || fresh;
        if (died && (!outcome.killed || wasKilled)) {
            return refuse(request, outcome);
        }
        wasKilled = wasKilled || died;
    }
}

std::optional<EffectCompilation> EffectWorkers::refusalOf(const CompileRequest& request)
{
    Lock lock(mutex_);
    const auto found = refused_.find(keyOf(request));
    if (found == refused_.end()) {
        return std::nullopt;
    }
    EffectCompilation refusal = found->second;
    lock.unlock();
    return isCurrent(refusal, request) ? std::optional(std::move(refusal)) : std::nullopt;
}

EffectCompilation EffectWorkers::refuse(const CompileRequest& request, const WorkerProcess::Outcome& outcome)
{
    const std::string kill = outcome.killed ? std::string(", twice; ") + killAdvice : std::string();
    // A kill says nothing about the shader that was compiled then.
    const Step at = outcome.killed && outcome.step.stage == Stage::Compiling ? Step() : outcome.step;
    const std::string advice = outcome.advice.empty() ? "" : "; " + outcome.advice;
    EffectCompilation refusal =
        failed(request, outcome.failure + " while " + nameOf(at.stage) + kill + advice, at);
    if (outcome.again && !outcome.compilation.inputs.empty()) {
        constexpr std::size_t most = 4096; // effects; beyond it, all are tried again
        refusal.inputs = outcome.compilation.inputs;
        const Lock lock(mutex_);
        if (refused_.size() >= most) {
            refused_.clear();
        }
        refused_[keyOf(request)] = refusal;
    }
    return refusal;
}

EffectWorkers::Process EffectWorkers::takeProcess(bool& fresh, std::string& problem)
{
    std::vector<Process> gone; // destroyed without the lock
    {
        const Lock lock(mutex_);
        while (!idle_.empty() && !closed_) {
            Process process = std::move(idle_.back());
            idle_.pop_back();
            if (process->isIdle()) {
                busy_.push_back(process);
                return process;
            }
            gone.push_back(std::move(process));
        }
    }
    gone.clear();
    fresh = true;
    return startProcess(problem);
}

EffectWorkers::Process EffectWorkers::startProcess(std::string& problem)
{
    Lock lock(mutex_);
    WorkerProcess::Problem found{hopeless_, !hopeless_.empty()};
    Process process;
    if (hopeless_.empty() && !closed_) {
        lock.unlock();
        const auto start = [&] {
            return WorkerProcess::start(
                options_.program, options_.hello, [this] { return !closed_; }, found);
        };
        process = start();
        if (found.killed && !closed_) {
            found = {};
            process = start();
            found.text += found.killed ? std::string(", twice; ") + killAdvice : std::string();
        }
        lock.lock();
    }
    if (closed_) {
        lock.unlock();
        problem = "the host is shutting down";
        return nullptr;
    }
    if (process != nullptr) {
        ++started_;
        busy_.push_back(process);
        return process;
    }
    if (found.lasting) {
        hopeless_ = found.text;
    }
    const bool news = !std::exchange(told_, true);
    lock.unlock();
    problem = "it cannot be compiled: the worker process does not start: " + found.text;
    if (news) {
        options_.log("Effects cannot be compiled: the worker process does not start: " + found.text);
    }
    return nullptr;
}

void EffectWorkers::giveBack(const Process& process, bool usable)
{
    // Memory that earlier effects left behind must not kill a later one.
    const bool grown = usable && process->memoryBytes() > options_.limits.memoryBytes / 2;
    std::vector<Process> gone; // destroyed without the lock
    const Lock lock(mutex_);
    std::erase(busy_, process);
    const std::size_t mostIdle = ahead_.empty() ? 1 : cores_;
    if (usable && !grown && !closed_ && idle_.size() < mostIdle) {
        idle_.push_back(process);
    }
    while (idle_.size() > mostIdle) {
        gone.push_back(std::move(idle_.back()));
        idle_.pop_back();
    }
}

void EffectWorkers::compileAhead(const std::vector<CompileRequest>& requests)
{
    const Lock lock(mutex_);
    for (const CompileRequest& request : requests) {
        std::string key = keyOf(request);
        const auto [place, isNew] = jobs_.try_emplace(key);
        if (isNew) {
            place->second = std::make_shared<Job>();
            place->second->request = request;
            ahead_.push_back(std::move(key));
        }
    }
    if (!closed_) {
        startHelpers();
    }
}

/// Under the lock.
void EffectWorkers::startHelpers()
{
    for (auto helper = helpers_.begin(); helper != helpers_.end();) {
        if (helper->finished) {
            helper->thread.join();
            helper = helpers_.erase(helper);
        } else {
            ++helper;
        }
    }
    while (helpers_.size() < std::min<std::size_t>(cores_, ahead_.size())) {
        Helper& helper = helpers_.emplace_back();
        try {
            // The program's signals are for its own threads.
            const SignalsBlocked blocked;
            helper.thread = std::thread([this, &helper] { help(helper); });
        } catch (const std::system_error&) {
            helpers_.pop_back(); // the others do the work
            return;
        }
    }
}

void EffectWorkers::help(Helper& helper)
{
    Lock lock(mutex_);
    while (!ahead_.empty() && !closed_) {
        if (working_ >= cores_) {
            changed_.wait(lock);
            continue;
        }
        const std::string key = std::move(ahead_.front());
        ahead_.pop_front();
        const std::shared_ptr<Job> job = jobs_.at(key);
        run(lock, key, *job);
        if (keptBytes_ > mostKeptBytes) {
            dropWaiting();
        }
    }
    helper.finished = true;
    changed_.notify_all();
}

/// Under the lock.
void EffectWorkers::dropWaiting()
{
    for (const std::string& key : ahead_) {
        jobs_.erase(key);
    }
    ahead_.clear();
}

void EffectWorkers::close()
{
    Lock lock(mutex_);
    closed_ = true;
    dropWaiting();
    for (const Process& process : busy_) {
        process->kill();
    }
    const std::vector<Process> idle = std::move(idle_);
    idle_.clear();
    changed_.notify_all();
    std::list<Helper> helpers;
    helpers.splice(helpers.end(), helpers_);
    lock.unlock();
    for (Helper& helper : helpers) {
        helper.thread.join();
    }
}

} // namespace Qx::Host::Worker
