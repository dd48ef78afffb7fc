#include "host/effects/worker/WorkerProcess.h"

#include "host/core/ProgramStart.h"
#include "host/effects/archive/EffectArchive.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" { // which the header of glibc 2.36 does not say
#include <sys/pidfd.h>
}

namespace Qx::Host::Worker {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// A worker identifies itself as soon as it is loaded; another program may be silent forever.
constexpr milliseconds identityLimit{15'000};

/// Opening a device may start processes of the driver's.
constexpr milliseconds greetingLimit{60'000};

constexpr const char* advice = "; install the program again, or correct the setting effects.worker";

std::string systemMessage(int error)
{
    std::array<char, 256> buffer{};
    return ::strerror_r(error, buffer.data(), buffer.size());
}

/// Moves a descriptor above the standard ones, which a host may have closed and the worker's files replace.
int moveUp(int descriptor)
{
    constexpr int first = 10;
    const int moved = ::fcntl(descriptor, F_DUPFD_CLOEXEC, first);
    ::close(descriptor);
    return moved;
}

/// Starts the worker. Returns 0, or an error number.
int spawn(const std::filesystem::path& program, int socket, int lifeline, pid_t& pid)
{
    constexpr int workerSocket = 3;
    constexpr int workerLifeline = 4;
    ProgramStart start;
    // A driver's output must not mix with the host's data. Standard output comes to us: our worker redirects
    // it at once, and output of another program there shows that it is not our worker.
    start.open(STDIN_FILENO, "/dev/null", O_RDONLY);
    start.pass(socket, STDOUT_FILENO);
    start.open(STDERR_FILENO, "/dev/null", O_WRONLY);
    start.pass(socket, workerSocket);
    start.pass(lifeline, workerLifeline);
    start.closeFrom(workerLifeline + 1);
    start.useOwnGroup();
    start.useDefaultSignals();
    return start.run(program.native(), {program.filename().native()}, pid);
}

/// A pipe that carries no data. The worker gets its reading end.
struct Lifeline
{
    int ours = -1;
    int theirs = -1;

    Lifeline()
    {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) == 0) {
            theirs = moveUp(ends[0]);
            ours = moveUp(ends[1]);
        }
    }

    /// Makes the system kill the process when the writing end closes: whatever program it is, whatever it is
    /// doing and however the host ends.
    void tie(pid_t pid) const
    {
        ::fcntl(theirs, F_SETOWN, pid);
        ::fcntl(theirs, F_SETSIG, SIGKILL);
        ::fcntl(theirs, F_SETFL, O_ASYNC);
    }
};

/// Whether a process gets such a signal from others, not by what it does itself: from the kernel when memory
/// is short, from an administrator, from a supervisor that ends a service.
bool isFromOutside(int signal)
{
    return signal == SIGKILL || signal == SIGTERM || signal == SIGINT || signal == SIGHUP ||
           signal == SIGQUIT;
}

/// How a process ended, for a message.
std::string describeEnd(const siginfo_t& info)
{
    if (info.si_code == CLD_EXITED) {
        return "ended by itself (exit code " + std::to_string(info.si_status) + ")";
    }
    const char* name = ::sigabbrev_np(info.si_status);
    const std::string signal = name != nullptr ? std::string("SIG") + name : std::to_string(info.si_status);
    return (isFromOutside(info.si_status) ? "was killed from outside (" : "crashed (") + signal + ")";
}

std::string seconds(milliseconds time)
{
    const auto count = time.count();
    return count % 1000 == 0 ? std::to_string(count / 1000) + " s" : std::to_string(count) + " ms";
}

} // namespace

/// Watches the costs of one request.
class WorkerProcess::Meter
{
public:
    Meter(const WorkerProcess& process, const Limits& limits, std::function<milliseconds()> processorTime)
        : process_(process), limits_(limits), processorTime_(std::move(processorTime))
    {
        begin(limits.compiling());
        first_ = step_;
    }

    void begin(milliseconds limit)
    {
        step_ = {processorTime_(), Clock::now()};
        limit_ = limit;
    }

    /// The limit that is exceeded; empty if none is. Checks every few milliseconds at most, since that costs.
    std::string excess()
    {
        constexpr milliseconds pause{5};
        const Clock::time_point now = Clock::now();
        if (now - looked_ < pause) {
            return {};
        }
        looked_ = now;
        process_.continueIfStopped();
        if (process_.memoryBytes() > limits_.memoryBytes) {
            again_ = true;
            advice_ = "simplify it, or raise the setting effects.memory";
            return "took more than " + std::to_string(limits_.memoryBytes >> 20U) + " MiB of memory";
        }
        const std::string step = excess(step_, limit_, now);
        return step.empty() ? excess(first_, limits_.total(), now) : step;
    }

    /// Whether the excess depends on the effect and not on the load of the machine.
    bool again() const { return again_; }

    /// What to do about it.
    const char* advice() const { return advice_; }

private:
    struct Start
    {
        milliseconds processor{};
        Clock::time_point time;
    };

    std::string excess(const Start& start, milliseconds limit, Clock::time_point now)
    {
        if (processorTime_() - start.processor > limit) {
            again_ = true;
            advice_ = "simplify its loops and calls, or raise the setting effects.seconds";
            return "did not end within " + seconds(limit) + " of processor time";
        }
        if (now - start.time > limit * Limits::idleFactor) {
            advice_ = "the machine may be busy: try again, or raise the setting effects.seconds";
            return "did not end within " + seconds(limit * Limits::idleFactor);
        }
        return {};
    }

    const WorkerProcess& process_;
    const Limits& limits_;
    const std::function<milliseconds()> processorTime_;
    Start first_;
    Start step_;
    milliseconds limit_{};
    Clock::time_point looked_{};
    bool again_ = false;
    const char* advice_ = "";
};

WorkerProcess::WorkerProcess(int pid, int socket, int lifeline)
    : pid_(pid), descriptor_(::pidfd_open(pid, 0)), lifeline_(lifeline), channel_(socket)
{
}

std::unique_ptr<WorkerProcess> WorkerProcess::start(const std::filesystem::path& program, const Hello& hello,
                                                    const std::function<bool()>& wanted, Problem& problem)
{
    std::array<int, 2> sockets{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()) != 0) {
        problem.text = program.string() + ": cannot connect to it: " + systemMessage(errno);
        return nullptr;
    }
    const int theirs = moveUp(sockets[1]);
    const Lifeline lifeline;
    pid_t pid = -1;
    const int error = theirs < 0 || lifeline.ours < 0 ? EMFILE : spawn(program, theirs, lifeline.theirs, pid);
    if (error == 0) {
        lifeline.tie(pid);
    }
    ::close(theirs);
    ::close(lifeline.theirs);
    if (error != 0) {
        ::close(sockets[0]);
        ::close(lifeline.ours);
        const bool wrongProgram = error == ENOENT || error == EACCES || error == ENOEXEC;
        problem.text = program.string() + ": " + systemMessage(error) + (wrongProgram ? advice : "");
        return nullptr;
    }
    std::unique_ptr<WorkerProcess> self(new WorkerProcess(pid, sockets[0], lifeline.ours));
    if (!self->isWorker(wanted, problem) || !self->greet(hello, wanted, problem)) {
        problem.text = program.string() + ": " + problem.text;
        return nullptr;
    }
    return self;
}

WorkerProcess::~WorkerProcess()
{
    // An idle process ends by itself, so that its driver can finish writing its cache.
    channel_.hangUp();
    end();
    ::close(lifeline_);
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
}

bool WorkerProcess::isWorker(const std::function<bool()>& wanted, Problem& problem)
{
    const bool is = awaitReady(identityLimit, wanted, problem);
    if (!is) {
        problem.text += advice;
    }
    return is;
}

bool WorkerProcess::greet(const Hello& hello, const std::function<bool()>& wanted, Problem& problem)
{
    channel_.send(FrameType::Hello, encode(hello)); // if the worker is gone, it does not answer either
    return awaitReady(greetingLimit, wanted, problem);
}

bool WorkerProcess::awaitReady(milliseconds limit, const std::function<bool()>& wanted, Problem& problem)
{
    const Clock::time_point latest = Clock::now() + limit;
    Frame frame;
    const Channel::Answer answer = channel_.receive(frame, mostReportBytes, [&] {
        continueIfStopped();
        return Clock::now() < latest && wanted();
    });
    if (answer == Channel::Answer::Closed) {
        problem.text = "it " + end();
        problem.killed = killed_;
        return false;
    }
    if (answer == Channel::Answer::GaveUp) {
        problem = {"it did not answer within " + seconds(limit), true};
        kill();
        return false;
    }
    const std::optional<Ready> ready = answer == Channel::Answer::Frame && frame.type == FrameType::Ready
                                           ? decodeReady(frame.payload)
                                           : std::nullopt;
    if (!ready || ready->version != protocolVersion) {
        problem = {"it is not a worker of this version of the host", true};
        kill();
        return false;
    }
    problem.text = ready->problem;
    return problem.text.empty();
}

WorkerProcess::Outcome WorkerProcess::compile(const CompileRequest& request, const Limits& limits)
{
    Outcome outcome;
    Meter meter(*this, limits, [this] { return processorTime(); });
    std::string excess;
    const Channel::Patience patience = [&] {
        excess = meter.excess();
        return excess.empty();
    };
    if (channel_.send(FrameType::Compile, encode(request), patience)) {
        follow(outcome, meter, limits, patience);
    }
    if (!outcome.answered && outcome.failure.empty()) {
        outcome.failure = excess.empty() ? "the worker process " + end()
                                         : "the worker process " + excess + " and was stopped";
        outcome.advice = excess.empty() ? "" : meter.advice();
        outcome.again = excess.empty() ? crashed_ : meter.again();
        outcome.killed = excess.empty() && killed_;
    }
    if (!outcome.answered) {
        kill();
    }
    return outcome;
}

/// Reads the frames of the worker until it has answered or cannot.
void WorkerProcess::follow(Outcome& outcome, Meter& meter, const Limits& limits,
                           const Channel::Patience& patience)
{
    constexpr std::size_t mostReports = mostShaderReports + (8U << 20U); // for many thousands of techniques
    constexpr std::size_t headerBytes = 12;
    std::size_t reported = 0;
    Frame frame;
    Channel::Answer answer = Channel::Answer::Frame;
    while ((answer = channel_.receive(frame, limits.resultBytes, patience)) == Channel::Answer::Frame) {
        if (frame.type == FrameType::Inputs && outcome.compilation.inputs.empty()) {
            if (auto read = readEffectArchive(frame.payload)) {
                outcome.compilation.inputs = std::move(read->inputs);
                continue;
            }
            break;
        }
        if (frame.type == FrameType::Result) {
            auto compilation = readEffectArchive(frame.payload);
            outcome.answered = compilation.has_value();
            if (compilation) {
                outcome.compilation = std::move(*compilation);
            }
            break;
        }
        const auto step = frame.type == FrameType::Step ? decodeStep(frame.payload) : std::nullopt;
        reported += headerBytes + frame.payload.size();
        if (!step || reported > mostReports) {
            break;
        }
        // The compilation of a whole file is one step, whichever shader it has come to.
        const bool goesOn = outcome.began && step->stage == Stage::Compiling;
        outcome.began = true;
        outcome.step = *step;
        if (!goesOn) {
            meter.begin(step->stage == Stage::Compiling ? limits.compiling() : limits.step);
        }
    }
    const bool spoke = answer == Channel::Answer::Frame || answer == Channel::Answer::Malformed;
    if (spoke && !outcome.answered) {
        outcome.failure = "the worker process sent an invalid answer and was stopped";
    }
}

std::uint64_t WorkerProcess::memoryBytes() const
{
    // The second number: resident pages (proc(5), /proc/pid/statm).
    const std::string name = "/proc/" + std::to_string(pid_) + "/statm";
    std::FILE* file = std::fopen(name.c_str(), "re");
    if (file == nullptr) {
        return 0;
    }
    unsigned long long pages = 0;
    const bool read = std::fscanf(file, "%*u %llu", &pages) == 1;
    std::fclose(file);
    return read ? pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)) : 0;
}

milliseconds WorkerProcess::processorTime() const
{
    clockid_t clock{};
    timespec time{};
    if (::clock_getcpuclockid(pid_, &clock) != 0 || ::clock_gettime(clock, &time) != 0) {
        return {};
    }
    return milliseconds(time.tv_sec * 1000 + time.tv_nsec / 1'000'000);
}

void WorkerProcess::kill()
{
    const std::lock_guard lock(endMutex_);
    if (descriptor_ >= 0) {
        ::pidfd_send_signal(descriptor_, SIGKILL, nullptr, 0);
    } else if (endText_.empty()) {
        ::kill(pid_, SIGKILL); // not waited for yet, so the number is still its own
    }
    channel_.hangUp();
}

/// Continues a worker that something else has stopped, such as a tool that suspends busy processes: its
/// requests would wait for nothing until their time is up. Stops by a debugger are not seen here.
void WorkerProcess::continueIfStopped() const
{
    siginfo_t info{};
    if (::waitid(P_PID, static_cast<id_t>(pid_), &info, WSTOPPED | WNOHANG) == 0 && info.si_pid != 0) {
        ::kill(pid_, SIGCONT); // not waited for yet, so the number is still its own
    }
}

bool WorkerProcess::hasEnded()
{
    const std::lock_guard lock(endMutex_);
    siginfo_t info{};
    if (!endText_.empty()) {
        return true;
    }
    if (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG) != 0) {
        endText_ = errno == ECHILD ? "ended" : ""; // other code of this process waits for every child
    } else if (info.si_pid != 0) {
        endText_ = describeEnd(info);
        killed_ = info.si_code != CLD_EXITED && isFromOutside(info.si_status);
        crashed_ = info.si_code != CLD_EXITED && !killed_;
    }
    return !endText_.empty();
}

/// Waits for the end of the process. Returns false if it does not end in time.
bool WorkerProcess::awaitEnd(milliseconds most)
{
    const Clock::time_point latest = Clock::now() + most;
    while (!hasEnded()) {
        if (Clock::now() >= latest) {
            return false;
        }
        constexpr int pauseMilliseconds = 10;
        pollfd waiting{descriptor_, POLLIN, 0};
        ::poll(&waiting, 1, pauseMilliseconds);
    }
    return true;
}

/// Makes sure that the process is gone, and returns how it ended.
std::string WorkerProcess::end()
{
    constexpr milliseconds byItself{2000};
    constexpr milliseconds killed{10'000};
    if (!awaitEnd(byItself)) {
        kill();
        if (!awaitEnd(killed)) {
            return "cannot be killed";
        }
        return "hung up and was killed";
    }
    const std::lock_guard lock(endMutex_);
    return endText_;
}

} // namespace Qx::Host::Worker
