#include "QxFxResources/GPUColourConverter.h"
#include "fonts/GPUFontCache.h"
#include "image/TechniqueApplication.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "tools/qxhost/diagnose/Steps.h"

#include <fmt/format.h>
#include <functional>

namespace Qx::Diagnosis {

using namespace Image;

namespace {

constexpr int width = hd.width;
constexpr int height = hd.height;
constexpr XY<int> whole{width, height};
constexpr XY<int> pairs{width / 2, height};
constexpr XY<int> v210Words{width / 6 * 4, height};
constexpr XY<int> m101Words{width / 16 * 10, height};
constexpr auto bits8 = iGPUImage::eARGB8;
constexpr auto bits16 = iGPUImage::eARGB16;

using Convert = bool (*)(const Surface& source, Surface& target);

/// One conversion: images of that size in texels, in and out.
struct Conversion
{
    const char* id;
    const char* title;
    XY<int> sourceSize;
    iGPUImage::eFormat sourceFormat;
    Format sourceOrder;
    XY<int> targetSize;
    iGPUImage::eFormat targetFormat;
    Format targetOrder;
    Convert convert;
};

bool decode(const Surface& source, Surface& target)
{
    return ColourConversion::convertYCrCb422ToRGB(source, target, GamutScaling::Unscaled, Filter::CatmullRom);
}

bool encode(const Surface& source, Surface& target)
{
    return ColourConversion::convertRGBToYCrCb422(source, target, Filter::Lanczos);
}

bool rearrange(const Surface& source, Surface& target, const char* technique)
{
    return applyTechnique(getShader(L"null.fx"), source, target, technique,
                          static_cast<float>(source.getWidth()));
}

bool unpackV210(const Surface& source, Surface& target)
{
    return rearrange(source, target, "V210toYUYV");
}

bool packV210(const Surface& source, Surface& target)
{
    return rearrange(source, target, "YUYVtoV210");
}

bool packM101(const Surface& source, Surface&)
{
    Surface target; // the library makes it anew
    return ColourConversion::packMatrox10BitFormat(source, target);
}

bool reorderVideo(const Surface& source, Surface& target)
{
    return rearrange(source, target, "UYVYtoYUYV");
}

bool reorderPicture(const Surface& source, Surface& target)
{
    return rearrange(source, target, "ReverseComponentOrder");
}

// A 10-bit picture is held in 16 bits a component.
const Conversion conversions[]{
    {"decode-8", "4:2:2 to RGB, 8 bits", pairs, bits8, YUY2, whole, bits8, ARGB, decode},
    {"decode-10", "4:2:2 to RGB, 10 bits", pairs, bits16, YUY2, whole, bits16, ARGB, decode},
    {"encode-8", "RGB to 4:2:2, 8 bits", whole, bits8, ARGB, pairs, bits8, YUY2, encode},
    {"encode-10", "RGB to 4:2:2, 10 bits", whole, bits16, ARGB, pairs, bits16, YUY2, encode},
    {"unpack-v210", "v210 to 4:2:2", v210Words, bits8, V210, pairs, bits16, YUY2, unpackV210},
    {"pack-v210", "4:2:2 to v210", pairs, bits16, YUY2, v210Words, bits8, V210, packV210},
    {"unpack-m101", "M101 to 4:2:2", m101Words, bits8, M101, pairs, bits16, YUY2,
     ColourConversion::unpackMatrox10BitFormat},
    {"pack-m101", "4:2:2 to M101", pairs, bits16, YUY2, m101Words, bits8, M101, packM101},
    {"reorder-uyvy", "UYVY to YUY2", pairs, bits8, UYVY, pairs, bits8, YUY2, reorderVideo},
    {"reorder-bgra", "BGRA to ARGB", whole, bits8, BGRA, whole, bits8, ARGB, reorderPicture},
};

Surface makeSurface(XY<int> size, iGPUImage::eFormat format, Format order)
{
    Surface surface = makeWrapper(OS().gpu().createGPUImage(size, format));
    surface.setWidth(static_cast<unsigned>(width));
    surface.setHeight(static_cast<unsigned>(height));
    surface.setDataFormat(order);
    surface.setBitsPerComponent(format == bits8 ? 8 : 16);
    surface.setBitsPerPixel(0);
    surface.setRowPitch(0);
    surface.setColourSpace(ColourSpace::BT709);
    surface.setGamutScaling(order == ARGB || order == BGRA ? GamutScaling::Unscaled : GamutScaling::Video);
    return surface;
}

double bytesOf(XY<int> size, iGPUImage::eFormat format)
{
    return static_cast<double>(size.x) * size.y * (format == bits8 ? 4 : 8);
}

Figure measure(Probe& probe, const Conversion& conversion)
{
    probe.doing(fmt::format("converting a frame of 1920 x 1080, {}", conversion.title));
    const Surface source =
        makeSurface(conversion.sourceSize, conversion.sourceFormat, conversion.sourceOrder);
    Surface target = makeSurface(conversion.targetSize, conversion.targetFormat, conversion.targetOrder);
    const bool hasImages = source.getGPUSurface() && target.getGPUSurface();
    const auto frame = [&] { return hasImages && probe.operation() && conversion.convert(source, target); };
    return rateFigure(conversion.id, "conversions", conversion.title, timeDrawing(probe, frame));
}

Figure measureEffect(Probe& probe)
{
    probe.doing("drawing a frame of 1920 x 1080 through cc3.fx");
    const Qx::Ptr<iShaderEffect> effect = getShader(L"cc3.fx");
    const Surface source = makeSurface(whole, bits8, ARGB);
    Surface target = makeSurface(whole, bits8, ARGB);
    const auto frame = [&] {
        return effect && probe.operation() &&
               applyTechnique(effect, source, target, effect->getTechniqueNames().front(), width);
    };
    return rateFigure("effect-8", "looks", "Colour correction (cc3.fx), 8 bits", timeDrawing(probe, frame));
}

Qx::Ptr<iGPUImage3D> makeTable(int size)
{
    const Qx::Ptr<iHostImage3D> table = OS().gpu().createHostImage3D(size);
    if (!table) {
        return {};
    }
    float* entry = table->getData();
    const auto last = static_cast<float>(size - 1);
    for (int blue = 0; blue < size; ++blue) {
        for (int green = 0; green < size; ++green) {
            for (int red = 0; red < size; ++red) {
                *entry++ = static_cast<float>(red) / last;
                *entry++ = static_cast<float>(green) / last;
                *entry++ = static_cast<float>(blue) / last;
                *entry++ = 1.0F;
            }
        }
    }
    return OS().gpu().upload3DImage(table);
}

Figure measureTable(Probe& probe)
{
    constexpr int points = 33;
    probe.doing("drawing a frame of 1920 x 1080 through LUT.fx");
    const Qx::Ptr<iShaderEffect> effect = getShader(L"LUT.fx");
    const Qx::Ptr<iGPUImage3D> table = makeTable(points);
    const Qx::Ptr<iGPUImage> source = OS().gpu().createGPUImage(whole, bits8);
    const Qx::Ptr<iGPUImage> target = OS().gpu().createGPUImage(whole, bits8);
    Qx::Vector<iShaderEffect::Source> sources;
    sources.emplace_back("Input", source);
    sources.emplace_back("LUT", table);
    const auto frame = [&] {
        return effect && table && probe.operation() && effect->render(target, sources);
    };
    return rateFigure("lut-33", "looks", "LUT of 33 x 33 x 33 (LUT.fx), 8 bits", timeDrawing(probe, frame));
}

Figure measureText(Probe& probe)
{
    constexpr float pixels = 54;
    constexpr XY<int> position{96, 54};
    probe.doing("drawing a line of text into a frame of 1920 x 1080");
    const auto use = GPUFontCache::instance().getFont({L"monospace", pixels, 0});
    const Qx::Ptr<iFont> font = use->value();
    const Qx::Ptr<iGPUImage> target = OS().gpu().createGPUImage(whole, bits8);
    const auto frame = [&] {
        return font && probe.operation() &&
               font->draw(target, L"10:00:00:00  A001_C002_0101.mov", position, {1, 1, 1, 1});
    };
    Figure figure =
        rateFigure("text", "looks", "A line of text of 54 pixels' height", timeDrawing(probe, frame));
    if (!font) {
        figure.failed = false;
        figure.note = "no typeface could be had";
    }
    return figure;
}

} // namespace

void measureConversions(Probe& probe, Yardsticks& yardsticks)
{
    for (const Conversion& conversion : conversions) {
        Figure figure = measure(probe, conversion);
        const double bytes = bytesOf(conversion.sourceSize, conversion.sourceFormat) +
                             bytesOf(conversion.targetSize, conversion.targetFormat);
        yardsticks.compareWithDevice(figure, bytes, bits8);
        probe.send(figure);
    }
}

void measureLooks(Probe& probe, Yardsticks& yardsticks)
{
    for (const auto look : {measureEffect, measureTable}) {
        Figure figure = look(probe);
        yardsticks.compareWithDevice(figure, 2 * bytesOf(whole, bits8), bits8);
        probe.send(figure);
    }
    probe.send(measureText(probe)); // touches a few texels: a copy of the frame is no yardstick
}

} // namespace Qx::Diagnosis
