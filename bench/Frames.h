#pragma once

#include "platform/GPUImage.h"
#include "platform/Surface.h"

namespace Qx::Host {
struct DeviceDescription;
}

/// What the benchmarks share: frames of one size, and waiting for the device.
namespace Qx::Bench {

inline constexpr XY<int> frameSize{1920, 1080};

inline const char* depthName(iGPUImage::eFormat format)
{
    return format == iGPUImage::eARGB8 ? "8" : "16";
}

/// A frame of video-range BT.709 4:2:2 in host memory: a colourful ramp.
Image::Surface makeVideoFrame(iGPUImage::eFormat depth, XY<int> size = frameSize);

/// An empty RGB frame on the GPU.
Image::Surface makePicture(iGPUImage::eFormat depth, XY<int> size = frameSize);

/// Waits until the device has done all that is recorded. One thread at a time.
void finish();

/// The device that the benchmarks run on; without a name when there is none.
Host::DeviceDescription chosenDevice();

/// The same for people.
const char* deviceName();

} // namespace Qx::Bench
