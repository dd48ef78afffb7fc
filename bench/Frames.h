#pragma once

#include "platform/GPUImage.h"
#include "platform/Surface.h"

namespace Qx::Host {
struct DeviceDescription;
}

/// Shared by the benchmarks: frames of one size, and waiting for the device.
namespace Qx::Bench {

inline constexpr XY<int> frameSize{1920, 1080};

inline const char* depthName(iGPUImage::eFormat format)
{
    return format == iGPUImage::eARGB8 ? "8" : "16";
}

/// Creates a frame of video-range BT.709 4:2:2 in host memory: a colour ramp.
Image::Surface makeVideoFrame(iGPUImage::eFormat depth, XY<int> size = frameSize);

/// Creates an RGB frame on the GPU with undefined contents.
Image::Surface makePicture(iGPUImage::eFormat depth, XY<int> size = frameSize);

/// Blocks until the device has finished everything recorded. Not thread-safe.
void finish();

/// Returns the device that the benchmarks run on; its name is empty if there is none.
Host::DeviceDescription chosenDevice();

/// Returns a description of the device.
const char* deviceName();

} // namespace Qx::Bench
