#include "tools/qxhost/console/Interruption.h"

#include "tools/qxhost/console/ExitCode.h"
#include "tools/qxhost/console/Failure.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <exception>
#include <fcntl.h>
#include <poll.h>
#include <thread>
#include <unistd.h>

namespace Qx::Program {

namespace {

constexpr std::array endingSignals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};
constexpr char interrupted = 'i';
constexpr char finished = 'f';

std::atomic<int> wakeUp{-1};
std::atomic<int> signalsSeen{0};
std::atomic<void (*)()> abandonWork{nullptr};

[[noreturn]] void endNow()
{
    if (void (*const abandon)() = abandonWork.load(); abandon != nullptr) {
        abandon();
    }
    ::_exit(static_cast<int>(ExitCode::interrupted));
}

void onSignal(int)
{
    const int savedError = errno;
    if (signalsSeen.fetch_add(1) > 0) {
        endNow();
    }
    [[maybe_unused]] const ssize_t written = ::write(wakeUp.load(), &interrupted, 1);
    errno = savedError;
}

/// Returns false if nothing can be read from the pipe in this time.
bool canBeRead(int pipe, std::chrono::milliseconds time)
{
    const auto end = std::chrono::steady_clock::now() + time;
    pollfd waited{pipe, POLLIN, 0};
    int left = static_cast<int>(time.count());
    while (::poll(&waited, 1, left) <= 0) {
        left = static_cast<int>(
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count());
        if (left <= 0) {
            return false;
        }
    }
    return true;
}

} // namespace

struct Interruption::Impl
{
    std::array<int, 2> pipe{-1, -1};
    std::array<struct sigaction, endingSignals.size()> before{};
    std::thread watcher;
};

Interruption::Interruption(std::function<void()> stop, void (*abandon)(), std::function<void()> late,
                           std::chrono::milliseconds patience)
    : impl_(std::make_unique<Impl>())
{
    if (::pipe2(impl_->pipe.data(), O_CLOEXEC) != 0) {
        throw Failure(ExitCode::failed, "cannot handle Ctrl-C: too many files are open");
    }
    signalsSeen = 0;
    abandonWork = abandon;
    wakeUp = impl_->pipe[1];
    impl_->watcher =
        std::thread([from = impl_->pipe[0], stop = std::move(stop), late = std::move(late), patience] {
            char what = finished;
            while (::read(from, &what, 1) < 0 && errno == EINTR) {
            }
            if (what == interrupted) {
                stop();
                if (late && !canBeRead(from, patience)) {
                    try {
                        late();
                    } catch (const std::exception&) { // a closed output: nobody is told
                    }
                    endNow();
                }
            }
        });
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    for (std::size_t i = 0; i < endingSignals.size(); ++i) {
        ::sigaction(endingSignals[i], nullptr, &impl_->before[i]);
        // What nohup ignores stays ignored. Shells ignore SIGINT for background jobs, but whoever sends it to
        // one wants it handled.
        if (endingSignals[i] != SIGHUP || impl_->before[i].sa_handler != SIG_IGN) {
            ::sigaction(endingSignals[i], &action, nullptr);
        }
    }
}

Interruption::~Interruption()
{
    for (std::size_t i = 0; i < endingSignals.size(); ++i) {
        ::sigaction(endingSignals[i], &impl_->before[i], nullptr);
    }
    [[maybe_unused]] const ssize_t written = ::write(impl_->pipe[1], &finished, 1);
    impl_->watcher.join();
    ::close(impl_->pipe[0]);
    ::close(impl_->pipe[1]);
}

} // namespace Qx::Program
