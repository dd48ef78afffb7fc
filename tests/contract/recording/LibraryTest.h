#pragma once

#include "tests/contract/recording/RecordingHost.h"

#include <gtest/gtest.h>

#include <cstddef>

namespace Qx::Test {

/// A test of the library against the recording host. It begins and ends without a manager, and afterwards
/// every block of the host's allocator that it caused must be free again.
class LibraryTest : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// Runs the tasks that the library queued, on this thread; their number.
    static std::size_t runTasks();

private:
    std::size_t blocksBefore_ = 0;
};

} // namespace Qx::Test
