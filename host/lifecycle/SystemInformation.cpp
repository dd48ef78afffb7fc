#include "platform/SystemInformation.h"

#include "host/core/Immortal.h"
#include "host/lifecycle/ProcessorQuota.h"
#include "host/lifecycle/Services.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <sched.h>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <vector>

namespace Qx::Host {

namespace {

/// The bytes of a line such as "MemTotal:       16384 kB"; 0 if the line has another name. See proc(5).
std::uint64_t bytesOfLine(std::string_view line, std::string_view name)
{
    if (!line.starts_with(name)) {
        return 0;
    }
    line.remove_prefix(std::min(line.find_first_of("0123456789"), line.size()));
    std::uint64_t kibibytes = 0;
    std::from_chars(line.data(), line.data() + line.size(), kibibytes);
    return kibibytes * 1024;
}

int processorsOfAffinity()
{
    // The kernel rejects a set that is smaller than its own.
    for (std::size_t processors = 1024; processors <= 1U << 20; processors *= 2) {
        const std::size_t bytes = CPU_ALLOC_SIZE(processors);
        std::vector<cpu_set_t> set((bytes + sizeof(cpu_set_t) - 1) / sizeof(cpu_set_t));
        if (sched_getaffinity(0, bytes, set.data()) == 0) {
            return CPU_COUNT_S(bytes, set.data());
        }
    }
    return static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
}

int quotaOfThisProcess()
{
    std::ifstream file("/proc/self/cgroup");
    const std::string membership{std::istreambuf_iterator<char>(file), {}};
    return processorQuota("/sys/fs/cgroup", membership);
}

class SystemInformation final : public iSystemInformation
{
public:
    MemoryStatus memoryStatus() override
    {
        MemoryStatus status;
        std::ifstream file("/proc/meminfo");
        for (std::string line; std::getline(file, line);) {
            status.total += bytesOfLine(line, "MemTotal:");
            status.available += bytesOfLine(line, "MemAvailable:");
        }
        status.used = status.total - std::min(status.available, status.total);
        return status;
    }

    int cpuCount() override
    {
        const int allowed = processorsOfAffinity();
        const int quota = quotaOfThisProcess();
        return quota != 0 ? std::min(allowed, quota) : allowed;
    }
};

class UserService final : public iUserService
{
public:
    bool isAdministrator() override { return geteuid() == 0; }
};

} // namespace

iSystemInformation& hostSystemInformation()
{
    return immortal<SystemInformation>();
}

iUserService& hostUsers()
{
    return immortal<UserService>();
}

} // namespace Qx::Host
