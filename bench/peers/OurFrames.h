#pragma once

#include "bench/Frames.h"
#include "bench/peers/Works.h"
#include "platform/GPUImage.h"
#include "platform/Surface.h"

/// Test frames as the library has them: RGB in the order A R G B, rows as texels of four components.
namespace Qx::Bench {

inline iGPUImage::eFormat texelsOf(unsigned depth)
{
    return depth == 8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16;
}

/// The size in texels of a frame of that layout, and their depth.
XY<int> texelSize(FrameLayout layout);
iGPUImage::eFormat texelFormat(FrameLayout layout, unsigned depth);

/// The work's test frame in memory that the device reads; without pixels when there is none to be had.
Image::Surface makeSource(const Work& work);

/// A GPU surface without a picture in it yet, for the work's result.
Image::Surface makeTarget(const Work& work);

/// The frame of an image of the device's, in the layout that participants agree on; empty on failure.
std::vector<std::byte> frameOf(const Qx::Ptr<iGPUImage>& image, FrameLayout layout, unsigned depth);

/// How many frames are recorded before waiting for them.
int framesAtOnce();

} // namespace Qx::Bench
