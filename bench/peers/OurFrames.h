#pragma once

#include "bench/Frames.h"
#include "bench/peers/Works.h"
#include "platform/GPUImage.h"
#include "platform/Surface.h"

/// Test frames in the library's layout: RGB in the order A R G B, rows of four-component texels.
namespace Qx::Bench {

inline iGPUImage::eFormat texelsOf(unsigned depth)
{
    return depth == 8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16;
}

/// Returns the size in texels of a frame of that layout, and the depth.
XY<int> texelSize(FrameLayout layout);
iGPUImage::eFormat texelFormat(FrameLayout layout, unsigned depth);

/// Returns the work's test frame in memory that the device reads, without pixels if out of memory.
Image::Surface makeSource(const Work& work);

/// Returns a GPU surface for the work's result, with undefined contents.
Image::Surface makeTarget(const Work& work);

/// Returns the contents of a GPU image in the layout that participants agree on, or an empty frame on
/// failure.
std::vector<std::byte> frameOf(const Qx::Ptr<iGPUImage>& image, FrameLayout layout, unsigned depth);

/// The number of frames recorded before waiting for them.
int framesAtOnce();

} // namespace Qx::Bench
