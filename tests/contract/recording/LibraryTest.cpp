#include "tests/contract/recording/LibraryTest.h"

#include "QxFxResources/Manager.h"
#include "fonts/GPUFontCache.h"

namespace Qx::Test {

void LibraryTest::SetUp()
{
    // Objects with the lifetime of the process are created now.
    FxResources::Manager::shutdown(Shutdown::NormalExit);
    GPUFontCache::instance();
    host().reset();
    blocksBefore_ = host().allocator.liveBlocks();
}

void LibraryTest::TearDown()
{
    FxResources::Manager::shutdown(Shutdown::NormalExit);
    host().reset();
    EXPECT_EQ(host().allocator.liveBlocks(), blocksBefore_) << "blocks of the host's allocator were leaked";
}

std::size_t LibraryTest::runTasks()
{
    const auto tasks = host().takeTasks();
    for (const auto& task : tasks) {
        EXPECT_TRUE(task->run());
    }
    return tasks.size();
}

} // namespace Qx::Test
