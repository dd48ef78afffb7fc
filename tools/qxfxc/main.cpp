#include "tools/qxfxc/Worker.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

using namespace Qx::Host;

namespace {

bool startedByHost()
{
    int type = 0;
    socklen_t size = sizeof type;
    return ::getsockopt(Worker::hostSocket, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_STREAM;
}

/// What a dying worker must not do: leave a core file, or make the kernel look for memory elsewhere first.
void makeExpendable()
{
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    if (std::FILE* file = std::fopen("/proc/self/oom_score_adj", "we")) {
        std::fputs("1000", file);
        std::fclose(file);
    }
}

} // namespace

int main()
{
    // A driver that writes its cache beyond the limit on file sizes must get an error.
    std::signal(SIGXFSZ, SIG_IGN);
    if (!startedByHost()) {
        std::fputs(
            "qxfxc: compiles effects for the host, which starts it; use 'qxhost effects check' instead\n",
            stderr);
        return 2;
    }
    // Until here it led to the host, who tells by it other programs from this one.
    if (std::freopen("/dev/null", "we", stdout) == nullptr) {
        return 2;
    }
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody sets variables
    if (const char* log = std::getenv("QXFXC_LOG"); log != nullptr && *log != '\0') {
        [[maybe_unused]] const FILE* opened = std::freopen(log, "ae", stderr); // without it nothing is logged
    }
    makeExpendable();
    return Worker::serveHost();
}
