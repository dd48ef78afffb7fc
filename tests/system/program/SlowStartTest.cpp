#include "tools/qxhost/console/SlowStart.h"

#include <gtest/gtest.h>

namespace Qx::Program {

namespace {

TEST(SlowStart, its_reason_is_the_state_of_the_cache)
{
    Host::CacheInfo cache;
    cache.enabled = true;
    cache.directory = "/home/user/.cache/qxhost";
    EXPECT_EQ(slowStartReason(cache), "a first run compiles the effects for this device");
    cache.problem = "Read-only file system";
    EXPECT_EQ(slowStartReason(cache),
              "the effects are compiled for this device in each run, because they cannot be kept in "
              "/home/user/.cache/qxhost: Read-only file system");
    cache.enabled = false;
    EXPECT_EQ(slowStartReason(cache),
              "the effects are compiled for this device in each run, because the settings keep none");
}

} // namespace

} // namespace Qx::Program
