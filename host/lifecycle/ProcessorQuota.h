#pragma once

#include <filesystem>
#include <string_view>

namespace Qx::Host {

/// Processors' worth of time that control groups leave a process, rounded up; 0 when they set no limit.
///
/// `membership` is what /proc/PID/cgroup says and `root` where the groups' files are, /sys/fs/cgroup. A limit
/// of any group above the process counts. See cgroups(7) for both; the files are cpu.max of the second
/// version and cpu.cfs_quota_us and cpu.cfs_period_us of the first.
int processorQuota(const std::filesystem::path& root, std::string_view membership);

} // namespace Qx::Host
