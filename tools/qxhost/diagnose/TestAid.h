#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Qx::Diagnosis {

/// Injects a fault into the measuring process, for tests, in the step that the environment variable
/// QXHOST_DIAGNOSE_TEST names: "STEP:ACTION" or "STEP:ACTION:N". The operations that the step asks of the
/// device are counted from 1; in the step "suite", its lines are counted instead. Actions are
///
/// - at the N-th operation (the first without N): lose (the device is lost), and those of
///   tools/FaultInjection.h;
/// - fail (the N-th operation and all after it in the step fail, as on a device that is out of memory);
/// - slow (from the first operation on, each takes N tenths of a millisecond longer than the one before).
class TestAid
{
public:
    TestAid(); ///< from the environment

    /// To be called before each operation; the first of a step is 1. Returns false if the operation must
    /// fail.
    bool permits(std::string_view step, std::uint64_t operation);

private:
    std::string step_;
    std::string action_;
    std::uint64_t number_ = 1;
};

} // namespace Qx::Diagnosis
