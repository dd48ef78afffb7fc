#include "QxFxResources/GPUColourConverter.h"
#include "bench/peers/Allocations.h"
#include "bench/peers/DrawingJob.h"
#include "bench/peers/OurFrames.h"
#include "bench/peers/Ours.h"
#include "image/TechniqueApplication.h"
#include "platform/GPUService.h"
#include "platform/OS.h"

#include <array>
#include <atomic>
#include <chrono>
#include <ctime>
#include <string>
#include <thread>

namespace Qx::Bench {
namespace {

using namespace Image;

double threadSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

/// The cost of one technique application on the calling thread. The images have two texels, and the device's
/// own threads are not counted. The note has the allocations.
class Application : public Job
{
public:
    Application()
        : effect_(getShader(L"null.fx")),
          source_(makeWrapper(OS().gpu().createGPUImage({2, 1}, iGPUImage::eARGB8))),
          target_(makeWrapper(OS().gpu().createGPUImage({2, 1}, iGPUImage::eARGB8)))
    {
    }

    int frames() override
    {
        for (int i = 0; i < together; ++i) {
            if (!applyTechnique(effect_, source_, target_, technique_, 2.0F)) {
                return 0;
            }
        }
        finish();
        return together;
    }

    Measurement run(double seconds) override
    {
        using Clock = std::chrono::steady_clock;
        const Clock::time_point end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                         std::chrono::duration<double>(seconds));
        Measurement measured;
        do {
            const double begin = threadSeconds();
            for (int i = 0; i < together; ++i) {
                applyTechnique(effect_, source_, target_, technique_, 2.0F);
            }
            measured.seconds += threadSeconds() - begin;
            measured.amount += together;
            finish();
        } while (Clock::now() < end);
        measured.note = countAllocations();
        return measured;
    }

private:
    static constexpr int together = 64;

    std::string countAllocations()
    {
        startCounting();
        for (int i = 0; i < together; ++i) {
            applyTechnique(effect_, source_, target_, technique_, 2.0F);
        }
        const Allocations counted = stopCounting();
        finish();
        const auto each = [](int count) { return std::to_string(static_cast<double>(count) / together); };
        return each(counted.ours) + " by us, " + each(counted.drivers) + " by the driver";
    }

    Qx::Ptr<iShaderEffect> effect_;
    Surface source_;
    Surface target_;
    LightweightString<char> technique_{"Null"};
};

/// Eight surfaces, each converted into its own target, by one thread or by eight.
class EightSurfaces : public DrawingJob
{
public:
    explicit EightSurfaces(bool manyThreads) : manyThreads_(manyThreads)
    {
        for (std::size_t i = 0; i < count; ++i) {
            sources_.at(i) = makeSource(work).uploadToGPU();
            targets_.at(i) = makeTarget(work);
        }
    }

    int frames() override
    {
        const int each = framesAtOnce();
        std::atomic<bool> drawn = true;
        const auto convert = [&](std::size_t i) {
            if (!ColourConversion::convertYCrCb422ToRGB(sources_.at(i), targets_.at(i),
                                                        GamutScaling::Unscaled, Filter::Point)) {
                drawn = false;
            }
        };
        if (manyThreads_) {
            std::vector<std::jthread> threads;
            for (std::size_t i = 0; i < count; ++i) {
                threads.emplace_back([&convert, each, i] {
                    for (int frame = 0; frame < each; ++frame) {
                        convert(i);
                    }
                });
            }
        } else {
            for (int frame = 0; frame < each; ++frame) {
                for (std::size_t i = 0; i < count; ++i) {
                    convert(i);
                }
            }
        }
        finish();
        return drawn ? each * static_cast<int>(count) : 0;
    }

private:
    static constexpr std::size_t count = 8;
    static constexpr Work work{WorkKind::Decode, 8, ChromaFilter::Point, Place::Device};

    bool manyThreads_;
    std::array<Surface, count> sources_;
    std::array<Surface, count> targets_;
};

/// A conversion of frames of another size.
class Lines : public DrawingJob
{
public:
    explicit Lines(int lines)
        : source_(makeVideoFrame(iGPUImage::eARGB8, sizeOf(lines)).uploadToGPU()),
          targets_{makePicture(iGPUImage::eARGB8, sizeOf(lines)),
                   makePicture(iGPUImage::eARGB8, sizeOf(lines)),
                   makePicture(iGPUImage::eARGB8, sizeOf(lines))}
    {
    }

    int frames() override
    {
        const int count = framesAtOnce() / 4;
        for (int i = 0; i < count; ++i) {
            Surface& target = targets_.at(static_cast<std::size_t>(i) % targets_.size());
            if (!source_.getGPUSurface() || !target.getGPUSurface() ||
                !ColourConversion::convertYCrCb422ToRGB(source_, target, GamutScaling::Unscaled,
                                                        Filter::Point)) {
                return 0;
            }
        }
        finish();
        return count;
    }

private:
    static XY<int> sizeOf(int lines) { return {lines * 16 / 9, lines}; }

    Surface source_;
    std::array<Surface, targetsInTurn> targets_;
};

} // namespace

void offerCosts(std::vector<Offer>& offers)
{
    offers.push_back({"application", "ours", "", [] { return std::make_unique<Application>(); }});
    offers.push_back({"eight", "eight threads", "", [] { return std::make_unique<EightSurfaces>(true); }});
    offers.push_back({"eight", "one thread", "", [] { return std::make_unique<EightSurfaces>(false); }});
    for (const int lines : {1080, 2160, 4320}) {
        offers.push_back(
            {"lines", std::to_string(lines), "", [lines] { return std::make_unique<Lines>(lines); }});
    }
}

} // namespace Qx::Bench
