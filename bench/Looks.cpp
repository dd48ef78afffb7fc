#include "bench/Fixture.h"
#include "bench/Look.h"
#include "platform/GPUService.h"
#include "platform/OS.h"

#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

// A LUT of 33 points per axis over a frame of scattered colours: the effect on the device alone, and the
// round trip of every frame.

namespace Qx::Bench {
namespace {

using benchmark::State;

std::size_t bytesOf(iGPUImage::eFormat depth)
{
    return static_cast<std::size_t>(frameSize.x) * static_cast<std::size_t>(frameSize.y) *
           (depth == iGPUImage::eARGB8 ? 4 : 8);
}

/// Random bytes are random codes at both depths.
void scatter(std::byte* bytes, std::size_t count)
{
    std::mt19937 random(1);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<std::byte>(random() & 255U);
    }
}

Qx::Ptr<iHostImage> scatteredImage(iGPUImage::eFormat depth)
{
    Qx::Ptr<iHostImage> image = OS().gpu().createHostImage(frameSize, depth);
    if (image) {
        scatter(static_cast<std::byte*>(image->map(iHostImage::Write)), bytesOf(depth));
    }
    return image;
}

void onDevice(State& state, iGPUImage::eFormat depth)
{
    const Look look(lookFile());
    const Qx::Ptr<iGPUImage> source = OS().gpu().uploadImage(scatteredImage(depth), 0);
    const Image::Surface target = makePicture(depth);
    measureOnDevice(state, target, [&] { return look.draw(source, target.getGPUSurface()); });
}

void thereAndBack(State& state, iGPUImage::eFormat depth)
{
    const Look look(lookFile());
    const Qx::Ptr<iHostImage> frame = scatteredImage(depth);
    measureThereAndBack(state, [&] {
        const Qx::Ptr<iGPUImage> target = OS().gpu().createGPUImage(frameSize, depth);
        return look.draw(OS().gpu().uploadImage(frame, 0), target) ? OS().gpu().downloadImage(target)
                                                                   : Qx::Ptr<iHostImage>();
    });
}

} // namespace

void registerLooks()
{
    for (const iGPUImage::eFormat depth : {iGPUImage::eARGB8, iGPUImage::eARGB16}) {
        const auto add = [&](const std::string& name, void (*run)(State&, iGPUImage::eFormat)) {
            benchmark::RegisterBenchmark((name + ", " + depthName(depth) + " bits").c_str(), run, depth)
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
        };
        add("look of 33 points", onDevice);
        add("upload, look of 33 points, read back", thereAndBack);
    }
}

} // namespace Qx::Bench
