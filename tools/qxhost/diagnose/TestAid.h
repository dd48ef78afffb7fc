#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Qx::Diagnosis {

/// A test aid: makes the measuring process misbehave where the environment variable QXHOST_DIAGNOSE_TEST says
/// so, which is "STEP:ACTION" or "STEP:ACTION:N". Operations that the step asks of the device are counted,
/// from 1; in the step "suite" its lines are. Actions are
///
/// - at the N-th operation (the first without N) lose (the device is lost), and those of
///   tools/Misbehaviour.h;
/// - fail (the N-th operation and all after it in the step are refused, as by a device that has no memory);
/// - slow (from the first operation on, each takes longer than the one before by N tenths of a millisecond).
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
