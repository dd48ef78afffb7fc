#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Qx::Diagnosis {

/// A test aid: makes the measuring process misbehave where the environment variable QXHOST_DIAGNOSE_TEST says
/// so, which is "STEP:ACTION" or "STEP:ACTION:N". It acts at the N-th operation (the first without N) that
/// the step asks of the device; in the step "suite" the lines count. Actions are
///
/// - fail (this operation and all after it in the step are refused, as a device does that has no memory);
/// - lose (the device is lost);
/// - slow (from the first operation on, each takes longer than the one before by N tenths of a millisecond);
/// - hang (sleeps for ever), spin (computes for ever), abort, kill (ends by SIGABRT, SIGKILL), exit (ends
///   with code 3).
class TestAid
{
public:
    TestAid(); ///< from the environment

    /// Before an operation, the first of a step being 1; false when it is to fail.
    bool permits(std::string_view step, std::uint64_t operation);

private:
    std::string step_;
    std::string action_;
    std::uint64_t number_ = 1;
};

} // namespace Qx::Diagnosis
