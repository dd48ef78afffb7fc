#include "tools/qxhost/commands/effects/DirectoryWatch.h"

#include "tools/qxhost/console/Failure.h"

#include <array>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>
#include <utility>

namespace Qx::Program {

namespace {

constexpr int lookAnywayMilliseconds = 500;
constexpr int quietMilliseconds = 40;
constexpr int longestUnrestMilliseconds = 400;

constexpr std::uint32_t changes = IN_CLOSE_WRITE | IN_MODIFY | IN_CREATE | IN_DELETE | IN_MOVED_FROM |
                                  IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

void drain(int events)
{
    alignas(inotify_event) std::array<char, 16384> buffer;
    while (::read(events, buffer.data(), buffer.size()) > 0) {
    }
}

} // namespace

DirectoryWatch::DirectoryWatch(std::vector<std::filesystem::path> directories)
    : directories_(std::move(directories)),
      events_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
      stopped_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    // Without the kernel's reports, changes are found half a second later.
    if (stopped_ < 0) {
        ::close(events_);
        throw Failure(ExitCode::failed, "cannot watch for changes: too many files are open");
    }
    follow();
}

DirectoryWatch::~DirectoryWatch()
{
    if (events_ >= 0) {
        ::close(events_);
    }
    ::close(stopped_);
}

/// Watches the directories that have these names now. Adding a watched directory again has no effect.
void DirectoryWatch::follow() const
{
    if (events_ < 0) {
        return;
    }
    for (const std::filesystem::path& directory : directories_) {
        ::inotify_add_watch(events_, directory.c_str(), changes);
    }
}

/// Returns true if anything happens within that time, stop() included.
bool DirectoryWatch::happens(int milliseconds) const
{
    std::array<pollfd, 2> sources{pollfd{stopped_, POLLIN, 0}, pollfd{events_, POLLIN, 0}};
    return ::poll(sources.data(), sources.size(), milliseconds) > 0;
}

bool DirectoryWatch::wait()
{
    if (happens(lookAnywayMilliseconds)) {
        for (int waited = 0; waited < longestUnrestMilliseconds; waited += quietMilliseconds) {
            drain(events_);
            if (!happens(quietMilliseconds)) {
                break;
            }
        }
    }
    follow();
    pollfd stopped{stopped_, POLLIN, 0};
    return ::poll(&stopped, 1, 0) == 0;
}

void DirectoryWatch::stop()
{
    const std::uint64_t once = 1;
    [[maybe_unused]] const ssize_t written = ::write(stopped_, &once, sizeof once);
}

} // namespace Qx::Program
