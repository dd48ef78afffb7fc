#include "bench/Fixture.h"
#include "bench/Grade.h"
#include "bench/Look.h"
#include "platform/GPUService.h"
#include "platform/OS.h"

#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

// A LUT of 33 points per axis, and a colour correction, over a frame of scattered colours: the effect on the
// device alone, and the round trip of every frame.

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

template <class Effect>
void onDevice(State& state, const Effect& effect, iGPUImage::eFormat depth)
{
    const Qx::Ptr<iGPUImage> source = OS().gpu().uploadImage(scatteredImage(depth), 0);
    const Image::Surface target = makePicture(depth);
    measureOnDevice(state, target, [&] { return effect.draw(source, target.getGPUSurface()); });
}

template <class Effect>
void thereAndBack(State& state, const Effect& effect, iGPUImage::eFormat depth)
{
    const Qx::Ptr<iHostImage> frame = scatteredImage(depth);
    measureThereAndBack(state, [&] {
        const Qx::Ptr<iGPUImage> target = OS().gpu().createGPUImage(frameSize, depth);
        return effect.draw(OS().gpu().uploadImage(frame, 0), target) ? OS().gpu().downloadImage(target)
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
        add("look of 33 points",
            [](State& state, iGPUImage::eFormat of) { onDevice(state, Look(lookFile()), of); });
        add("upload, look of 33 points, read back",
            [](State& state, iGPUImage::eFormat of) { thereAndBack(state, Look(lookFile()), of); });
        add("colour correction", [](State& state, iGPUImage::eFormat of) { onDevice(state, Grade(), of); });
        add("upload, colour correction, read back",
            [](State& state, iGPUImage::eFormat of) { thereAndBack(state, Grade(), of); });
    }
}

} // namespace Qx::Bench
