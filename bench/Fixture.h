#pragma once

#include "platform/GPUImage.h"
#include "platform/Surface.h"

#include <benchmark/benchmark.h>

#include <functional>

/// What the benchmarks share: frames of one size, and waiting for the device.
namespace Qx::Bench {

inline constexpr XY<int> frameSize{1920, 1080};

inline const char* depthName(iGPUImage::eFormat format)
{
    return format == iGPUImage::eARGB8 ? "8" : "16";
}

/// A frame of video-range BT.709 4:2:2 in host memory: a colourful ramp.
Image::Surface makeVideoFrame(iGPUImage::eFormat depth);

/// An empty RGB frame on the GPU.
Image::Surface makePicture(iGPUImage::eFormat depth);

/// Waits until the device has done all that is recorded.
void finish();

/// Frames a second of a pass into that target, as the counter "fps"; the counter "bytes" has the target's
/// bytes. `draw` records the pass, and is false when it cannot.
void measureOnDevice(benchmark::State& state, const Image::Surface& target,
                     const std::function<bool()>& draw);

/// Frames a second there and back, as the counter "fps", with three under way at a time. `start` begins with
/// the next one and gives the memory that it will come back to.
void measureThereAndBack(benchmark::State& state, const std::function<Qx::Ptr<iHostImage>()>& start);

/// The device that the benchmarks run on, for people.
const char* deviceName();

} // namespace Qx::Bench
