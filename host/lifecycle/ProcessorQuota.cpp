#include "host/lifecycle/ProcessorQuota.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>

namespace Qx::Host {

namespace {

namespace fs = std::filesystem;

constexpr double unlimited = std::numeric_limits<double>::infinity();

double quotient(double quota, double period)
{
    return quota > 0 && period > 0 ? quota / period : unlimited;
}

/// "QUOTA PERIOD" in microseconds; "max" stands for no quota.
double limitOfVersionTwo(const fs::path& group)
{
    double quota = 0;
    double period = 0;
    std::ifstream(group / "cpu.max") >> quota >> period;
    return quotient(quota, period);
}

/// Each number is in a file of its own; -1 stands for no quota.
double limitOfVersionOne(const fs::path& group)
{
    double quota = 0;
    double period = 0;
    std::ifstream(group / "cpu.cfs_quota_us") >> quota;
    std::ifstream(group / "cpu.cfs_period_us") >> period;
    return quotient(quota, period);
}

/// The lowest limit of a group and all its ancestors. Inside a container the path may be that of the host:
/// then only visible groups count.
template <class Limit>
double leastLimit(const fs::path& hierarchy, const std::string& group, Limit limitOf)
{
    double least = limitOf(hierarchy);
    fs::path path = hierarchy;
    for (const fs::path& part : fs::path(group).relative_path()) {
        path /= part;
        least = std::min(least, limitOf(path));
    }
    return least;
}

bool contains(const std::string& list, std::string_view name)
{
    std::istringstream names(list);
    for (std::string each; std::getline(names, each, ',');) {
        if (each == name) {
            return true;
        }
    }
    return false;
}

} // namespace

int processorQuota(const fs::path& root, std::string_view membership)
{
    double least = unlimited;
    std::istringstream lines{std::string(membership)};
    // NUMBER:CONTROLLERS:GROUP, without controllers for the second version
    for (std::string number, controllers, group; std::getline(lines, number, ':') &&
                                                 std::getline(lines, controllers, ':') &&
                                                 std::getline(lines, group);) {
        if (controllers.empty()) {
            least = std::min(least, leastLimit(root, group, limitOfVersionTwo));
        } else if (contains(controllers, "cpu")) {
            least = std::min(least, leastLimit(root / "cpu", group, limitOfVersionOne));
        }
    }
    constexpr double most = std::numeric_limits<int>::max();
    return least < most ? static_cast<int>(std::ceil(least)) : 0;
}

} // namespace Qx::Host
