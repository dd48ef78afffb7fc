#pragma once

#include <filesystem>
#include <string_view>

namespace Qx::Host {

/// The processor time that control groups allow a process, in processors, rounded up; 0 if they set no limit.
///
/// `membership` is the contents of /proc/PID/cgroup and `root` the mount point, /sys/fs/cgroup. Limits of all
/// groups above the process count. See cgroups(7); the files are cpu.max of version 2, and cpu.cfs_quota_us
/// and cpu.cfs_period_us of version 1.
int processorQuota(const std::filesystem::path& root, std::string_view membership);

} // namespace Qx::Host
