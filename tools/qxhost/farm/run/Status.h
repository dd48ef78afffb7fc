#pragma once

#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/farm/job/Job.h"

#include <string>

namespace Qx::Program::Farm {

/// What is done, what failed and why.
Json describeStatus(const Job& job);

/// The same for people.
std::string statusText(const Job& job);

} // namespace Qx::Program::Farm
