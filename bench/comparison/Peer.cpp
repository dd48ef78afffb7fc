#include "bench/comparison/Peer.h"

#include "host/core/ProgramStart.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Qx::Bench {
namespace {

using namespace std::chrono_literals;

// Compiling for a slow software device takes seconds; no working participant takes longer than this.
constexpr auto setUpLimit = 30s;

std::vector<std::string> split(const std::string& line)
{
    std::vector<std::string> fields(1);
    for (const char c : line) {
        if (c == '\t') {
            fields.emplace_back();
        } else {
            fields.back() += c;
        }
    }
    return fields;
}

} // namespace

Peer::Peer(const std::string& program, const Variables& variables)
{
    int in[2] = {-1, -1};
    int out[2] = {-1, -1};
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) {
        failure_ = "cannot create a pipe";
        return;
    }
    Host::ProgramStart start; // all other descriptors are close-on-exec
    start.pass(in[0], STDIN_FILENO);
    start.pass(out[1], STDOUT_FILENO);
    start.addVariables(variables);
    if (start.run(program, {program}, process_) != 0) {
        process_ = -1;
    }
    ::close(in[0]);
    ::close(out[1]);
    toIt_ = in[1];
    fromIt_ = out[0];
    if (process_ < 0) {
        end("it cannot be started");
        return;
    }
    readIntroduction();
}

Peer::~Peer()
{
    end("");
}

void Peer::readIntroduction()
{
    for (;;) {
        const Fields fields = readLine(setUpLimit);
        if (fields.empty()) {
            return;
        }
        if (fields[0] == "identity" && fields.size() == 4) {
            name_ = fields[1];
            device_ = fields[2];
            description_ = fields[3];
        } else if (fields[0] == "offer" && fields.size() == 4) {
            offers_.push_back({fields[1], fields[2], fields[3]});
        } else if (fields[0] == "open") {
            return;
        } else {
            end("unknown line: " + fields[0]);
            return;
        }
    }
}

bool Peer::prepare(const std::string& work, const std::string& method)
{
    return !ask("prepare\t" + work + '\t' + method, "ready", setUpLimit).empty();
}

std::optional<Peer::Ran> Peer::run(double seconds)
{
    const auto limit = setUpLimit + std::chrono::milliseconds(static_cast<long>(seconds * 1000));
    const Fields fields = ask("run\t" + std::to_string(seconds), "ran", limit);
    if (fields.size() != 4) {
        return std::nullopt;
    }
    return Ran{std::atof(fields[1].c_str()), std::atof(fields[2].c_str()), fields[3]};
}

bool Peer::writeResult(const std::string& file)
{
    return !ask("result\t" + file, "written", setUpLimit).empty();
}

Peer::Fields Peer::ask(const std::string& line, const char* expected, std::chrono::milliseconds limit)
{
    if (!alive()) {
        return {};
    }
    const std::string text = line + '\n';
    if (::write(toIt_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        end("it ended");
        return {};
    }
    const Fields fields = readLine(limit);
    if (fields.empty()) {
        return {};
    }
    if (fields[0] != expected) {
        failure_ = fields.size() > 1 ? fields[1] : fields[0];
        return {};
    }
    failure_.clear();
    return fields;
}

Peer::Fields Peer::readLine(std::chrono::milliseconds limit)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end_ = Clock::now() + limit;
    for (;;) {
        if (const std::size_t at = unread_.find('\n'); at != std::string::npos) {
            const std::string line = unread_.substr(0, at);
            unread_.erase(0, at + 1);
            return split(line);
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end_ - Clock::now());
        pollfd waiting{fromIt_, POLLIN, 0};
        const int ready = ::poll(&waiting, 1, static_cast<int>(std::max(left.count(), 0L)));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        char bytes[4096];
        const ssize_t count = ready > 0 ? ::read(fromIt_, bytes, sizeof bytes) : -1;
        if (count <= 0) {
            end(ready == 0 ? "it did not answer in time" : "it ended");
            return {};
        }
        unread_.append(bytes, static_cast<std::size_t>(count));
    }
}

void Peer::end(const std::string& why)
{
    failure_ = why;
    for (int* const file : {&toIt_, &fromIt_}) {
        if (*file >= 0) {
            ::close(*file);
            *file = -1;
        }
    }
    if (process_ > 0) {
        // Participants end with their input; one that hangs is not waited for.
        constexpr int patience = 100;
        int status = 0;
        for (int i = 0; i < patience && ::waitpid(process_, &status, WNOHANG) == 0; ++i) {
            ::usleep(20'000);
            if (i == patience - 2) {
                ::kill(process_, SIGKILL);
            }
        }
        process_ = -1;
    }
}

bool runProgram(const std::vector<std::string>& arguments, const Variables& variables,
                const std::string& outputFile)
{
    constexpr int mode = 0600;
    Host::ProgramStart start;
    start.open(STDOUT_FILENO, outputFile, O_WRONLY | O_CREAT | O_TRUNC, mode);
    start.addVariables(variables);
    pid_t process = -1;
    int status = 0;
    return start.run(arguments.front(), arguments, process) == 0 &&
           ::waitpid(process, &status, 0) == process && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace Qx::Bench
