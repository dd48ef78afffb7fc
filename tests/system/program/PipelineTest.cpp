#include "host/gpu/GPUService.h"
#include "tests/TemporaryDirectory.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/FramePipeline.h"
#include "tools/qxhost/pipeline/device/HostSession.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <thread>

namespace Qx::Program {

namespace {

namespace fs = std::filesystem;

/// Takes frames and remembers when they were.
class ListeningWriter : public Media::iFrameWriter
{
public:
    Media::Status write(const void*, std::ptrdiff_t, const Media::FrameTime& time) override
    {
        times_.push_back(time.pts);
        if (static_cast<std::int64_t>(times_.size()) == failAt) {
            return Media::Error{"the disk is full"};
        }
        return {};
    }
    Media::Status finish() override { return {}; }
    const std::vector<std::string>& warnings() const override { return warnings_; }
    std::string description() const override { return "nothing"; }
    std::vector<fs::path> files() const override { return {}; }

    const std::vector<std::int64_t>& times() const { return times_; }

    std::int64_t failAt = 0;

private:
    std::vector<std::int64_t> times_;
    std::vector<std::string> warnings_;
};

class Pipeline : public testing::Test
{
protected:
    static constexpr int clipFrames = 60;

    void SetUp() override
    {
        ::setenv("XDG_STATE_HOME", directory_.c_str(), 1);
        ::setenv("XDG_CACHE_HOME", directory_.c_str(), 1);
        const std::string command =
            "ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=320x240:rate=25 -frames " +
            std::to_string(clipFrames) + " -pix_fmt yuv422p -c:v ffv1 " + clip().string();
        ASSERT_EQ(std::system(command.c_str()), 0);
    }

    fs::path clip() const { return directory_ / "clip.mkv"; }

    /// Runs a pipeline over the clip and returns the failure's exit code, or ok.
    ExitCode run(Media::iFrameWriter& writer,
                 const std::function<void(FramePipeline&, std::int64_t)>& onFrame)
    {
        ConvertOptions options;
        options.input = clip();
        const std::unique_ptr<iFrameInput> input = openFrameInput(options, false);
        EffectChain effects({});
        FramePipeline* running = nullptr;
        FramePipeline pipeline(jobFor(*input, effects), [&](std::int64_t done) { onFrame(*running, done); });
        running = &pipeline;
        try {
            frames_ = pipeline.run(writer);
            return pipeline.stopped() ? ExitCode::interrupted : ExitCode::ok;
        } catch (const Failure& failure) {
            what_ = failure.what();
            return failure.code();
        }
    }

    static ConversionJob jobFor(iFrameInput& input, EffectChain& effects)
    {
        return {.input = input, .effects = effects, .source = {}, .step = {}};
    }

    const Qx::Test::TemporaryDirectory temporary_;
    const fs::path directory_ = temporary_.path();
    std::int64_t frames_ = 0;
    std::string what_;
};

void nothing(FramePipeline&, std::int64_t) {}

TEST_F(Pipeline, frames_arrive_in_order_and_every_failure_ends_it_with_its_reason)
{
    const HostSession host("");

    ListeningWriter all;
    EXPECT_EQ(run(all, nothing), ExitCode::ok);
    EXPECT_EQ(frames_, clipFrames);
    EXPECT_EQ(all.times().size(), std::size_t{clipFrames});
    EXPECT_TRUE(std::is_sorted(all.times().begin(), all.times().end()));

    ListeningWriter stopped;
    EXPECT_EQ(run(stopped,
                  [](FramePipeline& pipeline, std::int64_t done) {
                      if (done == 3) {
                          pipeline.stop();
                      }
                  }),
              ExitCode::interrupted);
    EXPECT_EQ(stopped.times().size(), 3U);

    ListeningWriter full;
    full.failAt = 5;
    EXPECT_EQ(run(full, nothing), ExitCode::output);
    EXPECT_EQ(what_, "the disk is full");
    EXPECT_EQ(full.times().size(), 5U);

    Host::gpuService().trim();
    Host::gpuService().failAllocations(0, 1000);
    ListeningWriter starved;
    EXPECT_EQ(run(starved, nothing), ExitCode::device);
    EXPECT_NE(what_.find("320 x 240"), std::string::npos) << what_;
    EXPECT_NE(what_.find("--device"), std::string::npos) << what_;
    Host::gpuService().failAllocations(0, 0);

    ListeningWriter lost;
    EXPECT_EQ(run(lost,
                  [](FramePipeline&, std::int64_t done) {
                      if (done == 3) {
                          Host::gpuService().loseDevice();
                      }
                  }),
              ExitCode::device);
    EXPECT_NE(what_.find("stopped working"), std::string::npos) << what_;
    EXPECT_LT(lost.times().size(), std::size_t{clipFrames});
}

} // namespace

} // namespace Qx::Program
