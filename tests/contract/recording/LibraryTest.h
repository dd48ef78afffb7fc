#pragma once

#include "tests/contract/recording/RecordingHost.h"

#include <gtest/gtest.h>

#include <cstddef>

namespace Qx::Test {

/// A test of the library with the recording host. It begins and ends without a manager, and at its end every
/// block that it allocated from the host must have been freed.
class LibraryTest : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// Runs the tasks that the library queued, on this thread, and returns their number.
    static std::size_t runTasks();

private:
    std::size_t blocksBefore_ = 0;
};

} // namespace Qx::Test
