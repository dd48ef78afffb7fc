#include "tools/qxhost/diagnose/MeasuringProcess.h"
#include "host/files/SystemError.h"

#include "host/core/ProgramStart.h"
#include "tools/qxhost/console/Failure.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <fmt/format.h>
#include <optional>
#include <poll.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace Qx::Diagnosis {

using Program::ExitCode;
using Program::Failure;

namespace {

using Clock = std::chrono::steady_clock;

constexpr int lifeSignFile = 3; // in the new process

struct Pipe
{
    std::array<int, 2> ends{-1, -1};

    Pipe()
    {
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw Failure(ExitCode::failed, "cannot start measuring: too many files are open");
        }
    }
    ~Pipe()
    {
        for (const int end : ends) {
            if (end >= 0) {
                ::close(end);
            }
        }
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int takeReader() { return std::exchange(ends[0], -1); }
};

pid_t spawn(std::vector<std::string> arguments, int out, int err, int lifeSign)
{
    Host::ProgramStart start;
    start.open(STDIN_FILENO, "/dev/null", O_RDONLY);
    start.pass(out, STDOUT_FILENO);
    start.pass(err, STDERR_FILENO);
    start.pass(lifeSign, lifeSignFile);
    start.useOwnGroup(); // a terminal's Ctrl-C is for us, and we end it
    arguments.insert(arguments.begin(), "qxhost");
    pid_t pid = -1;
    const int error = start.run("/proc/self/exe", std::move(arguments), pid);
    if (error != 0) {
        throw Failure(ExitCode::failed, "cannot start the measuring process: " + Host::systemProblem(error));
    }
    return pid;
}

std::string seconds(std::chrono::milliseconds time)
{
    const double count = std::chrono::duration<double>(time).count();
    return fmt::format("{:g} second{}", count, count == 1 ? "" : "s");
}

} // namespace

/// Cuts what comes through a pipe into lines.
class MeasuringProcess::Lines
{
public:
    explicit Lines(int file) : file_(file) {}

    /// Reads what is there and calls `take` for each whole line; false at the end.
    template <class Take>
    bool read(Take take)
    {
        std::array<char, 16384> bytes{};
        const ssize_t n = ::read(file_, bytes.data(), bytes.size());
        if (n < 0) {
            return errno == EINTR || errno == EAGAIN;
        }
        if (n == 0) {
            if (!rest_.empty()) {
                take(std::exchange(rest_, {}));
            }
            return false;
        }
        rest_.append(bytes.data(), static_cast<std::size_t>(n));
        std::size_t begin = 0;
        for (std::size_t end = rest_.find('\n'); end != std::string::npos; end = rest_.find('\n', begin)) {
            take(rest_.substr(begin, end - begin));
            begin = end + 1;
        }
        rest_.erase(0, begin);
        if (rest_.size() > longest) {
            rest_.clear(); // no line of ours is so long
        }
        return true;
    }

    int file() const { return file_; }

private:
    static constexpr std::size_t longest = std::size_t{1} << 20U;

    int file_;
    std::string rest_;
};

MeasuringProcess::MeasuringProcess(Program::MeasureOptions options)
{
    Pipe out;
    Pipe err;
    options.lifeSign = lifeSignFile;
    options.parent = ::getpid();
    pid_ = spawn(argumentsOf(options), out.ends[1], err.ends[1], life_.file());
    out_ = out.takeReader();
    err_ = err.takeReader();
    ::fcntl(err_, F_SETFL, O_NONBLOCK);
}

MeasuringProcess::~MeasuringProcess()
{
    if (!reaped_) {
        kill();
        constexpr std::chrono::seconds patience{2};
        reap(patience);
    }
    ::close(out_);
    ::close(err_);
}

void MeasuringProcess::kill() const
{
    ::kill(-pid_, SIGKILL);
    ::kill(pid_, SIGKILL); // in case that it is not in its group yet
}

bool MeasuringProcess::reap(std::chrono::milliseconds limit)
{
    constexpr std::chrono::milliseconds pause{5};
    const Clock::time_point end = Clock::now() + limit;
    while (!reaped_) {
        const pid_t got = ::waitpid(pid_, &status_, WNOHANG);
        reaped_ = got == pid_ || (got < 0 && errno != EINTR);
        if (!reaped_ && Clock::now() >= end) {
            return false;
        }
        if (!reaped_) {
            std::this_thread::sleep_for(pause);
        }
    }
    return true;
}

std::string MeasuringProcess::howItEnded() const
{
    if (WIFSIGNALED(status_)) {
        const int signal = WTERMSIG(status_);
        const char* name = ::sigdescr_np(signal);
        return fmt::format("signal {} ({}) ended it", signal, name != nullptr ? name : "unknown");
    }
    return fmt::format("it ended with exit code {}", WEXITSTATUS(status_));
}

/// What is heard of the process, and what comes of it.
class MeasuringProcess::Hearing
{
public:
    Hearing(MeasuringProcess& process, const Listener& listener)
        : process_(process),
          listener_(listener),
          out_(process.out_),
          err_(process.err_),
          pulse_(process.life_.pulse())
    {
    }

    bool isOpen() const { return open_; }

    /// Takes in what comes within a moment; true when `stop` is readable.
    bool listen(int stop)
    {
        constexpr int momentMilliseconds = 100;
        std::array<pollfd, 3> files{
            {{out_.file(), POLLIN, 0}, {stop, POLLIN, 0}, {errOpen_ ? err_.file() : -1, POLLIN, 0}}};
        ::poll(files.data(), files.size(), momentMilliseconds);
        if (files[2].revents != 0) {
            errOpen_ = err_.read([this](const std::string& line) { hear(line); });
        }
        if (files[0].revents != 0) {
            open_ = out_.read([this](const std::string& line) { take(line); });
        }
        const std::uint64_t pulse = process_.life_.pulse();
        if (pulse != pulse_ || files[0].revents != 0) {
            pulse_ = pulse;
            lastSign_ = Clock::now();
        }
        return files[1].revents != 0;
    }

    /// Why it must be ended now, if it must.
    std::optional<Ending> reasonToEnd(std::chrono::milliseconds limit, bool stopped) const
    {
        const std::chrono::milliseconds patience = limit * process_.life_.patience();
        if (!sound_) {
            return Ending{Kind::died, "it sent what is no message", "", ""};
        }
        if (stopped) {
            return Ending{Kind::interrupted, "it was ended by Ctrl-C or a signal", "", ""};
        }
        if (open_ && Clock::now() - lastSign_ > patience) {
            return Ending{Kind::hung, "no sign of life for " + seconds(patience), "", ""};
        }
        return std::nullopt;
    }

    /// Ends it.
    Ending end(Ending ending)
    {
        constexpr std::chrono::seconds patience{5};
        ending.doing = process_.life_.last();
        process_.kill();
        if (!process_.reap(patience)) {
            ending.reason += "; it cannot even be killed, the driver holds it in the kernel";
        }
        return withLastWords(std::move(ending));
    }

    /// It has ended by itself.
    Ending conclusion()
    {
        if (noDevice_) {
            return {Kind::noDevice, *noDevice_, "", ""};
        }
        if (finished_ && WIFEXITED(process_.status_) && WEXITSTATUS(process_.status_) == 0) {
            return {};
        }
        return withLastWords({Kind::died, process_.howItEnded(), process_.life_.last(), ""});
    }

private:
    using Kind = Ending::Kind;

    void hear(const std::string& line)
    {
        constexpr std::size_t linesKept = 12;
        said_.push_back(line);
        if (said_.size() > linesKept) {
            said_.pop_front();
        }
        listener_.line(line);
    }

    void take(const std::string& line)
    {
        const std::optional<Message> message = messageFrom(line);
        sound_ = sound_ && message;
        if (!sound_) {
            return;
        }
        finished_ = finished_ || std::holds_alternative<Finished>(*message);
        if (const auto* none = std::get_if<NoDevice>(&*message)) {
            noDevice_ = none->reason;
        }
        listener_.message(*message);
    }

    Ending withLastWords(Ending ending)
    {
        errno = 0;
        while (errOpen_ && errno != EAGAIN) {
            errOpen_ = err_.read([this](const std::string& line) { hear(line); });
        }
        if (ending.kind != Kind::interrupted) {
            for (const std::string& line : said_) {
                ending.said += line + "\n";
            }
        }
        return ending;
    }

    MeasuringProcess& process_;
    const Listener& listener_;
    Lines out_;
    Lines err_;
    std::deque<std::string> said_;
    std::optional<std::string> noDevice_;
    std::uint64_t pulse_;
    Clock::time_point lastSign_ = Clock::now();
    bool open_ = true;
    bool errOpen_ = true;
    bool sound_ = true;
    bool finished_ = false;
};

Ending MeasuringProcess::watch(std::chrono::milliseconds limit, int stop, const Listener& listener)
{
    Hearing hearing(*this, listener);
    while (hearing.isOpen()) {
        const bool stopped = hearing.listen(stop);
        if (const std::optional<Ending> reason = hearing.reasonToEnd(limit, stopped)) {
            return hearing.end(*reason);
        }
        listener.meanwhile();
    }
    if (!reap(limit)) {
        return hearing.end({Ending::Kind::hung, "it did not end for " + seconds(limit), "", ""});
    }
    return hearing.conclusion();
}

} // namespace Qx::Diagnosis
