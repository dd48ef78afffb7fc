#include "tools/qxhost/diagnose/MeasuringProcess.h"

#include "tools/qxhost/Failure.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ; // NOLINT: POSIX declares it nowhere

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

std::vector<char*> pointers(std::vector<std::string>& texts)
{
    std::vector<char*> result;
    for (std::string& text : texts) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

pid_t spawn(std::vector<std::string> arguments, int out, int err, int lifeSign)
{
    arguments.insert(arguments.begin(), "qxhost");
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files, out, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&files, err, STDERR_FILENO);
    posix_spawn_file_actions_adddup2(&files, lifeSign, lifeSignFile);
    // A group of its own: a terminal's Ctrl-C is for us, and we end it.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0);
    pid_t pid = -1;
    const int error =
        ::posix_spawn(&pid, "/proc/self/exe", &files, &attributes, pointers(arguments).data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) {
        throw Failure(ExitCode::failed,
                      std::string("cannot start the measuring process (") + std::strerror(error) + ")");
    }
    return pid;
}

std::string seconds(std::chrono::milliseconds time)
{
    return fmt::format("{:g} seconds", std::chrono::duration<double>(time).count());
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

Ending MeasuringProcess::watch(std::chrono::milliseconds limit, int stop, const Listener& listener)
{
    using Kind = Ending::Kind;
    constexpr std::chrono::seconds patience{5};
    constexpr int pollMilliseconds = 100;
    constexpr std::size_t linesKept = 12;
    Lines out(out_);
    Lines err(err_);
    std::deque<std::string> said;
    const auto hear = [&](const std::string& line) {
        said.push_back(line);
        if (said.size() > linesKept) {
            said.pop_front();
        }
        listener.line(line);
    };
    Ending ending{Kind::died, "", "", ""};
    bool finished = false;
    bool sound = true;
    const auto take = [&](const std::string& line) {
        const std::optional<Message> read = messageFrom(line);
        sound = sound && read;
        if (!sound) {
            return;
        }
        const Message& message = *read;
        finished = finished || std::holds_alternative<Finished>(message);
        if (const auto* none = std::get_if<NoDevice>(&message)) {
            ending = {Kind::noDevice, none->reason, "", ""};
        }
        listener.message(message);
    };
    const auto giveUp = [&](Kind kind, std::string reason) {
        ending = {kind, std::move(reason), life_.last(), ""};
        kill();
        if (!reap(patience)) {
            ending.reason += "; it cannot even be killed, the driver holds it in the kernel";
        }
    };

    std::uint64_t pulse = life_.pulse();
    Clock::time_point lastSign = Clock::now();
    bool open = true;
    bool errOpen = true;
    bool ended = false; // by us
    while (open && !ended) {
        std::array<pollfd, 3> files{
            {{out.file(), POLLIN, 0}, {stop, POLLIN, 0}, {errOpen ? err.file() : -1, POLLIN, 0}}};
        ::poll(files.data(), files.size(), pollMilliseconds);
        if (files[2].revents != 0) {
            errOpen = err.read(hear);
        }
        open = files[0].revents == 0 || out.read(take);
        if (const std::uint64_t now = life_.pulse(); now != pulse || files[0].revents != 0) {
            pulse = now;
            lastSign = Clock::now();
        }
        if (!sound) {
            giveUp(Kind::died, "it sent what is no message");
            ended = true;
        } else if (files[1].revents != 0) {
            giveUp(Kind::interrupted, "it was ended by Ctrl-C or a signal");
            ended = true;
        } else if (open && Clock::now() - lastSign > limit * life_.patience()) {
            giveUp(Kind::hung, fmt::format("no sign of life for {}", seconds(limit * life_.patience())));
            ended = true;
        }
        listener.meanwhile();
    }
    if (!ended && !reap(limit)) {
        giveUp(Kind::hung, fmt::format("the measuring process did not end for {}", seconds(limit)));
        ended = true;
    }
    while (errOpen && err.read(hear) && errno != EAGAIN) {
        errno = 0;
    }
    if (!ended && ending.kind != Kind::noDevice) {
        const bool well = finished && WIFEXITED(status_) && WEXITSTATUS(status_) == 0;
        ending = well ? Ending{} : Ending{Kind::died, howItEnded(), life_.last(), ""};
    }
    if (ending.kind == Kind::died || ending.kind == Kind::hung) {
        for (const std::string& line : said) {
            ending.said += line + "\n";
        }
    }
    return ending;
}

} // namespace Qx::Diagnosis
