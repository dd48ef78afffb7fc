#include "QxFxResources/GPUColourConverter.h"
#include "bench/Fixture.h"
#include "image/TechniqueApplication.h"
#include "platform/GPUService.h"
#include "platform/OS.h"

#include <string>

// Frames per second of each rearrangement of components at 1080p, on the device alone. Copies of as many
// bytes as each one writes are the reference.

namespace Qx::Bench {
namespace {

using namespace Image;
using benchmark::State;

/// One pass of "null.fx".
struct Rearrangement
{
    const char* technique;
    const char* name;
    XY<int> source; ///< in texels
    XY<int> target;
};

constexpr int width = frameSize.x;
constexpr int height = frameSize.y;
constexpr XY<int> whole{width, height};
constexpr XY<int> pairs{width / 2, height};
constexpr XY<int> threes{width * 3 / 4, height};
constexpr XY<int> planes{width / 4, height * 3};
constexpr XY<int> yv12{width / 4, height * 2};
constexpr XY<int> v210{width / 6 * 4, height};
constexpr XY<int> m101{width / 16 * 10, height};

constexpr Rearrangement eitherDepth[]{
    {"FlipVertical", "ARGB upside down to ARGB", whole, whole},
    {"RotateLeft", "RGBA to ARGB", whole, whole},
    {"ABGRtoARGB", "ABGR to ARGB", whole, whole},
    {"ReverseComponentOrder", "BGRA to ARGB", whole, whole},
    {"RGBtoARGB", "24BG to ARGB", threes, whole},
    {"BGRtoARGB_FlipVertical", "b48r upside down to ARGB", threes, whole},
    {"RGBPlanartoARGB", "planar RGB to ARGB", planes, whole},
    {"ARGBtoRGBA", "ARGB to RGBA", whole, whole},
    {"ARGBtoBGR", "ARGB to 24BG", whole, threes},
    {"ARGBtoRGB", "ARGB to b48r", whole, threes},
    {"ARGBtoRGBPlanar", "ARGB to planar RGB", whole, planes},
    {"UYVYtoYUYV", "UYVY to YUY2", pairs, pairs},
    {"YVYUtoYUYV", "YVYU to YUY2", pairs, pairs},
    {"ReverseComponentOrder", "VYUY to YUY2", pairs, pairs},
    {"YV12toYUYV", "YV12 to YUY2", yv12, pairs},
    {"YUYVtoYV12", "YUY2 to YV12", pairs, yv12},
};

Surface gpuSurface(XY<int> size, iGPUImage::eFormat format, Format order = ARGB)
{
    Surface surface = makeWrapper(OS().gpu().createGPUImage(size, format));
    surface.setWidth(static_cast<unsigned>(width));
    surface.setHeight(static_cast<unsigned>(height));
    surface.setDataFormat(order);
    return surface;
}

void rearrange(State& state, const char* technique, const Surface& source, Surface target)
{
    const Qx::Ptr<iShaderEffect> effect = getShader(L"null.fx");
    measureOnDevice(state, target, [&] {
        return applyTechnique(effect, source, target, technique, static_cast<float>(source.getWidth()));
    });
}

void unpackMatrox(State& state, const Surface& source, Surface target)
{
    measureOnDevice(state, target, [&] { return ColourConversion::unpackMatrox10BitFormat(source, target); });
}

void packMatrox(State& state, const Surface& source)
{
    Surface target; // created per frame
    ColourConversion::packMatrox10BitFormat(source, target);
    measureOnDevice(state, target, [&] { return ColourConversion::packMatrox10BitFormat(source, target); });
}

void unpackDvs(State& state, const Surface& source, Surface target)
{
    measureOnDevice(state, target, [&] { return ColourConversion::unpackDvs10BitFormat(source, target); });
}

void addCopy(const char* what, XY<int> size, iGPUImage::eFormat format)
{
    add(std::string("copy on the device of ") + what + ", " + depthName(format) + " bits", rearrange, "Null",
        gpuSurface(size, format), gpuSurface(size, format));
}

void addPackedTenBits()
{
    constexpr auto bytes = iGPUImage::eARGB8;
    constexpr auto words = iGPUImage::eARGB16;
    addCopy("packed 10-bit words", v210, bytes);
    addCopy("M101 words", m101, bytes);
    add("v210 to YUY2, 16 bits", rearrange, "V210toYUYV", gpuSurface(v210, bytes), gpuSurface(pairs, words));
    add("v210 to YUY2, 8 bits", rearrange, "V210toYUYV", gpuSurface(v210, bytes), gpuSurface(pairs, bytes));
    add("YUY2 to v210, 16 bits", rearrange, "YUYVtoV210", gpuSurface(pairs, words), gpuSurface(v210, bytes));
    add("M101 to YUY2, 16 bits", unpackMatrox, gpuSurface(m101, bytes, M101), gpuSurface(pairs, words, YUY2));
    add("YUY2 to M101, 16 bits", packMatrox, gpuSurface(pairs, words, YUY2));
    add("DVS words to YUY2, 8 bits", unpackDvs, gpuSurface(v210, bytes), gpuSurface(pairs, bytes, YUY2));
}

} // namespace

void registerFormats()
{
    for (const iGPUImage::eFormat depth : {iGPUImage::eARGB8, iGPUImage::eARGB16}) {
        addCopy("4:2:2", pairs, depth);
        addCopy("three components a pixel", threes, depth);
        for (const Rearrangement& r : eitherDepth) {
            add(std::string(r.name) + ", " + depthName(depth) + " bits", rearrange, r.technique,
                gpuSurface(r.source, depth), gpuSurface(r.target, depth));
        }
    }
    addPackedTenBits();
}

} // namespace Qx::Bench
