#include "tests/pixels/Gpu.h"

#include "QxFxResources/GPUColourConverter.h"
#include "image/TechniqueApplication.h"

#include <array>
#include <cstring>

namespace Qx::Pixels {

namespace {

/// Which of a texel's components in memory is the picture's i-th: RGB lies as A R G B.
int componentInMemory(Layout layout, int component)
{
    return layout == Layout::Rgb ? (component + 1) % 4 : component;
}

std::uint16_t codeAt(const std::byte* row, int depth, std::size_t index)
{
    if (depth == 8)
        return std::to_integer<std::uint8_t>(row[index]);
    std::uint16_t code = 0;
    std::memcpy(&code, row + 2 * index, sizeof code);
    return code;
}

void setCode(std::byte* row, int depth, std::size_t index, std::uint16_t code)
{
    if (depth == 8) {
        row[index] = static_cast<std::byte>(code);
    } else {
        std::memcpy(row + 2 * index, &code, sizeof code);
    }
}

std::size_t indexInRow(Layout layout, int texel, int component)
{
    return 4 * static_cast<std::size_t>(texel) +
           static_cast<std::size_t>(componentInMemory(layout, component));
}

std::size_t rowBytes(const Picture& picture)
{
    return static_cast<std::size_t>(picture.rowTexels) * (picture.depth == 8 ? 4 : 8);
}

iGPUImage::eFormat formatOf(int depth)
{
    return depth == 8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16;
}

} // namespace

Image::Surface upload(const Picture& picture)
{
    Image::Surface host(static_cast<unsigned>(picture.width), static_cast<unsigned>(picture.height),
                        picture.layout == Layout::Rgb ? Image::ARGB : Image::YUY2, false,
                        static_cast<unsigned short>(picture.depth), 0,
                        static_cast<unsigned short>(rowBytes(picture)));
    if (!host.allocateHost())
        return {};
    auto* bytes = static_cast<std::byte*>(host.getHostImage()->map(iHostImage::Write));
    if (bytes == nullptr)
        return {};
    for (int row = 0; row < picture.height; ++row, bytes += host.getHostImage()->getPitch()) {
        for (int texel = 0; texel < picture.rowTexels; ++texel) {
            for (int component = 0; component < 4; ++component) {
                setCode(bytes, picture.depth, indexInRow(picture.layout, texel, component),
                        picture.at(texel, row, component));
            }
        }
    }
    return host.uploadToGPU();
}

std::optional<Picture> download(const Image::Surface& surface, Layout layout, const std::string& name)
{
    const Image::Surface host = surface.copyToHost();
    if (!host.getHostImage())
        return std::nullopt;
    const auto* bytes = static_cast<const std::byte*>(host.getHostImage()->map(iHostImage::Read));
    if (bytes == nullptr)
        return std::nullopt;
    Picture picture = Picture::blank(name, layout, static_cast<int>(host.getWidth()),
                                     static_cast<int>(host.getHeight()), host.getBitsPerComponent());
    for (int row = 0; row < picture.height; ++row, bytes += host.getHostImage()->getPitch()) {
        for (int texel = 0; texel < picture.rowTexels; ++texel) {
            for (int component = 0; component < 4; ++component) {
                picture.at(texel, row, component) =
                    codeAt(bytes, picture.depth, indexInRow(layout, texel, component));
            }
        }
    }
    return picture;
}

std::optional<Picture> convert(const Conversion& conversion, const Picture& source, int targetDepth)
{
    using namespace Image;
    const bool decode = conversion.direction == Direction::Decode;
    Surface from = upload(source);
    if (!from.getGPUSurface())
        return std::nullopt;
    Surface to = decode ? from.createDestARGBGPUSurface(formatOf(targetDepth))
                        : from.createDestYUY2GPUSurface(formatOf(targetDepth));
    if (conversion.matrix == Matrix::Bt2020) {
        if (!applyTechnique(getShader(L"ColourConvert2020.fx"), from, to, conversion.technique().c_str(),
                            static_cast<float>(source.width)))
            return std::nullopt;
        return download(to, decode ? Layout::Rgb : Layout::Packed422, source.name);
    }
    from.setGamutScaling(static_cast<GamutScaling>(conversion.source));
    (decode ? from : to).setColourSpace(static_cast<ColourSpace>(conversion.matrix));
    const auto filter = static_cast<Image::Filter>(conversion.filter);
    if (decode) {
        if (!ColourConversion::convertYCrCb422ToRGB(from, to, static_cast<GamutScaling>(conversion.target),
                                                    filter))
            return std::nullopt;
        return download(to, Layout::Rgb, source.name);
    }
    to.setGamutScaling(static_cast<GamutScaling>(conversion.target));
    if (!ColourConversion::convertRGBToYCrCb422(from, to, filter))
        return std::nullopt;
    return download(to, Layout::Packed422, source.name);
}

std::optional<Picture> throughEffect(const std::wstring& effect, const std::string& technique,
                                     const Parameters& parameters, const Picture& source)
{
    const Image::Surface from = upload(source);
    const auto shader = Image::getShader(LightweightString<wchar_t>(effect.c_str()));
    if (!from.getGPUSurface() || !shader)
        return std::nullopt;
    for (const auto& [name, value] : parameters) {
        if (!shader->setFloat(LightweightString<char>(name.c_str()), value))
            return std::nullopt;
    }
    Image::Surface to = from.createDestARGBGPUSurface(formatOf(source.depth));
    if (!Image::applyTechnique(shader, from, to, LightweightString<char>(technique.c_str()),
                               static_cast<float>(source.width)))
        return std::nullopt;
    return download(to, Layout::Rgb, source.name);
}

} // namespace Qx::Pixels
