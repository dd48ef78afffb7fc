#pragma once

#include "hosttests/HostTests.h"

#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::HostTests {

/// A mistake that a host's author could make: one service of a good host, wrapped so that it breaks one
/// promise.
struct Fault
{
    const char* name;
    const char* promise; ///< the test that must fail
    std::unique_ptr<Services> (*make)(HostUnderTest& host);
    std::set<std::string> also = {};    ///< tests of the same service that must fail with it
    std::set<std::string> perhaps = {}; ///< those that threads decide; all others must pass
};

using Faults = std::vector<Fault>;

/// The maker of a fault by which a call or an event never comes: the test waits for it no longer than this.
template <auto makeServices>
std::unique_ptr<Services> impatient(HostUnderTest& host)
{
    host.patience = std::chrono::seconds(3);
    return makeServices(host);
}

Faults memoryFaults();
Faults textFaults();
Faults fileFaults();
Faults systemFaults();
Faults gpuFaults();
Faults surfaceFaults();
Faults taskFaults();

/// All of them.
Faults allFaults();

/// The process's services with one fault; null if there is no such fault. May wrap functions of `host` too.
std::unique_ptr<Services> servicesWithFault(std::string_view name, HostUnderTest& host);

} // namespace Qx::HostTests
