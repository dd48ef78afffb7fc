#include "bench/peers/OurFrames.h"

#include "host/gpu/GPUService.h"
#include "platform/GPUService.h"
#include "platform/OS.h"

#include <algorithm>
#include <cstring>

namespace Qx::Bench {

using namespace Image;

namespace {

/// Moves every pixel's last component to the front, or back.
void moveAlpha(std::byte* bytes, std::size_t count, unsigned depth, bool toFront)
{
    const std::size_t pixel = depth / 2;
    const std::size_t component = depth / 8;
    for (std::size_t at = 0; at < count; at += pixel) {
        std::rotate(bytes + at, bytes + at + (toFront ? pixel - component : component), bytes + at + pixel);
    }
}

} // namespace

XY<int> texelSize(FrameLayout layout)
{
    switch (layout) {
    case FrameLayout::Video:
        return {frameWidth / 2, frameHeight};
    case FrameLayout::V210:
        return {static_cast<int>(rowBytes(layout, 0) / 4), frameHeight};
    case FrameLayout::Colour:
        break;
    }
    return {frameWidth, frameHeight};
}

iGPUImage::eFormat texelFormat(FrameLayout layout, unsigned depth)
{
    return layout == FrameLayout::V210 ? iGPUImage::eARGB8 : texelsOf(depth);
}

Surface makeSource(const Work& work)
{
    const FrameLayout layout = sourceLayout(work.kind);
    const bool video = layout == FrameLayout::Video;
    const bool deep = work.depth == 16;
    std::vector<std::byte> bytes = sourceFrame(work);
    if (layout == FrameLayout::Colour) {
        moveAlpha(bytes.data(), bytes.size(), work.depth, true);
    }
    const Format format = !video ? ARGB : deep ? Y216 : YUY2;
    Surface surface(frameWidth, frameHeight, format, false, deep ? 16 : 8, 0,
                    static_cast<unsigned short>(rowBytes(layout, work.depth)));
    surface.setColourSpace(ColourSpace::BT709);
    surface.setGamutScaling(layout == FrameLayout::Colour ? GamutScaling::Unscaled : GamutScaling::Video);
    const Qx::Ptr<iHostImage> image =
        OS().gpu().createHostImage(texelSize(layout), texelFormat(layout, work.depth));
    void* const memory = image ? image->map(iHostImage::Write) : nullptr;
    if (memory == nullptr) {
        return {};
    }
    std::memcpy(memory, bytes.data(), bytes.size());
    surface.setHostImage(image);
    return surface;
}

Surface makeTarget(const Work& work)
{
    const FrameLayout layout = resultLayout(work.kind);
    Surface target =
        makeWrapper(OS().gpu().createGPUImage(texelSize(layout), texelFormat(layout, work.depth)));
    const bool colour = layout == FrameLayout::Colour;
    target.setColourSpace(ColourSpace::BT709);
    target.setGamutScaling(colour ? GamutScaling::Unscaled : GamutScaling::Video);
    target.setWidth(frameWidth);
    return target;
}

std::vector<std::byte> frameOf(const Qx::Ptr<iGPUImage>& image, FrameLayout layout, unsigned depth)
{
    const Qx::Ptr<iHostImage> host = OS().gpu().downloadImage(image);
    const auto* const memory = host ? static_cast<const std::byte*>(host->map(iHostImage::Read)) : nullptr;
    if (memory == nullptr) {
        return {};
    }
    std::vector<std::byte> bytes(memory, memory + frameBytes(layout, depth));
    if (layout == FrameLayout::Colour) {
        moveAlpha(bytes.data(), bytes.size(), depth, false);
    }
    return bytes;
}

int framesAtOnce()
{
    // A GPU takes microseconds per frame; waiting for it must not dominate the measurement.
    static const int count = chosenDevice().software ? 16 : 256;
    return count;
}

} // namespace Qx::Bench
