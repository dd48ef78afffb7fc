#include "tools/qxhost/console/ChildProgram.h"

#include "host/files/SystemError.h"
#include "tools/qxhost/console/Failure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <string_view>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace Qx::Program {

/// A file in memory that takes an output of a process.
class ChildProgram::Caught
{
public:
    explicit Caught(const std::string& what) : file_(::memfd_create("qxhost-output", MFD_CLOEXEC))
    {
        if (file_ < 0) {
            throw Failure(ExitCode::failed, "cannot start " + what + ": " + Host::systemProblem(errno));
        }
    }
    ~Caught() { ::close(file_); }
    Caught(const Caught&) = delete;
    Caught& operator=(const Caught&) = delete;

    int file() const { return file_; }

    std::string text() const
    {
        std::string all;
        std::array<char, 4096> part{};
        for (off_t at = 0;;) {
            const ssize_t count = ::pread(file_, part.data(), part.size(), at);
            if (count <= 0) {
                return all;
            }
            all.append(part.data(), static_cast<std::size_t>(count));
            at += count;
        }
    }

private:
    int file_;
};

/// Leads to the standard input of a process.
class ChildProgram::Pipe
{
public:
    explicit Pipe(const std::string& what)
    {
        if (::pipe2(ends_.data(), O_CLOEXEC) != 0) {
            throw Failure(ExitCode::failed, "cannot start " + what + ": " + Host::systemProblem(errno));
        }
    }
    ~Pipe()
    {
        closeReadingEnd();
        ::close(ends_[1]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int readingEnd() const { return ends_[0]; }
    void closeReadingEnd()
    {
        if (ends_[0] >= 0) {
            ::close(std::exchange(ends_[0], -1));
        }
    }
    void write(const std::string& text) const
    {
        while (::write(ends_[1], text.data(), text.size()) < 0 && errno == EINTR) {
        }
    }

private:
    std::array<int, 2> ends_{-1, -1};
};

ChildProgram::ChildProgram() = default;
ChildProgram::~ChildProgram()
{
    stop();
    wait();
}
ChildProgram::ChildProgram(ChildProgram&&) noexcept = default;
ChildProgram& ChildProgram::operator=(ChildProgram&&) noexcept = default;

ChildProgram ChildProgram::start(const char* file, std::vector<std::string> words, const std::string& what,
                                 std::unique_ptr<Pipe> in)
{
    ChildProgram child;
    child.in_ = std::move(in);
    child.out_ = std::make_unique<Caught>(what);
    child.err_ = std::make_unique<Caught>(what);
    std::vector<char*> command;
    for (std::string& word : words) {
        command.push_back(word.data());
    }
    command.push_back(nullptr);
    const pid_t parent = ::getpid();
    child.process_ = ::fork();
    if (child.process_ < 0) {
        throw Failure(ExitCode::failed, "cannot start " + what + ": " + Host::systemProblem(errno));
    }
    if (child.process_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (::getppid() != parent || (child.in_ && ::dup2(child.in_->readingEnd(), 0) < 0) ||
            ::dup2(child.out_->file(), 1) < 0 || ::dup2(child.err_->file(), 2) < 0) {
            ::_exit(notStarted);
        }
        ::execvp(file, command.data());
        ::_exit(notStarted);
    }
    if (child.in_) {
        child.in_->closeReadingEnd();
    }
    return child;
}

namespace {

constexpr const char* ownFile = "/proc/self/exe";

std::vector<std::string> withName(const std::string& name, const std::vector<std::string>& arguments)
{
    std::vector<std::string> words{name};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

} // namespace

ChildProgram ChildProgram::ownProgram(const std::vector<std::string>& arguments, const std::string& what)
{
    return start(ownFile, withName("qxhost", arguments), what);
}

ChildProgram ChildProgram::ownProgramThatListens(const std::vector<std::string>& arguments,
                                                 const std::string& what)
{
    return start(ownFile, withName("qxhost", arguments), what, std::make_unique<Pipe>(what));
}

ChildProgram ChildProgram::named(const std::string& name, const std::vector<std::string>& arguments)
{
    return start(name.c_str(), withName(name, arguments), name);
}

bool ChildProgram::reap(int options)
{
    if (!isRunning()) {
        return true;
    }
    int status = 0;
    pid_t got = 0;
    while ((got = ::waitpid(process_, &status, options)) < 0 && errno == EINTR) {
    }
    if (got != process_) {
        return false;
    }
    signal_ = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : static_cast<int>(ExitCode::failed);
    output_ = out_->text();
    errors_ = err_->text();
    out_.reset();
    err_.reset();
    return true;
}

bool ChildProgram::hasEnded()
{
    return reap(WNOHANG);
}

void ChildProgram::wait()
{
    reap(0);
}

void ChildProgram::stop() const
{
    if (isRunning()) {
        ::kill(process_, SIGTERM);
    }
}

void ChildProgram::tell(const std::string& line) const
{
    if (in_) {
        in_->write(line + '\n');
    }
}

void ChildProgram::endInput()
{
    in_.reset();
}

std::string ChildProgram::outputSoFar() const
{
    return out_ ? out_->text() : output_;
}

std::string ChildProgram::errorsSoFar() const
{
    return err_ ? err_->text() : errors_;
}

void repeatLines(const std::string& messages, Console& console)
{
    constexpr std::string_view name = "qxhost: ";
    std::string_view rest = messages;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        std::string_view line = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        line.remove_prefix(line.starts_with(name) ? name.size() : 0);
        if (!line.empty()) {
            console.error(line);
        }
    }
}

} // namespace Qx::Program
