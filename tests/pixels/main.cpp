// Runs the tests that draw, on one device under the eyes of the validation layer.

#include "tests/pixels/RunningHost.h"

#include <gtest/gtest.h>

#include <optional>

namespace {

class Device : public testing::Environment
{
public:
    void SetUp() override
    {
        host_.emplace(true);
        ASSERT_NE(host_->device(), "") << host_->failure();
        std::printf("Device: %s\n", host_->device().c_str());
    }

    void TearDown() override
    {
        EXPECT_EQ(host_->validationMessages(), 0U) << "the validation layer complained; the log says of what";
        host_.reset();
    }

private:
    std::optional<Qx::Pixels::RunningHost> host_;
};

} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    testing::AddGlobalTestEnvironment(new Device);
    return RUN_ALL_TESTS();
}
