#include "tests/contract/recording/RecordingHost.h"

#include <gtest/gtest.h>

namespace {

/// Fails a test in which a block was freed that the host's allocator did not allocate, or was freed twice, or
/// overrun.
class AllocatorFaults : public testing::EmptyTestEventListener
{
    void OnTestEnd(const testing::TestInfo&) override
    {
        for (const std::string& fault : Qx::Test::host().allocator.takeFaults()) {
            ADD_FAILURE() << "host allocator: " << fault;
        }
    }
};

} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    // The printer is first in the list and would report a test's end before these faults are added.
    auto& listeners = testing::UnitTest::GetInstance()->listeners();
    testing::TestEventListener* printer = listeners.Release(listeners.default_result_printer());
    listeners.Append(new AllocatorFaults);
    listeners.Append(printer);
    const int result = RUN_ALL_TESTS();
    Qx::Test::host().allocator.setFaultsFatal();
    return result;
}
