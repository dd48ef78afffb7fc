#include "QxFxResources/GPUColourConverter.h"
#include "bench/Fixture.h"
#include "image/TechniqueApplication.h"
#include "platform/GPUService.h"
#include "platform/OS.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

// Frames per second of each conversion at 1080p: on the device alone, and for the round trip of every frame.
// Plain copies of the same bytes are the reference.

namespace Qx::Bench {
namespace {

using namespace Image;
using benchmark::State;

constexpr std::array depths{iGPUImage::eARGB8, iGPUImage::eARGB16};

/// Converts a frame. Returns false if nothing was drawn.
using Conversion = bool (*)(const Surface& source, Surface& target, Filter filter);

bool decode(const Surface& source, Surface& target, Filter filter)
{
    return ColourConversion::convertYCrCb422ToRGB(source, target, GamutScaling::Unscaled, filter);
}

bool encode(const Surface& source, Surface& target, Filter filter)
{
    return ColourConversion::convertRGBToYCrCb422(source, target, filter);
}

bool copy(const Surface& source, Surface& target, Filter)
{
    return applyTechnique(source, target, "Null", static_cast<float>(source.getWidth()), iGPUImage::eARGB8);
}

Surface makeVideoTarget(iGPUImage::eFormat depth)
{
    Surface target = makePicture(depth).createDestYUY2GPUSurface(depth);
    target.setColourSpace(ColourSpace::BT709);
    target.setGamutScaling(GamutScaling::Video);
    return target;
}

void onDevice(State& state, Conversion convert, const Surface& source, Surface target, Filter filter)
{
    measureOnDevice(state, target, [&] { return convert(source, target, filter); });
}

void thereAndBack(State& state, iGPUImage::eFormat depth, Filter filter)
{
    // As many as are in flight: a frame is rewritten only after the device has read it.
    const std::vector<Surface> frames(3, makeVideoFrame(depth));
    std::size_t next = 0;
    measureThereAndBack(state, [&] {
        const Surface source = frames[next++ % frames.size()].uploadToGPU();
        Surface target = makePicture(depth);
        decode(source, target, filter);
        return target.copyToHost().getHostImage();
    });
}

void copyInMemory(State& state, iGPUImage::eFormat depth)
{
    const std::size_t bytes = static_cast<std::size_t>(frameSize.x) * static_cast<std::size_t>(frameSize.y) *
                              (depth == iGPUImage::eARGB8 ? 4 : 8);
    const std::vector<char> source(bytes, 1);
    std::vector<char> target(bytes);
    for (auto _ : state) {
        std::memcpy(target.data(), source.data(), bytes);
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    state.counters["fps"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void addDecoding(iGPUImage::eFormat depth)
{
    const std::string bits = depthName(depth);
    const Surface source = makeVideoFrame(depth).uploadToGPU();
    for (const auto& [filter, name] :
         {std::pair{Filter::Point, "Point"}, std::pair{Filter::CatmullRom, "Catmull-Rom"},
          std::pair{Filter::Mitchell, "Mitchell"}}) {
        add("4:2:2 to RGB, " + bits + " bits, " + name, onDevice, decode, source, makePicture(depth), filter);
    }
}

void addEncoding(iGPUImage::eFormat depth)
{
    const std::string bits = depthName(depth);
    const Surface source = makePicture(depth);
    for (const auto& [filter, name] :
         {std::pair{Filter::Point, "Point"}, std::pair{Filter::Lanczos, "Lanczos"}}) {
        add("RGB to 4:2:2, " + bits + " bits, " + name, onDevice, encode, source, makeVideoTarget(depth),
            filter);
    }
}

} // namespace

void registerConversions()
{
    for (const iGPUImage::eFormat depth : depths) {
        const std::string bits = depthName(depth);
        add("memcpy of an RGB frame, " + bits + " bits", copyInMemory, depth);
        add("copy on the device, " + bits + " bits", onDevice, copy, makePicture(depth), makePicture(depth),
            Filter::Point);
        addDecoding(depth);
        addEncoding(depth);
        add("upload, 4:2:2 to RGB, read back, " + bits + " bits, Catmull-Rom", thereAndBack, depth,
            Filter::CatmullRom);
    }
}

} // namespace Qx::Bench
